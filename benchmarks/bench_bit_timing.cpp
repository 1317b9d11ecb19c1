// SPDX-License-Identifier: MIT
// The bit-timing calculator beside the plain search, which tries every prescaler with every number of
// quanta and every place of the sample point. Log records are made by both and dropped.
#include "support/plain_bit_timing.h"
#include "support/report.h"
#include "support/timing_fields.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <cstdio>

namespace {

struct Case
{
    const char *name;
    double samplePoint;
    quint8 clock;
    quint16 bitrate;
    CAN::CANBitTimingThresholds thresholds = {};
};

CAN::CANBitTimingThresholds wide(quint16 tSeg2Min)
{
    CAN::CANBitTimingThresholds thresholds;
    thresholds.prescalerMax = 1024;
    thresholds.tSeg1Max = thresholds.tSeg2Max = thresholds.sjwMax = 0xFFFF;
    thresholds.tSeg2Min = tSeg2Min;
    return thresholds;
}

QString fastAnswer(const Case &request)
{
    bool ok = false;
    const CAN::CANBitTimingParameter timing = AbstractCanAdapter::getTimingParameters(
        request.clock, request.bitrate, request.samplePoint, ok, false, request.thresholds);
    return fieldsOf(timing) + QString::number(int(ok));
}

QString plainAnswer(const Case &request, quint64 &evaluated)
{
    bool ok = false;
    const CAN::CANBitTimingParameter timing = plainTimingParameters(request.clock, request.bitrate, request.samplePoint,
                                                                    ok, false, request.thresholds, &evaluated);
    return fieldsOf(timing) + QString::number(int(ok));
}

// Microseconds of one call, measured over as many as last long enough for the clock.
template <typename Search>
double microsecondsOf(Search search, double enoughSeconds)
{
    int calls = 1;
    for (;;) {
        const double seconds = secondsOf([&] {
            for (int call = 0; call < calls; ++call)
                search();
        });
        if (seconds >= enoughSeconds)
            return seconds * 1e6 / calls;
        calls *= 2;
    }
}

void measure(const Report &report, const Case &request)
{
    const QString name = QString::fromLatin1(request.name);
    quint64 evaluated = 0;
    if (fastAnswer(request) != plainAnswer(request, evaluated))
        qFatal("%s: the searches do not agree", request.name);

    bool ok = false;
    const auto fast = [&] {
        AbstractCanAdapter::getTimingParameters(request.clock, request.bitrate, request.samplePoint, ok, false,
                                                request.thresholds);
    };
    const auto plain = [&] {
        plainTimingParameters(request.clock, request.bitrate, request.samplePoint, ok, false, request.thresholds);
    };
    const int repetitions = report.quick() ? 1 : 15;
    const double enoughSeconds = report.quick() ? 0.0 : 0.02;
    const auto [fastTime, plainTime] = mediansInTurn(
        repetitions, [&] { return microsecondsOf(fast, enoughSeconds); },
        [&] { return microsecondsOf(plain, enoughSeconds); });
    const QString peer = QStringLiteral("plain search");
    report.compare(name, fastTime, QStringLiteral("µs"), Report::Better::Less, peer, plainTime);
    const auto candidates = double(evaluated);
    report.compare(name + QStringLiteral(", candidates settled"), candidates / fastTime, QStringLiteral("million/s"),
                   Report::Better::More, peer, candidates / plainTime);
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("bit timing"));
    report.note(
        QStringLiteral("Medians. A candidate is a pair of prescaler and quanta that the plain search looks at."));
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtFatalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(text));
    });
    const Case cases[] = {
        {"worst: 255 MHz, 7 kbit/s, out of reach", 87.3, 255, 7, wide(0xFFFF)},
        {"worst: 240 MHz, 1 kbit/s, limits exclude all", 87.3, 240, 1, wide(65000)},
        {"longest answer: 240 MHz, 1 kbit/s, 87.3 %", 87.3, 240, 1, wide(0xFFFF)},
        {"usual, exact: 40 MHz, 500 kbit/s, 87.5 %", 87.5, 40, 500},
        {"usual, nearest: 24 MHz, 1000 kbit/s, 87.5 %", 87.5, 24, 1000},
    };
    for (const Case &request : cases)
        measure(report, request);
    return 0;
}
