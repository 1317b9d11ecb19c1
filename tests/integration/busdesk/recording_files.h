// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/recording.h"

#include <QtCore/QEventLoop>
#include <QtCore/QTemporaryDir>

#include <memory>

using Loaded = std::shared_ptr<const buslink::Recording>;

inline QStringList strings(std::initializer_list<const char *> list)
{
    QStringList texts;
    for (const char *const text : list)
        texts.append(QString::fromLatin1(text));
    return texts;
}

/// Makes recordings for a test, and reads them.
class RecordingFiles
{
protected:
    /// A path where there is no file yet.
    QString newFile() { return mFolder.filePath(QStringLiteral("%1.log").arg(++mFiles)); }

    QString fileWith(const QByteArray &content)
    {
        QString path = newFile();
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
            qFatal("no file for the test");
        return path;
    }

    Loaded readAll(const QByteArray &content)
    {
        buslink::RecordingReader reader;
        QEventLoop loop;
        Loaded recording;
        QObject::connect(&reader, &buslink::RecordingReader::finished, &reader, [&](const Loaded &loaded) {
            recording = loaded;
            loop.quit();
        });
        if (!reader.start(fileWith(content)).isEmpty())
            return nullptr;
        loop.exec();
        return recording;
    }

private:
    QTemporaryDir mFolder;
    int mFiles = 0;
};
