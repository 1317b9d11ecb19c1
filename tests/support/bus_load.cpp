// SPDX-License-Identifier: MIT
#include "support/bus_load.h"

#include "support/frame_recorder.h"
#include "support/open_adapter.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QProcess>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

template <typename Count>
void waitUntilStill(Count count)
{
    auto last = count();
    do {
        last = count();
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
    } while (count() != last);
}

} // namespace

int runBusReceiver(int argc, char **argv)
{
    if (argc != 3 || std::strcmp(argv[1], "receive-from-bus") != 0)
        return -1;
    const QCoreApplication application(argc, argv);
    std::atomic<qint64> received = 0;
    std::atomic<qint64> outOfOrder = 0;
    qint64 last = -1;
    const AdapterPointer<DemoCanAdapter> adapter = makeVirtualAdapter(QByteArray(argv[2]).toUShort());
    QObject::connect(adapter.get(), &AbstractCanAdapter::newCanMessage, [&](CAN::CanRxMessage *message) {
        if (message->message.id <= last)
            ++outOfOrder;
        last = message->message.id;
        ++received;
    });
    adapter->open();
    while (std::getchar() != EOF) {
    }
    waitUntilStill([&] { return received.load(); });
    std::printf("%lld %lld\n", static_cast<long long>(received), static_cast<long long>(outOfOrder));
    return 0;
}

PacedResult runPacedBus(const QString &program, int receivers, double framesPerSecond, qint64 frames)
{
    PacedResult result;
    const quint16 port = freeUdpPort();
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int index = 0; index < receivers; ++index) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        processes.back()->start(program, {QStringLiteral("receive-from-bus"), QString::number(port)});
    }
    result.started = QTest::qWaitFor([&] { return udpSocketsOnPort(port) == receivers; }, 30000);

    std::atomic<qint64> echoes = 0;
    const AdapterPointer<DemoCanAdapter> sender = makeVirtualAdapter(port);
    QObject::connect(sender.get(), &AbstractCanAdapter::newCanMessage, [&echoes](CAN::CanRxMessage *message) {
        if (message->isTx)
            ++echoes;
    });
    sender->setEcho(true);
    result.started = result.started && openOnBus(sender.get());
    const auto start = Clock::now();
    for (; result.started && result.sent < frames; ++result.sent) {
        const std::chrono::duration<double> due(static_cast<double>(result.sent) / framesPerSecond);
        std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(due));
        sender->write(makeFrame(static_cast<quint32>(result.sent), "paced 8b"));
    }
    const bool allSent = QTest::qWaitFor([&] { return echoes == result.sent; }, 30000);
    result.framesPerSecond =
        static_cast<double>(result.sent) / std::chrono::duration<double>(Clock::now() - start).count();
    result.started = result.started && allSent;
    for (const auto &process : processes) {
        process->closeWriteChannel();
        process->waitForFinished(30000);
        const QList<QByteArray> numbers = process->readAllStandardOutput().trimmed().split(' ');
        result.received.append(numbers.value(0).toLongLong());
        result.outOfOrder += numbers.value(1).toLongLong();
    }
    return result;
}
