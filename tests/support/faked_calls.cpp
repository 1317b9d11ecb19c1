// SPDX-License-Identifier: MIT
#include "support/faked_calls.h"

#include <cerrno>
#include <utility>

namespace {

std::atomic<FakedCalls *> theCalls = nullptr;

} // namespace

FakedCalls::FakedCalls()
{
    Q_ASSERT(!theCalls);
    theCalls = this;
}

FakedCalls::~FakedCalls()
{
    theCalls = nullptr;
}

void FakedCalls::fail(const char *callBeginning, int errorNumber)
{
    const QMutexLocker lock(&mMutex);
    mFailures.append({QString::fromLatin1(callBeginning), errorNumber});
}

void FakedCalls::mend()
{
    const QMutexLocker lock(&mMutex);
    mFailures.clear();
}

QStringList FakedCalls::calls() const
{
    const QMutexLocker lock(&mMutex);
    return mCalls;
}

void FakedCalls::forgetCalls()
{
    const QMutexLocker lock(&mMutex);
    mCalls.clear();
}

QVector<qint64> FakedCalls::pauses() const
{
    const QMutexLocker lock(&mMutex);
    return mPauses;
}

bool FakedCalls::refuses(const QString &call, bool keep)
{
    const QMutexLocker lock(&mMutex);
    if (keep)
        mCalls.append(call);
    for (const auto &failure : std::as_const(mFailures)) {
        if (call.startsWith(failure.first)) {
            errno = failure.second;
            return true;
        }
    }
    return false;
}

void FakedCalls::pause(qint64 microseconds)
{
    const QMutexLocker lock(&mMutex);
    mPauses.append(microseconds);
}

// The linker sends the calls of this program's own objects to the names with __wrap and gives what they
// were meant for the names with __real.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void __real__ZN7QThread6usleepEm(unsigned long microseconds);
void __real__ZN7QThread6msleepEm(unsigned long milliseconds);

void __wrap__ZN7QThread6usleepEm(unsigned long microseconds)
{
    if (FakedCalls *const calls = theCalls)
        calls->pause(static_cast<qint64>(microseconds));
    else
        __real__ZN7QThread6usleepEm(microseconds);
}

void __wrap__ZN7QThread6msleepEm(unsigned long milliseconds)
{
    if (FakedCalls *const calls = theCalls)
        calls->pause(static_cast<qint64>(milliseconds) * 1000);
    else
        __real__ZN7QThread6msleepEm(milliseconds);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
