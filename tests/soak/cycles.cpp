// SPDX-License-Identifier: MIT
#include "soak/cycles.h"
#include "soak/lines.h"

#include "support/frame_recorder.h"
#include "support/gateway_client.h"
#include "support/open_adapter.h"
#include "support/process_level.h"

#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#ifdef BUSLINKDESK_MOCK_PORTS
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/mock_serial_port.h"
#endif
#ifdef BUSLINKDESK_COUNT_HEAP_BLOCKS
#include "support/heap_blocks.h"
#endif

#include <QtCore/QFile>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <unistd.h>

namespace {

// What the system and Qt keep for later may come and go by so much, but not by a block for each cycle.
constexpr qint64 HeapBlocksOfCaches = 50;

struct Kind
{
    const char *name;
    std::function<bool()> cycle;
};

struct Level
{
    qint64 descriptors;
    qint64 threads;
    qint64 heapBlocks;
    qint64 residentKib;

    static Level now()
    {
        QFile memory(QStringLiteral("/proc/self/statm"));
        if (!memory.open(QIODevice::ReadOnly))
            qFatal("no account of the memory");
        const qint64 pages = memory.readAll().split(' ').value(1).toLongLong();
        memory.close();
        Level level{openDescriptors(), threadCount(), 0, pages * ::getpagesize() / 1024};
#ifdef BUSLINKDESK_COUNT_HEAP_BLOCKS
        level.heapBlocks = ::heapBlocks();
#endif
        return level;
    }
};

/// The owner of the adapter closes it.
bool opens(AbstractCanAdapter *adapter)
{
    if (adapter->open() != CAN::RetOk)
        return false;
    while (!adapter->getRunning() && adapter->isRunning())
        std::this_thread::yield();
    return adapter->getRunning();
}

/// A loop on an interface waits for up to 100 ms, unless a frame comes.
Kind socketCanKind()
{
    const QString interface = QStringLiteral("vcan0");
    const std::shared_ptr<AbstractCanAdapter> peer(new SocketCanAdapter(interface), AdapterStopper());
    if (!opens(peer.get()))
        qFatal("no interface");
    return {"SocketCAN", [interface, peer] {
                const AdapterPointer<AbstractCanAdapter> adapter(new SocketCanAdapter(interface));
                const bool opened = opens(adapter.get());
                adapter->closeAdapter();
                peer->write(makeFrame(1, "12345678"));
                return opened;
            }};
}

Kind can4linuxKind(const QString &device)
{
    return {"can4linux",
            [device] { return opens(AdapterPointer<AbstractCanAdapter>(new Can4linuxCanAdapter(device)).get()); }};
}

Kind virtualKind()
{
    return {"virtual bus", [port = freeUdpPort()] { return opens(makeVirtualAdapter(port).get()); }};
}

#ifdef BUSLINKDESK_MOCK_PORTS
Kind usbKind()
{
    return {"USB", [port = std::make_shared<MockSerialPort>()] {
                const AdapterPointer<AbstractCanAdapter> adapter(new ZorbekUSBCanAdapter(port->name()));
                adapter->setCanAdapterOption(AbstractCanAdapter::option_baudrate, 115200);
                // A loaded machine may need longer than the adapter waits for its thread.
                return opens(adapter.get()) || waitForLoop(adapter.get(), 20000);
            }};
}
#endif

Kind gatewayKind()
{
    const auto server = std::make_shared<QTcpServer>();
    if (!server->listen(QHostAddress(QHostAddress::LocalHost)))
        qFatal("no free TCP port");
    return {"gateway", [server] {
                CiA309Adapter adapter{QString()};
                setGateway(adapter, server->serverPort());
                if (adapter.open() != CAN::RetOk || !server->waitForNewConnection(20000))
                    return false;
                const std::unique_ptr<QTcpSocket> peer(server->nextPendingConnection());
                const bool sent = adapter.write(QStringLiteral("1 start")) == CAN::RetOk;
                const QDeadlineTimer patience(20000);
                while (sent && !peer->canReadLine() && !patience.hasExpired())
                    QCoreApplication::processEvents();
                adapter.closeAdapter();
                return peer->canReadLine() && !adapter.getRunning();
            }};
}

Kind bridgeKind()
{
    return {"packet bridge", [] {
                PXRDummyAdapter adapter;
                const bool opened = adapter.open() == CAN::RetOk;
                adapter.write(makeFrame(1, "12345678"));
                adapter.closeAdapter();
                return opened;
            }};
}

std::vector<Kind> kinds(const QString &only)
{
    std::vector<Kind> kinds;
    const auto add = [&](const char *name, const auto &make) {
        if (only.isEmpty() || only == QLatin1String(name))
            kinds.push_back(make());
    };
    add("virtual", virtualKind);
    add("gateway", gatewayKind);
    add("bridge", bridgeKind);
    if (qEnvironmentVariableIsSet("BUSLINKDESK_GUEST"))
        add("socketcan", socketCanKind);
    if (const QStringList devices = loopingDevices(); !devices.isEmpty())
        add("can4linux", [&] { return can4linuxKind(devices.at(0)); });
#ifdef BUSLINKDESK_MOCK_PORTS
    if (qgetenv("LD_PRELOAD").contains("umockdev"))
        add("usb", usbKind);
#endif
    return kinds;
}

bool repeat(const Kind &kind, int times)
{
    for (int cycle = 0; cycle < times; ++cycle) {
        if (!kind.cycle()) {
            std::printf("%s: cycle %d failed\n", kind.name, cycle);
            return false;
        }
    }
    return true;
}

bool run(const Kind &kind, int cycles)
{
    // What is made once and kept.
    if (!repeat(kind, 20))
        return false;
    QCoreApplication::processEvents();
    const Level before = Level::now();
    QElapsedTimer timer;
    timer.start();
    if (!repeat(kind, cycles))
        return false;
    const double seconds = static_cast<double>(timer.elapsed()) / 1000.0;
    QCoreApplication::processEvents();
    // A thread has left its list only some time after it was waited for.
    static_cast<void>(QTest::qWaitFor([&] { return Level::now().threads <= before.threads; }, 5000));
    const Level after = Level::now();
    const Level left{after.descriptors - before.descriptors, after.threads - before.threads,
                     after.heapBlocks - before.heapBlocks, after.residentKib - before.residentKib};
    std::printf("%-14s %7d %9.1f %12lld %8lld %12lld %13lld\n", kind.name, cycles, seconds, left.descriptors,
                left.threads, left.heapBlocks, left.residentKib);
    return left.descriptors <= 0 && left.threads <= 0
           && left.heapBlocks <= std::min<qint64>(HeapBlocksOfCaches, cycles / 2);
}

} // namespace

bool runCycles(int cycles, const QString &only)
{
    const std::vector<Kind> chosen = kinds(only);
    bool clean = !chosen.empty() && cycles > 0;
    if (!clean)
        std::fprintf(stderr, "no openings of such a back end here\n");
    std::printf("%-14s %7s %9s %12s %8s %12s %13s\n", "left behind", "cycles", "seconds", "descriptors", "threads",
                "heap blocks", "resident/KiB");
    for (const Kind &kind : chosen)
        clean = run(kind, cycles) && clean;
    return clean;
}
