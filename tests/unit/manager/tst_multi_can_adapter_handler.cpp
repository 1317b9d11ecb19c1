// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

#include <QtTest/QtTest>

#include <memory>
#include <type_traits>

namespace {

constexpr int AllIdentifiers = 65536;

// Stands for an application's translation of every text of the registry.
class RegistryTranslator : public QTranslator
{
public:
    QString translate(const char *context, const char *text, const char *, int) const override
    {
        return qstrcmp(context, "MultiCanAdapterHandler") == 0
                   ? QStringLiteral("translated %1").arg(QLatin1String(text))
                   : QString();
    }
    bool isEmpty() const override { return false; }
};

} // namespace

class TestMultiCanAdapterHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsStandInTheirOrder()
    {
        const QMetaObject &meta = MultiCanAdapterHandler::staticMetaObject;
        QStringList signatures;
        for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
            QCOMPARE(meta.method(i).methodType(), QMetaMethod::Signal);
            signatures.append(QString::fromLatin1(meta.method(i).methodSignature()));
        }
        QCOMPARE(signatures, lines("adapterMapChanged()", "adapterRemoved(ushort)", "interfaceColorsChanged()"));
    }

    void directionsHaveTheirNumbers()
    {
        QCOMPARE(static_cast<int>(MultiCanAdapterHandler::Up), 0);
        QCOMPARE(static_cast<int>(MultiCanAdapterHandler::Down), 1);
    }

    void newSetIsEmptyAndBelongsToItsParent()
    {
        QObject parent;
        auto *handler = new MultiCanAdapterHandler(&parent);
        QCOMPARE(handler->parent(), &parent);
        QCOMPARE(handler->getAdapterCount(), static_cast<unsigned short>(0));
        QVERIFY(handler->getAdapterMap().isEmpty());
    }

    void indexCountsIdentifiersInAscendingOrder()
    {
        SetUnderTest set;
        auto *nine = set.addUnder(9, "nine");
        auto *two = set.addUnder(2, "two");
        auto *five = set.addUnder(5, "five");
        QCOMPARE(set.handler.adapterAt(0), two);
        QCOMPARE(set.handler.adapterAt(1), five);
        QCOMPARE(set.handler.adapterAt(2), nine);
    }

    void adapterAtPastTheEndIsNull()
    {
        SetUnderTest set;
        QCOMPARE(set.handler.adapterAt(0), nullptr);
        set.add("a");
        QCOMPARE(set.handler.adapterAt(1), nullptr);
        QCOMPARE(set.handler.adapterAt(65535), nullptr);
    }

    void deadAdapterIsNullByIndexAndById()
    {
        SetUnderTest set;
        set.add("a");
        auto *b = set.add("b");
        set.deleteFromOutside(1);
        QCOMPARE(set.handler.adapterAt(0), nullptr);
        QCOMPARE(set.handler.getAdapter(1), nullptr);
        QCOMPARE(set.handler.adapterAt(1), b);
        QCOMPARE(set.handler.getAdapter(2), b);
    }

    void unknownIdentifierGivesNullAndAddsNoEntry()
    {
        SetUnderTest set;
        set.add("a");
        QCOMPARE(set.handler.getAdapter(2), nullptr);
        QCOMPARE(set.handler.getAdapter(0), nullptr);
        QCOMPARE(set.rows(), lines("1 a PA"));
    }

    void countIncludesAnEntryWhoseAdapterWasDeletedFromOutside()
    {
        SetUnderTest set;
        set.add("a");
        set.add("b");
        set.deleteFromOutside(2);
        QCOMPARE(set.handler.getAdapterCount(), static_cast<unsigned short>(2));
        QCOMPARE(set.rows(), lines("1 a PA", "2 gone"));
    }

    void adapterMapIsTheSetItself()
    {
        using Map = QMap<unsigned short, QPointer<AbstractCanAdapter>>;
        static_assert(std::is_same_v<decltype(std::declval<MultiCanAdapterHandler &>().getAdapterMap()), Map &>);
        SetUnderTest set;
        FakeAdapter adapter;
        set.handler.getAdapterMap().insert(4, &adapter);
        QCOMPARE(set.handler.getAdapter(4), &adapter);
        set.handler.getAdapterMap().clear();
        QCOMPARE(set.handler.getAdapterCount(), static_cast<unsigned short>(0));
        QCOMPARE(set.events(), QStringList());
    }

    void nameCarriesTheDescriptionInParentheses_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("description");
        QTest::addColumn<QString>("shown");
        QTest::newRow("no description") << "can0" << QString() << "can0";
        QTest::newRow("empty description") << "can0"
                                           << ""
                                           << "can0";
        QTest::newRow("description") << "can0"
                                     << "left rack"
                                     << "can0 (left rack)";
        QTest::newRow("blank description") << "can0"
                                           << " "
                                           << "can0 ( )";
        QTest::newRow("no name") << QString() << "left rack"
                                 << " (left rack)";
        QTest::newRow("place marker in the name") << "can %1"
                                                  << "left"
                                                  << "can %1 (left)";
        QTest::newRow("place marker in the description") << "can0"
                                                         << "%1"
                                                         << "can0 (%1)";
    }

    void nameCarriesTheDescriptionInParentheses()
    {
        QFETCH(QString, name);
        QFETCH(QString, description);
        QFETCH(QString, shown);
        SetUnderTest set;
        auto *adapter = set.add("a");
        adapter->setCanAdapterOption(AbstractCanAdapter::option_adapterName, name);
        adapter->setCanAdapterOption(AbstractCanAdapter::option_description, description);
        QCOMPARE(set.handler.getAdapterName(1), shown);
    }

    void nameOfUnknownOrDeadAdapterSaysSo()
    {
        SetUnderTest set;
        set.add("a");
        set.deleteFromOutside(1);
        QCOMPARE(set.handler.getAdapterName(1), QStringLiteral("Invalid adapter id"));
        QCOMPARE(set.handler.getAdapterName(2), QStringLiteral("Invalid adapter id"));
    }

    void nameOfUnknownAdapterIsTranslatedInTheContextOfTheClass()
    {
        RegistryTranslator translator;
        QVERIFY(QCoreApplication::installTranslator(&translator));
        SetUnderTest set;
        const QString name = set.handler.getAdapterName(1);
        QCoreApplication::removeTranslator(&translator);
        QCOMPARE(name, QStringLiteral("translated Invalid adapter id"));
    }

    void connectedAdaptersAreThoseWhoseThreadRuns()
    {
        SetUnderTest set;
        auto *c = set.addUnder(3, "c");
        auto *a = set.addUnder(1, "a");
        auto *closed = set.addUnder(2, "closed");
        auto *threadless = set.addUnder(4, "threadless");
        set.addUnder(5, "dead");
        set.deleteFromOutside(5);
        threadless->startsThread = false;
        for (JournalAdapter *adapter : {a, closed, c, threadless})
            QCOMPARE(adapter->open(), CAN::RetOk);
        QVERIFY(threadless->getRunning());
        QCOMPARE(set.handler.getConnectedAdapters(), (QList<AbstractCanAdapter *>{a, closed, c}));
        closed->closeAdapter();
        QVERIFY(closed->wait());
        QCOMPARE(set.handler.getConnectedAdapters(), (QList<AbstractCanAdapter *>{a, c}));
    }

    void colorsAreOnlyRelayed()
    {
        SetUnderTest set;
        set.handler.informAboutChangedColors();
        set.handler.informAboutChangedColors();
        QCOMPARE(set.events(), lines("interfaceColorsChanged", "interfaceColorsChanged"));
    }

    void generatedIdentifierIsTheLowestFreeOne_data()
    {
        QTest::addColumn<QList<int>>("taken");
        QTest::addColumn<int>("generated");
        QTest::newRow("empty set") << QList<int>{} << 1;
        QTest::newRow("0 does not count") << QList<int>{0} << 1;
        QTest::newRow("dense") << QList<int>{1, 2, 3} << 4;
        QTest::newRow("dense from 0") << QList<int>{0, 1, 2} << 3;
        QTest::newRow("1 is free") << QList<int>{2, 3} << 1;
        QTest::newRow("lowest of two gaps") << QList<int>{1, 3, 5} << 2;
        QTest::newRow("end of the range") << QList<int>{65535} << 1;
    }

    void generatedIdentifierIsTheLowestFreeOne()
    {
        QFETCH(QList<int>, taken);
        QFETCH(int, generated);
        SetUnderTest set;
        for (const int id : taken)
            set.addUnder(static_cast<unsigned short>(id), "x");
        set.events();
        QCOMPARE(set.handler.createUniqueIdForAdapter(), static_cast<unsigned short>(generated));
        QCOMPARE(set.handler.getAdapterCount(), static_cast<unsigned short>(taken.size()));
        QCOMPARE(set.events(), QStringList());
    }

    void identifierOfADeadAdapterIsNotFree()
    {
        SetUnderTest set;
        set.add("a");
        set.deleteFromOutside(1);
        QCOMPARE(set.handler.createUniqueIdForAdapter(), static_cast<unsigned short>(2));
    }

    void fullSetHasNoIdentifierLeft()
    {
        MultiCanAdapterHandler handler;
        for (int id = 1; id < AllIdentifiers; ++id)
            handler.getAdapterMap().insert(static_cast<unsigned short>(id), nullptr);
        QCOMPARE(handler.createUniqueIdForAdapter(), static_cast<unsigned short>(0));
        handler.getAdapterMap().insert(0, nullptr);
        QCOMPARE(handler.createUniqueIdForAdapter(), static_cast<unsigned short>(0));
    }

    void fullSetTakesNoFurtherAdapter()
    {
        SetUnderTest set;
        auto *zero = set.addUnder(0, "zero");
        setRoles(zero, true, true);
        for (int id = 1; id < AllIdentifiers; ++id)
            set.handler.getAdapterMap().insert(static_cast<unsigned short>(id), nullptr);
        const std::unique_ptr<JournalAdapter> late(set.make("late"));
        set.events();
        QCOMPARE(set.handler.addNewCanAdapter(late.get(), false, false, true), static_cast<unsigned short>(0));
        QCOMPARE(set.events(), QStringList());
        QCOMPARE(set.handler.getAdapter(0), zero);
        QVERIFY(zero->isPrimaryAdapter());
        QVERIFY(!late->isPrimaryAdapter());
        QCOMPARE(late->getId(), static_cast<unsigned short>(0));
        set.handler.getAdapterMap() = {{0, zero}};
    }
};

QTEST_GUILESS_MAIN(TestMultiCanAdapterHandler)
#include "tst_multi_can_adapter_handler.moc"
