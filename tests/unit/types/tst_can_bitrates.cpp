// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/option_meta_types_p.h>
#include <BusLinkDesk/types/can_bitrates.h>

#include "support/bitrate_records.h"
#include "support/convertible.h"
#include "support/hex.h"

#include <QtCore/QDataStream>
#include <QtTest/QtTest>

#include <cstddef>
#include <cstring>
#include <new>

using CAN::CANBitrateDesc;
using CAN::CANBitTimingParameter;
using CAN::CANBitTimingThresholds;
using CAN::CANClassicBusParameter;
using CAN::CANFDBusParameter;

Q_DECLARE_METATYPE(Convertible<CAN::CANBitrateDesc>)

class TestCanBitrates : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { buslink::registerOptionMetaTypes(); }

    void recordsHaveTheirLayout();
    void recordsHaveTheirDefaults();
    void descriptorLeavesNoByteUndefined();
    void toStringTellsTheNumbersOfAValidRecordOnly();
    void metaTypesHaveTheirNames_data();
    void metaTypesHaveTheirNames();
    void descriptorHasNoStreamOperators();
    void descriptorFromVariant_data();
    void descriptorFromVariant();
    void descriptorFromVariantThatConverts();
};

void TestCanBitrates::recordsHaveTheirLayout()
{
    QCOMPARE(sizeof(CANBitrateDesc), std::size_t(24));
    QCOMPARE(offsetof(CANBitrateDesc, label), std::size_t(0));
    QCOMPARE(offsetof(CANBitrateDesc, bitrate), std::size_t(8));
    QCOMPARE(offsetof(CANBitrateDesc, samplePoint), std::size_t(16));

    QCOMPARE(sizeof(CANBitTimingParameter), std::size_t(10));
    QCOMPARE(offsetof(CANBitTimingParameter, prescaler), std::size_t(0));
    QCOMPARE(offsetof(CANBitTimingParameter, tSeg1), std::size_t(2));
    QCOMPARE(offsetof(CANBitTimingParameter, tSeg2), std::size_t(4));
    QCOMPARE(offsetof(CANBitTimingParameter, sjw), std::size_t(6));
    QCOMPARE(offsetof(CANBitTimingParameter, valid), std::size_t(8));

    using Limits = CANBitTimingThresholds;
    QCOMPARE(sizeof(Limits), std::size_t(18));
    QCOMPARE(offsetof(Limits, thresholdWord), std::size_t(0));
    QCOMPARE(offsetof(Limits, prescalerMin), std::size_t(2));
    QCOMPARE(offsetof(Limits, prescalerMax), std::size_t(4));
    QCOMPARE(offsetof(Limits, tSeg1Min), std::size_t(6));
    QCOMPARE(offsetof(Limits, tSeg1Max), std::size_t(8));
    QCOMPARE(offsetof(Limits, tSeg2Min), std::size_t(10));
    QCOMPARE(offsetof(Limits, tSeg2Max), std::size_t(12));
    QCOMPARE(offsetof(Limits, sjwMax), std::size_t(14));
    QCOMPARE(offsetof(Limits, thresholdFlag), std::size_t(16));

    QCOMPARE(sizeof(CANClassicBusParameter), std::size_t(48));
    QCOMPARE(offsetof(CANClassicBusParameter, busValue), std::size_t(0));
    QCOMPARE(offsetof(CANClassicBusParameter, busRatio), std::size_t(8));
    QCOMPARE(offsetof(CANClassicBusParameter, timing), std::size_t(16));
    QCOMPARE(offsetof(CANClassicBusParameter, busText), std::size_t(32));
    QCOMPARE(offsetof(CANClassicBusParameter, busFlag), std::size_t(40));

    QCOMPARE(sizeof(CANFDBusParameter), std::size_t(40));
    QCOMPARE(offsetof(CANFDBusParameter, busValue), std::size_t(0));
    QCOMPARE(offsetof(CANFDBusParameter, busText), std::size_t(8));
    QCOMPARE(offsetof(CANFDBusParameter, busRatio), std::size_t(16));
    QCOMPARE(offsetof(CANFDBusParameter, timing), std::size_t(24));
    QCOMPARE(offsetof(CANFDBusParameter, busOffset), std::size_t(34));
    QCOMPARE(offsetof(CANFDBusParameter, busFlag), std::size_t(35));
}

void TestCanBitrates::recordsHaveTheirDefaults()
{
    QCOMPARE(described(CANBitrateDesc()), QStringLiteral("null 0 0"));
    QCOMPARE(described(CANBitTimingParameter()), QStringLiteral("0/0/0/0/0"));
    QCOMPARE(described(CANClassicBusParameter()), QStringLiteral("0 0 0/0/0/0/0 null 0"));
    QCOMPARE(described(CANFDBusParameter()), QStringLiteral("0 null 0 0/0/0/0/0 0 0"));
    const CANBitTimingThresholds limits;
    QCOMPARE(limits.thresholdWord, quint16(8));
    QCOMPARE(limits.prescalerMin, quint16(1));
    QCOMPARE(limits.prescalerMax, qint16(128));
    QCOMPARE(limits.tSeg1Min, quint16(3));
    QCOMPARE(limits.tSeg1Max, quint16(16));
    QCOMPARE(limits.tSeg2Min, quint16(2));
    QCOMPARE(limits.tSeg2Max, quint16(8));
    QCOMPARE(limits.sjwMax, quint16(8));
    QCOMPARE(limits.thresholdFlag, quint8(0));
}

void TestCanBitrates::descriptorLeavesNoByteUndefined()
{
    alignas(CANBitrateDesc) unsigned char memory[sizeof(CANBitrateDesc)];
    const auto behindLabel = [&memory] {
        return QByteArray(reinterpret_cast<const char *>(memory) + sizeof(QString), sizeof memory - sizeof(QString));
    };
    for (const int pattern : {0x00, 0xA5, 0xFF}) {
        std::memset(memory, pattern, sizeof memory);
        auto *made = new (memory) CANBitrateDesc;
        QCOMPARE(behindLabel(), QByteArray(16, '\0'));
        made->~CANBitrateDesc();

        CANBitrateDesc source;
        source.bitrate = 0x1234;
        source.samplePoint = 87.5;
        std::memset(memory, pattern, sizeof memory);
        auto *copied = new (memory) CANBitrateDesc(source);
        QCOMPARE(behindLabel(), hex("3412 000000000000 0000000000E05540"));
        copied->~CANBitrateDesc();

        std::memset(memory, pattern, sizeof memory);
        auto *fromNumber = new (memory) CANBitrateDesc(QVariant(0x1234));
        QCOMPARE(behindLabel(), hex("3412 000000000000 0000000000000000"));
        fromNumber->~CANBitrateDesc();
    }
}

void TestCanBitrates::toStringTellsTheNumbersOfAValidRecordOnly()
{
    QCOMPARE(timing(1, 22, 333, 4444, true).toString(),
             QStringLiteral("CANBitTimings(Prescaler: 1, tSeg1: 22, tSeg2: 333, sjw: 4444)"));
    QCOMPARE(timing(65535, 0, 65535, 0, true).toString(),
             QStringLiteral("CANBitTimings(Prescaler: 65535, tSeg1: 0, tSeg2: 65535, sjw: 0)"));
    QCOMPARE(timing(5, 13, 2, 1, false).toString(), QStringLiteral("not valid"));
    QCOMPARE(CANBitTimingParameter().toString(), QStringLiteral("not valid"));
}

void TestCanBitrates::metaTypesHaveTheirNames_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("type");
    const int classic = qMetaTypeId<CANClassicBusParameter>();
    const int fd = qMetaTypeId<CANFDBusParameter>();
    for (const char *name : {"CAN::CANClassicBusParameter", "AbstractCanAdapter::CANClassicBusParameter"})
        QTest::newRow(name) << QByteArray(name) << classic;
    for (const char *name : {"CAN::CANFDBusParameter", "AbstractCanAdapter::CANFDBusParameter"})
        QTest::newRow(name) << QByteArray(name) << fd;
    QTest::newRow("CAN::CANBitrateDesc") << QByteArray("CAN::CANBitrateDesc") << qMetaTypeId<CANBitrateDesc>();
}

void TestCanBitrates::metaTypesHaveTheirNames()
{
    QFETCH(QByteArray, name);
    QFETCH(int, type);
    QCOMPARE(QMetaType::type(name), type);
    QVERIFY(type >= QMetaType::User);
}

void TestCanBitrates::descriptorHasNoStreamOperators()
{
    CANBitrateDesc record;
    QByteArray data;
    QDataStream out(&data, QIODevice::WriteOnly);
    QVERIFY(!QMetaType::save(out, qMetaTypeId<CANBitrateDesc>(), &record));
    QVERIFY(data.isEmpty());
    QDataStream in(data);
    QVERIFY(!QMetaType::load(in, qMetaTypeId<CANBitrateDesc>(), &record));
}

void TestCanBitrates::descriptorFromVariant_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("wanted");
    const CANBitrateDesc record = descriptor(QStringLiteral("500 kbit/s"), 500, 87.5);
    const auto none = QStringLiteral("null 0 0");
    QTest::newRow("a record") << QVariant::fromValue(record) << QStringLiteral("\"500 kbit/s\" 500 87.5");
    QTest::newRow("500") << QVariant(500) << QStringLiteral("null 500 0");
    QTest::newRow("0") << QVariant(0) << none;
    QTest::newRow("65535") << QVariant(65535) << QStringLiteral("null 65535 0");
    QTest::newRow("65536") << QVariant(65536) << none;
    QTest::newRow("66036, cut to 500") << QVariant(66036) << QStringLiteral("null 500 0");
    QTest::newRow("-1") << QVariant(-1) << QStringLiteral("null 65535 0");
    QTest::newRow("text 250") << QVariant(QStringLiteral("250")) << QStringLiteral("null 250 0");
    QTest::newRow("text without number") << QVariant(QStringLiteral("fast")) << none;
    QTest::newRow("true") << QVariant(true) << QStringLiteral("null 1 0");
    QTest::newRow("124.6, rounded") << QVariant(124.6) << QStringLiteral("null 125 0");
    QTest::newRow("invalid") << QVariant() << none;
    QTest::newRow("a list") << QVariant(QVariantList{500}) << none;
    QTest::newRow("another record") << QVariant::fromValue(classicRecord()) << none;
}

void TestCanBitrates::descriptorFromVariant()
{
    QFETCH(QVariant, value);
    QFETCH(QString, wanted);
    QCOMPARE(described(CANBitrateDesc(value)), wanted);
}

void TestCanBitrates::descriptorFromVariantThatConverts()
{
    QVERIFY(Convertible<CANBitrateDesc>::registerConversion());
    Convertible<CANBitrateDesc> source{descriptor(QStringLiteral("made"), 125, 0.5), true};
    QCOMPARE(described(CANBitrateDesc(QVariant::fromValue(source))), QStringLiteral("\"made\" 125 0.5"));

    source.succeeds = false;
    QCOMPARE(described(CANBitrateDesc(QVariant::fromValue(source))), described(CANBitrateDesc()));
}

QTEST_APPLESS_MAIN(TestCanBitrates)
#include "tst_can_bitrates.moc"
