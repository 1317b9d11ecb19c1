// SPDX-License-Identifier: MIT
#include "busdump/interface_list.h"

#include <QtTest/QtTest>

using buslink::ListedInterface;

Q_DECLARE_METATYPE(ListedInterface)

namespace {

ListedInterface interface(const char *name, const char *maker, bool isFd, quint16 bitrate, quint16 dbitrate)
{
    ListedInterface made;
    made.name = QString::fromUtf8(name);
    made.maker = QString::fromUtf8(maker);
    made.properties.isFd = isFd;
    made.properties.bitrate = bitrate;
    made.properties.dbitrate = dbitrate;
    return made;
}

} // namespace

class TestInterfaceList : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void columnsAreAsWideAsTheirWidestText_data()
    {
        QTest::addColumn<QVector<ListedInterface>>("interfaces");
        QTest::addColumn<QString>("table");
        const auto row = [](const char *name, const QVector<ListedInterface> &interfaces, const char *table) {
            QTest::newRow(name) << interfaces << QString::fromUtf8(table);
        };
        row("none", {}, "no CAN interfaces found\n");
        row("one, of which nothing is known", {interface("vcan0", "", false, 0, 0)},
            "INTERFACE  MAKER  FD  KBIT/S  DATA KBIT/S\n"
            "vcan0      -      no       -            -\n");
        row("several",
            {interface("can0", "PEAK", true, 500, 2000), interface("can1", "SysTec", false, 1000, 0),
             interface("engine-can_left", "", true, 0, 0)},
            "INTERFACE        MAKER   FD   KBIT/S  DATA KBIT/S\n"
            "can0             PEAK    yes     500         2000\n"
            "can1             SysTec  no     1000            -\n"
            "engine-can_left  -       yes       -            -\n");
        row("widest numbers", {interface("c", "Ixxat", true, 65535, 65535)},
            "INTERFACE  MAKER  FD   KBIT/S  DATA KBIT/S\n"
            "c          Ixxat  yes   65535        65535\n");
        row("letters of two bytes", {interface("f\u00fcnf", "", false, 5, 0), interface("can0", "", false, 10, 0)},
            "INTERFACE  MAKER  FD  KBIT/S  DATA KBIT/S\n"
            "f\u00fcnf       -      no       5            -\n"
            "can0       -      no      10            -\n");
    }
    void columnsAreAsWideAsTheirWidestText()
    {
        QFETCH(QVector<ListedInterface>, interfaces);
        QTEST(buslink::interfaceTable(interfaces), "table");
    }

    void otherAdaptersStandInATableOfTheirOwn()
    {
        QCOMPARE(buslink::adapterTable({{QStringLiteral("usb:ttyUSB0"), QStringLiteral("zorbek USB")},
                                        {QStringLiteral("can4linux:/dev/can0"), QStringLiteral("can4linux")}}),
                 QStringLiteral("OTHER ADAPTERS       KIND\n"
                                "usb:ttyUSB0          zorbek USB\n"
                                "can4linux:/dev/can0  can4linux\n"));
    }

    void kindsWithoutDevicesAreShownByTheirForm()
    {
        QStringList arguments;
        for (const buslink::ListedAdapter &adapter : buslink::findOtherAdapters())
            arguments.append(adapter.argument);
        QVERIFY(arguments.contains(QStringLiteral("virtual[:port]")));
        QVERIFY(arguments.contains(QStringLiteral("cia309:host[:port]")));
    }
};

QTEST_APPLESS_MAIN(TestInterfaceList)
#include "tst_interface_list.moc"
