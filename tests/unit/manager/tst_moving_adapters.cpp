// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

#include <QtTest/QtTest>

#include <memory>

using Id = unsigned short;
using Handler = MultiCanAdapterHandler;

class TestMovingAdapters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void upFromTheTopDoesNothing_data()
    {
        QTest::addColumn<int>("id");
        QTest::newRow("identifier 1") << 1;
        QTest::newRow("identifier 0") << 0;
    }

    void upFromTheTopDoesNothing()
    {
        QFETCH(int, id);
        SetUnderTest set;
        auto *adapter = set.addUnder(static_cast<Id>(id), "a");
        const QStringList before = set.rows();
        set.events();
        QCOMPARE(set.handler.moveAdapter(adapter, Handler::Up), Id(0));
        QCOMPARE(set.rows(), before);
        QCOMPARE(set.events(), QStringList());
    }

    void downChangesPlacesWithTheNeighbour()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        set.add("b");
        set.events();
        QCOMPARE(set.handler.moveAdapter(a, Handler::Down), Id(2));
        QCOMPARE(set.rows(), lines("1 b", "2 a PA"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void upChangesPlacesWithTheNeighbour()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        auto *c = set.add("c");
        set.events();
        QCOMPARE(set.handler.moveAdapter(c, Handler::Up), Id(2));
        QCOMPARE(set.rows(), lines("1 a PA", "2 c", "3 b"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void moveIsDoneWhenTheSignalComes()
    {
        QStringList seen;
        SetUnderTest set;
        auto *a = set.add("a");
        set.add("b");
        connect(&set.handler, &Handler::adapterMapChanged, this, [&] { seen = set.rows(); });
        set.handler.moveAdapter(a, Handler::Down);
        QCOMPARE(seen, lines("1 b", "2 a PA"));
    }

    void everyOtherDirectionActsAsDown()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        QCOMPARE(set.handler.moveAdapter(a, Handler::Direction(2)), Id(2));
        QCOMPARE(set.handler.moveAdapter(a, Handler::Direction(-1)), Id(3));
        QCOMPARE(set.rows(), lines("3 a PA"));
    }

    void downFromTheEndGrowsAGap()
    {
        SetUnderTest set;
        set.add("a");
        auto *b = set.add("b");
        set.events();
        QCOMPARE(set.handler.moveAdapter(b, Handler::Down), Id(3));
        QCOMPARE(set.rows(), lines("1 a PA", "3 b"));
        QCOMPARE(set.handler.adapterAt(1), b);
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void upSlidesIntoAGap()
    {
        SetUnderTest set;
        set.addUnder(1, "a");
        auto *b = set.addUnder(4, "b");
        QCOMPARE(set.handler.moveAdapter(b, Handler::Up), Id(3));
        QCOMPARE(set.rows(), lines("1 a", "3 b"));
    }

    void downFrom0GoesTo1()
    {
        SetUnderTest set;
        auto *zero = set.addUnder(0, "zero");
        set.addUnder(1, "one");
        QCOMPARE(set.handler.moveAdapter(zero, Handler::Down), Id(1));
        QCOMPARE(set.rows(), lines("0 one", "1 zero"));
    }

    void downFromTheHighestIdentifierDoesNothing()
    {
        SetUnderTest set;
        auto *last = set.addUnder(65535, "last");
        set.addUnder(0, "zero");
        set.events();
        QCOMPARE(set.handler.moveAdapter(last, Handler::Down), Id(0));
        QCOMPARE(set.rows(), lines("0 zero", "65535 last"));
        QCOMPARE(set.events(), QStringList());
        QCOMPARE(set.handler.moveAdapter(last, Handler::Up), Id(65534));
    }

    void deadNeighbourGivesWay()
    {
        SetUnderTest set;
        auto *a = set.add("a");
        set.add("b");
        set.deleteFromOutside(2);
        set.events();
        QCOMPARE(set.handler.moveAdapter(a, Handler::Down), Id(2));
        QCOMPARE(set.rows(), lines("2 a PA"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
    }

    void adapterFromOutsideComesInAndDropsTheOneUnderItsIdentifier()
    {
        SetUnderTest set;
        set.add("a");
        const std::unique_ptr<JournalAdapter> dropped(set.add("b"));
        set.add("c");
        auto *outside = set.make("outside");
        outside->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 2);
        set.events();
        QCOMPARE(set.handler.moveAdapter(outside, Handler::Down), Id(3));
        QCOMPARE(set.rows(), lines("1 a PA", "2 c", "3 outside"));
        QCOMPARE(set.events(), lines("adapterMapChanged"));
        QCOMPARE(dropped->getId(), Id(2));
    }

    void nullDoesNotMove()
    {
        SetUnderTest set;
        set.add("a");
        set.events();
        QCOMPARE(set.handler.moveAdapter(nullptr, Handler::Up), Id(0));
        QCOMPARE(set.handler.moveAdapter(nullptr, Handler::Down), Id(0));
        QCOMPARE(set.rows(), lines("1 a PA"));
        QCOMPARE(set.events(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestMovingAdapters)
#include "tst_moving_adapters.moc"
