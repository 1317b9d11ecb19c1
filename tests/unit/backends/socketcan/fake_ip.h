// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMap>
#include <QtCore/QStringList>

/// A stand-in for the program that knows the interfaces, while an object of this lives. Programs that use it are linked
/// so that the library's calls come here.
class FakeIp
{
public:
    /// Answers with these texts, by the arguments, and with nothing to all others.
    explicit FakeIp(QMap<QString, QString> answers);
    ~FakeIp();
    Q_DISABLE_COPY_MOVE(FakeIp)

    /// The arguments of the calls so far, each as one text.
    QStringList asked() const { return mAsked; }

    /// Notes a call and answers it.
    QString answer(const QStringList &arguments);

private:
    QMap<QString, QString> mAnswers;
    QStringList mAsked;
};
