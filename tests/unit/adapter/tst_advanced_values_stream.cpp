// SPDX-License-Identifier: MIT
#include "support/convertible.h"
#include "support/fake_adapter.h"
#include "support/hex.h"
#include "support/saved.h"

#include <QtCore/QDataStream>
#include <QtTest/QtTest>

#include <cstddef>

using Peak = AbstractCanAdapter::PeakAdvValues;
using Systec = AbstractCanAdapter::SystecXM3AdvValues;
using Props = AbstractCanAdapter::SocketCANProps;

Q_DECLARE_METATYPE(Convertible<Props>)

namespace {

Peak peakValues()
{
    return {true, 0x01020304, 0x11, -2, 0x13, 0x14};
}

constexpr const char *PeakStream = "01020304 11 14 FE 13 01"; // value, param0, param3, param1, param2, enabled

Systec systecValues()
{
    return {-3, 0x10111213, 0x20212223, 0x30313233, 0x40414243, 0x50515253, -1};
}

constexpr const char *SystecStream = "FFFFFFFF 50515253 FD" // param5, param4, flag
                                     "10111213 20212223 30313233 40414243";

template <typename Record>
Record loaded(const char *digits)
{
    const QByteArray data = hex(digits);
    QDataStream stream(data);
    Record record;
    stream >> record;
    return record;
}

QString described(const Props &props)
{
    return QStringLiteral("%1 %2 %3 %4").arg(props.isFd).arg(props.bitrate).arg(props.dbitrate).arg(props.restartMs);
}

Props usedProps()
{
    Props props;
    props.isFd = true;
    props.bitrate = 1;
    props.dbitrate = 2;
    props.restartMs = 3;
    return props;
}

} // namespace

class TestAdvancedValuesStream : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fieldsStandInTheirOrder()
    {
        QCOMPARE(sizeof(Peak), std::size_t(12));
        QCOMPARE(offsetof(Peak, enabled), std::size_t(0));
        QCOMPARE(offsetof(Peak, value), std::size_t(4));
        QCOMPARE(offsetof(Peak, param0), std::size_t(8));
        QCOMPARE(offsetof(Peak, param1), std::size_t(9));
        QCOMPARE(offsetof(Peak, param2), std::size_t(10));
        QCOMPARE(offsetof(Peak, param3), std::size_t(11));

        QCOMPARE(sizeof(Systec), std::size_t(28));
        QCOMPARE(offsetof(Systec, flag), std::size_t(0));
        QCOMPARE(offsetof(Systec, param0), std::size_t(4));
        QCOMPARE(offsetof(Systec, param1), std::size_t(8));
        QCOMPARE(offsetof(Systec, param2), std::size_t(12));
        QCOMPARE(offsetof(Systec, param3), std::size_t(16));
        QCOMPARE(offsetof(Systec, param4), std::size_t(20));
        QCOMPARE(offsetof(Systec, param5), std::size_t(24));

        QCOMPARE(sizeof(Props), std::size_t(8));
        QCOMPARE(offsetof(Props, isFd), std::size_t(0));
        QCOMPARE(offsetof(Props, bitrate), std::size_t(2));
        QCOMPARE(offsetof(Props, dbitrate), std::size_t(4));
        QCOMPARE(offsetof(Props, restartMs), std::size_t(6));
    }

    void streamOrdersDifferFromTheOrdersOfTheFields()
    {
        QCOMPARE(saved(peakValues()).toHex(), hex(PeakStream).toHex());
        QCOMPARE(hex(PeakStream).size(), 9);
        QCOMPARE(saved(systecValues()).toHex(), hex(SystecStream).toHex());
        QCOMPARE(hex(SystecStream).size(), 25);
    }

    void loadingReversesSaving()
    {
        const auto peak = loaded<Peak>(PeakStream);
        QCOMPARE(peak.enabled, true);
        QCOMPARE(peak.value, 0x01020304);
        QCOMPARE(peak.param0, qint8(0x11));
        QCOMPARE(peak.param1, qint8(-2));
        QCOMPARE(peak.param2, qint8(0x13));
        QCOMPARE(peak.param3, qint8(0x14));

        const auto systec = loaded<Systec>(SystecStream);
        QCOMPARE(systec.flag, qint8(-3));
        QCOMPARE(systec.param0, 0x10111213);
        QCOMPARE(systec.param1, 0x20212223);
        QCOMPARE(systec.param2, 0x30313233);
        QCOMPARE(systec.param3, 0x40414243);
        QCOMPARE(systec.param4, 0x50515253);
        QCOMPARE(systec.param5, -1);
    }

    void defaultsAreZeroButParam4()
    {
        QCOMPARE(saved(Peak()).toHex(), QByteArray(18, '0'));
        QCOMPARE(saved(Systec()).toHex(), hex("00000000 FFFFFFFF 00 00000000 00000000 00000000 00000000").toHex());
        QCOMPARE(described(Props()), QStringLiteral("0 500 2000 0"));
    }

    void metaTypesHaveTheirNamesAndDefaults()
    {
        const FakeAdapter adapter;
        QCOMPARE(QMetaType::type("AbstractCanAdapter::PeakAdvValues"), qMetaTypeId<Peak>());
        QCOMPARE(QMetaType::type("AbstractCanAdapter::SystecXM3AdvValues"), qMetaTypeId<Systec>());
        QCOMPARE(QMetaType::type("AbstractCanAdapter::SocketCANProps"), qMetaTypeId<Props>());
        const QVariant made(qMetaTypeId<Systec>(), nullptr);
        QCOMPARE(saved(made.value<Systec>()), saved(Systec()));
    }

    void variantsStreamByName()
    {
        const FakeAdapter adapter;
        QCOMPARE(saved(QVariant::fromValue(peakValues())).toHex(),
                 (hex("00000400 00 00000022") + QByteArray("AbstractCanAdapter::PeakAdvValues", 34) + hex(PeakStream))
                     .toHex());
        QCOMPARE(
            saved(QVariant::fromValue(systecValues())).toHex(),
            (hex("00000400 00 00000027") + QByteArray("AbstractCanAdapter::SystecXM3AdvValues", 39) + hex(SystecStream))
                .toHex());
    }

    void interfacePropertiesHaveNoStreamOperators()
    {
        Props props;
        QByteArray data;
        QDataStream stream(&data, QIODevice::ReadWrite);
        QVERIFY(!QMetaType::save(stream, qMetaTypeId<Props>(), &props));
        QVERIFY(!QMetaType::load(stream, qMetaTypeId<Props>(), &props));
    }

    void propertiesFromVariant_data()
    {
        QTest::addColumn<QVariant>("value");
        QTest::addColumn<QString>("wanted");
        QVERIFY(Convertible<Props>::registerConversion());
        QTest::newRow("properties") << QVariant::fromValue(usedProps()) << QStringLiteral("1 1 2 3");
        QTest::newRow("converts") << QVariant::fromValue(Convertible<Props>{usedProps(), true})
                                  << QStringLiteral("1 1 2 3");
        QTest::newRow("could convert, but fails")
            << QVariant::fromValue(Convertible<Props>{usedProps(), false}) << QStringLiteral("0 500 2000 0");
        QTest::newRow("125") << QVariant(125) << QStringLiteral("0 125 0 0");
        QTest::newRow("0") << QVariant(0) << QStringLiteral("0 0 0 0");
        QTest::newRow("66036, cut to 500") << QVariant(66036) << QStringLiteral("0 500 0 0");
        QTest::newRow("text 250") << QVariant(QStringLiteral("250")) << QStringLiteral("0 250 0 0");
        QTest::newRow("text without number") << QVariant(QStringLiteral("fast")) << QStringLiteral("0 0 0 0");
        QTest::newRow("a list") << QVariant(QVariantList{500}) << QStringLiteral("0 0 0 0");
        QTest::newRow("invalid") << QVariant() << QStringLiteral("0 0 0 0");
    }

    void propertiesFromVariant()
    {
        QFETCH(QVariant, value);
        QFETCH(QString, wanted);
        QCOMPARE(described(Props(value)), wanted);
    }
};

QTEST_APPLESS_MAIN(TestAdvancedValuesStream)
#include "tst_advanced_values_stream.moc"
