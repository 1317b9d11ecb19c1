// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QSaveFile>
#include <QtCore/QString>

namespace buslink {

/// New content for a file, which replaces the old one as a whole or not at all.
class FileReplacement
{
public:
    explicit FileReplacement(const QString &path);

    /// Adds to the content. *Fails:* false, and nothing more is taken; `commit` tells why.
    bool write(const QByteArray &bytes);
    /// Puts the content in the place of the old one. Returns why not, or an empty text.
    QString commit();

private:
    void failToWrite();
    void fail();

    QSaveFile mFile;
    bool mComplete = true;
    QString mError;
};

} // namespace buslink
