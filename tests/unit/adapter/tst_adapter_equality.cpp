// SPDX-License-Identifier: MIT
#include "support/bitrate_records.h"
#include "support/fake_adapter.h"
#include "support/log_recorder.h"
#include "support/option_rows.h"
#include "support/stored_forms.h"

#include <QtTest/QtTest>

#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>

using A = AbstractCanAdapter;

namespace {

constexpr int TypeSerialFamily = 13;
constexpr int TypePeakFamily = 16;
constexpr int TypeSystecFamily = 21;

// Two adapters, each made in memory that nobody has given a value before, so that memcheck sees what they leave.
struct Pair
{
    std::unique_ptr<FakeAdapter> left = std::make_unique_for_overwrite<FakeAdapter>();
    std::unique_ptr<FakeAdapter> right = std::make_unique_for_overwrite<FakeAdapter>();

    void setBoth(A::AdapterOption option, const QVariant &value)
    {
        left->setCanAdapterOption(option, value);
        right->setCanAdapterOption(option, value);
    }
    bool equal() const { return *left == *right; }
    bool equalBackwards() const { return *right == *left; }
};

// Answers option_isCiA309 with what the test says.
class AnsweringAdapter : public FakeAdapter
{
public:
    explicit AnsweringAdapter(QVariant value) : answer(std::move(value)) {}
    QVariant getSpecificCanAdapterOption(AdapterOption) const override { return answer; }

    QVariant answer;
};

// An adapter in memory that is filled with one byte before.
class AdapterInFilledMemory
{
public:
    explicit AdapterInFilledMemory(int filler)
    {
        std::memset(mMemory, filler, sizeof mMemory);
        mAdapter = new (mMemory) FakeAdapter;
    }
    ~AdapterInFilledMemory() { mAdapter->~FakeAdapter(); }
    AdapterInFilledMemory(const AdapterInFilledMemory &) = delete;
    AdapterInFilledMemory &operator=(const AdapterInFilledMemory &) = delete;

    FakeAdapter &adapter() { return *mAdapter; }

private:
    alignas(FakeAdapter) unsigned char mMemory[sizeof(FakeAdapter)];
    FakeAdapter *mAdapter = nullptr;
};

template <typename Record>
struct FieldChange
{
    const char *name;
    std::function<void(Record &)> change;
    bool counts;
};

QList<A::AdapterOption> allAdapterOptions()
{
    QList<A::AdapterOption> all;
    for (int number = 0; number < A::option_lastEnum; ++number)
        all.append(A::AdapterOption(number));
    return all;
}

} // namespace

class TestAdapterEquality : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void twoDefaultAdaptersAreEqualWhateverTheMemoryHeld();
    void adapterEqualsItself();
    void constAdaptersCompareToo();
    void socketCanAdaptersCompareNameAndThreeFlags_data();
    void socketCanAdaptersCompareNameAndThreeFlags();
    void socketCanAdaptersCompareNothingElse();
    void socketCanRuleNeedsBothTypes();
    void eachOptionCountsUnlessIgnored_data();
    void eachOptionCountsUnlessIgnored();
    void skippedOptionsOfTheLeftAdapterAreIgnored();
    void invalidAnswersAreNotCompared();
    void fdDescriptorCountsWithCanFdOnEitherSide();
    void descriptorsCompareByTheirBytes();
    void fdBusParametersCompareTheseFields();
    void classicBusParametersCompareTheseFields();
    void ratioThatIsNoNumberMakesAnAdapterUnequalToItself();
    void serialFamiliesCompareTheirSettingsEvenIfSkipped_data();
    void serialFamiliesCompareTheirSettingsEvenIfSkipped();
    void serialFamiliesDoNotCompareTheProtocol();
    void peakFamilyComparesItsValuesIfEnabled();
    void systecFamilyComparesAllItsValues();
    void typeOfTheLeftAdapterDecides();
    void deviceNamesCountOnlyIfBothAreThere();
    void restoredAdaptersAreEqual();

private:
    template <typename Record>
    void checkRecordFields(Record FakeAdapter::*field, const Record &record, const QList<FieldChange<Record>> &changes);
};

void TestAdapterEquality::twoDefaultAdaptersAreEqualWhateverTheMemoryHeld()
{
    for (int filler = 0; filler < 256; filler += 5) {
        AdapterInFilledMemory left(filler);
        AdapterInFilledMemory right(255 - filler);
        QVERIFY(left.adapter() == right.adapter());
        left.adapter().setCanAdapterOption(A::option_CANFD, true);
        right.adapter().setCanAdapterOption(A::option_CANFD, true);
        QVERIFY(left.adapter() == right.adapter());
    }
    for (int round = 0; round < 20; ++round) {
        const Pair onTheHeap;
        QVERIFY(onTheHeap.equal());
    }
}

void TestAdapterEquality::adapterEqualsItself()
{
    FakeAdapter adapter;
    configureFully(adapter);
    QVERIFY(adapter == adapter);
}

void TestAdapterEquality::constAdaptersCompareToo()
{
    FakeAdapter left;
    const FakeAdapter same;
    QVERIFY(left == same);
    left.setCanAdapterOption(A::option_CANFD, true);
    QVERIFY(left != same);
}

void TestAdapterEquality::socketCanAdaptersCompareNameAndThreeFlags_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("name") << int(A::option_adapterName) << QVariant(QStringLiteral("can1"));
    QTest::newRow("continuous stamps") << int(A::option_continuousTimestamp) << QVariant(true);
    QTest::newRow("CAN FD") << int(A::option_CANFD) << QVariant(true);
    QTest::newRow("system time") << int(A::option_systemTime) << QVariant(true);
}

void TestAdapterEquality::socketCanAdaptersCompareNameAndThreeFlags()
{
    QFETCH(int, number);
    QFETCH(QVariant, value);
    Pair pair;
    pair.setBoth(A::option_adapterType, A::CanAdapterTypeSocketCan);
    QVERIFY(pair.equal());
    pair.left->setCanAdapterOption(A::AdapterOption(number), value);
    // What a back end skips plays no part here.
    pair.left->skippedOptions = allAdapterOptions();
    QVERIFY(!pair.equal());
    QVERIFY(!pair.equalBackwards());
    pair.right->setCanAdapterOption(A::AdapterOption(number), value);
    QVERIFY(pair.equal());
}

void TestAdapterEquality::socketCanAdaptersCompareNothingElse()
{
    Pair pair;
    configureFully(*pair.left);
    for (const A::AdapterOption option : {A::option_continuousTimestamp, A::option_CANFD, A::option_systemTime})
        pair.setBoth(option, true);
    pair.setBoth(A::option_adapterName, QStringLiteral("can0"));
    pair.setBoth(A::option_adapterType, A::CanAdapterTypeSocketCan);
    pair.right->setCanAdapterOption(A::option_deviceName, QStringLiteral("another device"));
    QVERIFY(pair.equal());
    QVERIFY(pair.equalBackwards());
}

void TestAdapterEquality::socketCanRuleNeedsBothTypes()
{
    Pair pair;
    pair.left->setCanAdapterOption(A::option_adapterType, A::CanAdapterTypeSocketCan);
    for (const int type : {0, 4, 6, 15, 20}) {
        pair.right->setCanAdapterOption(A::option_adapterType, type);
        QVERIFY(!pair.equal());
        QVERIFY(!pair.equalBackwards());
    }
}

void TestAdapterEquality::eachOptionCountsUnlessIgnored_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<bool>("counts");
    const QList<A::AdapterOption> withoutEffect{
        // ignored
        A::option_uniqueId, A::option_activeAdapter, A::option_primaryAdapter, A::option_peakAdvValues,
        A::option_systecXm3Values, A::option_forceEcho, A::option_adapterFeatures,
        // not compared where only one side has it
        A::option_deviceName,
        // nothing to read
        A::option_toggleComPort, A::option_disableSleep, A::option_toggleDTR, A::option_toggleRTS, A::option_isCiA309,
        // without CAN FD
        A::option_fdbitrate, A::option_canfdBitrateDesc};
    for (const A::AdapterOption option : allAdapterOptions()) {
        QVariant value = 2;
        if (option == A::option_peakAdvValues)
            value = QVariant::fromValue(A::PeakAdvValues{true, 1, 2, 3, 4, 5});
        else if (option == A::option_systecXm3Values)
            value = QVariant::fromValue(A::SystecXM3AdvValues{1, 2, 3, 4, 5, 6, 7});
        else if (option == A::option_canClassicBusParams)
            value = QVariant::fromValue(classicRecord());
        else if (option == A::option_canFDBusParams)
            value = QVariant::fromValue(fdRecord());
        else if (option == A::option_canBitrateDesc || option == A::option_canfdBitrateDesc)
            value = QVariant::fromValue(descriptor(QString(), 500, 0.0));
        QTest::newRow(nameOf(option)) << int(option) << value << !withoutEffect.contains(option);
    }
}

void TestAdapterEquality::eachOptionCountsUnlessIgnored()
{
    QFETCH(int, number);
    QFETCH(QVariant, value);
    QFETCH(bool, counts);
    Pair pair;
    pair.left->setCanAdapterOption(A::AdapterOption(number), value);
    QCOMPARE(pair.equal(), !counts);
    QCOMPARE(pair.equalBackwards(), !counts);
}

void TestAdapterEquality::skippedOptionsOfTheLeftAdapterAreIgnored()
{
    Pair pair;
    pair.left->skippedOptions = {A::option_baudrate, A::option_canFDBusParams};
    pair.left->setCanAdapterOption(A::option_baudrate, 9600);
    QVERIFY(pair.equal());
    QVERIFY(!pair.equalBackwards());

    // The bus-parameter records are compared apart from the options.
    pair.right->setCanAdapterOption(A::option_canFDBusParams, QVariant::fromValue(fdRecord()));
    QVERIFY(!pair.equal());
}

void TestAdapterEquality::invalidAnswersAreNotCompared()
{
    AnsweringAdapter yes(true);
    AnsweringAdapter no(false);
    AnsweringAdapter none{QVariant()};
    QVERIFY(!(yes == no));
    QVERIFY(yes == none);
    QVERIFY(none == yes);
    QVERIFY(none == none);
}

void TestAdapterEquality::fdDescriptorCountsWithCanFdOnEitherSide()
{
    Pair pair;
    pair.left->setCanAdapterOption(A::option_canfdBitrateDesc, QVariant::fromValue(descriptor(QString(), 2000, 0.0)));
    QVERIFY(pair.equal());
    pair.setBoth(A::option_CANFD, true);
    QVERIFY(!pair.equal());

    pair.left->skippedOptions = {A::option_CANFD};
    pair.left->setCanAdapterOption(A::option_CANFD, false);
    QVERIFY(!pair.equal());
    pair.setBoth(A::option_CANFD, false);
    QVERIFY(pair.equal());
    pair.left->setCanAdapterOption(A::option_CANFD, true);
    QVERIFY(!pair.equal());
}

void TestAdapterEquality::descriptorsCompareByTheirBytes()
{
    Pair pair;
    const QVariant shared = QVariant::fromValue(descriptor(QStringLiteral("500 kbit/s"), 500, 87.5));
    pair.setBoth(A::option_canBitrateDesc, shared);
    QVERIFY(pair.equal());

    // The same text, but built twice.
    for (FakeAdapter *adapter : {pair.left.get(), pair.right.get()})
        adapter->setCanAdapterOption(A::option_bitrate, 500);
    QCOMPARE(told(pair.left->getCanAdapterOption(A::option_canBitrateDesc)),
             told(pair.right->getCanAdapterOption(A::option_canBitrateDesc)));
    QVERIFY(!pair.equal());

    pair.setBoth(A::option_canBitrateDesc, QVariant::fromValue(descriptor(QString(), 500, 0.0)));
    QVERIFY(pair.equal());
    pair.left->setCanAdapterOption(A::option_canBitrateDesc, QVariant::fromValue(descriptor(QString(), 500, -0.0)));
    QVERIFY(!pair.equal());
}

template <typename Record>
void TestAdapterEquality::checkRecordFields(Record FakeAdapter::*field, const Record &record,
                                            const QList<FieldChange<Record>> &changes)
{
    for (const FieldChange<Record> &change : changes) {
        Pair pair;
        (*pair.left).*field = record;
        (*pair.right).*field = record;
        QVERIFY2(pair.equal(), change.name);
        change.change((*pair.left).*field);
        QVERIFY2(pair.equal() == !change.counts, change.name);
        QVERIFY2(pair.equalBackwards() == !change.counts, change.name);
    }
}

void TestAdapterEquality::fdBusParametersCompareTheseFields()
{
    using Record = CAN::CANFDBusParameter;
    checkRecordFields<Record>(static_cast<Record FakeAdapter::*>(&FakeAdapter::mFdBusParams), fdRecord(),
                              {{"busValue", [](Record &r) { ++r.busValue; }, true},
                               {"tSeg1", [](Record &r) { ++r.timing.tSeg1; }, true},
                               {"tSeg2", [](Record &r) { ++r.timing.tSeg2; }, true},
                               {"busText", [](Record &r) { r.busText.append(QLatin1Char('x')); }, true},
                               {"busOffset", [](Record &r) { ++r.busOffset; }, true},
                               {"sjw", [](Record &r) { ++r.timing.sjw; }, true},
                               {"busText built anew", [](Record &r) { r.busText.detach(); }, false},
                               {"prescaler", [](Record &r) { ++r.timing.prescaler; }, false},
                               {"valid", [](Record &r) { r.timing.valid = !r.timing.valid; }, false},
                               {"busFlag", [](Record &r) { r.busFlag = !r.busFlag; }, false},
                               {"busRatio", [](Record &r) { r.busRatio = 3.5; }, false}});
}

void TestAdapterEquality::classicBusParametersCompareTheseFields()
{
    using Record = CAN::CANClassicBusParameter;
    checkRecordFields<Record>(static_cast<Record FakeAdapter::*>(&FakeAdapter::mClassicBusParams), classicRecord(),
                              {{"busValue", [](Record &r) { ++r.busValue; }, true},
                               {"tSeg1", [](Record &r) { ++r.timing.tSeg1; }, true},
                               {"tSeg2", [](Record &r) { ++r.timing.tSeg2; }, true},
                               {"busText", [](Record &r) { r.busText.append(QLatin1Char('x')); }, true},
                               {"busRatio", [](Record &r) { r.busRatio = 3.5; }, true},
                               {"sjw", [](Record &r) { ++r.timing.sjw; }, true},
                               {"prescaler", [](Record &r) { ++r.timing.prescaler; }, false},
                               {"valid", [](Record &r) { r.timing.valid = !r.timing.valid; }, false},
                               {"busFlag", [](Record &r) { r.busFlag = !r.busFlag; }, false}});
}

void TestAdapterEquality::ratioThatIsNoNumberMakesAnAdapterUnequalToItself()
{
    FakeAdapter adapter;
    adapter.mFdBusParams.busRatio = std::numeric_limits<double>::quiet_NaN();
    QVERIFY(adapter == adapter);
    adapter.mClassicBusParams.busRatio = std::numeric_limits<double>::quiet_NaN();
    QVERIFY(!(adapter == adapter));
}

void TestAdapterEquality::serialFamiliesCompareTheirSettingsEvenIfSkipped_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("counts");
    QTest::newRow("13") << TypeSerialFamily << true;
    QTest::newRow("USB") << int(A::CanAdapterTypeUsb) << true;
    QTest::newRow("virtual") << int(A::CanAdapterTypeVirtual) << false;
    QTest::newRow("none") << 0 << false;
    QTest::newRow("16") << TypePeakFamily << false;
    QTest::newRow("21") << TypeSystecFamily << false;
}

void TestAdapterEquality::serialFamiliesCompareTheirSettingsEvenIfSkipped()
{
    QFETCH(int, type);
    QFETCH(bool, counts);
    for (const A::AdapterOption option :
         {A::option_internExtern, A::option_flowControl, A::option_parity, A::option_baudrate, A::option_databits,
          A::option_stopbits, A::option_Reset, A::option_halfDuplex}) {
        Pair pair;
        pair.setBoth(A::option_adapterType, type);
        pair.left->skippedOptions = {option};
        QVERIFY2(pair.equal(), nameOf(option));
        pair.left->setCanAdapterOption(option, 2);
        QVERIFY2(pair.equal() == !counts, nameOf(option));
        QVERIFY2(!pair.equalBackwards(), nameOf(option));
    }
}

void TestAdapterEquality::serialFamiliesDoNotCompareTheProtocol()
{
    // The back ends of these families skip the protocol, and it is none of their serial settings.
    for (const int type : {TypeSerialFamily, int(A::CanAdapterTypeUsb)}) {
        Pair pair;
        pair.setBoth(A::option_adapterType, type);
        pair.left->skippedOptions = pair.right->skippedOptions = {A::option_protocol};
        pair.left->setCanAdapterOption(A::option_protocol, 2);
        QVERIFY(pair.equal());
        QVERIFY(pair.equalBackwards());
    }
}

void TestAdapterEquality::peakFamilyComparesItsValuesIfEnabled()
{
    using Values = A::PeakAdvValues;
    const QList<FieldChange<Values>> changes{{"value", [](Values &v) { ++v.value; }, true},
                                             {"param0", [](Values &v) { ++v.param0; }, true},
                                             {"param1", [](Values &v) { ++v.param1; }, true},
                                             {"param2", [](Values &v) { ++v.param2; }, true},
                                             {"param3", [](Values &v) { ++v.param3; }, true}};
    for (const bool enabled : {true, false}) {
        for (const auto &change : changes) {
            Values values{enabled, 1, 2, 3, 4, 5};
            Pair pair;
            pair.setBoth(A::option_adapterType, TypePeakFamily);
            pair.setBoth(A::option_peakAdvValues, QVariant::fromValue(values));
            QVERIFY2(pair.equal(), change.name);
            change.change(values);
            pair.left->setCanAdapterOption(A::option_peakAdvValues, QVariant::fromValue(values));
            QVERIFY2(pair.equal() == !enabled, change.name);
            pair.setBoth(A::option_adapterType, TypeSystecFamily);
            QVERIFY2(pair.equal(), change.name);
        }
    }
    Pair pair;
    pair.setBoth(A::option_adapterType, TypePeakFamily);
    pair.left->setCanAdapterOption(A::option_peakAdvValues, QVariant::fromValue(Values{true, 0, 0, 0, 0, 0}));
    QVERIFY(!pair.equal());
    QVERIFY(!pair.equalBackwards());
}

void TestAdapterEquality::systecFamilyComparesAllItsValues()
{
    using Values = A::SystecXM3AdvValues;
    const QList<FieldChange<Values>> changes{
        {"flag", [](Values &v) { ++v.flag; }, true},     {"param0", [](Values &v) { ++v.param0; }, true},
        {"param1", [](Values &v) { ++v.param1; }, true}, {"param2", [](Values &v) { ++v.param2; }, true},
        {"param3", [](Values &v) { ++v.param3; }, true}, {"param4", [](Values &v) { ++v.param4; }, true},
        {"param5", [](Values &v) { ++v.param5; }, true}};
    for (const auto &change : changes) {
        Values values{1, 2, 3, 4, 5, 6, 7};
        Pair pair;
        pair.setBoth(A::option_adapterType, TypeSystecFamily);
        pair.setBoth(A::option_systecXm3Values, QVariant::fromValue(values));
        QVERIFY2(pair.equal(), change.name);
        change.change(values);
        pair.left->setCanAdapterOption(A::option_systecXm3Values, QVariant::fromValue(values));
        QVERIFY2(!pair.equal(), change.name);
        pair.setBoth(A::option_adapterType, TypePeakFamily);
        QVERIFY2(pair.equal(), change.name);
    }
}

void TestAdapterEquality::typeOfTheLeftAdapterDecides()
{
    Pair pair;
    pair.left->skippedOptions = pair.right->skippedOptions = {A::option_adapterType};
    pair.left->setCanAdapterOption(A::option_adapterType, TypeSystecFamily);
    pair.left->setCanAdapterOption(A::option_systecXm3Values,
                                   QVariant::fromValue(A::SystecXM3AdvValues{1, 2, 3, 4, 5, 6, 7}));
    QVERIFY(!pair.equal());
    QVERIFY(pair.equalBackwards());
}

void TestAdapterEquality::deviceNamesCountOnlyIfBothAreThere()
{
    Pair pair;
    pair.setBoth(A::option_adapterType, A::CanAdapterTypeUsb);
    pair.left->setCanAdapterOption(A::option_deviceName, QStringLiteral("ttyUSB0"));
    QVERIFY(pair.equal());
    QVERIFY(pair.equalBackwards());
    pair.right->setCanAdapterOption(A::option_deviceName, QStringLiteral(""));
    QVERIFY(pair.equal());
    pair.right->setCanAdapterOption(A::option_deviceName, QStringLiteral("ttyUSB1"));
    QVERIFY(!pair.equal());
    QVERIFY(!pair.equalBackwards());
    pair.right->setCanAdapterOption(A::option_deviceName, QStringLiteral("ttyUSB0"));
    QVERIFY(pair.equal());
    // Equal names do not make up for another difference.
    pair.left->mFdBusParams.busValue = 1;
    QVERIFY(!pair.equal());
}

void TestAdapterEquality::restoredAdaptersAreEqual()
{
    const LogRecorder withoutWarnings;
    Pair pair;
    for (FakeAdapter *adapter : {pair.left.get(), pair.right.get()})
        adapter->setValuesFromByteArray(joined(FullForm));
    QVERIFY(pair.equal());
}

QTEST_GUILESS_MAIN(TestAdapterEquality)
#include "tst_adapter_equality.moc"
