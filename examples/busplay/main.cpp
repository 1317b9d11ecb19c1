// SPDX-License-Identifier: MIT
#include "busplay/line_source.h"
#include "busplay/player.h"
#include "common/adapter_argument.h"
#include "common/adapter_run.h"
#include "common/program.h"
#include "common/stop_signals.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QFile>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr const char *description = R"(Plays a recording in the candump log form to an adapter.

Frames keep their recorded pauses; one that comes late is sent at once, and where the
recording goes back in time there is no pause. busplay ends when every frame has left.

Exit status:
  0       every frame was sent
  1       reading, the adapter or sending failed
  2       wrong arguments
  3       every frame was sent, but damaged lines were skipped
  128+N   ended by signal N (Ctrl-C: 130); what the adapter had accepted was sent)";

// Opened while signals still have their usual effect: opening a named pipe waits for its writer.
buslink::Descriptor openInput(const QString &path)
{
    if (path == QStringLiteral("-"))
        return buslink::Descriptor(STDIN_FILENO);
    return buslink::Descriptor(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC));
}

int play(const QString &path, buslink::AdapterArgument argument, const QString &adapterText, bool fast)
{
    buslink::Descriptor input = openInput(path);
    if (input.get() < 0) {
        buslink::complain(QStringLiteral("cannot open %1: %2").arg(path, qt_error_string(errno)));
        return buslink::ExitFailed;
    }
    if (!argument.adapter) {
        buslink::complain(argument.error);
        return buslink::ExitUsage;
    }

    buslink::StopSignals signals;
    buslink::LineSource source(std::move(input), path == QStringLiteral("-") ? QStringLiteral("<stdin>") : path);
    buslink::Player player(&source, {fast});
    buslink::AdapterRun run(std::move(argument.adapter));
    player.setAdapter(run.adapter());
    int stopSignal = 0;
    QObject::connect(&signals, &buslink::StopSignals::received, &player, [&player, &stopSignal](int number) {
        stopSignal = number;
        player.interrupt();
    });
    QObject::connect(&run, &buslink::AdapterRun::failed, &player, &buslink::Player::transportFailed);
    QObject::connect(&player, &buslink::Player::finished, qApp, &QCoreApplication::quit, Qt::QueuedConnection);

    if (run.start() == CAN::RetOk) {
        player.start();
        QCoreApplication::exec();
    }
    run.stop();

    const QString error = run.problem().isEmpty() ? player.error() : run.problem();
    if (!error.isEmpty()) {
        buslink::complain(QStringLiteral("%1: %2; %3 of %4 accepted frames were sent")
                              .arg(adapterText, error)
                              .arg(player.sentFrames())
                              .arg(player.acceptedFrames()));
        return buslink::ExitFailed;
    }
    if (stopSignal != 0) {
        buslink::complain(QStringLiteral("interrupted, %1 frames were sent").arg(player.sentFrames()));
        return buslink::ExitBySignal + stopSignal;
    }
    return source.damagedLines() > 0 ? buslink::ExitDamaged : buslink::ExitDone;
}

} // namespace

int main(int argc, char **argv)
{
    buslink::prepareProcess();
    QCoreApplication app(argc, argv);
    buslink::nameApplication(QStringLiteral("busplay"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    const buslink::AdapterOptions adapter;
    const QCommandLineOption fast(QStringLiteral("fast"), QStringLiteral("Send without the recorded pauses."));
    adapter.addTo(parser);
    parser.addOption(fast);
    parser.addPositionalArgument(QStringLiteral("file"), QStringLiteral("Recording; - or none: standard input."),
                                 QStringLiteral("[file]"));
    if (!buslink::parseArguments(parser, 1))
        return buslink::ExitUsage;
    return play(parser.positionalArguments().value(0, QStringLiteral("-")), adapter.createForFrames(parser),
                adapter.text(parser), parser.isSet(fast));
}
