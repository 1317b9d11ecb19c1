// SPDX-License-Identifier: MIT
#include "buscycle/cycle_sender.h"
#include "common/adapter_argument.h"
#include "common/adapter_run.h"
#include "common/candump_log.h"
#include "common/number_argument.h"
#include "common/program.h"
#include "common/stop_signals.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

#include <limits>

namespace {

constexpr const char *description = R"(Sends one frame again and again, at a fixed pace.

The frame has the form of the candump log: 123#1122, 123##11122 (CAN FD), 123#R4 (remote);
8 identifier digits make it extended. The first one leaves at once and a pause follows each,
the last one included. With --sync-max byte 0 counts 1, 2, ... up to the limit and again
from 1; with 255 the value 0 follows 255, and with 0 it stays 1.

buscycle ends after --count frames or at Ctrl-C, as soon as the pause is over and every frame
that the adapter accepted has left. Its last line is the number of frames that have left.

Exit status:
  0       ended as told
  1       the adapter, sending or writing the number failed
  2       wrong arguments
  128+N   ended by signal N before --count frames were sent (Ctrl-C: 130))";

// A pause cannot be cut short, and nobody should have to wait longer for the end of the program.
constexpr quint64 IntervalMaxMs = 60000;

using Settings = buslink::CycleSender::Settings;

struct Options
{
    buslink::AdapterOptions adapter;
    QCommandLineOption interval = {QStringLiteral("interval"), QStringLiteral("Pause after each frame. Default: 100."),
                                   QStringLiteral("milliseconds"), QStringLiteral("100")};
    QCommandLineOption count = {QStringLiteral("count"),
                                QStringLiteral("End after this many frames. Default: 0, without end."),
                                QStringLiteral("number"), QStringLiteral("0")};
    QCommandLineOption syncMax = {QStringLiteral("sync-max"), QStringLiteral("Count in byte 0, up to this limit."),
                                  QStringLiteral("limit")};
};

// Each gives the value, or why there is none.
QString readNumber(const QCommandLineParser &parser, const QCommandLineOption &option, quint64 max, quint64 &number)
{
    const QString text = parser.value(option);
    const std::optional<quint64> read = buslink::numberBetween(text, 0, max);
    number = read.value_or(0);
    return read ? QString()
                : QStringLiteral("--%1 takes a number from 0 to %2: '%3'")
                      .arg(option.names().constFirst(), QString::number(max), text);
}

QString readFrame(const QCommandLineParser &parser, CAN::CanMessage &frame)
{
    if (parser.positionalArguments().isEmpty())
        return QStringLiteral("no frame to send, such as 123#1122");
    return QString::fromStdString(buslink::parseFrame(parser.positionalArguments().constFirst().toStdString(), frame));
}

QString readSettings(const QCommandLineParser &parser, const Options &options, Settings &settings)
{
    QString error = readFrame(parser, settings.frame);
    quint64 interval = 0;
    if (error.isEmpty())
        error = readNumber(parser, options.interval, IntervalMaxMs, interval);
    quint64 count = 0;
    if (error.isEmpty())
        error = readNumber(parser, options.count, std::numeric_limits<quint32>::max(), count);
    settings.intervalMs = static_cast<quint32>(interval);
    settings.count = static_cast<quint32>(count);
    if (!error.isEmpty() || !parser.isSet(options.syncMax))
        return error;
    quint64 syncMax = 0;
    error = readNumber(parser, options.syncMax, std::numeric_limits<quint8>::max(), syncMax);
    settings.syncMax = static_cast<quint8>(syncMax);
    if (error.isEmpty() && (settings.frame.isRtr || settings.frame.length == 0))
        error = QStringLiteral("--sync-max needs a frame with a byte to count in");
    return error;
}

int cycle(buslink::AdapterArgument argument, const QString &adapterText, const Settings &settings)
{
    if (!argument.adapter) {
        buslink::complain(argument.error);
        return buslink::ExitUsage;
    }

    buslink::StopSignals signals;
    buslink::CycleSender sender(settings);
    buslink::AdapterRun run(std::move(argument.adapter));
    sender.setAdapter(run.adapter());
    int stopSignal = 0;
    QObject::connect(&signals, &buslink::StopSignals::received, &sender, [&sender, &stopSignal](int number) {
        stopSignal = number;
        sender.interrupt();
    });
    QObject::connect(&run, &buslink::AdapterRun::failed, &sender, &buslink::CycleSender::transportFailed);
    QObject::connect(&sender, &buslink::CycleSender::finished, qApp, &QCoreApplication::quit, Qt::QueuedConnection);

    if (run.start() == CAN::RetOk) {
        sender.start();
        QCoreApplication::exec();
    }
    run.stop();

    const QString error = run.problem().isEmpty() ? sender.error() : run.problem();
    if (!error.isEmpty())
        buslink::complain(QStringLiteral("%1: %2").arg(adapterText, error));
    const bool printed = buslink::print(QStringLiteral("frames sent: %1\n").arg(sender.sentFrames()));
    if (!error.isEmpty() || !printed)
        return buslink::ExitFailed;
    if (stopSignal != 0 && settings.count > 0 && !sender.isComplete())
        return buslink::ExitBySignal + stopSignal;
    return buslink::ExitDone;
}

} // namespace

int main(int argc, char **argv)
{
    buslink::prepareProcess();
    QCoreApplication app(argc, argv);
    buslink::nameApplication(QStringLiteral("buscycle"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    const Options options;
    options.adapter.addTo(parser);
    parser.addOptions({options.interval, options.count, options.syncMax});
    parser.addPositionalArgument(QStringLiteral("frame"), QStringLiteral("The frame to send."));
    if (!buslink::parseArguments(parser, 1))
        return buslink::ExitUsage;
    Settings settings;
    if (const QString error = readSettings(parser, options, settings); !error.isEmpty()) {
        buslink::complain(error);
        return buslink::ExitUsage;
    }
    return cycle(options.adapter.createForFrames(parser), options.adapter.text(parser), settings);
}
