// SPDX-License-Identifier: MIT
#include "support/simulated_usb_device.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

SimulatedUsbDevice::SimulatedUsbDevice(int descriptor)
    : mDescriptor(descriptor), mWake(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (mDescriptor < 0 || mWake < 0)
        qFatal("simulated device without a line");
    mThread = std::thread([this] { run(); });
}

SimulatedUsbDevice::~SimulatedUsbDevice()
{
    mStop = true;
    wake();
    mThread.join();
    ::close(mWake);
}

QByteArray SimulatedUsbDevice::received() const
{
    const QMutexLocker lock(&mMutex);
    return mReceived;
}

int SimulatedUsbDevice::receivedCount() const
{
    const QMutexLocker lock(&mMutex);
    return mReceived.size();
}

void SimulatedUsbDevice::forgetReceived()
{
    const QMutexLocker lock(&mMutex);
    mReceived.clear();
}

void SimulatedUsbDevice::send(const QByteArray &bytes)
{
    const QMutexLocker lock(&mMutex);
    enqueue(bytes);
    wake();
}

bool SimulatedUsbDevice::hasSentAll() const
{
    const QMutexLocker lock(&mMutex);
    return mOutgoing.isEmpty();
}

void SimulatedUsbDevice::setReturning(bool returning)
{
    const QMutexLocker lock(&mMutex);
    mReturning = returning;
}

void SimulatedUsbDevice::setAnswer(const QByteArray &answer)
{
    const QMutexLocker lock(&mMutex);
    mAnswer = answer;
}

void SimulatedUsbDevice::setListening(bool listening)
{
    const QMutexLocker lock(&mMutex);
    mListening = listening;
    wake();
}

void SimulatedUsbDevice::setPieces(int size, int pauseMs)
{
    const QMutexLocker lock(&mMutex);
    mPieceSize = size;
    mPauseMs = pauseMs;
}

void SimulatedUsbDevice::damage(int position)
{
    const QMutexLocker lock(&mMutex);
    mFaults.insert(mPosition + position, Fault::Damage);
}

void SimulatedUsbDevice::drop(int position)
{
    const QMutexLocker lock(&mMutex);
    mFaults.insert(mPosition + position, Fault::Drop);
}

// With the lock held.
void SimulatedUsbDevice::enqueue(const QByteArray &bytes)
{
    for (const char byte : bytes) {
        const auto fault = mFaults.constFind(mPosition++);
        if (fault == mFaults.constEnd())
            mOutgoing.append(byte);
        else if (*fault == Fault::Damage)
            mOutgoing.append(static_cast<char>(byte ^ 1));
    }
}

void SimulatedUsbDevice::wake()
{
    static_cast<void>(::eventfd_write(mWake, 1));
}

void SimulatedUsbDevice::run()
{
    while (!mStop) {
        std::array<pollfd, 2> lines{{{mDescriptor, 0, 0}, {mWake, POLLIN, 0}}};
        {
            const QMutexLocker lock(&mMutex);
            lines[0].events = static_cast<short>((mListening ? POLLIN : 0) | (mOutgoing.isEmpty() ? 0 : POLLOUT));
        }
        // A line that nobody has open is ready all the time.
        if (lines[0].events == 0)
            lines[0].fd = -1;
        ::poll(lines.data(), lines.size(), -1);
        if (lines[1].revents != 0) {
            eventfd_t count = 0;
            static_cast<void>(::eventfd_read(mWake, &count));
        }
        if (lines[0].revents & POLLIN)
            take();
        if (lines[0].revents & POLLOUT)
            give();
        if ((lines[0].revents & (POLLIN | POLLHUP | POLLERR)) == POLLHUP)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void SimulatedUsbDevice::take()
{
    std::array<char, 65536> chunk; // NOLINT(cppcoreguidelines-pro-type-member-init)
    const ssize_t got = ::read(mDescriptor, chunk.data(), chunk.size());
    if (got <= 0)
        return;
    const QByteArray bytes(chunk.data(), static_cast<int>(got));
    const QMutexLocker lock(&mMutex);
    mReceived += bytes;
    if (mReturning)
        enqueue(bytes);
    for (const char byte : bytes) {
        if (mLastByte == ' ' && byte == '\r')
            enqueue(mAnswer);
        mLastByte = byte;
    }
}

void SimulatedUsbDevice::give()
{
    QByteArray piece;
    int pauseMs = 0;
    {
        const QMutexLocker lock(&mMutex);
        piece = mOutgoing.left(mPieceSize);
        pauseMs = mPauseMs;
    }
    if (pauseMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(pauseMs));
    const ssize_t written = ::write(mDescriptor, piece.constData(), static_cast<std::size_t>(piece.size()));
    if (written <= 0)
        return;
    const QMutexLocker lock(&mMutex);
    mOutgoing.remove(0, static_cast<int>(written));
}
