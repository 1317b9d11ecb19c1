// SPDX-License-Identifier: MIT
// What an open adapter costs that has nothing to do: processor time and wake-ups of all threads of the process.
// Those that wait with a time limit stand beside a bare loop of pauses as long. In a guest only the adapters that need
// its kernel are measured.
#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>
#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include "peers/peer.h"
#include "support/can_peers.h"
#include "support/mock_ports.h"
#include "support/mock_serial_port.h"
#include "support/open_adapter.h"
#include "support/report.h"
#include "support/thread_switches.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QHash>
#include <QtCore/QLoggingCategory>
#include <QtNetwork/QTcpServer>

#include <algorithm>
#include <net/if.h>

namespace {

struct Cost
{
    double processor = 0.0; ///< Percent of one.
    double wakeUps = 0.0;   ///< A second.
};

/// How often each thread has gone to sleep so far.
using Switches = QHash<QString, qint64>;

Switches switchesSoFar()
{
    Switches switches;
    for (const QString &thread : QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot))
        switches.insert(thread, std::max(voluntarySwitches(thread), qint64(0)));
    return switches;
}

/// Of the threads that are still there: those that ended before may be listed for a while.
qint64 switchesSince(const Switches &before)
{
    qint64 sum = 0;
    const Switches now = switchesSoFar();
    for (auto thread = now.cbegin(); thread != now.cend(); ++thread)
        sum += std::max(thread.value() - before.value(thread.key()), qint64(0));
    return sum;
}

/// The one wake-up of the wait itself is left out.
Cost costOfWaiting(const Report &report)
{
    const Switches before = switchesSoFar();
    const Usage begin = Usage::now();
    QThread::msleep(report.quick() ? 200 : 5000);
    const Usage end = Usage::now();
    const double seconds = end.clock - begin.clock;
    return {100.0 * (end.processor - begin.processor) / seconds,
            static_cast<double>(switchesSince(before) - 1) / seconds};
}

/// A loop that does nothing but pause.
Cost costOfPauses(const Report &report, unsigned long microseconds)
{
    std::atomic<bool> stop = false;
    const std::unique_ptr<QThread> loop(QThread::create([&] {
        while (!stop)
            QThread::usleep(microseconds);
    }));
    loop->start(QThread::InheritPriority);
    const Cost cost = costOfWaiting(report);
    stop = true;
    loop->wait();
    return cost;
}

/// An open adapter beside a loop with its pauses; 0 where it has none.
void reportOpen(const Report &report, const char *name, AbstractCanAdapter *adapter, unsigned long pause)
{
    const Cost cost = costOfWaiting(report);
    const QString processor = QStringLiteral("%1, processor time").arg(QLatin1String(name));
    const QString wakeUps = QStringLiteral("%1, wake-ups").arg(QLatin1String(name));
    const QString percent = QStringLiteral("% of one");
    adapter->closeAdapter();
    adapter->wait();
    if (pause == 0) {
        report.figure(processor, cost.processor, percent);
        report.figure(wakeUps, cost.wakeUps, QStringLiteral("1/s"));
        return;
    }
    const Cost bare = costOfPauses(report, pause);
    const QString peer = QStringLiteral("bare loop of pauses");
    report.compare(processor, cost.processor, percent, Report::Better::Less, peer, bare.processor);
    report.compare(wakeUps, cost.wakeUps, QStringLiteral("1/s"), Report::Better::Less, peer, bare.wakeUps);
}

/// Opens an adapter that has a loop. A loaded machine may need longer for that than a USB adapter waits.
void openLoop(AbstractCanAdapter &adapter)
{
    adapter.open();
    if (!waitForLoop(&adapter))
        qFatal("an adapter could not be opened");
}

void reportVirtualBus(const Report &report)
{
    const auto adapter = makeVirtualAdapter(freeUdpPort());
    if (!openOnBus(adapter.get()))
        qFatal("no virtual bus");
    reportOpen(report, "virtual bus", adapter.get(), 10000);
}

// Without its sleep the loop pauses too seldom for a limit.
void reportUsb(const Report &report, const char *name, bool disableSleep)
{
    const MockSerialPort port;
    ZorbekUSBCanAdapter adapter(port.name());
    adapter.setCanAdapterOption(AbstractCanAdapter::option_baudrate, 115200);
    adapter.setCanAdapterOption(AbstractCanAdapter::option_disableSleep, disableSleep);
    openLoop(adapter);
    reportOpen(report, name, &adapter, disableSleep ? 0 : 5);
}

void reportGateway(const Report &report)
{
    QTcpServer server;
    CiA309Adapter adapter(QStringLiteral("gateway"));
    adapter.setCanAdapterOption(AbstractCanAdapter::option_ipAddress, QStringLiteral("127.0.0.1"));
    const bool listens = server.listen(QHostAddress::LocalHost);
    adapter.setCanAdapterOption(AbstractCanAdapter::option_portNumber, server.serverPort());
    if (!listens || adapter.open() != CAN::RetOk)
        qFatal("no gateway");
    reportOpen(report, "CiA 309-3", &adapter, 0);
}

void reportPacketBridge(const Report &report)
{
    PXRDummyAdapter adapter;
    adapter.open();
    reportOpen(report, "packet bridge", &adapter, 0);
}

void reportWithCan(const Report &report)
{
    SocketCanAdapter socketCan(peerInterface);
    openLoop(socketCan);
    reportOpen(report, "SocketCAN", &socketCan, 100000);
    if (!QFile::exists(QStringLiteral("/dev/can0"))) {
        report.note(QStringLiteral("can4linux not measured: there is no /dev/can0 here"));
        return;
    }
    Can4linuxCanAdapter can4linux(QStringLiteral("/dev/can0"));
    openLoop(can4linux);
    reportOpen(report, "can4linux", &can4linux, 1000);
}

} // namespace

int main(int argc, char **argv)
{
    const bool inGuest = qEnvironmentVariableIsSet("BUSLINKDESK_GUEST");
    if (!inGuest)
        restartWithMockPorts(argv);
    const Report report(argc, argv, QStringLiteral("an idle adapter"));
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.info=false"));
    if (!inGuest) {
        reportVirtualBus(report);
        reportUsb(report, "USB", false);
        reportUsb(report, "USB, option_disableSleep", true);
        reportGateway(report);
        reportPacketBridge(report);
    }
    if (::if_nametoindex(peerInterface.toLatin1().constData()) != 0)
        reportWithCan(report);
    return 0;
}
