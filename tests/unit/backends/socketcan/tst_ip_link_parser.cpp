// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/ip_link_parser_p.h>

#include <QtCore/QFile>
#include <QtTest/QtTest>

#include <array>
#include <atomic>
#include <thread>

using Props = AbstractCanAdapter::SocketCANProps;
using Types = QList<AbstractCanAdapter::CanAdapterType>;

Q_DECLARE_METATYPE(Types)

namespace {

constexpr auto sysTec = AbstractCanAdapter::CanAdapterType(7);
constexpr auto peak = AbstractCanAdapter::CanAdapterType(16);
constexpr auto ixxat = AbstractCanAdapter::CanAdapterType(17);

/// A text as the program prints it; empty for a name that no file has.
QString recorded(const char *name)
{
    QFile file(QFINDTESTDATA("corpus") + QLatin1Char('/') + QLatin1String(name) + QLatin1String(".txt"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll());
}

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QStringList fallback()
{
    return words("can0 can1 can2 vcan0 vcan1 vcan2");
}

QString noDetails(const QString &)
{
    return {};
}

/// The details of the interfaces in makers.txt.
QString detailsOfMakers(const QString &name)
{
    if (name == QLatin1String("can0"))
        return recorded("details_pcan");
    if (name == QLatin1String("can1"))
        return recorded("details_systec");
    if (name == QLatin1String("can2"))
        return recorded("details_ixxat");
    return recorded("details_can_up");
}

QVector<int> numbersOf(const Props &props)
{
    return {props.isFd ? 1 : 0, props.bitrate, props.dbitrate, props.restartMs};
}

} // namespace

class TestIpLinkParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listingGivesTheNamesOfCanLinks_data()
    {
        QTest::addColumn<QString>("listing");
        QTest::addColumn<QStringList>("names");
        const auto row = [](const char *file, const char *names) {
            const QString text = recorded(file);
            if (text.isEmpty())
                qFatal("no text %s", file);
            QTest::newRow(file) << text << words(names);
        };
        row("no_can", "");
        row("can_up", "can0");
        row("can_down", "can0");
        row("vcan", "vcan0 vcan1");
        row("makers", "can0 can1 can2 can3");
        row("fd", "can0");
        row("renamed", "body PEAK1 engine-can_left");
        row("altnames", "can0 can1");
        row("containers", "vxcan1@if9");
        row("vxcan_pair", "vxcan1@vxcan0 vxcan0@vxcan1");
        row("bridges", "can0");
        row("slcan", "slcan0");
        row("link_can_first", "can0");
        row("truncated", "can0");
        row("truncated_header", "can2");
        row("crlf", "can0 vcan0");
        row("sample_lines", "can0");
        row("recorded_first_state", "can0 can1 vcan0 vcan1");
        row("recorded_many_kinds", "can0 can1 vcan0 body vxcan1@vxcan0 vxcan0@vxcan1");
        const auto text = [](const char *name, const char *listing, const QStringList &names) {
            QTest::newRow(name) << QString::fromUtf8(listing) << names;
        };
        text("empty", "", {});
        text("line ends alone", "\n\n\n", {});
        text("mark alone", "link/can", {});
        text("mark behind an empty line", "\nlink/can", {});
        text("mark behind two colons", "::\nlink/can", {QString()});
        text("mark behind one colon", "3: can0\nlink/can", {});
        text("mark inside a longer word", "3: can0: \nxlink/canx", {QStringLiteral("can0")});
        text("mark in a header", "3: can0: \n4: link/can: \n link/can",
             {QStringLiteral("can0"), QStringLiteral("link/can")});
        text("blanks around the name", "3:\t can0 \t: \n link/can", {QStringLiteral("can0")});
        text("other link kinds", "3: can0: \n link/ether\n4: x: \n link/cam", {});
    }

    void listingGivesTheNamesOfCanLinks()
    {
        QFETCH(QString, listing);
        QFETCH(QStringList, names);
        QCOMPARE(buslink::canInterfaceNames(listing), names);
    }

    void hundredsOfLinksAreWalkedInOrder()
    {
        QString listing;
        QStringList expected;
        for (int index = 1; index <= 800; ++index) {
            const bool isCan = index % 5 == 0;
            const QString name = QStringLiteral("%1%2@if1").arg(QLatin1String(isCan ? "vxcan" : "veth")).arg(index);
            listing += QStringLiteral("%1: %2: <BROADCAST> mtu 1500 qdisc noqueue\n    link/%3 promiscuity 0 \n")
                           .arg(QString::number(index), name, QLatin1String(isCan ? "can " : "ether"));
            if (isCan)
                expected.append(name);
        }
        QCOMPARE(buslink::canInterfaceNames(listing), expected);
        QCOMPARE(expected.size(), 160);
    }

    void makerStandsBehindTheName_data()
    {
        QTest::addColumn<QString>("details");
        QTest::addColumn<QString>("device");
        const auto row = [](const char *name, const QString &details, const char *device) {
            QTest::newRow(name) << details << QString::fromUtf8(device);
        };
        row("none", recorded("details_can_up"), "can0");
        row("virtual", recorded("details_vcan_fd"), "can0");
        row("PEAK", recorded("details_pcan"), "can0 | PEAK");
        row("PEAK with FD", recorded("details_pcan_fd"), "can0 | PEAK");
        row("SysTec", recorded("details_systec"), "can0 | SysTec");
        row("Ixxat", recorded("details_ixxat"), "can0 | Ixxat");
        row("all", QStringLiteral("ixxat pcan systec"), "can0 | SysTec");
        row("SysTec and PEAK", QStringLiteral("pcan systec"), "can0 | SysTec");
        row("PEAK and Ixxat", QStringLiteral("ixxat pcan"), "can0 | PEAK");
        row("capitals", QStringLiteral("PCAN Pcan SYSTEC Systec IXXAT Ixxat"), "can0");
        row("part of a word", QStringLiteral("xpcanx"), "can0 | PEAK");
        row("no details", QString(), "can0");
    }

    void makerStandsBehindTheName()
    {
        QFETCH(QString, details);
        QFETCH(QString, device);
        QCOMPARE(buslink::withMakerLabel(QStringLiteral("can0"), details), device);
    }

    void filterLetsItsMakersThrough_data()
    {
        QTest::addColumn<Types>("types");
        QTest::addColumn<QStringList>("devices");
        const QString can0 = QStringLiteral("can0 | PEAK");
        const QString can1 = QStringLiteral("can1 | SysTec");
        const QString can2 = QStringLiteral("can2 | Ixxat");
        const QString can3 = QStringLiteral("can3");
        QTest::newRow("none") << Types{} << QStringList{can0, can1, can2, can3};
        QTest::newRow("SysTec") << Types{sysTec} << QStringList{can1};
        QTest::newRow("PEAK") << Types{peak} << QStringList{can0};
        QTest::newRow("Ixxat") << Types{ixxat} << QStringList{can2};
        QTest::newRow("all makers") << Types{ixxat, peak, sysTec} << QStringList{can0, can1, can2};
        QTest::newRow("a maker twice") << Types{peak, peak} << QStringList{can0};
        QTest::newRow("SocketCAN itself") << Types{AbstractCanAdapter::CanAdapterTypeSocketCan} << QStringList{};
        QTest::newRow("SocketCAN and a maker")
            << Types{AbstractCanAdapter::CanAdapterTypeSocketCan, peak} << QStringList{can0};
        QTest::newRow("no type") << Types{AbstractCanAdapter::CanAdapterType(0)} << QStringList{};
    }

    void filterLetsItsMakersThrough()
    {
        QFETCH(Types, types);
        QFETCH(QStringList, devices);
        QCOMPARE(buslink::canDevices(recorded("makers"), types, &detailsOfMakers), devices);
    }

    void nameWithAMakersWordPassesItsFilter()
    {
        const QString listing = recorded("renamed");
        const QStringList peak1{QStringLiteral("PEAK1")};
        QCOMPARE(buslink::canDevices(listing, {peak}, &noDetails), peak1);
        QCOMPARE(buslink::canDevices(listing, {sysTec}, &noDetails), QStringList());
        const auto details = [](const QString &name) {
            return name == QLatin1String("PEAK1") ? QStringLiteral("systec") : QString();
        };
        const QString both = QStringLiteral("PEAK1 | SysTec");
        QCOMPARE(buslink::canDevices(listing, {sysTec, peak}, details), (QStringList{both, both}));
        QCOMPARE(buslink::canDevices(listing, {}, details),
                 (QStringList{QStringLiteral("body"), both, QStringLiteral("engine-can_left")}));
    }

    void withoutCanLinksTheUsualNamesAreGiven_data()
    {
        QTest::addColumn<QString>("listing");
        QTest::newRow("no output") << QString();
        QTest::newRow("no CAN link") << recorded("no_can");
        QTest::newRow("CAN link without a header") << QStringLiteral("link/can\n");
        QTest::newRow("error text") << QStringLiteral("Object \"lonk\" is unknown, try \"ip help\".\n");
    }

    void withoutCanLinksTheUsualNamesAreGiven()
    {
        QFETCH(QString, listing);
        QCOMPARE(buslink::canDevices(listing, {}, &noDetails), fallback());
        QCOMPARE(buslink::canDevices(listing, {peak}, &noDetails), QStringList());
        QCOMPARE(buslink::canDevices(listing, {AbstractCanAdapter::CanAdapterTypeSocketCan}, &noDetails),
                 QStringList());
    }

    void filterThatLeavesNothingHasNoFallback()
    {
        QCOMPARE(buslink::canDevices(recorded("can_up"), {peak}, &noDetails), QStringList());
    }

    void detailsAreAskedForOnceForEachLinkInOrder()
    {
        QStringList asked;
        buslink::canDevices(recorded("makers"), {peak}, [&asked](const QString &name) {
            asked.append(name);
            return QString();
        });
        QCOMPARE(asked, words("can0 can1 can2 can3"));
    }

    void deviceStringIsCutAtTheLabel_data()
    {
        QTest::addColumn<QString>("device");
        QTest::addColumn<QString>("name");
        QTest::newRow("null") << QString() << QString();
        QTest::newRow("plain") << QStringLiteral("can0") << QStringLiteral("can0");
        QTest::newRow("label") << QStringLiteral("can0 | PEAK") << QStringLiteral("can0");
        QTest::newRow("two labels") << QStringLiteral("can0|a|b") << QStringLiteral("can0");
        QTest::newRow("blanks") << QStringLiteral("\t my  can \n") << QStringLiteral("my can");
        QTest::newRow("label alone") << QStringLiteral("|PEAK") << QString();
    }

    void deviceStringIsCutAtTheLabel()
    {
        QFETCH(QString, device);
        QFETCH(QString, name);
        QCOMPARE(buslink::interfaceOfDevice(device), name);
    }

    void detailsTellTheProperties_data()
    {
        QTest::addColumn<QString>("details");
        QTest::addColumn<QVector<int>>("numbers"); // FD, nominal rate, data rate, restart time
        QTest::addColumn<QString>("rate");
        const auto file = [](const char *name, const QVector<int> &numbers, const char *rate) {
            const QString text = recorded(name);
            if (text.isEmpty())
                qFatal("no text %s", name);
            QTest::newRow(name) << text << numbers << QString::fromUtf8(rate);
        };
        file("details_can_up", {0, 500, 0, 100}, "500");
        file("details_recorded_up", {0, 500, 0, 100}, "500");
        file("details_recorded_down", {0, 500, 0, 100}, "500");
        file("details_can_down", {0, 0, 0, 0}, "");
        file("details_vcan_fd", {1, 0, 0, 0}, "");
        file("details_pcan", {0, 250, 0, 250}, "250");
        file("details_pcan_fd", {1, 500, 2000, 0}, "500");
        file("details_systec", {0, 1000, 0, 1000}, "1000");
        file("details_ixxat", {0, 125, 0, 0}, "125");
        const auto row = [](const char *name, const char *text, const QVector<int> &numbers, const char *rate) {
            QTest::newRow(name) << QString::fromUtf8(text) << numbers << QString::fromUtf8(rate);
        };
        row("empty", "", {0, 0, 0, 0}, "");
        row("data rate", "dbitrate 2000000 dsample-point 0.750", {1, 0, 2000, 0}, "");
        row("data rate without a number", "dbitrate  dsample-point", {1, 0, 0, 0}, "");
        row("data rate without its end", "dbitrate 2000000 ", {0, 0, 0, 0}, "");
        row("mtu of CAN FD", "mtu 72 qdisc", {1, 0, 0, 0}, "");
        row("mtu that begins alike", "mtu 720 qdisc", {1, 0, 0, 0}, "");
        row("mtu of classic CAN", "mtu 16 qdisc", {0, 0, 0, 0}, "");
        row("rate that is no whole number", "bitrate 83333 sample-point", {0, 83, 0, 0}, "83");
        row("rate below 1 kbit/s", "bitrate 999 sample-point", {0, 0, 0, 0}, "");
        row("rate of two digits", "bitrate 10 sample-point", {0, 0, 0, 0}, "");
        row("rate of 1 kbit/s", "bitrate 1000 sample-point", {0, 1, 0, 0}, "1");
        row("rate above 16 bits", "bitrate 65537000 sample-point", {0, 1, 0, 0}, "65537");
        row("rate above 32 bits", "bitrate 4294967296000 sample-point", {0, 0, 0, 0}, "4294967296");
        row("rate that is no number", "bitrate 12x000 sample-point", {0, 0, 0, 0}, "12x");
        row("rate with a dot", "bitrate 500.000 sample-point", {0, 0, 0, 0}, "");
        row("empty rate", "bitrate  sample-point", {0, 0, 0, 0}, "");
        row("second rate counts after a dot", "bitrate 1000.5 bitrate 250000 sample", {0, 250, 0, 0}, "250");
        row("end of the last of several", "bitrate 1000 sample 2000 sample", {0, 0, 0, 0}, "1000 sample 2");
        row("rate before a line end", "bitrate 250000\n sample", {0, 2500, 0, 0}, "2500");
        row("restart time", "restart-ms 100 \n", {0, 0, 0, 100}, "");
        row("restart time without a blank", "restart-ms 100\n", {0, 0, 0, 0}, "");
        row("restart time before CRLF", "restart-ms 100 \r\n", {0, 0, 0, 0}, "");
        row("restart time above 16 bits", "restart-ms 65541 \n", {0, 0, 0, 5}, "");
        row("restart time in a longer text", "restart-ms 100 \n x \n", {0, 0, 0, 0}, "");
        row("error text", "Device \"can9\" does not exist.\n", {0, 0, 0, 0}, "");
    }

    void detailsTellTheProperties()
    {
        QFETCH(QString, details);
        QFETCH(QVector<int>, numbers);
        QFETCH(QString, rate);
        QCOMPARE(numbersOf(buslink::propertiesFromDetails(details)), numbers);
        QCOMPARE(buslink::bitrateFromDetails(details), rate);
    }

    void longTextThatMatchesNothingIsReadInTime_data()
    {
        QTest::addColumn<QByteArray>("words");
        QTest::newRow("rates") << QByteArray("bitrate ");
        QTest::newRow("data rates") << QByteArray("dbitrate ");
        QTest::newRow("restart times") << QByteArray("restart-ms ");
        QTest::newRow("ends before rates") << QByteArray(" sample dsample \n bitrate dbitrate restart-ms .");
    }

    void longTextThatMatchesNothingIsReadInTime()
    {
        QFETCH(const QByteArray, words);
        const QString details = QString::fromLatin1(words.repeated(2'000'000 / words.size()));
        QElapsedTimer timer;
        timer.start();
        const QVector<int> numbers = numbersOf(buslink::propertiesFromDetails(details));
        const qint64 elapsed = timer.elapsed();
        QCOMPARE(numbers[1], 0);
        QCOMPARE(numbers[3], 0);
        QVERIFY2(elapsed < 20'000, qPrintable(QString::number(elapsed)));
    }

    void detailsAreReadOnSeveralThreadsAtOnce()
    {
        const QString text = recorded("details_pcan_fd");
        std::array<std::thread, 4> threads;
        std::atomic<int> good = 0;
        for (std::thread &thread : threads)
            thread = std::thread([&] {
                for (int pass = 0; pass < 500; ++pass) {
                    const bool right = numbersOf(buslink::propertiesFromDetails(text)) == QVector<int>{1, 500, 2000, 0}
                                       && buslink::bitrateFromDetails(text) == QLatin1String("500");
                    good += right ? 1 : 0;
                }
            });
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(good.load(), 2000);
    }
};

QTEST_APPLESS_MAIN(TestIpLinkParser)
#include "tst_ip_link_parser.moc"
