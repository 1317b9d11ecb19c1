// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMutex>
#include <QtCore/QPair>
#include <QtCore/QStringList>
#include <QtCore/QVector>

#include <atomic>

/// What stand-ins for calls of the operating system share: a record of the calls and failures on demand. While one
/// lives, pauses of threads are only noted. One at a time; a program that uses it compiles this file and has the
/// linker wrap the calls, those for pauses included.
class FakedCalls
{
public:
    FakedCalls(const FakedCalls &) = delete;
    FakedCalls &operator=(const FakedCalls &) = delete;

    /// Makes every call fail whose text begins so, with an error number. A call's text is its name and its
    /// arguments as `calls()` has them.
    void fail(const char *callBeginning, int errorNumber);
    /// Makes all calls work again.
    void mend();
    /// The calls so far that are kept.
    QStringList calls() const;
    /// Forgets the calls.
    void forgetCalls();
    /// The pauses so far, in microseconds.
    QVector<qint64> pauses() const;

    /// For the calls that stand in: whether this one is to fail, with errno set then; `keep` puts it on record.
    bool refuses(const QString &call, bool keep);
    /// For the calls that stand in.
    void pause(qint64 microseconds);

protected:
    FakedCalls();
    ~FakedCalls();

    mutable QMutex mMutex; ///< Guards the fields of derived classes, too.

private:
    QStringList mCalls;
    QVector<QPair<QString, int>> mFailures;
    QVector<qint64> mPauses;
};

/// The text of a call, as `printf` makes it.
template <typename... Arguments>
QString callText(const char *format, Arguments... arguments)
{
    return QString::asprintf(format, arguments...);
}
