// SPDX-License-Identifier: MIT
#include "support/fake_adapter.h"
#include "support/log_recorder.h"
#include "support/option_rows.h"

#include <QtCore/QMetaEnum>
#include <QtTest/QtTest>

using A = AbstractCanAdapter;

namespace {

// An adapter whose thread runs until the test ends.
class RunningAdapter : public FakeAdapter
{
public:
    ~RunningAdapter() override
    {
        quit();
        wait();
    }
};

} // namespace

class TestAdapterOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void enumeratorsHaveTheirNumbersAndNames();
    void defaultsReadAsTheirType_data();
    void defaultsReadAsTheirType();
    void settingStoresConvertsAndReturns_data();
    void settingStoresConvertsAndReturns();
    void parityReadBackAndSetAgainDoesNotSurvive();
    void uniqueIdAndRolesReachTheirAccessors();
    void skippedOptionsCanBeSetAndRead();
    void linkedAdapterIsOnlyANumber();
    void disableSleepOnAStoppedAdapterChangesNoPriority();
    void disableSleepOnARunningAdapterActsAtOnce();
};

void TestAdapterOptions::enumeratorsHaveTheirNumbersAndNames()
{
    const QMetaEnum options = QMetaEnum::fromType<A::AdapterOption>();
    QCOMPARE(options.keyCount(), 47);
    QCOMPARE(int(std::size(OptionRows)), 47);
    for (int number = 0; number < 47; ++number) {
        QCOMPARE(options.value(number), number);
        QCOMPARE(QByteArray(options.key(number)), QByteArray(OptionRows[number].name));
        QCOMPARE(int(OptionRows[number].option), number);
    }
    QCOMPARE(sizeof(A::AdapterOption), std::size_t(4));
    QCOMPARE(sizeof(A::CanAdapterType), std::size_t(4));
    QCOMPARE(int(A::CanAdapterTypeSocketCan), 1);
    QCOMPARE(int(A::CanAdapterTypeCan4linux), 4);
    QCOMPARE(int(A::CanAdapterTypeVirtual), 6);
    QCOMPARE(int(A::CanAdapterTypeUsb), 15);
    QCOMPARE(int(A::CanAdapterTypeCiA309), 20);
}

void TestAdapterOptions::defaultsReadAsTheirType_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QString>("wanted");
    for (const OptionRow &row : OptionRows)
        QTest::newRow(row.name) << int(row.option) << QString::fromLatin1(row.byDefault);
}

void TestAdapterOptions::defaultsReadAsTheirType()
{
    QFETCH(int, number);
    QFETCH(QString, wanted);
    const FakeAdapter adapter;
    QCOMPARE(told(adapter.getCanAdapterOption(A::AdapterOption(number))), wanted);
}

void TestAdapterOptions::settingStoresConvertsAndReturns_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QVariant>("before"); // set first, unless invalid
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("result");
    QTest::addColumn<QString>("wanted");

    const auto text = [](const char *characters) { return QVariant(QString::fromLatin1(characters)); };
    const auto row = [](A::AdapterOption option, const QVariant &before, const QVariant &value, const char *wanted) {
        const bool result = option == A::option_CANFD || option == A::option_canLowSpeed;
        const QString label = value.toString().isEmpty() ? QStringLiteral("empty") : value.toString();
        QTest::newRow(qPrintable(
            QStringLiteral("%1: %2 %3 after %4")
                .arg(QLatin1String(nameOf(option)), QLatin1String(value.typeName()), label, before.toString())))
            << int(option) << before << value << result << QString::fromLatin1(wanted);
    };
    const QVariant none;

    for (const A::AdapterOption flag : {A::option_CANFD, A::option_Reset, A::option_halfDuplex, A::option_canLowSpeed,
                                        A::option_errorFrames, A::option_continuousTimestamp, A::option_systemTime,
                                        A::option_activeAdapter, A::option_primaryAdapter, A::option_forceEcho}) {
        row(flag, none, true, "bool true");
        row(flag, true, false, "bool false");
        row(flag, none, 5, "bool true");
        row(flag, true, text("false"), "bool false");
        row(flag, none, text("no number"), "bool true");
        row(flag, true, 0.25, "bool false");
    }
    // These two go through a number, which makes a difference for texts.
    for (const A::AdapterOption flag : {A::option_autoBusOn, A::option_listenOnly}) {
        row(flag, none, true, "bool true");
        row(flag, true, false, "bool false");
        row(flag, none, 2, "bool true");
        row(flag, none, -1, "bool true");
        row(flag, none, text("7"), "bool true");
        row(flag, true, text("0"), "bool false");
        row(flag, true, text("no number"), "bool false");
        row(flag, true, text("true"), "bool false");
        row(flag, true, 0.25, "bool false");
    }
    for (const A::AdapterOption number : {A::option_adapterFeatures, A::option_baudrate, A::option_reconnectTimeout,
                                          A::option_connectTimeout, A::option_disconnectTimeout, A::option_btrExt}) {
        row(number, none, 4294967295U, "uint 4294967295");
        row(number, none, -1, "uint 4294967295");
        row(number, none, text("123"), "uint 123");
        row(number, 7, text("no number"), "uint 0");
        row(number, 7, 12.6, "uint 13");
    }
    for (const A::AdapterOption number : {A::option_adapterType, A::option_databits, A::option_stopbits}) {
        row(number, none, 15, "int 15");
        row(number, none, 4294967295U, "int -1");
        row(number, none, text("123"), "int 123");
        row(number, 7, text("no number"), "int 0");
    }
    for (const A::AdapterOption number : {A::option_portNumber, A::option_uniqueId, A::option_linkedAdapter}) {
        row(number, none, 65535, "int 65535");
        row(number, none, 70000, "int 4464");
        row(number, none, -1, "int 65535");
        row(number, none, text("123"), "int 123");
        row(number, 7, text("no number"), "int 0");
    }
    for (const A::AdapterOption number : {A::option_internExtern, A::option_protocol, A::option_usdoId}) {
        row(number, none, 255, "int 255");
        row(number, none, 300, "int 44");
        row(number, none, text("123"), "int 123");
        row(number, 7, text("no number"), "int 0");
    }
    for (const A::AdapterOption name :
         {A::option_adapterName, A::option_deviceName, A::option_ipAddress, A::option_description}) {
        row(name, none, text("can0|label"), "QString \"can0|label\"");
        row(name, none, text(""), "QString \"\"");
        row(name, text("before"), QVariant(QString()), "QString null");
        row(name, none, 12, "QString \"12\"");
        row(name, text("before"), QVariant(QVariantList{1}), "QString null");
    }
    row(A::option_flowControl, none, 5, "int 1");
    row(A::option_flowControl, 1, 0, "int 0");
    row(A::option_flowControl, 1, text("false"), "int 0");
    row(A::option_flowControl, none, text("no number"), "int 1");
    row(A::option_parity, 2, 0, "int 0");
    row(A::option_parity, none, 1, "int 2");
    row(A::option_parity, none, 2, "int 3");
    row(A::option_parity, 1, 3, "int 2");
    row(A::option_parity, 1, 7, "int 2");
    row(A::option_parity, 2, -1, "int 3");
    row(A::option_parity, 2, text("no number"), "int 0");
}

void TestAdapterOptions::settingStoresConvertsAndReturns()
{
    QFETCH(int, number);
    QFETCH(QVariant, before);
    QFETCH(QVariant, value);
    QFETCH(bool, result);
    QFETCH(QString, wanted);
    const LogRecorder log;
    const auto option = A::AdapterOption(number);
    FakeAdapter adapter;
    if (before.isValid())
        adapter.setCanAdapterOption(option, before);
    QStringList all = allOptions(adapter);
    QCOMPARE(adapter.setCanAdapterOption(option, value), result);
    all[number] = wanted;
    QCOMPARE(allOptions(adapter), all);
    QCOMPARE(log.texts(), QStringList());
}

void TestAdapterOptions::parityReadBackAndSetAgainDoesNotSurvive()
{
    FakeAdapter adapter;
    const auto setAgain = [&adapter] {
        adapter.setCanAdapterOption(A::option_parity, adapter.getCanAdapterOption(A::option_parity));
        return adapter.getCanAdapterOption(A::option_parity).toInt();
    };
    adapter.setCanAdapterOption(A::option_parity, 1);
    QCOMPARE(setAgain(), 3);
    QCOMPARE(setAgain(), 3);
}

void TestAdapterOptions::uniqueIdAndRolesReachTheirAccessors()
{
    FakeAdapter adapter;
    adapter.setCanAdapterOption(A::option_uniqueId, 70000);
    adapter.setCanAdapterOption(A::option_activeAdapter, true);
    QCOMPARE(adapter.getId(), static_cast<unsigned short>(4464));
    QCOMPARE(adapter.isActiveAdapter(), true);
    QCOMPARE(adapter.isPrimaryAdapter(), false);
    adapter.setCanAdapterOption(A::option_primaryAdapter, true);
    QCOMPARE(adapter.isPrimaryAdapter(), true);
}

void TestAdapterOptions::skippedOptionsCanBeSetAndRead()
{
    FakeAdapter adapter;
    adapter.skippedOptions = {A::option_CANFD, A::option_adapterName};
    QCOMPARE(adapter.setCanAdapterOption(A::option_CANFD, true), true);
    adapter.setCanAdapterOption(A::option_adapterName, QStringLiteral("can0"));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_CANFD)), QStringLiteral("bool true"));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_adapterName)), QStringLiteral("QString \"can0\""));
}

void TestAdapterOptions::linkedAdapterIsOnlyANumber()
{
    FakeAdapter other;
    other.setCanAdapterOption(A::option_uniqueId, 3);
    FakeAdapter adapter;
    adapter.setCanAdapterOption(A::option_linkedAdapter, 3);
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_linkedAdapter)), QStringLiteral("int 3"));
    QVERIFY(adapter.mLinkedAdapter.isNull());
}

void TestAdapterOptions::disableSleepOnAStoppedAdapterChangesNoPriority()
{
    const LogRecorder log;
    RunningAdapter adapter;
    QCOMPARE(adapter.mAllowSleep, true);
    QCOMPARE(adapter.setCanAdapterOption(A::option_disableSleep, true), true);
    QCOMPARE(adapter.mAllowSleep, false);
    QVERIFY(!adapter.getCanAdapterOption(A::option_disableSleep).isValid());
    adapter.start(QThread::InheritPriority);
    QVERIFY(adapter.isRunning());
    QCOMPARE(adapter.priority(), QThread::InheritPriority);
    QCOMPARE(log.texts(), QStringList());
}

void TestAdapterOptions::disableSleepOnARunningAdapterActsAtOnce()
{
    RunningAdapter adapter;
    adapter.start(QThread::InheritPriority);
    QVERIFY(adapter.isRunning());
    QCOMPARE(adapter.setCanAdapterOption(A::option_disableSleep, true), true);
    QCOMPARE(adapter.priority(), QThread::TimeCriticalPriority);
    QCOMPARE(adapter.mAllowSleep, false);
    QCOMPARE(adapter.setCanAdapterOption(A::option_disableSleep, QVariant()), false);
    QCOMPARE(adapter.priority(), QThread::TimeCriticalPriority);
    QCOMPARE(adapter.setCanAdapterOption(A::option_disableSleep, false), true);
    QCOMPARE(adapter.priority(), QThread::NormalPriority);
    QCOMPARE(adapter.mAllowSleep, true);
}

QTEST_GUILESS_MAIN(TestAdapterOptions)
#include "tst_adapter_options.moc"
