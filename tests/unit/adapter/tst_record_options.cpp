// SPDX-License-Identifier: MIT
#include "support/bitrate_records.h"
#include "support/convertible.h"
#include "support/fake_adapter.h"
#include "support/option_rows.h"

#include <QtTest/QtTest>

using A = AbstractCanAdapter;

Q_DECLARE_METATYPE(Convertible<A::PeakAdvValues>)
Q_DECLARE_METATYPE(Convertible<A::SystecXM3AdvValues>)
Q_DECLARE_METATYPE(Convertible<CAN::CANClassicBusParameter>)
Q_DECLARE_METATYPE(Convertible<CAN::CANFDBusParameter>)
Q_DECLARE_METATYPE(Convertible<CAN::CANBitrateDesc>)

class TestRecordOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void recordsFollowTheRecordRule();
    void rateSetsTheWholeDescriptor_data();
    void rateSetsTheWholeDescriptor();
    void descriptorIsTakenWhole();
    void interfacePropertiesSetOnlyTheRate();
    void descriptorTakesNothingElse_data();
    void descriptorTakesNothingElse();

private:
    template <typename Record>
    void checkRecordRule(A::AdapterOption option, const Record &record);
};

template <typename Record>
void TestRecordOptions::checkRecordRule(A::AdapterOption option, const Record &record)
{
    FakeAdapter adapter;
    const QString sample = told(QVariant::fromValue(record));
    const QString byDefault = told(QVariant::fromValue(Record()));
    QVERIFY(sample != byDefault);
    const auto set = [&adapter, option](const QVariant &value) {
        const bool result = adapter.setCanAdapterOption(option, value);
        return result ? QStringLiteral("true") : told(adapter.getCanAdapterOption(option));
    };
    QCOMPARE(set(QVariant::fromValue(record)), sample);
    QCOMPARE(set(QVariant(1)), sample);
    QCOMPARE(set(QVariant(QStringLiteral("text"))), sample);
    QCOMPARE(set(QVariant::fromValue(CAN::CANBitrateDesc())), sample);

    // Something that could be converted clears the field when it fails to.
    QVERIFY(Convertible<Record>::registerConversion());
    QCOMPARE(set(QVariant::fromValue(Convertible<Record>{record, false})), byDefault);
    QCOMPARE(set(QVariant::fromValue(Convertible<Record>{record, true})), sample);
    QCOMPARE(set(QVariant::fromValue(Record())), byDefault);
}

void TestRecordOptions::recordsFollowTheRecordRule()
{
    checkRecordRule(A::option_peakAdvValues, A::PeakAdvValues{true, 1, 2, 3, 4, 5});
    checkRecordRule(A::option_systecXm3Values, A::SystecXM3AdvValues{1, 2, 3, 4, 5, 6, 7});
    checkRecordRule(A::option_canClassicBusParams, classicRecord());
    checkRecordRule(A::option_canFDBusParams, fdRecord());
}

void TestRecordOptions::rateSetsTheWholeDescriptor_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("wanted");
    const auto row = [](const char *name, const QVariant &value, const char *wanted) {
        QTest::newRow(name) << value << QStringLiteral("CAN::CANBitrateDesc ") + QLatin1String(wanted);
    };
    row("250", 250, "\"250 kbit/s\" 250 0");
    row("0", 0, "\"0 kbit/s\" 0 0");
    row("70000", 70000, "\"4464 kbit/s\" 4464 0");
    row("-1", -1, "\"65535 kbit/s\" 65535 0");
    row("text 125", QStringLiteral("125"), "\"125 kbit/s\" 125 0");
    row("text without number", QStringLiteral("fast"), "\"0 kbit/s\" 0 0");
}

void TestRecordOptions::rateSetsTheWholeDescriptor()
{
    QFETCH(QVariant, value);
    QFETCH(QString, wanted);
    const QList<QPair<A::AdapterOption, A::AdapterOption>> options{{A::option_bitrate, A::option_canBitrateDesc},
                                                                   {A::option_fdbitrate, A::option_canfdBitrateDesc}};
    for (const auto &[rate, readAs] : options) {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(readAs, QVariant::fromValue(descriptor(QStringLiteral("before"), 9, 87.5)));
        QStringList all = allOptions(adapter);
        QCOMPARE(adapter.setCanAdapterOption(rate, value), false);
        all[readAs] = wanted;
        QCOMPARE(allOptions(adapter), all);
        QVERIFY(!adapter.getCanAdapterOption(rate).isValid());
    }
}

void TestRecordOptions::descriptorIsTakenWhole()
{
    for (const A::AdapterOption option : {A::option_canBitrateDesc, A::option_canfdBitrateDesc}) {
        FakeAdapter adapter;
        QStringList all = allOptions(adapter);
        const QVariant value = QVariant::fromValue(descriptor(QStringLiteral("fast"), 800, 80.0));
        QCOMPARE(adapter.setCanAdapterOption(option, value), false);
        all[option] = QStringLiteral("CAN::CANBitrateDesc \"fast\" 800 80");
        QCOMPARE(allOptions(adapter), all);
    }
}

void TestRecordOptions::interfacePropertiesSetOnlyTheRate()
{
    A::SocketCANProps props;
    props.bitrate = 125;
    props.dbitrate = 4000;
    FakeAdapter adapter;
    const QVariant before = QVariant::fromValue(descriptor(QStringLiteral("before"), 9, 87.5));
    adapter.setCanAdapterOption(A::option_canBitrateDesc, before);
    adapter.setCanAdapterOption(A::option_canfdBitrateDesc, before);
    QStringList all = allOptions(adapter);

    QCOMPARE(adapter.setCanAdapterOption(A::option_canfdBitrateDesc, QVariant::fromValue(props)), false);
    all[A::option_canfdBitrateDesc] = QStringLiteral("CAN::CANBitrateDesc \"before\" 4000 87.5");
    QCOMPARE(allOptions(adapter), all);

    QCOMPARE(adapter.setCanAdapterOption(A::option_canBitrateDesc, QVariant::fromValue(props)), false);
    all[A::option_canBitrateDesc] = QStringLiteral("CAN::CANBitrateDesc \"before\" 125 87.5");
    QCOMPARE(allOptions(adapter), all);
}

void TestRecordOptions::descriptorTakesNothingElse_data()
{
    QTest::addColumn<QVariant>("value");
    // The type has to match exactly, so a possible conversion does not count either.
    QVERIFY(Convertible<CAN::CANBitrateDesc>::registerConversion());
    QTest::newRow("250") << QVariant(250);
    QTest::newRow("text 250") << QVariant(QStringLiteral("250"));
    QTest::newRow("what would convert") << QVariant::fromValue(
        Convertible<CAN::CANBitrateDesc>{descriptor(QString(), 250, 0.5), true});
    QTest::newRow("another record") << QVariant::fromValue(classicRecord());
}

void TestRecordOptions::descriptorTakesNothingElse()
{
    QFETCH(QVariant, value);
    for (const A::AdapterOption option : {A::option_canBitrateDesc, A::option_canfdBitrateDesc}) {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(option, QVariant::fromValue(descriptor(QStringLiteral("before"), 9, 87.5)));
        const QStringList all = allOptions(adapter);
        QCOMPARE(adapter.setCanAdapterOption(option, value), false);
        QCOMPARE(allOptions(adapter), all);
    }
}

QTEST_APPLESS_MAIN(TestRecordOptions)
#include "tst_record_options.moc"
