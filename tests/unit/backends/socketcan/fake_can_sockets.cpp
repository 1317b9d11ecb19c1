// SPDX-License-Identifier: MIT
#include "fake_can_sockets.h"

#include <QtCore/QtGlobal>

#include <cerrno>
#include <cstring>
#include <linux/can.h>
#include <net/if.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

// The linker sends the calls of this program's own objects to the names with __wrap and gives what they
// were meant for the names with __real.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __real_close(int descriptor);

namespace {

std::atomic<FakeCanSockets *> theFake = nullptr;

/// The stand-in if it is the one to answer calls on this descriptor.
FakeCanSockets *fakeFor(int descriptor)
{
    FakeCanSockets *const fake = theFake;
    return fake && fake->knows(descriptor) ? fake : nullptr;
}

QString optionText(const char *name, int level, int option, unsigned int length)
{
    return callText("%s(%d, %d, %u bytes", name, level, option, length);
}

} // namespace

FakeCanSockets::FakeCanSockets()
{
    Q_ASSERT(!theFake);
    theFake = this;
}

FakeCanSockets::~FakeCanSockets()
{
    theFake = nullptr;
    if (mPeer >= 0)
        ::close(mPeer);
}

void FakeCanSockets::mend()
{
    FakedCalls::mend();
    const QMutexLocker lock(&mMutex);
    mShortWrites = false;
}

void FakeCanSockets::shortenWrites()
{
    const QMutexLocker lock(&mMutex);
    mShortWrites = true;
}

QString FakeCanSockets::lastWait() const
{
    const QMutexLocker lock(&mMutex);
    return mLastWait;
}

QString FakeCanSockets::lastReception() const
{
    const QMutexLocker lock(&mMutex);
    return mLastReception;
}

void FakeCanSockets::setClock(qint64 seconds, qint64 microseconds)
{
    const QMutexLocker lock(&mMutex);
    mClock = {seconds, microseconds};
}

void FakeCanSockets::setSecondsPerWrite(qint64 seconds)
{
    const QMutexLocker lock(&mMutex);
    mSecondsPerWrite = seconds;
}

void FakeCanSockets::arrive(const QByteArray &bytes) const
{
    // Sending waits where the adapter has not taken what arrived before, so it must not hold the lock.
    if (::send(peer(), bytes.constData(), static_cast<std::size_t>(bytes.size()), 0) != bytes.size())
        qFatal("a frame could not be put on its way");
}

QByteArray FakeCanSockets::takeWritten() const
{
    QByteArray bytes(200, '\0');
    const ssize_t size = ::recv(peer(), bytes.data(), static_cast<std::size_t>(bytes.size()), MSG_DONTWAIT);
    return size < 0 ? QByteArray() : bytes.left(static_cast<int>(size));
}

int FakeCanSockets::peer() const
{
    const QMutexLocker lock(&mMutex);
    return mPeer;
}

bool FakeCanSockets::knows(int descriptor) const
{
    const QMutexLocker lock(&mMutex);
    return mDescriptors.contains(descriptor);
}

int FakeCanSockets::open(const QString &call)
{
    if (refuses(call, true))
        return -1;
    const QMutexLocker lock(&mMutex);
    int pair[2];
    if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, pair) != 0)
        qFatal("no pair of sockets");
    if (mPeer >= 0)
        __real_close(mPeer);
    mPeer = pair[1];
    mDescriptors.append(pair[0]);
    return pair[0];
}

void FakeCanSockets::closed(int descriptor)
{
    const QMutexLocker lock(&mMutex);
    mDescriptors.removeOne(descriptor);
}

void FakeCanSockets::setLastWait(const QString &call)
{
    const QMutexLocker lock(&mMutex);
    mLastWait = call;
}

void FakeCanSockets::setLastReception(const QString &call)
{
    const QMutexLocker lock(&mMutex);
    mLastReception = call;
}

QPair<qint64, qint64> FakeCanSockets::clock() const
{
    const QMutexLocker lock(&mMutex);
    return mClock;
}

bool FakeCanSockets::beginWrite()
{
    const QMutexLocker lock(&mMutex);
    mClock.first += mSecondsPerWrite;
    return !mShortWrites;
}

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_socket(int family, int type, int protocol);
int __real_ioctl(int descriptor, unsigned long request, void *argument);
int __real_bind(int descriptor, const sockaddr *address, socklen_t length);
int __real_setsockopt(int descriptor, int level, int option, const void *value, socklen_t length);
int __real_getsockopt(int descriptor, int level, int option, void *value, socklen_t *length);
int __real_poll(pollfd *entries, nfds_t count, int timeoutMs);
ssize_t __real_recvmsg(int descriptor, msghdr *message, int flags);
ssize_t __real_write(int descriptor, const void *bytes, size_t size);
int __real_gettimeofday(timeval *now, void *zone);

int __wrap_socket(int family, int type, int protocol)
{
    FakeCanSockets *const fake = theFake;
    if (fake && family == PF_CAN)
        return fake->open(callText("socket(%d, %d, %d)", family, type, protocol));
    return __real_socket(family, type, protocol);
}

int __wrap_close(int descriptor)
{
    FakeCanSockets *const fake = fakeFor(descriptor);
    if (!fake)
        return __real_close(descriptor);
    fake->closed(descriptor);
    const bool refused = fake->refuses(QStringLiteral("close()"), true);
    const int error = errno;
    __real_close(descriptor);
    errno = error;
    return refused ? -1 : 0;
}

int __wrap_ioctl(int descriptor, unsigned long request, void *argument)
{
    FakeCanSockets *const fake = fakeFor(descriptor);
    if (!fake)
        return __real_ioctl(descriptor, request, argument);
    auto *interface = static_cast<ifreq *>(argument);
    if (fake->refuses(callText("ioctl(%#lx, '%s')", request, interface->ifr_name), true))
        return -1;
    interface->ifr_ifindex = 77;
    return 0;
}

int __wrap_bind(int descriptor, const sockaddr *address, socklen_t length)
{
    FakeCanSockets *const fake = fakeFor(descriptor);
    if (!fake)
        return __real_bind(descriptor, address, length);
    const auto *can = reinterpret_cast<const sockaddr_can *>(address);
    const QString call = callText("bind(%u bytes, %d, %d)", length, can->can_family, can->can_ifindex);
    return fake->refuses(call, true) ? -1 : 0;
}

int __wrap_setsockopt(int descriptor, int level, int option, const void *value, socklen_t length)
{
    FakeCanSockets *const fake = fakeFor(descriptor);
    if (!fake)
        return __real_setsockopt(descriptor, level, option, value, length);
    unsigned int number = 0;
    std::memcpy(&number, value, sizeof number);
    const QString call = optionText("setsockopt", level, option, length) + callText(": %#x)", number);
    return fake->refuses(call, true) ? -1 : 0;
}

int __wrap_getsockopt(int descriptor, int level, int option, void *value, socklen_t *length)
{
    FakeCanSockets *const fake = fakeFor(descriptor);
    if (!fake)
        return __real_getsockopt(descriptor, level, option, value, length);
    if (fake->refuses(optionText("getsockopt", level, option, *length) + QLatin1Char(')'), true))
        return -1;
    const int number = 425984;
    std::memcpy(value, &number, sizeof number);
    return 0;
}

int __wrap_poll(pollfd *entries, nfds_t count, int timeoutMs)
{
    FakeCanSockets *const fake = count == 1 ? fakeFor(entries->fd) : nullptr;
    if (!fake)
        return __real_poll(entries, count, timeoutMs);
    const QString call = callText("poll(0x%x, %d ms)", entries->events, timeoutMs);
    fake->setLastWait(call);
    if (fake->refuses(call, false))
        return -1;
    return __real_poll(entries, count, 1); // So that stopping an adapter takes no time.
}

ssize_t __wrap_recvmsg(int descriptor, msghdr *message, int flags)
{
    FakeCanSockets *const fake = fakeFor(descriptor);
    if (!fake)
        return __real_recvmsg(descriptor, message, flags);
    const QString call = callText("recvmsg(%zu x %zu bytes, name %u, control %zu, flags %d)", message->msg_iovlen,
                                  message->msg_iov->iov_len, message->msg_namelen, message->msg_controllen, flags);
    fake->setLastReception(call);
    if (fake->refuses(call, false))
        return -1;
    return __real_recvmsg(descriptor, message, flags);
}

ssize_t __wrap_write(int descriptor, const void *bytes, size_t size)
{
    FakeCanSockets *const fake = fakeFor(descriptor);
    if (!fake)
        return __real_write(descriptor, bytes, size);
    const bool whole = fake->beginWrite();
    if (fake->refuses(callText("write(%zu bytes)", size), false))
        return -1;
    return whole ? __real_write(descriptor, bytes, size) : static_cast<ssize_t>(size) - 1;
}

int __wrap_gettimeofday(timeval *now, void *zone)
{
    const FakeCanSockets *const fake = theFake;
    if (!fake)
        return __real_gettimeofday(now, zone);
    const QPair<qint64, qint64> clock = fake->clock();
    *now = {clock.first, clock.second};
    return 0;
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
