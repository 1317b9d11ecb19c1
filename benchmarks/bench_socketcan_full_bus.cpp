// SPDX-License-Identifier: MIT
// An application at work on a full bus: every identifier has a receiver, one frame goes out cyclically, and
// nothing may be lost.
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/traffic/can_message_transmitter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "peers/peer.h"
#include "support/can_peers.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>

namespace {

/// What came through the scheduler. Its slots run on the adapter's thread.
struct Arrivals
{
    std::atomic<int> count = 0;
    std::atomic<int> outOfOrder = 0;
    qint64 last = -1;

    void take(const CAN::CanRxMessage &record)
    {
        quint32 number = 0;
        std::memcpy(&number, record.message.data, sizeof number);
        if (number <= last)
            ++outOfOrder;
        last = number;
        ++count;
    }
};

/// An application at work: every identifier of a full bus has a receiver, and one frame goes out cyclically.
void reportFullBus(const Report &report, int frames, unsigned int cycleMs)
{
    Arrivals arrivals;
    SocketCanAdapter adapter(peerInterface);
    CanScheduler scheduler(&adapter);
    CanMessageTransmitter transmitter(1);
    for (const QPointer<CanSender> &sender : scheduler.registerCanIdRange(0, IdentifierCount - 1))
        QObject::connect(sender.data(), qOverload<CAN::CanRxMessage>(&CanSender::received),
                         [&arrivals](const CAN::CanRxMessage &record) { arrivals.take(record); });
    scheduler.connectToAdapter(true);
    if (adapter.open() != CAN::RetOk)
        qFatal("no adapter");
    while (!adapter.getRunning())
        QThread::msleep(1);
    CAN::CanMessage cyclic;
    cyclic.id = IdentifierCount;
    transmitter.setCanAdapter(&adapter);
    transmitter.setTranmissionParameter(cyclic, cycleMs, 0);
    transmitter.startTransmission();

    const double processorBefore = Usage::now().processor;
    const std::optional<PeerResult> sent = resultOf(bareSender(peerInterface, frames, FullBusRate));
    if (!sent)
        qFatal("no sender");
    int seen = -1;
    while (arrivals.count < frames && arrivals.count != seen) {
        seen = arrivals.count;
        QThread::msleep(1000);
    }
    const double processor = Usage::now().processor - processorBefore;
    transmitter.stopTransmission();
    scheduler.connectToAdapter(false);
    adapter.closeAdapter();
    adapter.wait();

    const QString what = QStringLiteral("full bus, a frame out every %1 ms").arg(cycleMs);
    const double seconds = sent->seconds;
    report.compare(what + QStringLiteral(", pace"), frames / seconds, QStringLiteral("1/s"), Report::Better::More,
                   QStringLiteral("asked for"), FullBusRate);
    report.figure(what + QStringLiteral(", sent"), frames, QStringLiteral("frames"));
    report.figure(what + QStringLiteral(", lost"), frames - arrivals.count, QStringLiteral("frames"));
    report.figure(what + QStringLiteral(", out of order"), arrivals.outOfOrder, QStringLiteral("frames"));
    report.figure(what + QStringLiteral(", of one processor"), 100.0 * processor / seconds, QStringLiteral("%"));
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("SocketCAN, a full bus"));
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.info=false"));
    if (!hasPeerInterface(report))
        return 0;
    const auto framesOf = [](int seconds) { return static_cast<int>(FullBusRate * seconds); };
    reportFullBus(report, framesOf(report.quick() ? 3 : 60), 100);
    if (!report.quick()) {
        for (const unsigned int cycleMs : {50U, 20U, 10U})
            reportFullBus(report, framesOf(10), cycleMs);
    }
    return 0;
}
