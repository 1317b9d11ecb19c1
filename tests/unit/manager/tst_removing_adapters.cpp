// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

#include <QtTest/QtTest>

using Remove = void (*)(MultiCanAdapterHandler &);
Q_DECLARE_METATYPE(Remove)

class TestRemovingAdapters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void runningAdapterIsDeletedAfterItsThreadEnded_data()
    {
        QTest::addColumn<Remove>("remove");
        QTest::addColumn<QStringList>("signalTexts");
        QTest::newRow("removeAdapter") << Remove([](MultiCanAdapterHandler &handler) { handler.removeAdapter(1); })
                                       << lines("adapterRemoved 1");
        QTest::newRow("removeAdapterAt") << Remove([](MultiCanAdapterHandler &handler) { handler.removeAdapterAt(0); })
                                         << lines("adapterRemoved 1", "adapterMapChanged");
        QTest::newRow("removeAllAdapters")
            << Remove([](MultiCanAdapterHandler &handler) { handler.removeAllAdapters(); })
            << lines("adapterRemoved 1", "adapterMapChanged");
    }

    void runningAdapterIsDeletedAfterItsThreadEnded()
    {
        QFETCH(Remove, remove);
        QFETCH(QStringList, signalTexts);
        SetUnderTest set;
        QPointer<JournalAdapter> adapter = set.add("a");
        // The thread outlives prepareToTerminate by far, so only waiting for it gives this order.
        adapter->lingerMs = 200;
        QCOMPARE(adapter->open(), CAN::RetOk);
        set.events();
        remove(set.handler);
        QCOMPARE(set.events(), lines("a prepareToTerminate", "a thread ends", "a deleted") + signalTexts);
        QVERIFY(adapter.isNull());
        QCOMPARE(set.rows(), QStringList());
    }

    void adapterThatGoesWhileItIsStoppedIsNotTouchedAgain_data()
    {
        QTest::addColumn<Remove>("meanwhile");
        QTest::newRow("removed") << Remove([](MultiCanAdapterHandler &handler) { handler.removeAdapter(1); });
        QTest::newRow("all removed") << Remove([](MultiCanAdapterHandler &handler) { handler.removeAllAdapters(); });
        QTest::newRow("replaced") << Remove(
            [](MultiCanAdapterHandler &handler) { handler.updateAdapter(1, new FakeAdapter); });
    }
    void adapterThatGoesWhileItIsStoppedIsNotTouchedAgain()
    {
        QFETCH(Remove, meanwhile);
        SetUnderTest set;
        QPointer<JournalAdapter> adapter = set.add("a");
        adapter->onPrepareToTerminate = [&set, meanwhile, once = std::make_shared<bool>(true)] {
            if (std::exchange(*once, false))
                meanwhile(set.handler);
        };
        set.handler.removeAdapter(1);
        QVERIFY(adapter.isNull());
        QCOMPARE(set.events().count(QStringLiteral("a deleted")), 1);
    }

    void adapterThatWasNeverOpenedIsStoppedInTheSameOrder()
    {
        SetUnderTest set;
        set.add("a");
        set.events();
        set.handler.removeAdapter(1);
        QCOMPARE(set.events(), lines("a prepareToTerminate", "a deleted", "adapterRemoved 1"));
    }

    void lowestAdapterTakesOverFromARemovedPrimary()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.add("c");
        set.handler.setPrimaryAdapterByID(2);
        set.handler.unsetAllActiveAdapters();
        set.handler.removeAdapter(2);
        QCOMPARE(set.rows(), lines("1 a PA", "3 c"));
        set.handler.removeAdapter(1);
        QCOMPARE(set.rows(), lines("3 c PA"));
    }

    void rolesStandWhenAdapterRemovedIsEmitted()
    {
        QStringList seen;
        SetUnderTest set;
        set.add("a");
        set.add("b");
        connect(&set.handler, &MultiCanAdapterHandler::adapterRemoved, this, [&] { seen = set.rows(); });
        set.handler.removeAdapter(1);
        QCOMPARE(seen, lines("2 b PA"));
    }

    void removingAnotherAdapterLeavesTheRoles()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.add("c");
        set.handler.setPrimaryAdapterByID(3);
        set.handler.unsetAllActiveAdapters();
        set.handler.removeAdapter(1);
        QCOMPARE(set.rows(), lines("2 b", "3 c P"));
    }

    void removingTheOnlyAdapterLeavesAnEmptySetWithoutPrimary()
    {
        SetUnderTest set;
        set.add("a");
        set.handler.removeAdapter(1);
        QCOMPARE(set.rows(), QStringList());
        QCOMPARE(set.handler.getPrimaryAdapter(), nullptr);
    }

    void deadEntryIsNoHeir()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.add("c");
        set.handler.setPrimaryAdapterByID(2);
        set.deleteFromOutside(1);
        set.handler.removeAdapter(2);
        QCOMPARE(set.rows(), lines("1 gone", "3 c PA"));
        set.handler.removeAdapter(3);
        QCOMPARE(set.rows(), lines("1 gone"));
    }

    void unknownIdentifierIsReportedAsRemoved()
    {
        SetUnderTest set;
        set.add("a");
        set.events();
        set.handler.removeAdapter(7);
        QCOMPARE(set.events(), lines("adapterRemoved 7"));
        QCOMPARE(set.rows(), lines("1 a PA"));
    }

    void deadEntryIsForgotten()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.deleteFromOutside(1);
        set.events();
        set.handler.removeAdapter(1);
        QCOMPARE(set.events(), lines("adapterRemoved 1"));
        QCOMPARE(set.rows(), lines("2 b"));
    }

    void indexPastTheEndEmitsOnlyTheChangeOfTheMap()
    {
        SetUnderTest set;
        set.handler.removeAdapterAt(0);
        QCOMPARE(set.events(), lines("adapterMapChanged"));
        set.add("a");
        set.events();
        set.handler.removeAdapterAt(1);
        set.handler.removeAdapterAt(65535);
        QCOMPARE(set.events(), lines("adapterMapChanged", "adapterMapChanged"));
        QCOMPARE(set.rows(), lines("1 a PA"));
    }

    void indexPastTheEndRemovesTheAdapterUnder0()
    {
        SetUnderTest set;
        set.addUnder(0, "zero");
        set.addUnder(1, "one");
        set.events();
        set.handler.removeAdapterAt(2);
        QCOMPARE(set.events(),
                 lines("zero prepareToTerminate", "zero deleted", "adapterRemoved 0", "adapterMapChanged"));
        QCOMPARE(set.rows(), lines("1 one"));
    }

    void indexOfADeadEntryRemovesNothing()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.deleteFromOutside(1);
        set.events();
        set.handler.removeAdapterAt(0);
        QCOMPARE(set.events(), lines("adapterMapChanged"));
        QCOMPARE(set.rows(), lines("1 gone", "2 b"));
    }

    void indexRemovesByTheIdentifierThatTheAdapterHas()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        set.add("b");
        a->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 2);
        set.events();
        set.handler.removeAdapterAt(0);
        QCOMPARE(set.events(), lines("b prepareToTerminate", "b deleted", "adapterRemoved 2", "adapterMapChanged"));
        QCOMPARE(set.rows(), lines("1 a PA own 2"));
    }

    void allAdaptersAreRemovedInAscendingOrderWithoutAHandOver()
    {
        QVector<QStringList> seen;
        SetUnderTest set;
        set.addUnder(9, "c");
        set.addUnder(4, "b");
        set.addUnder(2, "a");
        set.handler.setPrimaryAdapterByID(2);
        set.events();
        connect(&set.handler, &MultiCanAdapterHandler::adapterRemoved, this, [&] { seen.append(set.rows()); });
        set.handler.removeAllAdapters();
        QCOMPARE(set.events(), lines("a prepareToTerminate", "a deleted", "adapterRemoved 2", //
                                     "b prepareToTerminate", "b deleted", "adapterRemoved 4", //
                                     "c prepareToTerminate", "c deleted", "adapterRemoved 9", "adapterMapChanged"));
        QCOMPARE(seen, (QVector<QStringList>{lines("4 b", "9 c"), lines("9 c"), {}}));
        QCOMPARE(set.rows(), QStringList());
    }

    void deadEntriesGoWithAllOthers()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.deleteFromOutside(1);
        set.events();
        set.handler.removeAllAdapters();
        QCOMPARE(set.events(), lines("adapterRemoved 1", "b prepareToTerminate", "b deleted", "adapterRemoved 2",
                                     "adapterMapChanged"));
        QCOMPARE(set.rows(), QStringList());
    }

    void removingAllOfAnEmptySetReportsAChangeOnce()
    {
        SetUnderTest set;
        set.handler.removeAllAdapters();
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void adapterAddedWhileAllAreRemovedStays()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        connect(&set.handler, &MultiCanAdapterHandler::adapterRemoved, this, [&](unsigned short id) {
            if (id == 1)
                set.addUnder(7, "new");
        });
        set.handler.removeAllAdapters();
        QCOMPARE(set.rows(), lines("7 new"));
    }

    void destructorLeavesAdaptersAliveAndRunning()
    {
        Journal journal;
        JournalAdapter first(journal, QStringLiteral("a"));
        JournalAdapter second(journal, QStringLiteral("b"));
        {
            MultiCanAdapterHandler handler;
            handler.addNewCanAdapter(&first);
            handler.addNewCanAdapter(&second);
            QCOMPARE(first.open(), CAN::RetOk);
        }
        QCOMPARE(journal.take(), lines("a open"));
        QVERIFY(first.isRunning());
        QVERIFY(first.getRunning());
        QVERIFY(!second.isRunning());
        QVERIFY(first.isPrimaryAdapter());
        QVERIFY(first.isActiveAdapter());
        QCOMPARE(second.getId(), static_cast<unsigned short>(2));
        first.prepareToTerminate();
        QVERIFY(first.wait());
    }
};

QTEST_GUILESS_MAIN(TestRemovingAdapters)
#include "tst_removing_adapters.moc"
