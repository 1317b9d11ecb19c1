// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include "support/free_port.h"

#include <QtTest/QtTest>

#include <memory>
#include <thread>

/// Stops an adapter before it deletes it, also where a test fails half-way: without the pause of
/// `prepareToTerminate`, but not before the loop has begun, when a stop would not be heard.
struct AdapterStopper
{
    void operator()(AbstractCanAdapter *adapter) const
    {
        while (adapter->isRunning() && !adapter->getRunning())
            std::this_thread::yield(); // tests that stand in for pauses count those of QThread
        adapter->closeAdapter();
        adapter->wait();
        delete adapter;
    }
};

template <typename Adapter>
using AdapterPointer = std::unique_ptr<Adapter, AdapterStopper>;

/// Waits until an adapter's loop runs: one that is stopped before that would run on. False if it does not within the
/// time.
inline bool waitForLoop(const AbstractCanAdapter *adapter, int timeoutMs = 60000)
{
    return QTest::qWaitFor([adapter] { return adapter->getRunning(); }, timeoutMs);
}

/// Opens an adapter and waits until its loop runs.
inline bool openAndWait(AbstractCanAdapter *adapter, int timeoutMs = 60000)
{
    return adapter->open() == CAN::RetOk && waitForLoop(adapter, timeoutMs);
}

/// A virtual adapter on a port.
inline AdapterPointer<DemoCanAdapter> makeVirtualAdapter(quint16 port, int uniqueId = 0)
{
    AdapterPointer<DemoCanAdapter> adapter(new DemoCanAdapter(QStringLiteral("virtual")));
    adapter->setCanAdapterOption(AbstractCanAdapter::option_portNumber, port);
    adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, uniqueId);
    return adapter;
}

/// Opens a virtual adapter and waits until it hears the bus. False if it does not within the time.
inline bool openOnBus(DemoCanAdapter *adapter, int timeoutMs = 20000)
{
    const auto port =
        static_cast<quint16>(adapter->getCanAdapterOption(AbstractCanAdapter::option_portNumber).toUInt());
    const int before = udpSocketsOnPort(port);
    if (adapter->open() != CAN::RetOk)
        return false;
    return QTest::qWaitFor([&] { return udpSocketsOnPort(port) > before; }, timeoutMs);
}
