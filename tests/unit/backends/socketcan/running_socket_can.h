// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include "fake_can_sockets.h"
#include "support/log_recorder.h"
#include "support/open_adapter.h"

/// An adapter with the log, and with a faked socket under it.
struct SocketCanFixture
{
    LogRecorder log;
    FakeCanSockets sockets;
    AdapterPointer<SocketCanAdapter> adapter;

    explicit SocketCanFixture(const char *name = "can0") : adapter(new SocketCanAdapter(QString::fromUtf8(name))) {}

    bool open(int timeoutMs = 20000) { return openAndWait(adapter.get(), timeoutMs); }
    /// Stops the adapter and waits for the end of its thread.
    bool close(unsigned long timeoutMs = 20000)
    {
        adapter->closeAdapter();
        return adapter->wait(timeoutMs);
    }
};
