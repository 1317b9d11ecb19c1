// SPDX-License-Identifier: MIT
#include "fake_can4linux.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

// The linker sends the calls of this program's own objects to the names with __wrap and gives what they
// were meant for the names with __real.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
int __real_close(int descriptor);
int __real_open(const char *path, int flags, ...);
ssize_t __real_read(int descriptor, void *bytes, size_t size);
ssize_t __real_write(int descriptor, const void *bytes, size_t size);
int __real_ioctl(int descriptor, unsigned long request, void *argument);
int __real_poll(pollfd *entries, nfds_t count, int timeoutMs);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

constexpr int FrameBytes = 104;

std::atomic<FakeCan4linux *> theDriver = nullptr;

/// The driver if it is the one to answer calls on this descriptor.
FakeCan4linux *driverOf(int descriptor)
{
    FakeCan4linux *const driver = theDriver;
    return driver && driver->knows(descriptor) ? driver : nullptr;
}

} // namespace

FakeCan4linux::FakeCan4linux()
{
    theDriver = this;
}

FakeCan4linux::~FakeCan4linux()
{
    theDriver = nullptr;
    for (const int descriptor : std::as_const(mDescriptors))
        __real_close(descriptor);
}

void FakeCan4linux::arrive(const QByteArray &frame)
{
    const QMutexLocker lock(&mMutex);
    Q_ASSERT(frame.size() == FrameBytes);
    mArrivals.append({frame, 0});
    announce();
}

void FakeCan4linux::arriveNothing(int errorNumber)
{
    const QMutexLocker lock(&mMutex);
    mArrivals.append({QByteArray(), errorNumber});
    announce();
}

// Makes the descriptor readable once more.
void FakeCan4linux::announce()
{
    const quint64 one = 1;
    if (mLast < 0 || __real_write(mLast, &one, sizeof one) != sizeof one)
        qFatal("nobody has opened the device");
}

QVector<QByteArray> FakeCan4linux::takeWritten()
{
    const QMutexLocker lock(&mMutex);
    return std::exchange(mWritten, {});
}

QString FakeCan4linux::lastWait() const
{
    const QMutexLocker lock(&mMutex);
    return mLastWait;
}

QString FakeCan4linux::lastRead() const
{
    const QMutexLocker lock(&mMutex);
    return mLastRead;
}

int FakeCan4linux::descriptor() const
{
    const QMutexLocker lock(&mMutex);
    return mLast;
}

int FakeCan4linux::openDescriptors() const
{
    const QMutexLocker lock(&mMutex);
    return mDescriptors.size();
}

bool FakeCan4linux::knows(int descriptor) const
{
    const QMutexLocker lock(&mMutex);
    return mDescriptors.contains(descriptor);
}

int FakeCan4linux::open(const QString &call)
{
    if (refuses(call, true))
        return -1;
    const QMutexLocker lock(&mMutex);
    mLast = ::eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK | EFD_CLOEXEC);
    mDescriptors.append(mLast);
    return mLast;
}

void FakeCan4linux::closed(int descriptor)
{
    const QMutexLocker lock(&mMutex);
    mDescriptors.removeOne(descriptor);
    if (descriptor == mLast)
        mLast = mDescriptors.isEmpty() ? -1 : mDescriptors.constLast();
}

qint64 FakeCan4linux::read(const QString &call, int descriptor, void *frame)
{
    const QMutexLocker lock(&mMutex);
    mLastRead = call;
    quint64 count = 0;
    if (mArrivals.isEmpty() || __real_read(descriptor, &count, sizeof count) < 0) {
        errno = EAGAIN;
        return -1;
    }
    const Arrival arrival = mArrivals.takeFirst();
    if (arrival.frame.isNull()) {
        errno = arrival.errorNumber;
        return arrival.errorNumber == 0 ? 0 : -1;
    }
    std::memcpy(frame, arrival.frame.constData(), FrameBytes);
    return 1;
}

void FakeCan4linux::written(const void *frame)
{
    const QMutexLocker lock(&mMutex);
    mWritten.append(QByteArray(static_cast<const char *>(frame), FrameBytes));
}

void FakeCan4linux::setLastWait(const QString &call)
{
    const QMutexLocker lock(&mMutex);
    mLastWait = call;
}

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl50-cpp)
extern "C" {

int __wrap_open(const char *path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = va_arg(arguments, unsigned int);
    va_end(arguments);
    FakeCan4linux *const driver = theDriver;
    if (!driver || std::strncmp(path, "/dev/can", 8) != 0)
        return __real_open(path, flags, mode);
    return driver->open(callText("open(%s, %#x)", path, flags));
}

int __wrap_close(int descriptor)
{
    FakeCan4linux *const driver = driverOf(descriptor);
    if (!driver)
        return __real_close(descriptor);
    const bool refused = driver->refuses(QStringLiteral("close()"), true);
    driver->closed(descriptor);
    const int error = errno;
    __real_close(descriptor);
    errno = error;
    return refused ? -1 : 0;
}

int __wrap_ioctl(int descriptor, unsigned long request, void *argument)
{
    FakeCan4linux *const driver = driverOf(descriptor);
    if (!driver)
        return __real_ioctl(descriptor, request, argument);
    struct
    {
        int command;
        int target;
        unsigned long values[4];
    } parameters;
    static_assert(sizeof parameters == 40);
    std::memcpy(&parameters, argument, sizeof parameters);
    const unsigned long *values = parameters.values;
    const QString call = callText("ioctl(%lu: %d, %d, %lu; %lu, %lu, %lu)", request, parameters.command,
                                  parameters.target, values[0], values[1], values[2], values[3]);
    return driver->refuses(call, true) ? -1 : 0;
}

int __wrap_poll(pollfd *entries, nfds_t count, int timeoutMs)
{
    FakeCan4linux *const driver = count == 1 ? driverOf(entries->fd) : nullptr;
    if (!driver)
        return __real_poll(entries, count, timeoutMs);
    const QString call = callText("poll(0x%x, %d ms)", entries->events, timeoutMs);
    driver->setLastWait(call);
    return driver->refuses(call, false) ? -1 : __real_poll(entries, count, timeoutMs);
}

ssize_t __wrap_read(int descriptor, void *bytes, size_t size)
{
    FakeCan4linux *const driver = driverOf(descriptor);
    return driver ? driver->read(callText("read(%zu)", size), descriptor, bytes) : __real_read(descriptor, bytes, size);
}

ssize_t __wrap_write(int descriptor, const void *bytes, size_t size)
{
    FakeCan4linux *const driver = driverOf(descriptor);
    if (!driver)
        return __real_write(descriptor, bytes, size);
    if (driver->refuses(callText("write(%zu)", size), true))
        return -1;
    driver->written(bytes);
    return static_cast<ssize_t>(size);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier,cert-dcl50-cpp)
