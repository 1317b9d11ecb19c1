// SPDX-License-Identifier: MIT
#include "busdump/frame_printer.h"
#include "busdump/id_argument.h"
#include "busdump/interface_list.h"
#include "common/adapter_argument.h"
#include "common/adapter_run.h"
#include "common/number_argument.h"
#include "common/program.h"
#include "common/stop_signals.h"

#include <BusLinkDesk/traffic/can_scheduler.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>

#include <limits>
#include <optional>
#include <unistd.h>
#include <vector>

namespace {

constexpr const char *description = R"(Prints the frames that an adapter receives, in the candump log form.

busdump ends after --count frames, at Ctrl-C, and when nobody reads its output any more.

With --id only frames of these identifiers are printed. An identifier is a number here: standard and
extended frames that carry it both pass. The option can be given several times; where ranges overlap a
frame is still printed once.

From a gateway comes text, which is printed as it stands.

With --list it prints the adapters of this machine instead: the CAN interfaces with who made the
hardware, whether CAN FD passes, and the bit rates, where these are known, and what else there is.

Exit status:
  0       ended as told
  1       the adapter or writing failed, or frames were lost because writing was too slow
  2       wrong arguments
  128+N   ended by signal N before --count frames were there (Ctrl-C: 130))";

// A reader that takes nothing for so long at the end is not waited for.
constexpr int FlushTimeoutMs = 2000;
constexpr quint64 CountMax = std::numeric_limits<qint64>::max();

struct Wanted
{
    qint64 count = 0;
    std::vector<buslink::IdRange> ids;
};

// Registered before the adapter opens, so that no frame meets the lock of a registration.
void select(const std::vector<buslink::IdRange> &ids, CanScheduler &scheduler, buslink::FramePrinter &printer)
{
    for (const buslink::IdRange &range : ids) {
        const QList<QPointer<CanSender>> senders = scheduler.registerCanIdRange(range.first, range.last);
        for (const QPointer<CanSender> &sender : senders)
            printer.addSender(sender);
    }
    scheduler.connectToAdapter(true);
}

QString problemOf(const buslink::FramePrinter &printer)
{
    if (printer.error().isEmpty() && printer.lostFrames() > 0)
        return QStringLiteral("%1 frames were lost: writing was too slow").arg(printer.lostFrames());
    return printer.error();
}

int dump(buslink::AdapterArgument argument, const QString &adapterText, const Wanted &wanted)
{
    if (!argument.adapter) {
        buslink::complain(argument.error);
        return buslink::ExitUsage;
    }
    if (!buslink::carriesFrames(*argument.adapter) && (wanted.count > 0 || !wanted.ids.empty())) {
        buslink::complain(
            QStringLiteral("%1: a gateway sends text, without frames to count or choose from").arg(adapterText));
        return buslink::ExitUsage;
    }

    buslink::StopSignals signals;
    buslink::FramePrinter printer(STDOUT_FILENO, {argument.name, wanted.count});
    // Behind it stands the owner of the adapter, which stops the adapter before the scheduler goes.
    CanScheduler scheduler(argument.adapter.get());
    buslink::AdapterRun run(std::move(argument.adapter));
    if (!buslink::carriesFrames(*run.adapter()))
        printer.setGateway(run.adapter());
    else if (wanted.ids.empty())
        printer.setAdapter(run.adapter());
    else
        select(wanted.ids, scheduler, printer);
    int stopSignal = 0;
    QObject::connect(&signals, &buslink::StopSignals::received, qApp, [&stopSignal](int number) {
        stopSignal = number;
        QCoreApplication::quit();
    });
    QObject::connect(&run, &buslink::AdapterRun::failed, qApp, &QCoreApplication::quit);
    QObject::connect(&printer, &buslink::FramePrinter::finished, qApp, &QCoreApplication::quit);

    if (run.start() == CAN::RetOk)
        QCoreApplication::exec();
    run.stop();
    printer.flush(FlushTimeoutMs);

    const QString problem =
        run.problem().isEmpty() ? problemOf(printer) : QStringLiteral("%1: %2").arg(adapterText, run.problem());
    if (!problem.isEmpty()) {
        buslink::complain(problem);
        return buslink::ExitFailed;
    }
    if (stopSignal != 0 && wanted.count > 0 && !printer.isComplete())
        return buslink::ExitBySignal + stopSignal;
    return buslink::ExitDone;
}

int printAdapters()
{
    const QString text = buslink::interfaceTable(buslink::findInterfaces()) + QLatin1Char('\n')
                         + buslink::adapterTable(buslink::findOtherAdapters());
    return buslink::print(text) ? buslink::ExitDone : buslink::ExitFailed;
}

} // namespace

int main(int argc, char **argv)
{
    buslink::prepareProcess();
    QCoreApplication app(argc, argv);
    buslink::nameApplication(QStringLiteral("busdump"));
    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromLatin1(description));
    const buslink::AdapterOptions adapter;
    const QCommandLineOption count(QStringLiteral("count"), QStringLiteral("End after this many frames."),
                                   QStringLiteral("number"));
    const QCommandLineOption id(QStringLiteral("id"), QStringLiteral("Print these alone, as 123 or 100-1FF."),
                                QStringLiteral("identifiers"));
    const QCommandLineOption list(QStringLiteral("list"), QStringLiteral("Print the adapters found, and end."));
    adapter.addTo(parser);
    parser.addOptions({count, id, list});
    if (!buslink::parseArguments(parser, 0))
        return buslink::ExitUsage;
    if (parser.isSet(list)) {
        if (parser.optionNames().size() == 1)
            return printAdapters();
        buslink::complain(QStringLiteral("--list goes with no other option"));
        return buslink::ExitUsage;
    }
    const std::optional<quint64> frames =
        parser.isSet(count) ? buslink::numberBetween(parser.value(count), 1, CountMax) : 0;
    if (!frames) {
        buslink::complain(QStringLiteral("--count takes a number from 1: '%1'").arg(parser.value(count)));
        return buslink::ExitUsage;
    }
    const buslink::IdArgument ids = buslink::parseIds(parser.values(id));
    if (!ids.error.isEmpty()) {
        buslink::complain(ids.error);
        return buslink::ExitUsage;
    }
    return dump(adapter.create(parser), adapter.text(parser), {static_cast<qint64>(*frames), ids.ranges});
}
