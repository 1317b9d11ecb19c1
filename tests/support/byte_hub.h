// SPDX-License-Identifier: MIT
#pragma once

#include "support/mock_serial_port.h"

#include <QtCore/QMutex>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

/// Serial ports that are joined: what is written to one comes out of all others, by way of a thread of its own.
class ByteHub
{
public:
    ByteHub();
    ~ByteHub();
    ByteHub(const ByteHub &) = delete;
    ByteHub &operator=(const ByteHub &) = delete;

    /// Adds a port and returns its name.
    QString addPort();

private:
    /// A port with the bytes for it that it has not taken yet.
    struct Port
    {
        std::unique_ptr<MockSerialPort> port;
        QByteArray waiting;
    };

    void run();
    void copyFrom(std::size_t port);
    static void giveWhatWaits(Port &port);

    QMutex mMutex;
    std::vector<Port> mPorts;
    std::atomic<bool> mStop = false;
    std::thread mThread;
};
