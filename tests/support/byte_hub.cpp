// SPDX-License-Identifier: MIT
#include "support/byte_hub.h"

#include <array>
#include <chrono>
#include <unistd.h>

ByteHub::ByteHub() : mThread([this] { run(); }) {}

ByteHub::~ByteHub()
{
    mStop = true;
    mThread.join();
}

QString ByteHub::addPort()
{
    const QMutexLocker lock(&mMutex);
    mPorts.push_back({std::make_unique<MockSerialPort>(), QByteArray()});
    return mPorts.back().port->name();
}

// A terminal that nobody has open is ready all the time, so there is nothing to wait for.
void ByteHub::run()
{
    while (!mStop) {
        {
            const QMutexLocker lock(&mMutex);
            for (std::size_t port = 0; port < mPorts.size(); ++port)
                copyFrom(port);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
}

void ByteHub::copyFrom(std::size_t port)
{
    std::array<char, 1024> chunk{};
    const ssize_t got = ::read(mPorts[port].port->farEnd(), chunk.data(), chunk.size());
    for (std::size_t other = 0; other < mPorts.size(); ++other) {
        if (other == port)
            continue;
        if (got > 0)
            mPorts[other].waiting.append(chunk.data(), static_cast<int>(got));
        giveWhatWaits(mPorts[other]);
    }
}

// A terminal takes some 4 KiB until its reader comes.
void ByteHub::giveWhatWaits(Port &port)
{
    if (port.waiting.isEmpty())
        return;
    const ssize_t taken =
        ::write(port.port->farEnd(), port.waiting.constData(), static_cast<std::size_t>(port.waiting.size()));
    if (taken > 0)
        port.waiting.remove(0, static_cast<int>(taken));
}
