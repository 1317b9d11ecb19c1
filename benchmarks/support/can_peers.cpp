// SPDX-License-Identifier: MIT
#include "support/can_peers.h"

#include "peers/peer.h"
#include "support/child_process.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <algorithm>
#include <array>
#include <net/if.h>
#include <unistd.h>

namespace {

QString peerProgram(const char *name)
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/peers/") + QLatin1String(name);
}

CanPeer ownPeer(const QString &name, const char *program, const QString &bus)
{
    const auto command = [program, bus](const QString &verb) {
        return [program, bus, verb](int frames) { return peerCommand(program, verb, bus, frames); };
    };
    return {name, command(QStringLiteral("receive")), command(QStringLiteral("send")),
            [program, bus](const QString &verb, int frames) { return peerCommand(program, verb, bus, frames); }};
}

/// The sockets that the kernel passes all frames of the interface to.
int listeners()
{
    QFile list(QStringLiteral("/proc/net/can/rcvlist_all"));
    if (!list.open(QIODevice::ReadOnly))
        qFatal("the kernel does not list its CAN sockets");
    int count = 0;
    for (const QByteArray &line : list.readAll().split('\n'))
        count += line.trimmed().startsWith(peerInterface.toLatin1() + ' ') ? 1 : 0;
    return count;
}

bool cannotRun(const ChildProcess::End &end)
{
    if (end.status != 0 && end.status != StatusNotHere && end.status != 127)
        qFatal("a peer ended with status %d", end.status);
    return end.status != 0;
}

std::array<double, 3> printedNumbers(const ChildProcess::End &end)
{
    const QList<QByteArray> words = end.output.simplified().split(' ');
    if (words.size() != 3)
        qFatal("a peer printed \"%s\"", end.output.constData());
    return {words[0].toDouble(), words[1].toDouble(), words[2].toDouble()};
}

PeerResult printedResult(const ChildProcess::End &end)
{
    const auto [frames, seconds, processorSeconds] = printedNumbers(end);
    return {frames, seconds, processorSeconds};
}

std::optional<PeerResult> resultOfWholeRun(const QStringList &command, int frames)
{
    const double begin = ChildProcess::secondsNow();
    const ChildProcess::End end = ChildProcess(command).wait();
    if (cannotRun(end))
        return std::nullopt;
    return PeerResult{double(frames), ChildProcess::secondsNow() - begin, end.processorSeconds};
}

} // namespace

bool hasPeerInterface(const Report &report)
{
    if (::if_nametoindex(peerInterface.toLatin1().constData()) != 0)
        return true;
    report.note(QStringLiteral("skipped: there is no %1 here; tests/guest/run has one").arg(peerInterface));
    return false;
}

QStringList peerCommand(const char *program, const QString &verb, const QString &bus, int frames)
{
    return {peerProgram(program), verb, bus, QString::number(frames)};
}

QStringList bareSender(const QString &bus, int frames, double framesPerSecond)
{
    return peerCommand("bare_can_peer", QStringLiteral("send"), bus, frames) << QString::number(framesPerSecond);
}

CanPeer adapterWithoutEcho(const QString &bus)
{
    CanPeer own = canPeers(bus).front();
    own.send = [bus](int frames) {
        return peerCommand("adapter_can_peer", QStringLiteral("send-without-echo"), bus, frames);
    };
    return own;
}

std::vector<CanPeer> canPeers(const QString &bus)
{
    const auto candump = [](int frames) {
        return QStringList{QStringLiteral("candump"), QStringLiteral("-n"),   QString::number(frames),
                           QStringLiteral("-T"),      QStringLiteral("5000"), peerInterface};
    };
    const QString frame = bus == fdBus() ? QStringLiteral("-f -b -L 64") : QStringLiteral("-L 8");
    const auto cangen = [frame](int frames) {
        return QString::fromLatin1("cangen -g 0 -I i -D i %1 -n %2 %3")
            .arg(frame)
            .arg(frames)
            .arg(peerInterface)
            .split(QLatin1Char(' '));
    };
    return {ownPeer(QStringLiteral("adapter"), "adapter_can_peer", bus),
            ownPeer(QStringLiteral("bare loop"), "bare_can_peer", bus),
            ownPeer(QStringLiteral("Qt SerialBus"), "serialbus_can_peer", bus),
            ownPeer(QStringLiteral("python-can"), "python_can_peer", bus),
            {QStringLiteral("candump/cangen"), candump, cangen, {}, false}};
}

std::optional<PeerResult> runReceiver(const CanPeer &peer, const QString &bus, int frames, double framesPerSecond)
{
    const int before = listeners();
    ChildProcess receiver(peer.receive(frames));
    while (receiver.isRunning() && listeners() == before)
        ::usleep(10'000);
    const double processorBefore = receiver.processorSeconds();
    double begin = 0.0;
    if (receiver.isRunning()) {
        const ChildProcess::End sent = ChildProcess(bareSender(bus, frames, framesPerSecond)).wait();
        if (cannotRun(sent))
            qFatal("no sender");
        begin = ChildProcess::secondsNow() - printedResult(sent).seconds;
    }
    const ChildProcess::End end = receiver.wait();
    if (cannotRun(end))
        return std::nullopt;
    if (peer.measuresItself)
        return printedResult(end);
    return PeerResult{double(std::max(end.output.count('\n') - 1, 0)), end.lastOutput - begin,
                      end.processorSeconds - processorBefore};
}

std::optional<PeerResult> runSender(const CanPeer &peer, int frames)
{
    if (peer.measuresItself)
        return resultOf(peer.send(frames));
    const std::optional<PeerResult> one = resultOfWholeRun(peer.send(1), 1);
    const std::optional<PeerResult> all = resultOfWholeRun(peer.send(frames + 1), frames + 1);
    if (!one || !all)
        return std::nullopt;
    return PeerResult{all->frames - one->frames, all->seconds - one->seconds,
                      all->processorSeconds - one->processorSeconds};
}

std::optional<PeerResult> resultOf(const QStringList &command)
{
    const ChildProcess::End end = ChildProcess(command).wait();
    return cannotRun(end) ? std::nullopt : std::optional(printedResult(end));
}

std::optional<PeerTimes> timesOf(const QStringList &command)
{
    const ChildProcess::End end = ChildProcess(command).wait();
    if (cannotRun(end))
        return std::nullopt;
    const auto [median, percentile99, percentile999] = printedNumbers(end);
    return PeerTimes{median, percentile99, percentile999};
}
