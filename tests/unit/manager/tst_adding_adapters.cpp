// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

#include <QtTest/QtTest>

#include <memory>

using Id = unsigned short;

class TestAddingAdapters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void threeAdaptersGetIdentifiersFrom1AndTheFirstOneTheRoles()
    {
        SetUnderTest set;
        QCOMPARE(set.handler.addNewCanAdapter(set.make("a")), Id(1));
        QCOMPARE(set.handler.addNewCanAdapter(set.make("b")), Id(2));
        QCOMPARE(set.handler.addNewCanAdapter(set.make("c")), Id(3));
        QCOMPARE(set.rows(), lines("1 a PA", "2 b", "3 c"));
        QCOMPARE(set.events(), lines("adapterMapChanged", "adapterMapChanged", "adapterMapChanged"));
    }

    void laterAdapterKeepsTheRolesItCarries()
    {
        SetUnderTest set;
        set.add("a");
        auto *active = set.make("active");
        setRoles(active, false, true);
        set.handler.addNewCanAdapter(active);
        QCOMPARE(set.rows(), lines("1 a PA", "2 active A"));
    }

    void incomingPrimaryTakesTheRoleFromTheOneInTheSet()
    {
        SetUnderTest set;
        set.add("a");
        auto *incoming = set.make("incoming");
        setRoles(incoming, true, false);
        QCOMPARE(set.handler.addNewCanAdapter(incoming), Id(2));
        QCOMPARE(set.rows(), lines("1 a A", "2 incoming P"));
        auto *restored = set.make("restored");
        setRoles(restored, true, true);
        restored->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 7);
        QCOMPARE(set.handler.addNewCanAdapter(restored, true), Id(7));
        QCOMPARE(set.rows(), lines("1 a A", "2 incoming", "7 restored PA"));
    }

    void addedEntryIsThereWhenTheSignalComes()
    {
        QStringList seen;
        SetUnderTest set;
        connect(&set.handler, &MultiCanAdapterHandler::adapterMapChanged, this, [&] { seen = set.rows(); });
        set.add("a");
        QCOMPARE(seen, lines("1 a PA"));
    }

    void identifierOfARemovedAdapterIsUsedAgain()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.add("c");
        set.handler.removeAdapter(2);
        QCOMPARE(set.handler.addNewCanAdapter(set.make("d")), Id(2));
        QCOMPARE(set.rows(), lines("1 a PA", "2 d", "3 c"));
    }

    void firstAdapterAfterASetWasEmptiedGetsTheRoles()
    {
        SetUnderTest set;
        set.add("a");
        set.handler.removeAllAdapters();
        set.add("b");
        QCOMPARE(set.rows(), lines("1 b PA"));
    }

    void nullIsNotAdded()
    {
        SetUnderTest set;
        set.add("a");
        set.events();
        for (int flags = 0; flags < 8; ++flags)
            QCOMPARE(set.handler.addNewCanAdapter(nullptr, flags & 1, flags & 2, flags & 4), Id(0));
        QCOMPARE(set.rows(), lines("1 a PA"));
        QCOMPARE(set.events(), QStringList());
    }

    void keptIdentifierOf0IsStoredUnder0AndReturned()
    {
        SetUnderTest set;
        QCOMPARE(set.handler.addNewCanAdapter(set.make("a"), true), Id(0));
        QCOMPARE(set.rows(), lines("0 a"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void keptIdentifierBringsNoRolesToTheFirstAdapter()
    {
        SetUnderTest set;
        set.addUnder(5, "a");
        QCOMPARE(set.rows(), lines("5 a"));
    }

    void keptIdentifierPushesAnEarlierAdapterOutUntouched()
    {
        SetUnderTest set;
        const std::unique_ptr<JournalAdapter> earlier(set.addUnder(5, "earlier"));
        setRoles(earlier.get(), false, true);
        QCOMPARE(earlier->open(), CAN::RetOk);
        set.events();
        auto *later = set.addUnder(5, "later");
        QCOMPARE(set.rows(), lines("5 later"));
        QCOMPARE(set.handler.getAdapter(5), later);
        QCOMPARE(set.events(), lines("adapterMapChanged"));
        QVERIFY(earlier->isRunning());
        QVERIFY(earlier->isActiveAdapter());
        QCOMPARE(earlier->getId(), Id(5));
    }

    void duplicateStaysOutsideWithoutASignal_data()
    {
        QTest::addColumn<bool>("keepId");
        QTest::addColumn<bool>("makePrimary");
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("new id") << false << false << lines("1 first PA", "2 twin", "3 last");
        QTest::newRow("kept id") << true << false << lines("1 first PA", "2 twin", "3 last");
        QTest::newRow("new id, primary") << false << true << lines("1 first A", "2 twin P", "3 last");
        QTest::newRow("kept id, primary") << true << true << lines("1 first A", "2 twin P", "3 last");
    }

    void duplicateStaysOutsideWithoutASignal()
    {
        QFETCH(bool, keepId);
        QFETCH(bool, makePrimary);
        QFETCH(QStringList, rows);
        SetUnderTest set;
        set.add("first");
        set.add("twin");
        set.add("last");
        const std::unique_ptr<JournalAdapter> duplicate(set.make("twin"));
        duplicate->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 9);
        set.events();
        QCOMPARE(set.handler.addNewCanAdapter(duplicate.get(), keepId, true, makePrimary), Id(0));
        QCOMPARE(set.handler.getAdapterCount(), Id(3));
        QCOMPARE(set.rows(), rows);
        QCOMPARE(set.events(), QStringList());
        QCOMPARE(duplicate->getId(), Id(9));
        QVERIFY(!duplicate->isPrimaryAdapter());
        QVERIFY(!duplicate->isActiveAdapter());
    }

    void firstOfSeveralTwinsCounts()
    {
        SetUnderTest set;
        set.add("first");
        set.add("twin");
        set.add("twin");
        const std::unique_ptr<JournalAdapter> duplicate(set.make("twin"));
        QCOMPARE(set.handler.addNewCanAdapter(duplicate.get(), false, true, true), Id(0));
        QCOMPARE(set.rows(), lines("1 first A", "2 twin P", "3 twin"));
    }

    void entryOfTheSetIsTheLeftOperandOfTheComparison()
    {
        const auto option = AbstractCanAdapter::option_protocol;
        SetUnderTest set;
        set.add("a")->skippedOptions = {option};
        std::unique_ptr<JournalAdapter> other(set.make("a"));
        other->setCanAdapterOption(option, 3);
        QCOMPARE(set.handler.addNewCanAdapter(other.get(), false, true), Id(0));

        SetUnderTest reversed;
        reversed.add("a");
        other.reset(reversed.make("a"));
        other->setCanAdapterOption(option, 3);
        other->skippedOptions = {option};
        QCOMPARE(reversed.handler.addNewCanAdapter(other.release(), false, true), Id(2));
    }

    void withoutTheSearchADuplicateIsAdded()
    {
        SetUnderTest set;
        set.add("a");
        QCOMPARE(set.handler.addNewCanAdapter(set.make("a"), false, false), Id(2));
        QCOMPARE(set.rows(), lines("1 a PA", "2 a"));
    }

    void searchFindsNoTwinInADeadEntry()
    {
        SetUnderTest set;
        set.add("a");
        set.deleteFromOutside(1);
        set.events();
        QCOMPARE(set.handler.addNewCanAdapter(set.make("a"), false, true), Id(2));
        QCOMPARE(set.rows(), lines("1 gone", "2 a"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void adapterMadePrimaryIsNotActiveInANonEmptySet_data()
    {
        QTest::addColumn<bool>("checkDuplicate");
        QTest::newRow("without search") << false;
        QTest::newRow("search without a match") << true;
    }

    void adapterMadePrimaryIsNotActiveInANonEmptySet()
    {
        QFETCH(bool, checkDuplicate);
        SetUnderTest set;
        set.add("a");
        set.events();
        QCOMPARE(set.handler.addNewCanAdapter(set.make("b"), false, checkDuplicate, true), Id(2));
        QCOMPARE(set.rows(), lines("1 a A", "2 b P"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void adapterMadePrimaryInAnEmptySetIsActiveUnlessItKeepsItsIdentifier()
    {
        SetUnderTest set;
        set.handler.addNewCanAdapter(set.make("a"), false, false, true);
        QCOMPARE(set.rows(), lines("1 a PA"));
        SetUnderTest restored;
        auto *b = restored.make("b");
        b->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 4);
        QCOMPARE(restored.handler.addNewCanAdapter(b, true, false, true), Id(4));
        QCOMPARE(restored.rows(), lines("4 b P"));
    }

    void updateDeletesTheOldAdapterWithoutStoppingIt()
    {
        SetUnderTest set;
        set.add("a");
        set.add("old");
        set.add("c");
        set.events();
        set.handler.updateAdapter(2, set.make("new"));
        QCOMPARE(set.events(), lines("old deleted", "adapterMapChanged"));
        QCOMPARE(set.rows(), lines("1 a PA", "2 new", "3 c"));
    }

    void updateHandsNoRoleOver()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        auto *replacement = set.make("new");
        setRoles(replacement, false, true);
        set.handler.updateAdapter(1, replacement);
        QCOMPARE(set.rows(), lines("1 new A", "2 b"));
        auto *second = set.make("second");
        setRoles(second, true, false);
        set.handler.updateAdapter(2, second);
        QCOMPARE(set.rows(), lines("1 new A", "2 second P"));
    }

    void updateOfAnUnknownOrDeadEntryAdds()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.deleteFromOutside(2);
        set.events();
        set.handler.updateAdapter(2, set.make("c"));
        set.handler.updateAdapter(8, set.make("d"));
        QCOMPARE(set.rows(), lines("1 a PA", "2 c", "8 d"));
        QCOMPARE(set.events(), lines("adapterMapChanged", "adapterMapChanged"));
    }

    void updateWithNullDoesNothing()
    {
        SetUnderTest set;
        set.add("a");
        set.events();
        set.handler.updateAdapter(1, nullptr);
        set.handler.updateAdapter(2, nullptr);
        QCOMPARE(set.rows(), lines("1 a PA"));
        QCOMPARE(set.events(), QStringList());
    }

    void updateWithTheAdapterThatStandsThereKeepsIt()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        set.events();
        set.handler.updateAdapter(1, a);
        QCOMPARE(set.rows(), lines("1 a PA"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }
};

QTEST_GUILESS_MAIN(TestAddingAdapters)
#include "tst_adding_adapters.moc"
