// SPDX-License-Identifier: MIT
#include "busdesk/load_history.h"
#include "busdesk/load_panel.h"
#include "busdesk/seconds_plot.h"
#include "common/candump_log.h"
#include "desk_user.h"

#include <QtWidgets/QSpinBox>

#include <numeric>
#include <random>
#include <string>

using buslink::FrameBits;
using buslink::LoadHistory;
using buslink::SecondsPlot;

namespace {

CAN::CanMessage frameOf(const QString &text)
{
    CAN::CanMessage message;
    if (!buslink::parseFrame(text.toStdString(), message).empty())
        qFatal("no frame");
    return message;
}

CAN::CanRxMessage seenBy(quint16 adapter, const char *text)
{
    CAN::CanRxMessage record;
    record.message = frameOf(QString::fromLatin1(text));
    record.adapterId = adapter;
    return record;
}

void add(LoadHistory &history, const CAN::CanRxMessage &frame, const buslink::BusRates &rates, qint64 nowMs)
{
    history.add(frame.adapterId, {1, buslink::busyNs(frame.message, rates)}, nowMs);
}

std::string digits(quint32 value, int count)
{
    std::string text;
    for (int bit = count - 1; bit >= 0; --bit)
        text += (value >> unsigned(bit) & 1U) != 0 ? '1' : '0';
    return text;
}

// A classic frame's length as one reckons it on paper: the text of its bits, divided by the polynomial, searched for
// five alike.
int lengthOnPaper(const CAN::CanMessage &message)
{
    std::string bits = "0";
    const std::string remote = message.isRtr ? "1" : "0";
    if (message.isExtended)
        bits += digits(message.id >> 18U, 11) + "11" + digits(message.id & 0x3FFFFU, 18) + remote + "00";
    else
        bits += digits(message.id, 11) + remote + "00";
    bits += digits(message.length, 4);
    for (int i = 0; i < message.length && !message.isRtr; ++i)
        bits += digits(message.data[i], 8);
    const std::string divisor = "1100010110011001";
    std::string rest = bits + std::string(15, '0');
    for (std::size_t at = 0; at < bits.size(); ++at) {
        for (std::size_t i = 0; rest[at] == '1' && i < divisor.size(); ++i) {
            if (i > 0)
                rest[at + i] = rest[at + i] == divisor[i] ? '0' : '1';
        }
    }
    bits += rest.substr(bits.size());
    for (std::size_t start = 0; start + 5 <= bits.size();) {
        const std::string five = bits.substr(start, 5);
        if (five == "00000" || five == "11111") {
            bits.insert(start + 5, five == "00000" ? "1" : "0");
            start += 5;
        } else {
            ++start;
        }
    }
    return static_cast<int>(bits.size()) + 13;
}

// Smooth lines are not quite of their color.
bool isColored(const QImage &image, const QPointF &place, std::size_t line)
{
    const QColor seen = image.pixelColor(place.toPoint());
    const QColor color = SecondsPlot::lineColor(line);
    return std::abs(seen.red() - color.red()) + std::abs(seen.green() - color.green())
               + std::abs(seen.blue() - color.blue())
           < 120;
}

// The load of adapter 1, which was told 250 kbit/s, and of adapter 2, which has no rate.
class TwoRates
{
public:
    TwoRates()
    {
        const buslink::AdapterSettings settings{{}, false, 250};
        const QString error = mDesk.add(buslink::createAdapter(QStringLiteral("can4linux:/dev/none"), settings), {});
        if (!error.isEmpty() || !addVirtual(mDesk, 40000).isEmpty())
            qFatal("no adapters");
    }

    void set(const char *field, int rate) { part<QSpinBox>(mPanel, field)->setValue(rate); }
    /// Has an adapter see a frame a hundred times.
    void append(quint16 adapter, const char *frame) { mPanel.append({100, seenBy(adapter, frame)}); }
    /// How many frames the plot shows for an adapter, of all seconds together.
    double frames(quint16 adapter) { return shown("framesPlot", adapter); }
    /// The load of all seconds together.
    double load(quint16 adapter) { return shown("loadPlot", adapter); }

private:
    double shown(const char *plot, quint16 adapter)
    {
        mPanel.showLoad();
        double sum = 0;
        for (const SecondsPlot::Line &line : part<SecondsPlot>(mPanel, plot)->lines()) {
            if (line.name == QStringLiteral("adapter %1").arg(adapter))
                sum = std::accumulate(line.values.begin(), line.values.end(), sum);
        }
        return sum;
    }

    buslink::AdapterDesk mDesk;
    buslink::LoadPanel mPanel{&mDesk};
};

} // namespace

class TestDeskLoad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aFrameTakesItsBits_data()
    {
        QTest::addColumn<QString>("frame");
        QTest::addColumn<int>("nominal");
        QTest::addColumn<int>("data");
        const auto add = [](const char *name, const QString &frame, int nominal, int data) {
            QTest::newRow(name) << frame << nominal << data;
        };
        // 34 bits from the start to the CRC and 13 behind, and here a zero behind nothing: 6 stuff bits.
        add("standard, all zero", QStringLiteral("000#"), 34 + 6 + 13, 0);
        add("standard, 8 bytes of zeros", QStringLiteral("000#") + QString(16, QLatin1Char('0')), 98 + 16 + 13, 0);
        add("standard, stuff bits of the CRC alone", QStringLiteral("555#"), 34 + 1 + 13, 0);
        add("standard, 8 bytes", QStringLiteral("123#1122334455667788"), 98 + 1 + 13, 0);
        add("standard, 8 bytes without stuff bits", QStringLiteral("2AA#5555555555555555"), 98 + 13, 0);
        add("standard, all one", QStringLiteral("7FF#FFFFFFFFFFFFFFFF"), 98 + 15 + 13, 0);
        add("extended, all zero", QStringLiteral("00000000#"), 54 + 7 + 13, 0);
        add("extended, 2 bytes", QStringLiteral("18FEF100#0102"), 70 + 6 + 13, 0);
        add("extended, all one", QStringLiteral("1FFFFFFF#FFFFFFFFFFFFFFFF"), 118 + 18 + 13, 0);
        add("remote, asks for 4 bytes", QStringLiteral("123#R4"), 34 + 0 + 13, 0);
        add("extended remote", QStringLiteral("12345678#R"), 54 + 2 + 13, 0);
        add("FD without switch", QStringLiteral("123##01122"), 79, 0);
        add("FD with switch", QStringLiteral("123##11122"), 29, 49);
        add("FD with switch, empty", QStringLiteral("555##1"), 17 + 12, 1 + 4 + 27 + 1);
        add("FD, empty", QStringLiteral("555##0"), 17 + 12 + 1 + 4 + 27 + 1 + 1, 0);
        const auto fives = [](int count) { return QStringLiteral("555##1") + QString(2 * count, QLatin1Char('5')); };
        add("FD, the longest with the short CRC", fives(16), 29, 1 + 4 + 128 + 27 + 1);
        add("FD, the shortest with the long CRC", fives(20), 29, 1 + 4 + 160 + 32 + 1);
        add("FD, 64 bytes", fives(64), 29, 1 + 4 + 512 + 32 + 1);
        add("FD, 64 bytes of zeros, error state", QStringLiteral("7F0##3") + QString(128, QLatin1Char('0')), 31, 653);
        add("extended FD with switch", QStringLiteral("18FEF100##1000102030405060708090A0B"), 50, 140);
        add("extended FD without switch", QStringLiteral("1FFFFFFF##2FFFFFFFFFFFFFFFF"), 163, 0);
    }

    void aFrameTakesItsBits()
    {
        QFETCH(QString, frame);
        QFETCH(int, nominal);
        QFETCH(int, data);
        const FrameBits bits = buslink::frameBits(frameOf(frame));
        QCOMPARE(bits.nominal, nominal);
        QCOMPARE(bits.data, data);
    }

    void classicFramesTakeWhatIsReckonedOnPaper()
    {
        std::mt19937 random(1);
        for (int i = 0; i < 3000; ++i) {
            CAN::CanMessage message;
            message.isExtended = random() % 2 != 0;
            message.isRtr = random() % 8 == 0;
            message.id = static_cast<quint32>(random()) & (message.isExtended ? 0x1FFFFFFFU : 0x7FFU);
            message.length = static_cast<quint8>(random() % 9);
            // Bytes with long runs are the ones that matter.
            for (quint8 &byte : message.data)
                byte = random() % 2 != 0 ? static_cast<quint8>(random()) : random() % 2 != 0 ? 0xFF : 0;
            QCOMPARE(buslink::frameBits(message).nominal, lengthOnPaper(message));
        }
    }

    void lengthsThatNoFrameHasAreBounded()
    {
        CAN::CanMessage message = frameOf(QStringLiteral("555#"));
        message.length = 200;
        CAN::CanMessage eight = message;
        eight.length = 8;
        QCOMPARE(buslink::frameBits(message), buslink::frameBits(eight));
        message.isFd = true;
        CAN::CanMessage longest = message;
        longest.length = 64;
        QCOMPARE(buslink::frameBits(message), buslink::frameBits(longest));
        message.length = 17;
        CAN::CanMessage next = message;
        next.length = 20;
        QCOMPARE(buslink::frameBits(message), buslink::frameBits(next));
    }

    void bothRatesCount()
    {
        // 29 bits of 2 us and 33 of 0.5 us.
        QCOMPARE(buslink::busyNs(frameOf(QStringLiteral("555##1")), {500, 2000}), 29 * 2000.0 + 33 * 500.0);
        QCOMPARE(buslink::busyNs(frameOf(QStringLiteral("555#")), {125, 1}), 48 * 8000.0);
    }

    void framesCountInTheSecondTheyCameIn()
    {
        LoadHistory history;
        const CAN::CanRxMessage frame = seenBy(1, "555#"); // 48 bits, 96 us
        add(history, frame, {}, 0);
        add(history, frame, {}, 999);
        add(history, frame, {}, 1000);
        add(history, seenBy(2, "555#"), {1000, 1}, 1500);
        QCOMPARE(history.seconds(1, 999), std::vector<LoadHistory::Second>(60));
        const auto first = history.seconds(1, 1999);
        QCOMPARE(first.size(), std::size_t(60));
        QCOMPARE(first.back(), (LoadHistory::Second{2, 2 * 96000.0}));
        QCOMPARE(first.at(58), LoadHistory::Second());
        QCOMPARE(history.seconds(1, 2000).back(), (LoadHistory::Second{1, 96000.0}));
        QCOMPARE(history.seconds(1, 2000).at(58), first.back());
        QCOMPARE(history.seconds(2, 2000).back(), (LoadHistory::Second{1, 48000.0}));
        QCOMPARE(history.adapters(2000), (std::vector<quint16>{1, 2}));
    }

    void aMinuteLaterNothingIsLeft()
    {
        LoadHistory history;
        add(history, seenBy(3, "555#"), {}, 5000);
        QCOMPARE(history.seconds(3, 65999).front().frames, 1U);
        QCOMPARE(history.adapters(65999), std::vector<quint16>{3});
        QCOMPARE(history.seconds(3, 66000), std::vector<LoadHistory::Second>(60));
        QVERIFY(history.adapters(66000).empty());
        add(history, seenBy(3, "555#"), {}, 5000 + 61000);
        QCOMPARE(history.seconds(3, 67000).back().frames, 1U);
        QCOMPARE(history.seconds(3, 67000).front().frames, 0U);
    }

    void aSecondOfFramesWithoutGapsIsAFullBus()
    {
        LoadHistory history;
        for (int i = 0; i < 10000; ++i) // 50 bits each
            add(history, seenBy(1, "15A#"), {}, 100);
        const int bits = buslink::frameBits(seenBy(1, "15A#").message).nominal;
        QCOMPARE(history.seconds(1, 1000).back().loadPercent(), 10000.0 * bits / 500000 * 100);
    }

    void theValueAxisEndsAtARoundNumber_data()
    {
        QTest::addColumn<double>("value");
        QTest::addColumn<double>("end");
        QTest::newRow("nothing") << 0.0 << 10.0;
        QTest::newRow("itself") << 10.0 << 10.0;
        QTest::newRow("two") << 10.1 << 20.0;
        QTest::newRow("five") << 21.0 << 50.0;
        QTest::newRow("full load") << 100.0 << 100.0;
        QTest::newRow("a busy bus") << 8400.0 << 10000.0;
    }

    void theValueAxisEndsAtARoundNumber()
    {
        QFETCH(double, value);
        SecondsPlot plot(QStringLiteral("x"), 60);
        plot.setLines({{QStringLiteral("a"), {0, value, 0}}});
        QTEST(plot.valueMax(), "end");
    }

    void linesAreDrawnWhereTheirValuesLie()
    {
        SecondsPlot plot(QStringLiteral("Frames per second"), 60);
        plot.resize(500, 160);
        std::vector<double> high(60, 80);
        std::vector<double> low(60, 20);
        plot.setLines({{QStringLiteral("adapter 1"), high}, {QStringLiteral("adapter 2"), low}});
        const QImage image = plot.grab().toImage();
        QVERIFY(isColored(image, plot.place(30, 80), 0));
        QVERIFY(isColored(image, plot.place(30, 20), 1));
        QVERIFY(!isColored(image, plot.place(30, 50), 0));
        QVERIFY(!isColored(image, plot.place(30, 50), 1));
        QVERIFY(plot.place(0, 0).x() > plot.place(60, 0).x());
        QVERIFY(plot.place(0, 100).y() < plot.place(0, 0).y());
    }

    void aRateThatAnAdapterWasToldHoldsForItAlone()
    {
        TwoRates bus;
        bus.set("loadNominal", 1000);
        bus.append(1, "555#");
        bus.append(2, "555#");
        // 100 frames of 48 bits, of 4 us and of 1 us.
        QTRY_COMPARE_WITH_TIMEOUT(bus.frames(2), 100.0, PatienceMs);
        QCOMPARE(bus.frames(1), 100.0);
        QCOMPARE(bus.load(1), 1.92);
        QCOMPARE(bus.load(2), 0.48);
    }

    void theRateOfTheDataPhaseHoldsForAll()
    {
        TwoRates bus;
        bus.set("loadNominal", 1000);
        bus.set("loadData", 4000);
        bus.append(1, "555##1");
        bus.append(2, "555##1");
        // 29 bits as above, and 33 of 0.25 us.
        QTRY_COMPARE_WITH_TIMEOUT(bus.frames(2), 100.0, PatienceMs);
        QCOMPARE(bus.load(1), 1.2425);
        QCOMPARE(bus.load(2), 0.3725);
    }

    void aChangedRateHoldsForFramesFromThenOn_data()
    {
        QTest::addColumn<QByteArray>("field");
        QTest::addColumn<int>("rate");
        QTest::addColumn<double>("load");
        // 100 frames of 29 bits of 2 us and 33 of 0.5 us; of the next hundred the one or the other take twice as long.
        QTest::newRow("nominal") << QByteArray("loadNominal") << 250 << 2 * 0.745 + 0.58;
        QTest::newRow("data phase") << QByteArray("loadData") << 1000 << 2 * 0.745 + 0.165;
    }

    void aChangedRateHoldsForFramesFromThenOn()
    {
        QFETCH(QByteArray, field);
        QFETCH(int, rate);
        TwoRates bus;
        bus.append(2, "555##1");
        bus.set(field.constData(), rate);
        bus.append(2, "555##1");
        QTRY_COMPARE_WITH_TIMEOUT(bus.frames(2), 200.0, PatienceMs);
        QTEST(bus.load(2), "load");
    }

    void whatWasSentIsSeenInThePlots()
    {
        buslink::DeskWindow window;
        window.show();
        connectTwo(window);
        auto *const load = part<SecondsPlot>(window, "loadPlot");
        auto *const frames = part<SecondsPlot>(window, "framesPlot");
        part<QSpinBox>(window, "loadNominal")->setValue(1);
        for (int i = 0; i < 30; ++i)
            QCOMPARE(window.desk().adapter(1)->write(frameOf(QStringLiteral("555#"))), CAN::RetOk);
        // 48 bits each at 1 kbit/s; the second they fall into is known up to its neighbour.
        QTRY_VERIFY_WITH_TIMEOUT(frames->valueMax() > 10, PatienceMs);
        QVERIFY(frames->valueMax() <= 50);
        QVERIFY2(load->valueMax() >= 100 && load->valueMax() <= 200, qPrintable(QString::number(load->valueMax())));
    }
};

QTEST_MAIN(TestDeskLoad)
#include "tst_desk_load.moc"
