// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>
#include <BusLinkDesk/factory/can_adapter_factory.h>

#include "backends/socketcan/fake_ip.h"
#include "support/bitrate_records.h"

#include <QtTest/QtTest>

#include <algorithm>
#include <memory>

using Factory = CanAdapterFactory;
using Type = AbstractCanAdapter::CanAdapterType;

namespace {

/// The types that have a row of their own, and some that have none.
const QList<int> askedTypes{0, 1, 2, 4, 6, 7, 9, 15, 16, 17, 20, 21, 255};

/// The asked types for which a query answers true.
template <typename Query>
QList<int> typesWith(Query query)
{
    QList<int> types;
    std::copy_if(askedTypes.begin(), askedTypes.end(), std::back_inserter(types),
                 [&](int type) { return query(Type(type)); });
    return types;
}

QStringList offered()
{
    QStringList rows;
    const auto pairs = Factory::getImplementedAdapters();
    for (const auto &[label, type] : pairs)
        rows.append(QStringLiteral("%1 %2").arg(label).arg(int(type)));
    return rows;
}

std::unique_ptr<AbstractCanAdapter> create(int type, const char *device = "device")
{
    return std::unique_ptr<AbstractCanAdapter>(Factory::createCanAdapter(Type(type), QString::fromLatin1(device)));
}

} // namespace

class TestCanAdapterFactory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { Factory::allowedAdapters.clear(); }

    void everyTypeIsMadeByItsClass()
    {
        QVERIFY(qobject_cast<SocketCanAdapter *>(create(1).get()));
        QVERIFY(qobject_cast<Can4linuxCanAdapter *>(create(4).get()));
        QVERIFY(qobject_cast<DemoCanAdapter *>(create(6).get()));
        QVERIFY(qobject_cast<ZorbekUSBCanAdapter *>(create(15).get()));
        QVERIFY(qobject_cast<CiA309Adapter *>(create(20).get()));
    }

    void newAdapterHasItsTypeAndNothingElse()
    {
        for (const int type : {1, 4, 6, 15, 20}) {
            const auto adapter = create(type, "/dev/can0");
            QCOMPARE(adapter->getCanAdapterOption(AbstractCanAdapter::option_adapterType), QVariant(type));
            QCOMPARE(adapter->getCanAdapterOption(AbstractCanAdapter::option_deviceName).toString(), QString());
            QVERIFY(!adapter->parent());
            QVERIFY(!adapter->isRunning());
        }
    }

    void noOtherTypeIsMade()
    {
        for (const int type : {-1, 0, 2, 3, 5, 7, 9, 14, 16, 17, 19, 21, 22, 1000})
            QVERIFY2(!create(type), qPrintable(QString::number(type)));
    }

    void allTypesAreOfferedInAFixedOrder()
    {
        const QStringList all{QStringLiteral("SocketCAN 1"), QStringLiteral("can4linux 4"),
                              QStringLiteral("CiA 309-3 20"), QStringLiteral("zorbek USB 15"),
                              QStringLiteral("zorbek Virtual 6")};
        QCOMPARE(offered(), all);
        QCOMPARE(offered(), all);
        QVERIFY(Factory::allowedAdapters.isEmpty());
    }

    void offeringAllowsSocketCanOnceTypesWereAllowed()
    {
        Factory::addAllowedAdapters(Type(6));
        QVERIFY(!create(1));
        QVERIFY(create(6));
        QCOMPARE(offered(), (QStringList{QStringLiteral("SocketCAN 1"), QStringLiteral("zorbek Virtual 6")}));
        QVERIFY(create(1));
        QVERIFY(!create(4));
    }

    void everyOfferingMakesTheListLonger()
    {
        Factory::addAllowedAdapters(Type(6));
        for (int i = 0; i < 10; ++i)
            Factory::getImplementedAdapters();
        QList<Type> expected{Type(6)};
        for (int i = 0; i < 10; ++i)
            expected.append(Type(1));
        QCOMPARE(Factory::allowedAdapters, expected);
    }

    void allowingDoesNotLookForDuplicates()
    {
        Factory::addAllowedAdapters(Type(20));
        Factory::addAllowedAdapters(Type(9));
        Factory::addAllowedAdapters(Type(20));
        QCOMPARE(Factory::allowedAdapters, (QList<Type>{Type(20), Type(9), Type(20)}));
        QVERIFY(!create(9));
        QCOMPARE(offered(), (QStringList{QStringLiteral("SocketCAN 1"), QStringLiteral("CiA 309-3 20")}));
    }

    void devicesByType()
    {
        using Devices = QMap<QString, unsigned int>;
        QCOMPARE(Factory::getAdvInterfaceList(Type(4)), (Devices{{QStringLiteral("/dev/can0"), 0x80000000U},
                                                                 {QStringLiteral("/dev/can1"), 0x80000000U},
                                                                 {QStringLiteral("/dev/can2"), 0x80000000U},
                                                                 {QStringLiteral("/dev/can3"), 0x80000000U}}));
        QCOMPARE(Factory::getAdvInterfaceList(Type(6)), (Devices{{QStringLiteral("zorbek Virtual"), 128U}}));
        QCOMPARE(Factory::getAdvInterfaceList(Type(20)), (Devices{{QString(), 0x80000000U}}));
        Devices ports;
        for (const QString &name : serialPortAdapter::getDeviceList())
            ports.insert(name, 128U);
        QCOMPARE(Factory::getAdvInterfaceList(Type(15)), ports);
        Devices interfaces;
        for (const QString &name : SocketCanAdapter::getDeviceList({}))
            interfaces.insert(name, 0x80000000U);
        QCOMPARE(Factory::getAdvInterfaceList(Type(1)), interfaces);
        for (const int type : {0, 2, 9, 16, 17, 21})
            QCOMPARE(Factory::getAdvInterfaceList(Type(type)), Devices());
    }

    void devicesOfAForbiddenTypeAreNotListedButItsRatesAre()
    {
        Factory::addAllowedAdapters(Type(6));
        QVERIFY(Factory::getAdvInterfaceList(Type(4)).isEmpty());
        QVERIFY(Factory::getAdvInterfaceList(Type(1)).isEmpty());
        QCOMPARE(Factory::getAdvInterfaceList(Type(6)).size(), 1);
        QCOMPARE(rowsOf(Factory::getSupportedBitrates(Type(4), false)),
                 rowsOf(Can4linuxCanAdapter::getSupportedBitrates(false)));
        QVERIFY(Factory::isBaudrateChangeable(Type(4)));
        QVERIFY(Factory::isInterfaceFd(Type(1), QString()));
    }

    void filterOfAllowedTypesReachesTheInterfaceList()
    {
        const FakeIp ip(
            {{QStringLiteral("-det -p link"), QStringLiteral("1: can0: <>\n link/can\n2: can1: <>\n link/can\n")},
             {QStringLiteral("-d link show can0"), QStringLiteral("pcan_usb: tseg1")}});
        using Devices = QMap<QString, unsigned int>;
        QCOMPARE(Factory::getAdvInterfaceList(Type(1)),
                 (Devices{{QStringLiteral("can0 | PEAK"), 0x80000000U}, {QStringLiteral("can1"), 0x80000000U}}));
        Factory::addAllowedAdapters(Type(1));
        Factory::addAllowedAdapters(Type(16));
        QCOMPARE(Factory::getAdvInterfaceList(Type(1)), (Devices{{QStringLiteral("can0 | PEAK"), 0x80000000U}}));
        // Without the maker's types nothing passes, and there are no usual names then either.
        Factory::allowedAdapters = {Type(1)};
        QVERIFY(Factory::getAdvInterfaceList(Type(1)).isEmpty());
    }

    void ratesByType()
    {
        for (const bool shortList : {false, true}) {
            const QStringList base = rowsOf(AbstractCanAdapter::getSupportedBitrates(shortList));
            const QStringList driver = rowsOf(Can4linuxCanAdapter::getSupportedBitrates(shortList));
            QVERIFY(base != driver && !base.isEmpty() && !driver.isEmpty());
            for (const int type : askedTypes) {
                const QStringList expected = type == 1 || type == 20 ? base : type == 4 ? driver : QStringList();
                QCOMPARE(rowsOf(Factory::getSupportedBitrates(Type(type), shortList)), expected);
            }
        }
    }

    void noTypeHasDataPhaseRatesHere()
    {
        for (const int type : askedTypes)
            QVERIFY(Factory::getSupportedFDBitrates(Type(type)).isEmpty());
    }

    void abilitiesByType()
    {
        const QString name = QStringLiteral("nowhere");
        QCOMPARE(typesWith(&Factory::isBaudrateChangeable), (QList<int>{4, 20}));
        QCOMPARE(typesWith(&Factory::isCANFDBaudrateSettingAvailable), (QList<int>{9, 16, 17}));
        QCOMPARE(typesWith(&Factory::isCANClassicBaudrateSettingAvailable), (QList<int>{9, 16, 17}));
        QCOMPARE(typesWith(&Factory::isAdditionalConfigAvailable), (QList<int>{4, 6, 15, 20}));
        QCOMPARE(typesWith([&](Type type) { return Factory::isInterfaceFd(type, name); }), (QList<int>{1, 4, 6}));
        QCOMPARE(typesWith([&](Type type) { return Factory::canDisableAutoBusOn(type, name); }), QList<int>());
        QCOMPARE(typesWith([&](Type type) { return Factory::isInterfaceLowSpeed(type, name); }), QList<int>());
        QString installed = QStringLiteral("a");
        QString required = QStringLiteral("b");
        QCOMPARE(typesWith([&](Type type) { return Factory::checkDriverVersion(type, installed, required); }),
                 QList<int>());
        QCOMPARE(installed, QStringLiteral("a"));
        QCOMPARE(required, QStringLiteral("b"));
    }

    void interfaceQueriesArePassedThrough()
    {
        const QString name = QStringLiteral("can0 | PEAK");
        const FakeIp ip({{QStringLiteral("-det link show can0"),
                          QStringLiteral("restart-ms 100 \n bitrate 500000 sample-point 0.875\n"
                                         " dbitrate 2000000 dsample-point 0.75\n")}});
        const auto got = Factory::getSocketCanProps(name);
        QCOMPARE(got.isFd, true);
        QCOMPARE(got.bitrate, quint16(500));
        QCOMPARE(got.dbitrate, quint16(2000));
        QCOMPARE(got.restartMs, quint16(100));
        QCOMPARE(Factory::getSocketCanBitrate(name), QStringLiteral("500"));
    }

    void constructorIsThereForThoseWhoWantAnObject()
    {
        CanAdapterFactory factory;
        QCOMPARE(sizeof factory, std::size_t(1));
    }
};

QTEST_GUILESS_MAIN(TestCanAdapterFactory)
#include "tst_can_adapter_factory.moc"
