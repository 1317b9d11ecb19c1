// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include "support/fake_adapter.h"
#include "support/option_rows.h"

#include <QtTest/QtTest>

#include <limits>

using A = AbstractCanAdapter;

namespace {

// A back end with options of its own: it keeps what it is given and answers what the test says.
class SpecificAdapter : public FakeAdapter
{
public:
    bool setSpecificCanAdapterOption(AdapterOption option, QVariant value) override
    {
        given.append({option, value});
        return result;
    }
    QVariant getSpecificCanAdapterOption(AdapterOption option) const override
    {
        asked.append(option);
        return answer;
    }

    QList<QPair<AdapterOption, QVariant>> given;
    mutable QList<AdapterOption> asked;
    bool result = false;
    QVariant answer;
};

} // namespace

class TestSpecificOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void invalidValueChangesNothing_data();
    void invalidValueChangesNothing();
    void specificOptionsReachTheBackEnd_data();
    void specificOptionsReachTheBackEnd();
    void otherOptionsDoNotReachTheBackEnd();
    void onlyIsCiA309AsksTheBackEnd();
    void numbersPastTheEndReadAsInvalid_data();
    void numbersPastTheEndReadAsInvalid();
    void noBackEndButCiA309SaysThatItIsOne();
};

void TestSpecificOptions::invalidValueChangesNothing_data()
{
    QTest::addColumn<int>("number");
    for (const OptionRow &row : OptionRows)
        QTest::newRow(row.name) << int(row.option);
    QTest::newRow("47") << 47;
}

void TestSpecificOptions::invalidValueChangesNothing()
{
    QFETCH(int, number);
    SpecificAdapter adapter;
    adapter.result = true;
    adapter.setCanAdapterOption(A::option_uniqueId, 17);
    adapter.setCanAdapterOption(A::option_disableSleep, true);
    const QStringList all = allOptions(adapter);
    QCOMPARE(adapter.setCanAdapterOption(A::AdapterOption(number), QVariant()), false);
    QCOMPARE(allOptions(adapter), all);
    QCOMPARE(adapter.mAllowSleep, false);
    QVERIFY(adapter.given.isEmpty());
}

void TestSpecificOptions::specificOptionsReachTheBackEnd_data()
{
    QTest::addColumn<int>("number");
    for (const A::AdapterOption option :
         {A::option_toggleComPort, A::option_toggleDTR, A::option_toggleRTS, A::option_isCiA309, A::option_lastEnum})
        QTest::newRow(nameOf(option)) << int(option);
    for (const int number : {47, 1000, std::numeric_limits<int>::max(), -1})
        QTest::newRow(qPrintable(QString::number(number))) << number;
}

void TestSpecificOptions::specificOptionsReachTheBackEnd()
{
    QFETCH(int, number);
    const auto option = A::AdapterOption(number);
    SpecificAdapter adapter;
    const QStringList all = allOptions(adapter);
    for (const bool result : {true, false}) {
        adapter.given.clear();
        adapter.result = result;
        QCOMPARE(adapter.setCanAdapterOption(option, 12), result);
        QCOMPARE(adapter.given, (QList<QPair<A::AdapterOption, QVariant>>{{option, QVariant(12)}}));
    }
    QCOMPARE(allOptions(adapter), all);

    FakeAdapter plain;
    QCOMPARE(plain.setCanAdapterOption(option, 12), false);
}

void TestSpecificOptions::otherOptionsDoNotReachTheBackEnd()
{
    const QList<A::AdapterOption> specific{A::option_toggleComPort, A::option_toggleDTR, A::option_toggleRTS,
                                           A::option_isCiA309, A::option_lastEnum};
    SpecificAdapter adapter;
    for (const OptionRow &row : OptionRows) {
        if (!specific.contains(row.option))
            adapter.setCanAdapterOption(row.option, 1);
    }
    QVERIFY(adapter.given.isEmpty());
}

void TestSpecificOptions::onlyIsCiA309AsksTheBackEnd()
{
    SpecificAdapter adapter;
    adapter.answer = QStringLiteral("answer");
    for (const OptionRow &row : OptionRows) {
        const QVariant value = adapter.getCanAdapterOption(row.option);
        QCOMPARE(told(value), row.option == A::option_isCiA309 ? QStringLiteral("QString \"answer\"")
                                                               : QString::fromLatin1(row.byDefault));
    }
    QCOMPARE(adapter.asked, QList<A::AdapterOption>{A::option_isCiA309});
}

void TestSpecificOptions::numbersPastTheEndReadAsInvalid_data()
{
    QTest::addColumn<int>("number");
    for (const int number : {46, 47, 1000, std::numeric_limits<int>::max(), -1})
        QTest::newRow(qPrintable(QString::number(number))) << number;
}

void TestSpecificOptions::numbersPastTheEndReadAsInvalid()
{
    QFETCH(int, number);
    SpecificAdapter adapter;
    adapter.answer = true;
    QVERIFY(!adapter.getCanAdapterOption(A::AdapterOption(number)).isValid());
    QVERIFY(adapter.asked.isEmpty());
}

void TestSpecificOptions::noBackEndButCiA309SaysThatItIsOne()
{
    const FakeAdapter plain;
    QCOMPARE(told(plain.getCanAdapterOption(A::option_isCiA309)), QStringLiteral("bool false"));
    QCOMPARE(told(plain.getSpecificCanAdapterOption(A::option_isCiA309)), QStringLiteral("bool false"));
    QCOMPARE(told(plain.getSpecificCanAdapterOption(A::option_CANFD)), QStringLiteral("bool true"));
    QCOMPARE(told(plain.getSpecificCanAdapterOption(A::option_lastEnum)), QStringLiteral("bool true"));
    const DemoCanAdapter virtualBus(QStringLiteral("Virtual"));
    QCOMPARE(told(virtualBus.getCanAdapterOption(A::option_isCiA309)), QStringLiteral("bool false"));
}

QTEST_APPLESS_MAIN(TestSpecificOptions)
#include "tst_specific_options.moc"
