// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

#include <QtTest/QtTest>

class TestTogglingConnections : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void activeAdaptersAreOpenedInAscendingOrder()
    {
        SetUnderTest set;
        setRoles(set.addUnder(9, "c"), false, true);
        setRoles(set.addUnder(4, "b"), true, false);
        setRoles(set.addUnder(2, "a"), false, true);
        set.events();
        set.handler.toggleConnection(true);
        QCOMPARE(set.events(), lines("a open", "c open"));
        QVERIFY(set.handler.getAdapter(2)->isRunning());
        QVERIFY(!set.handler.getAdapter(4)->isRunning());
        QVERIFY(set.handler.getAdapter(9)->isRunning());
        QCOMPARE(set.rows(), lines("2 a A", "4 b P", "9 c A"));
    }

    void openingGoesOnAfterAFailure()
    {
        SetUnderTest set;
        set.add("a")->openResult = CAN::RetError;
        setRoles(set.add("b"), false, true);
        set.events();
        set.handler.toggleConnection(true);
        QCOMPARE(set.events(), lines("a open", "b open"));
        QCOMPARE(set.handler.getConnectedAdapters(), QList<AbstractCanAdapter *>{set.handler.getAdapter(2)});
        QCOMPARE(set.rows(), lines("1 a PA", "2 b A"));
    }

    void everyAdapterIsClosedActiveOrNot()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        set.add("never open");
        auto *c = set.add("c");
        setRoles(c, false, true);
        set.handler.toggleConnection(true);
        setRoles(c, false, false);
        set.events();
        set.handler.toggleConnection(false);
        QVERIFY(a->wait());
        QVERIFY(c->wait());
        const QStringList events = set.events();
        QCOMPARE(events.filter(QStringLiteral("closeAdapter")),
                 lines("a closeAdapter", "never open closeAdapter", "c closeAdapter"));
        QCOMPARE(set.handler.getConnectedAdapters(), QList<AbstractCanAdapter *>());
        QCOMPARE(set.rows(), lines("1 a PA", "2 never open", "3 c"));
    }

    void adapterThatIsOpenAlreadyIsOpenedAgain()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        setRoles(a, false, false);
        QCOMPARE(a->open(), CAN::RetOk);
        set.handler.handleActiveChanged(0, true);
        set.events();
        set.handler.toggleConnection(true);
        set.handler.toggleConnection(true);
        QCOMPARE(set.events(), lines("a open", "a open"));
        QVERIFY(a->isRunning());
    }

    void roleChangeOpensAndClosesNothing()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        set.add("b");
        set.handler.toggleConnection(true);
        set.events();
        set.handler.handleActiveChanged(1, true);
        set.handler.handlePrimaryChanged(1, true);
        set.handler.unsetAllActiveAdapters();
        QCOMPARE(set.events(), QStringList());
        QVERIFY(a->isRunning());
    }

    void deadEntriesAreSteppedOver()
    {
        SetUnderTest set;
        set.add("a");
        setRoles(set.add("b"), false, true);
        set.deleteFromOutside(1);
        set.events();
        set.handler.toggleConnection(true);
        QCOMPARE(set.events(), lines("b open"));
        QVERIFY(set.handler.getAdapter(2)->isRunning());
    }

    void adapterRemovedWhileOthersAreOpenedIsNotOpened()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        a->startsThread = false;
        setRoles(set.add("b"), false, true);
        setRoles(set.add("c"), false, true);
        // As an application may, when the first adapter announces its state.
        a->onOpen = [&set] { set.handler.removeAdapter(2); };
        set.events();
        set.handler.toggleConnection(true);
        QCOMPARE(set.events(), lines("a open", "b prepareToTerminate", "b deleted", "adapterRemoved 2", "c open"));
        QCOMPARE(set.rows(), lines("1 a PA", "3 c A"));
    }

    void adaptersThatChangePlacesMeanwhileAreOpenedOnceEach()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        setRoles(set.add("b"), false, true);
        setRoles(set.add("c"), false, true);
        a->onOpen = [&set, a] { set.handler.moveAdapter(a, MultiCanAdapterHandler::Down); };
        set.events();
        set.handler.toggleConnection(true);
        QCOMPARE(set.events(), lines("a open", "adapterMapChanged", "b open", "c open"));
        QCOMPARE(set.rows(), lines("1 b A", "2 a PA", "3 c A"));
    }
};

QTEST_GUILESS_MAIN(TestTogglingConnections)
#include "tst_toggling_connections.moc"
