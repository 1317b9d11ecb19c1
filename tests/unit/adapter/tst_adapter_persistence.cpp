// SPDX-License-Identifier: MIT
#include "support/fake_adapter.h"
#include "support/hex.h"
#include "support/log_recorder.h"
#include "support/option_rows.h"
#include "support/stored_forms.h"

#include <QtTest/QtTest>

using A = AbstractCanAdapter;

namespace {

// Keeps what is given to a back end and counts how often it is asked what it skips.
class WatchedAdapter : public FakeAdapter
{
public:
    QList<AdapterOption> getSkippedOptions() const override
    {
        ++timesAsked;
        return skippedOptions;
    }
    bool setSpecificCanAdapterOption(AdapterOption option, QVariant value) override
    {
        given.append({option, value});
        return false;
    }

    mutable int timesAsked = 0;
    QList<QPair<AdapterOption, QVariant>> given;
};

QByteArray storedForm(A &adapter)
{
    const LogRecorder withoutWarnings;
    return adapter.getValuesAsByteArray();
}

void restore(A &adapter, const QByteArray &data)
{
    const LogRecorder withoutWarnings;
    adapter.setValuesFromByteArray(data);
}

// A whole stored form with other digits at some of its positions.
QByteArray changedForm(const QList<QPair<A::AdapterOption, const char *>> &changes)
{
    StoredForm form = DefaultForm;
    for (const auto &[position, digits] : changes)
        form[static_cast<std::size_t>(position)] = digits;
    return joined(form);
}

constexpr const char *Invalid = "00000000 01";

} // namespace

class TestAdapterPersistence : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultAdapterIsStoredAsThisArray();
    void fullyConfiguredAdapterIsStoredAsThisArray();
    void storingChangesNothing();
    void skippedOptionsAreStoredLikeAllOthers();
    void storingWarnsOfTheTwoDescriptors();
    void restoringBringsBackWhatTheArrayHolds();
    void emptyArrayChangesNothing();
    void arrayUpToPosition10RestoresUpToPosition10();
    void uniqueIdAndRolesAreRestored();
    void parityDoesNotSurviveTheRoundTrip();
    void skippedParitySurvivesTheRestoring();
    void flowControlSurvivesAsAFlag();
    void skippedOptionsAreDroppedAndTheRestFollows();
    void skippedOptionsAreAskedForOnEachPass();
    void restoringResetsTheFdDescriptorAndEndsThere();
    void skippingTheFdDescriptorOnlyAvoidsTheReset();
    void withoutDescriptorsRestoringReachesTheEnd();
    void valuesPastPosition45AreNotRead();
    void otherTypesAreConverted();
    void recordsAreTakenUnderTheirOtherNameAndInTheOlderLayout();
    void runningAdapterCanBeRestored();
};

void TestAdapterPersistence::defaultAdapterIsStoredAsThisArray()
{
    FakeAdapter adapter;
    QCOMPARE(storedForm(adapter).toHex(), joined(DefaultForm).toHex());
}

void TestAdapterPersistence::fullyConfiguredAdapterIsStoredAsThisArray()
{
    FakeAdapter adapter;
    configureFully(adapter);
    QCOMPARE(storedForm(adapter).toHex(), joined(FullForm).toHex());
}

void TestAdapterPersistence::storingChangesNothing()
{
    FakeAdapter adapter;
    configureFully(adapter);
    const QStringList all = allOptions(adapter);
    storedForm(adapter);
    QCOMPARE(allOptions(adapter), all);
    QCOMPARE(storedForm(adapter).toHex(), joined(FullForm).toHex());
}

void TestAdapterPersistence::skippedOptionsAreStoredLikeAllOthers()
{
    FakeAdapter adapter;
    configureFully(adapter);
    for (int number = 0; number < A::option_lastEnum; ++number)
        adapter.skippedOptions.append(A::AdapterOption(number));
    QCOMPARE(storedForm(adapter).toHex(), joined(FullForm).toHex());
}

void TestAdapterPersistence::storingWarnsOfTheTwoDescriptors()
{
    FakeAdapter adapter;
    const LogRecorder log;
    adapter.getValuesAsByteArray();
    const LogRecord warning =
        defaultLogRecord(QtWarningMsg, qPrintable(QStringLiteral("QVariant::save: unable to save type "
                                                                 "'CAN::CANBitrateDesc' (type id: %1).\n")
                                                      .arg(qMetaTypeId<CAN::CANBitrateDesc>())));
    QCOMPARE(log.records(), (QList<LogRecord>{warning, warning}));
}

void TestAdapterPersistence::restoringBringsBackWhatTheArrayHolds()
{
    QStringList wanted = valuesOfFullForm();
    for (const A::AdapterOption lost : {A::option_canBitrateDesc, A::option_forceEcho})
        wanted[lost] = QString::fromLatin1(OptionRows[lost].byDefault);

    FakeAdapter restored;
    restore(restored, joined(FullForm));
    QCOMPARE(allOptions(restored), wanted);
    QCOMPARE(restored.mAllowSleep, true);
}

void TestAdapterPersistence::emptyArrayChangesNothing()
{
    FakeAdapter adapter;
    configureFully(adapter);
    const QStringList all = allOptions(adapter);
    const LogRecorder log;
    adapter.setValuesFromByteArray(QByteArray());
    adapter.setValuesFromByteArray(QByteArray(""));
    QCOMPARE(allOptions(adapter), all);
    QCOMPARE(log.texts(), QStringList());
}

void TestAdapterPersistence::arrayUpToPosition10RestoresUpToPosition10()
{
    QByteArray data;
    for (std::size_t position = 0; position <= 10; ++position)
        data += hex(FullForm[position]);
    FakeAdapter restored;
    const QStringList wanted = valuesOfFullForm().mid(0, 11) + allOptions(restored).mid(11);
    const LogRecorder log;
    restored.setValuesFromByteArray(data);
    QCOMPARE(allOptions(restored), wanted);
    QCOMPARE(log.texts(), QStringList());
}

void TestAdapterPersistence::uniqueIdAndRolesAreRestored()
{
    FakeAdapter restored;
    restore(restored, joined(FullForm));
    QCOMPARE(restored.getId(), static_cast<unsigned short>(0xABCD));
    QCOMPARE(restored.isActiveAdapter(), true);
    QCOMPARE(restored.isPrimaryAdapter(), true);
}

void TestAdapterPersistence::parityDoesNotSurviveTheRoundTrip()
{
    FakeAdapter even;
    even.setCanAdapterOption(A::option_parity, 1);
    FakeAdapter fromEven;
    restore(fromEven, storedForm(even));
    QCOMPARE(told(fromEven.getCanAdapterOption(A::option_parity)), QStringLiteral("int 3"));

    FakeAdapter odd;
    odd.setCanAdapterOption(A::option_parity, 2);
    for (const int before : {0, 1, 2}) {
        FakeAdapter fromOdd;
        fromOdd.setCanAdapterOption(A::option_parity, before);
        const QString kept = told(fromOdd.getCanAdapterOption(A::option_parity));
        restore(fromOdd, storedForm(odd));
        QCOMPARE(told(fromOdd.getCanAdapterOption(A::option_parity)), kept);
    }
}

void TestAdapterPersistence::skippedParitySurvivesTheRestoring()
{
    FakeAdapter even;
    even.setCanAdapterOption(A::option_parity, 1);
    FakeAdapter restored;
    restored.skippedOptions = {A::option_parity};
    restore(restored, storedForm(even));
    QCOMPARE(told(restored.getCanAdapterOption(A::option_parity)), QStringLiteral("int 0"));
}

void TestAdapterPersistence::flowControlSurvivesAsAFlag()
{
    for (const int stored : {0, 1, 5}) {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(A::option_flowControl, stored);
        FakeAdapter restored;
        restored.setCanAdapterOption(A::option_flowControl, stored == 0);
        restore(restored, storedForm(adapter));
        QCOMPARE(restored.getCanAdapterOption(A::option_flowControl), QVariant(stored == 0 ? 0 : 1));
    }
}

void TestAdapterPersistence::skippedOptionsAreDroppedAndTheRestFollows()
{
    FakeAdapter restored;
    restored.skippedOptions = {A::option_CANFD, A::option_adapterName, A::option_canClassicBusParams};
    FakeAdapter plain;
    restore(plain, joined(FullForm));
    QStringList wanted = allOptions(plain);
    for (const A::AdapterOption skipped : restored.skippedOptions)
        wanted[skipped] = QString::fromLatin1(OptionRows[skipped].byDefault);
    restore(restored, joined(FullForm));
    QCOMPARE(allOptions(restored), wanted);
}

void TestAdapterPersistence::skippedOptionsAreAskedForOnEachPass()
{
    WatchedAdapter adapter;
    restore(adapter, QByteArray());
    QCOMPARE(adapter.timesAsked, 0);
    restore(adapter, hex(DefaultForm[0]) + hex(DefaultForm[1]));
    QCOMPARE(adapter.timesAsked, 2);
    // The pass that meets the descriptor asks as well; after it there is none.
    adapter.timesAsked = 0;
    restore(adapter, joined(DefaultForm));
    QCOMPARE(adapter.timesAsked, 44);
}

void TestAdapterPersistence::restoringResetsTheFdDescriptorAndEndsThere()
{
    FakeAdapter adapter;
    configureFully(adapter);
    const QStringList before = allOptions(adapter);
    QStringList wanted = valuesOfFullForm();
    wanted[A::option_canBitrateDesc] = before[A::option_canBitrateDesc];
    QVERIFY(wanted[A::option_canfdBitrateDesc] != before[A::option_canfdBitrateDesc]);
    const LogRecorder log;
    StoredForm form = FullForm;
    form[A::option_forceEcho] = "00000001 00 00";
    adapter.setValuesFromByteArray(joined(form));
    QCOMPARE(allOptions(adapter), wanted);
    QCOMPARE(log.records(), (QList<LogRecord>{defaultLogRecord(
                                QtWarningMsg, qPrintable(QStringLiteral("QVariant::load: unable to load type %1.")
                                                             .arg(qMetaTypeId<CAN::CANBitrateDesc>())))}));
}

void TestAdapterPersistence::skippingTheFdDescriptorOnlyAvoidsTheReset()
{
    FakeAdapter adapter;
    configureFully(adapter);
    adapter.skippedOptions = {A::option_canfdBitrateDesc};
    StoredForm form = FullForm;
    form[A::option_forceEcho] = "00000001 00 00";
    restore(adapter, joined(form));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_canfdBitrateDesc)),
             QStringLiteral("CAN::CANBitrateDesc \"2000 kbit/s\" 2000 0"));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_canBitrateDesc)),
             QStringLiteral("CAN::CANBitrateDesc \"500 kbit/s\" 500 0"));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_forceEcho)), QStringLiteral("bool true"));
}

void TestAdapterPersistence::withoutDescriptorsRestoringReachesTheEnd()
{
    FakeAdapter adapter;
    adapter.setCanAdapterOption(A::option_fdbitrate, 2000);
    const QString kept = told(adapter.getCanAdapterOption(A::option_canfdBitrateDesc));
    restore(adapter, changedForm({{A::option_canfdBitrateDesc, Invalid},
                                  {A::option_canBitrateDesc, Invalid},
                                  {A::option_forceEcho, "00000001 00 01"}}));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_canfdBitrateDesc)), kept);
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_forceEcho)), QStringLiteral("bool true"));
}

void TestAdapterPersistence::valuesPastPosition45AreNotRead()
{
    WatchedAdapter adapter;
    const QByteArray whole = changedForm({{A::option_toggleComPort, "00000001 00 01"},
                                          {A::option_isCiA309, Invalid},
                                          {A::option_canfdBitrateDesc, Invalid},
                                          {A::option_canBitrateDesc, Invalid}});
    restore(adapter, whole + hex("00000002 00 00000007 00000002 00 00000008"));
    QCOMPARE(adapter.timesAsked, 46);
    QCOMPARE(adapter.given, (QList<QPair<A::AdapterOption, QVariant>>{{A::option_toggleComPort, QVariant(true)}}));
}

void TestAdapterPersistence::otherTypesAreConverted()
{
    FakeAdapter adapter;
    restore(adapter, hex("00000002 00 00000005"                      // 0 CANFD from the number 5
                         "0000000A 00 00000004 0032 0030"            // 1 adapterType from the text 20
                         "0000000B 00 00000001 00000002 0041"        // 2 adapterName from a list of the text A
                         "00000006 00 4004000000000000"              // 3 deviceName from 2.5
                         "00000009 00 00000001 00000002 00 00000007" // 4 adapterFeatures from a list, so 0
                         "00000008 00 00000000"                      // 5 ipAddress from a map, so null
                         "00000005 00 0000000100000050"));           // 6 portNumber from 2^32 + 80
    QCOMPARE(allOptions(adapter).mid(0, 7),
             (QStringList{QStringLiteral("bool true"), QStringLiteral("int 20"), QStringLiteral("QString \"A\""),
                          QStringLiteral("QString \"2.5\""), QStringLiteral("uint 0"), QStringLiteral("QString null"),
                          QStringLiteral("int 80")}));
}

void TestAdapterPersistence::recordsAreTakenUnderTheirOtherNameAndInTheOlderLayout()
{
    FakeAdapter adapter;
    const QString otherName = QString::fromLatin1(
        "00000400 00 0000002B 416273747261637443616E416461707465723A3A43414E436C6173736963427573506172616D6574657200"
        "00000009 0004 000D 0002 00000002 0042 01");
    const QByteArray digits = otherName.toLatin1();
    restore(adapter, changedForm({{A::option_canClassicBusParams, digits.constData()},
                                  {A::option_canFDBusParams, FullForm[A::option_canFDBusParams]}}));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_canClassicBusParams)),
             QStringLiteral("CAN::CANClassicBusParameter 9 0 0/13/2/4/0 \"B\" 1"));
    QCOMPARE(told(adapter.getCanAdapterOption(A::option_canFDBusParams)),
             QStringLiteral("CAN::CANFDBusParameter 19088743 \"A\u20AC\" -1.5 258/13/2/4/0 -2 1"));
}

void TestAdapterPersistence::runningAdapterCanBeRestored()
{
    FakeAdapter adapter;
    adapter.start();
    restore(adapter, joined(FullForm));
    QCOMPARE(adapter.isRunning(), true);
    QCOMPARE(adapter.priority(), QThread::InheritPriority);
    adapter.quit();
    adapter.wait();
    QCOMPARE(adapter.getId(), static_cast<unsigned short>(0xABCD));
}

QTEST_GUILESS_MAIN(TestAdapterPersistence)
#include "tst_adapter_persistence.moc"
