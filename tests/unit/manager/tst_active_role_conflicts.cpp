// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

#include <QtTest/QtTest>

namespace {

constexpr int SocketCan = AbstractCanAdapter::CanAdapterTypeSocketCan;
constexpr int Can4linux = AbstractCanAdapter::CanAdapterTypeCan4linux;
constexpr int Virtual = AbstractCanAdapter::CanAdapterTypeVirtual;

} // namespace

class TestActiveRoleConflicts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void primaryMayNotChangeItsActiveRole()
    {
        SetUnderTest set;
        set.addDevice("a", SocketCan, "can0");
        QCOMPARE(set.handler.couldActiveChanged(0), 2);
        setRoles(set.addDevice("b", SocketCan, "can0"), false, true);
        QCOMPARE(set.handler.couldActiveChanged(0), 2);
        set.handler.unsetAllActiveAdapters();
        QCOMPARE(set.handler.couldActiveChanged(0), 2);
    }

    // The first adapter of the set is the primary one on a device of its own; the question is for the third.
    void activeRoleMayChangeUnlessTheDeviceIsTaken_data()
    {
        QTest::addColumn<int>("otherType");
        QTest::addColumn<QString>("otherDevice");
        QTest::addColumn<bool>("otherActive");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("device");
        QTest::addColumn<int>("result");
        QTest::newRow("same interface, other active") << SocketCan << "can0" << true << SocketCan << "can0" << 1;
        QTest::newRow("same interface, other inactive") << SocketCan << "can0" << false << SocketCan << "can0" << 0;
        QTest::newRow("another interface") << SocketCan << "can1" << true << SocketCan << "can0" << 0;
        QTest::newRow("name differs in case") << SocketCan << "CAN0" << true << SocketCan << "can0" << 0;
        QTest::newRow("same name, another type") << Can4linux << "can0" << true << SocketCan << "can0" << 0;
        QTest::newRow("both without a name") << Can4linux << "" << true << Can4linux << "" << 1;
        QTest::newRow("no type set") << 0 << "x" << true << 0 << "x" << 1;
        QTest::newRow("same name, one is virtual") << Virtual << "can0" << true << SocketCan << "can0" << 0;
        QTest::newRow("virtual, same name") << Virtual << "bus" << true << Virtual << "bus" << 0;
    }

    void activeRoleMayChangeUnlessTheDeviceIsTaken()
    {
        QFETCH(int, otherType);
        QFETCH(QString, otherDevice);
        QFETCH(bool, otherActive);
        QFETCH(int, type);
        QFETCH(QString, device);
        QFETCH(int, result);
        SetUnderTest set;
        set.addDevice("primary", SocketCan, "own");
        setRoles(set.addDevice("other", otherType, otherDevice.toLatin1()), false, otherActive);
        auto *asked = set.addDevice("asked", type, device.toLatin1());
        set.events();
        for (const bool active : {false, true}) {
            setRoles(asked, false, active);
            QCOMPARE(set.handler.couldActiveChanged(2), result);
        }
        QCOMPARE(set.events(), QStringList());
    }

    void takenDeviceIsFoundBehindOtherAdapters()
    {
        SetUnderTest set;
        set.addDevice("primary", Virtual, "bus");
        set.addDevice("asked", SocketCan, "can0");
        setRoles(set.addDevice("elsewhere", SocketCan, "can1"), false, true);
        set.addDevice("inactive", SocketCan, "can0");
        set.addDevice("dead", SocketCan, "can0");
        set.deleteFromOutside(5);
        QCOMPARE(set.handler.couldActiveChanged(1), 0);
        setRoles(set.addDevice("twin", SocketCan, "can0"), false, true);
        QCOMPARE(set.handler.couldActiveChanged(1), 1);
    }

    void activeVirtualTwinsMayBothChange()
    {
        SetUnderTest set;
        set.addDevice("primary", Virtual, "bus");
        setRoles(set.addDevice("b", Virtual, "bus"), false, true);
        setRoles(set.addDevice("c", Virtual, "bus"), false, true);
        QCOMPARE(set.handler.couldActiveChanged(1), 0);
        QCOMPARE(set.handler.couldActiveChanged(2), 0);
    }

    void twinsOnTheDeviceLoseTheActiveRoleVirtualOnesToo()
    {
        SetUnderTest set;
        setRoles(set.addDevice("a", Virtual, "bus"), true, true);
        auto *b = set.addDevice("b", Virtual, "bus");
        setRoles(b, false, true);
        setRoles(set.addDevice("c", Virtual, "another"), false, true);
        setRoles(set.addDevice("d", SocketCan, "bus"), false, true);
        setRoles(set.addDevice("e", Virtual, "bus"), false, true);
        set.addDevice("dead", Virtual, "bus");
        set.deleteFromOutside(6);
        set.events();
        set.handler.unsetActiveAtSameAdapters(b);
        QCOMPARE(set.rows(), lines("1 a P", "2 b A", "3 c A", "4 d A", "5 e", "6 gone"));
        QCOMPARE(set.events(), QStringList());
    }

    void adapterOutsideTheSetTakesTheActiveRoleFromItsTwins()
    {
        SetUnderTest set;
        set.addDevice("a", SocketCan, "can0");
        FakeAdapter outside;
        outside.setCanAdapterOption(AbstractCanAdapter::option_adapterType, SocketCan);
        outside.setCanAdapterOption(AbstractCanAdapter::option_deviceName, QStringLiteral("can0"));
        outside.setCanAdapterOption(AbstractCanAdapter::option_activeAdapter, false);
        set.handler.unsetActiveAtSameAdapters(&outside);
        QCOMPARE(set.rows(), lines("1 a P"));
        set.handler.unsetActiveAtSameAdapters(nullptr);
        QCOMPARE(set.rows(), lines("1 a P"));
    }
};

QTEST_GUILESS_MAIN(TestActiveRoleConflicts)
#include "tst_active_role_conflicts.moc"
