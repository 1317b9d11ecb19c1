// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include "raw_can_socket.h"
#include "support/frame_recorder.h"
#include "support/log_recorder.h"
#include "support/open_adapter.h"
#include "support/stderr_recorder.h"
#include "unit/backends/socketcan/kernel_frames.h"

#include <QtTest/QtTest>

// What the tests of the SocketCAN adapter in a guest share.

inline constexpr int WaitMs = 60000;
inline const QByteArray eight = QByteArray::fromHex("1122334455667788");

using Adapter = AdapterPointer<SocketCanAdapter>;

/// An adapter for an interface, with the loop that it will run.
inline Adapter makeAdapter(const char *interface = "vcan0", bool canFd = false)
{
    Adapter adapter(new SocketCanAdapter(QString::fromLatin1(interface)));
    adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, canFd);
    return adapter;
}

/// A message for one of the two kinds of frame.
inline CAN::CanMessage message(quint32 id, const QByteArray &payload, bool isFd = false)
{
    CAN::CanMessage made = makeFrame(id, payload);
    made.isFd = isFd;
    return made;
}

/// The two loops as rows of a test.
inline void addLoops()
{
    QTest::addColumn<bool>("canFd");
    QTest::newRow("classic loop") << false;
    QTest::newRow("FD loop") << true;
}
