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
#include <sched.h>
#include <unistd.h>

namespace {

CanPeer ownPeer(const QString &name, const char *program, const QString &bus)
{
    return {name, [program, bus](const QString &verb, int frames) { return peerCommand(program, verb, bus, frames); }};
}

QStringList canUtilsCommand(const QString &verb, const QString &bus, int frames)
{
    QString command;
    if (verb == QLatin1String("receive"))
        command = QStringLiteral("candump -n %1 -T 5000 %2");
    else if (verb == QLatin1String("send") && bus == fdBus())
        command = QStringLiteral("cangen -g 0 -I i -D i -f -b -L 64 -n %1 %2");
    else if (verb == QLatin1String("send"))
        command = QStringLiteral("cangen -g 0 -I i -D i -L 8 -n %1 %2");
    else
        return {};
    return command.arg(frames).arg(peerInterface).split(QLatin1Char(' '));
}

enum class Processor { OfSender, OfReceiver };

/// The command on a processor of its own. Where the scheduler may choose, it wakes receivers now beside the sender, now
/// on its processor, and what a frame costs them doubles or does not.
QStringList placed(Processor processor, const QStringList &command)
{
    cpu_set_t ours;
    CPU_ZERO(&ours);
    if (command.isEmpty() || ::sched_getaffinity(0, sizeof ours, &ours) != 0 || CPU_COUNT(&ours) < 2)
        return command;
    int number = processor == Processor::OfSender ? 0 : CPU_SETSIZE - 1;
    while (!CPU_ISSET(number, &ours))
        number += processor == Processor::OfSender ? 1 : -1;
    return QStringList{QStringLiteral("taskset"), QStringLiteral("-c"), QString::number(number)} + command;
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

QString peerProgram(const char *name)
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/peers/") + QLatin1String(name);
}

QStringList peerCommand(const char *program, const QString &verb, const QString &bus, int frames)
{
    return {peerProgram(program), verb, bus, QString::number(frames)};
}

QStringList bareSender(const QString &bus, int frames, double framesPerSecond)
{
    return peerCommand("bare_can_peer", QStringLiteral("send"), bus, frames) << QString::number(framesPerSecond);
}

std::vector<CanPeer> canPeers(const QString &bus)
{
    const auto canUtils = [bus](const QString &verb, int frames) { return canUtilsCommand(verb, bus, frames); };
    return {ownPeer(QStringLiteral("adapter"), "adapter_can_peer", bus),
            ownPeer(bareLoopPeer, "bare_can_peer", bus),
            ownPeer(serialBusPeer, "serialbus_can_peer", bus),
            ownPeer(QStringLiteral("python-can"), "python_can_peer", bus),
            {QStringLiteral("candump/cangen"), canUtils, false}};
}

std::vector<CanPeer> peersWithoutEcho(const QString &bus)
{
    const auto adapter = [bus](const QString &verb, int frames) {
        return peerCommand("adapter_can_peer", verb + QStringLiteral("-without-echo"), bus, frames);
    };
    std::vector<CanPeer> silent{{QStringLiteral("adapter without echo"), adapter}};
    for (const CanPeer &peer : canPeers(bus)) {
        if (peer.name == bareLoopPeer || peer.name == serialBusPeer)
            silent.push_back(peer);
    }
    return silent;
}

std::optional<PeerResult> runReceiver(const CanPeer &peer, const QString &bus, int frames, double framesPerSecond)
{
    const int before = listeners();
    ChildProcess receiver(placed(Processor::OfReceiver, peer.command(QStringLiteral("receive"), frames)));
    while (receiver.isRunning() && listeners() == before)
        ::usleep(10'000);
    const double processorBefore = receiver.processorSeconds();
    double begin = 0.0;
    if (receiver.isRunning()) {
        const ChildProcess::End sent =
            ChildProcess(placed(Processor::OfSender, bareSender(bus, frames, framesPerSecond))).wait();
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
    const QString verb = QStringLiteral("send");
    if (peer.measuresItself)
        return resultOf(peer.command(verb, frames));
    const std::optional<PeerResult> one = resultOfWholeRun(peer.command(verb, 1), 1);
    const std::optional<PeerResult> all = resultOfWholeRun(peer.command(verb, frames + 1), frames + 1);
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

void reportTimes(const Report &report, const QString &what, const PeerTimes &ours, const QString &peer,
                 const PeerTimes &theirs)
{
    for (const auto &[name, value] :
         {std::pair("median", &PeerTimes::median), std::pair("99th percentile", &PeerTimes::percentile99),
          std::pair("99.9th percentile", &PeerTimes::percentile999)})
        report.compare(QStringLiteral("%1, %2").arg(what, QLatin1String(name)), ours.*value, QStringLiteral("µs"),
                       Report::Better::Less, peer, theirs.*value);
}
