// SPDX-License-Identifier: MIT
#include "busdump/frame_printer.h"
#include "common/adapter_argument.h"
#include "common/adapter_run.h"
#include "common/program.h"
#include "common/stop_signals.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

#include <unistd.h>

namespace {

constexpr const char *description = R"(Prints the frames that an adapter receives, in the candump log form.

busdump ends after --count frames, at Ctrl-C, and when nobody reads its output any more.

Exit status:
  0       ended as told
  1       the adapter or writing failed, or frames were lost because writing was too slow
  2       wrong arguments
  128+N   ended by signal N before --count frames were there (Ctrl-C: 130))";

// A reader that takes nothing for so long at the end is not waited for.
constexpr int FlushTimeoutMs = 2000;

int dump(const QString &adapterText, qint64 count)
{
    buslink::AdapterArgument argument = buslink::createAdapter(adapterText);
    if (!argument.adapter) {
        buslink::complain(argument.error);
        return buslink::ExitUsage;
    }

    buslink::StopSignals signals;
    buslink::FramePrinter printer(STDOUT_FILENO, {argument.name, count});
    buslink::AdapterRun run(std::move(argument.adapter));
    printer.setAdapter(run.adapter());
    int stopSignal = 0;
    QObject::connect(&signals, &buslink::StopSignals::received, qApp, [&stopSignal](int number) {
        stopSignal = number;
        QCoreApplication::quit();
    });
    QObject::connect(&run, &buslink::AdapterRun::failed, qApp, &QCoreApplication::quit);
    QObject::connect(&printer, &buslink::FramePrinter::finished, qApp, &QCoreApplication::quit);

    const bool open = run.start() == CAN::RetOk;
    if (open)
        QCoreApplication::exec();
    run.stop();
    printer.flush(FlushTimeoutMs);

    if (!open || run.hasFailed()) {
        buslink::complain(
            QStringLiteral("%1: %2").arg(adapterText, open ? QStringLiteral("the transport of the adapter failed")
                                                           : QStringLiteral("the adapter could not be opened")));
        return buslink::ExitFailed;
    }
    if (!printer.error().isEmpty()) {
        buslink::complain(printer.error());
        return buslink::ExitFailed;
    }
    if (printer.lostFrames() > 0) {
        buslink::complain(QStringLiteral("%1 frames were lost: writing was too slow").arg(printer.lostFrames()));
        return buslink::ExitFailed;
    }
    if (stopSignal != 0 && count > 0 && !printer.isComplete())
        return buslink::ExitBySignal + stopSignal;
    return buslink::ExitDone;
}

} // namespace

int main(int argc, char **argv)
{
    buslink::prepareProcess();
    QCoreApplication app(argc, argv);
    buslink::nameApplication(QStringLiteral("busdump"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    const QCommandLineOption adapter = buslink::adapterOption();
    const QCommandLineOption count(QStringLiteral("count"), QStringLiteral("End after this many frames."),
                                   QStringLiteral("number"));
    parser.addOptions({adapter, count});
    if (!buslink::parseArguments(parser, 0))
        return buslink::ExitUsage;
    bool isNumber = true;
    const qint64 frames = parser.isSet(count) ? parser.value(count).toLongLong(&isNumber) : 0;
    if (!isNumber || (parser.isSet(count) && frames < 1)) {
        buslink::complain(QStringLiteral("--count takes a number from 1: '%1'").arg(parser.value(count)));
        return buslink::ExitUsage;
    }
    return dump(parser.value(adapter), frames);
}
