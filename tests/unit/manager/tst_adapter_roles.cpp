// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

#include <QtTest/QtTest>

using Id = unsigned short;

namespace {

constexpr int SocketCan = AbstractCanAdapter::CanAdapterTypeSocketCan;
constexpr int Virtual = AbstractCanAdapter::CanAdapterTypeVirtual;

CAN::CANBitrateDesc bitrateOf(AbstractCanAdapter *adapter)
{
    return adapter->getCanAdapterOption(AbstractCanAdapter::option_canBitrateDesc).value<CAN::CANBitrateDesc>();
}

// Three adapters, the first of them primary, all active.
void addThreeActive(SetUnderTest &set)
{
    set.add("a");
    setRoles(set.add("b"), false, true);
    setRoles(set.add("c"), false, true);
    set.events();
}

} // namespace

class TestAdapterRoles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void emptySetHasNoRolesAndNothingToDo()
    {
        SetUnderTest set;
        QCOMPARE(set.handler.getActiveAdapterCount(), Id(0));
        QCOMPARE(set.handler.getPrimaryAdapter(), nullptr);
        QCOMPARE(set.handler.getOnlyDemoInActiveAdapterList(), true);
        set.handler.toggleConnection(true);
        set.handler.toggleConnection(false);
        set.handler.setPrimaryBitrate(500);
        set.handler.setPrimaryAdapterByID(1);
        set.handler.unsetPrimaryAdapter();
        set.handler.unsetAllActiveAdapters();
        QCOMPARE(set.events(), QStringList());
        QCOMPARE(set.rows(), QStringList());
    }

    void activeCountSkipsInactiveAndDeadAdapters()
    {
        SetUnderTest set;
        addThreeActive(set);
        set.add("inactive");
        QCOMPARE(set.handler.getActiveAdapterCount(), Id(3));
        set.deleteFromOutside(2);
        QCOMPARE(set.handler.getActiveAdapterCount(), Id(2));
        set.handler.unsetAllActiveAdapters();
        QCOMPARE(set.handler.getActiveAdapterCount(), Id(0));
    }

    void primaryIsTheFirstWithTheFlag()
    {
        SetUnderTest set;
        setRoles(set.addUnder(8, "eight"), true, false);
        auto *three = set.addUnder(3, "three");
        setRoles(three, true, false);
        set.addUnder(1, "one");
        QCOMPARE(set.handler.getPrimaryAdapter(), three);
        set.deleteFromOutside(3);
        QCOMPARE(set.handler.getPrimaryAdapter(), set.handler.getAdapter(8));
    }

    void primaryFlagIsTakenFromEveryAdapterWithoutASignal()
    {
        SetUnderTest set;
        addThreeActive(set);
        setRoles(set.handler.getAdapter(3), true, true);
        set.handler.unsetPrimaryAdapter();
        QCOMPARE(set.rows(), lines("1 a A", "2 b A", "3 c A"));
        QCOMPARE(set.handler.getPrimaryAdapter(), nullptr);
        QCOMPARE(set.events(), QStringList());
    }

    void activeFlagIsTakenFromEveryAdapterThePrimaryOneIncluded()
    {
        SetUnderTest set;
        addThreeActive(set);
        set.handler.unsetAllActiveAdapters();
        QCOMPARE(set.rows(), lines("1 a P", "2 b", "3 c"));
        QCOMPARE(set.events(), QStringList());
    }

    void onlyActiveAdaptersOfAnotherTypeCountAgainstVirtualOnly()
    {
        SetUnderTest set;
        set.addDevice("a", Virtual, "bus");
        setRoles(set.addDevice("b", Virtual, "bus"), false, true);
        auto *socketCan = set.addDevice("c", SocketCan, "can0");
        QCOMPARE(set.handler.getOnlyDemoInActiveAdapterList(), true);
        setRoles(socketCan, false, true);
        QCOMPARE(set.handler.getOnlyDemoInActiveAdapterList(), false);
        set.handler.unsetAllActiveAdapters();
        QCOMPARE(set.handler.getOnlyDemoInActiveAdapterList(), true);
    }

    void primaryBitrateIsAWholeNewRecord()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        auto *b = set.add("b");
        CAN::CANBitrateDesc before;
        before.label = QStringLiteral("before");
        before.bitrate = 1;
        before.samplePoint = 87.5;
        a->setCanAdapterOption(AbstractCanAdapter::option_canBitrateDesc, QVariant::fromValue(before));
        set.events();
        set.handler.setPrimaryBitrate(65535);
        QCOMPARE(bitrateOf(a).label, QStringLiteral("65535 kbit/s"));
        QCOMPARE(bitrateOf(a).bitrate, quint16(65535));
        QCOMPARE(bitrateOf(a).samplePoint, 0.0);
        QVERIFY(bitrateOf(b).label.isNull());
        QCOMPARE(bitrateOf(b).bitrate, quint16(0));
        QCOMPARE(set.events(), QStringList());
    }

    void primaryBitrateReachesNobodyWithoutAPrimaryAdapter()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        set.handler.unsetPrimaryAdapter();
        set.handler.setPrimaryBitrate(250);
        QVERIFY(bitrateOf(a).label.isNull());
        QCOMPARE(bitrateOf(a).bitrate, quint16(0));
    }

    void primaryByIdLeavesTheOtherActiveFlagsAlone()
    {
        SetUnderTest set;
        addThreeActive(set);
        set.handler.handleActiveChanged(1, false);
        set.handler.setPrimaryAdapterByID(2);
        QCOMPARE(set.rows(), lines("1 a A", "2 b PA", "3 c A"));
        QCOMPARE(set.events(), QStringList());
    }

    void primaryByIdOfAnUnknownOrDeadAdapterLeavesNoPrimary_data()
    {
        QTest::addColumn<int>("id");
        QTest::newRow("unknown") << 9;
        QTest::newRow("zero") << 0;
        QTest::newRow("dead") << 3;
    }

    void primaryByIdOfAnUnknownOrDeadAdapterLeavesNoPrimary()
    {
        QFETCH(int, id);
        SetUnderTest set;
        addThreeActive(set);
        set.deleteFromOutside(3);
        set.handler.setPrimaryAdapterByID(static_cast<Id>(id));
        QCOMPARE(set.rows(), lines("1 a A", "2 b A", "3 gone"));
        QCOMPARE(set.handler.getPrimaryAdapter(), nullptr);
    }

    void primaryByRowLeavesExactlyThatAdapterActive()
    {
        SetUnderTest set;
        addThreeActive(set);
        set.handler.handlePrimaryChanged(1, true);
        QCOMPARE(set.rows(), lines("1 a", "2 b PA", "3 c"));
        set.handler.handlePrimaryChanged(1, true);
        QCOMPARE(set.rows(), lines("1 a", "2 b PA", "3 c"));
        QCOMPARE(set.events(), QStringList());
    }

    void primaryClearedByRowTouchesNothingElse()
    {
        SetUnderTest set;
        addThreeActive(set);
        set.handler.handlePrimaryChanged(1, false);
        QCOMPARE(set.rows(), lines("1 a PA", "2 b A", "3 c A"));
        set.handler.handlePrimaryChanged(0, false);
        QCOMPARE(set.rows(), lines("1 a A", "2 b A", "3 c A"));
        QCOMPARE(set.events(), QStringList());
    }

    void activeByRowAppliesNoRule()
    {
        SetUnderTest set;
        set.addDevice("a", SocketCan, "can0");
        set.addDevice("b", SocketCan, "can0");
        set.handler.handleActiveChanged(1, true);
        QCOMPARE(set.rows(), lines("1 a PA", "2 b A"));
        set.handler.handleActiveChanged(0, false);
        QCOMPARE(set.rows(), lines("1 a P", "2 b A"));
    }

    void rowWithoutAnAdapterChangesNothing_data()
    {
        QTest::addColumn<int>("index");
        QTest::newRow("past the end") << 4;
        QTest::newRow("negative") << -1;
        QTest::newRow("dead adapter") << 3;
        QTest::newRow("dead adapter, cut to 16 bits") << 65536 + 3;
    }

    void rowWithoutAnAdapterChangesNothing()
    {
        QFETCH(int, index);
        SetUnderTest set;
        addThreeActive(set);
        set.add("d");
        set.deleteFromOutside(4);
        set.events();
        for (const bool value : {false, true}) {
            set.handler.handleActiveChanged(index, value);
            set.handler.handlePrimaryChanged(index, value);
        }
        QCOMPARE(set.handler.couldActiveChanged(index), 0);
        QCOMPARE(set.rows(), lines("1 a PA", "2 b A", "3 c A", "4 gone"));
        QCOMPARE(set.events(), QStringList());
    }

    void rowIsCutTo16Bits()
    {
        SetUnderTest set;
        addThreeActive(set);
        set.handler.handleActiveChanged(65536 + 1, false);
        QCOMPARE(set.rows(), lines("1 a PA", "2 b", "3 c A"));
        QCOMPARE(set.handler.couldActiveChanged(65536), 2);
        set.handler.handlePrimaryChanged(-65536 + 2, true);
        QCOMPARE(set.rows(), lines("1 a", "2 b", "3 c PA"));
    }

    void deadEntriesAreSteppedOverByTheRoles()
    {
        SetUnderTest set;
        addThreeActive(set);
        set.deleteFromOutside(1);
        set.events();
        QCOMPARE(set.handler.getPrimaryAdapter(), nullptr);
        QCOMPARE(set.handler.getOnlyDemoInActiveAdapterList(), false);
        set.handler.setPrimaryBitrate(500);
        set.handler.unsetPrimaryAdapter();
        set.handler.handlePrimaryChanged(2, true);
        QCOMPARE(set.rows(), lines("1 gone", "2 b", "3 c PA"));
        set.handler.setPrimaryAdapterByID(2);
        QCOMPARE(set.rows(), lines("1 gone", "2 b PA", "3 c A"));
        set.handler.unsetAllActiveAdapters();
        QCOMPARE(set.rows(), lines("1 gone", "2 b P", "3 c"));
        QCOMPARE(set.events(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestAdapterRoles)
#include "tst_adapter_roles.moc"
