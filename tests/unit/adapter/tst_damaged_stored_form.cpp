// SPDX-License-Identifier: MIT
#include "support/allocation_watch.h"
#include "support/fake_adapter.h"
#include "support/hex.h"
#include "support/log_recorder.h"
#include "support/option_rows.h"
#include "support/stored_forms.h"

#include <QtCore/QDataStream>
#include <QtTest/QtTest>

#include <cstdlib>
#include <memory>

using A = AbstractCanAdapter;

namespace {

// Texts and arrays are read in steps, however long they claim to be; the step of bit arrays is the largest.
constexpr std::size_t LargestAllocation = 8 * 1024 * 1024 + 1024;

constexpr int HeaderSize = 5; // type number and null flag

template <typename Record>
QString cutRecord(const QByteArray &bytes)
{
    QDataStream stream(bytes);
    stream.setVersion(QDataStream::Qt_5_12);
    Record record;
    stream >> record;
    return told(QVariant::fromValue(record));
}

// What a position holds after a restoring that ended within its bytes.
QString afterCut(int position, const QByteArray &bytes, const QString &before)
{
    const QByteArray whole = hex(FullForm[static_cast<std::size_t>(position)]);
    const int type = static_cast<quint8>(whole.at(3));
    const bool byName = whole.at(2) != 0;
    if (bytes.size() < 4 || position == A::option_isCiA309)
        return before; // the type number reads as 0
    if (byName) {
        const int nameEnd = HeaderSize + 4 + whole.at(8);
        if (bytes.size() < nameEnd)
            return before; // no such type
        const QByteArray record = bytes.mid(nameEnd);
        switch (position) {
        case A::option_peakAdvValues:
            return cutRecord<A::PeakAdvValues>(record);
        case A::option_systecXm3Values:
            return cutRecord<A::SystecXM3AdvValues>(record);
        case A::option_canClassicBusParams:
            return cutRecord<CAN::CANClassicBusParameter>(record);
        default:
            return cutRecord<CAN::CANFDBusParameter>(record);
        }
    }
    switch (type) {
    case QMetaType::Bool:
        return QStringLiteral("bool false");
    case QMetaType::Int:
        return QStringLiteral("int 0");
    case QMetaType::UInt:
        return QStringLiteral("uint 0");
    case QMetaType::QString:
        return bytes.size() < HeaderSize + 4 ? QStringLiteral("QString \"\"") : QStringLiteral("QString null");
    default:
        return before;
    }
}

// What an adapter holds after restoring the first bytes of the full form.
QStringList afterPrefix(int size, const QStringList &before)
{
    static const QStringList whole = valuesOfFullForm();
    QStringList wanted = before;
    int start = 0;
    for (int position = 0; position <= A::option_canfdBitrateDesc && start < size; ++position) {
        const QByteArray bytes = hex(FullForm[static_cast<std::size_t>(position)]);
        const QByteArray there = bytes.left(size - start);
        wanted[position] = there.size() == bytes.size() ? whole[position] : afterCut(position, there, before[position]);
        start += bytes.size();
    }
    return wanted;
}

// Where each position of the full form begins, and the end.
QList<int> positionStarts()
{
    QList<int> starts{0};
    for (const char *position : FullForm)
        starts.append(starts.last() + hex(position).size());
    return starts;
}

} // namespace

class TestDamagedStoredForm : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void watchSeesLargeAllocations();
    void eachTruncationRestoresWhatItHolds_data();
    void eachTruncationRestoresWhatItHolds();
    void eachFlippedByteLeavesThePrefixRestored_data();
    void eachFlippedByteLeavesThePrefixRestored();
    void countsBeyondTheDataTakeNoMemory_data();
    void countsBeyondTheDataTakeNoMemory();
    void deeplyNestedValuesEndTheRestoring();
    void damagedMapKeyEndsTheRestoring_data();
    void damagedMapKeyEndsTheRestoring();
};

void TestDamagedStoredForm::watchSeesLargeAllocations()
{
    const AllocationWatch watch;
    QCOMPARE(watch.largest(), std::size_t(0));
    for (const std::size_t size : {LargestAllocation + 1, LargestAllocation + 2}) {
        QByteArray memory(static_cast<int>(size), Qt::Uninitialized);
        QVERIFY(watch.largest() >= size);
        QVERIFY(watch.largest() <= size + 100);
    }
    const std::unique_ptr<void, decltype(&std::free)> cleared(std::calloc(3, LargestAllocation), &std::free);
    QCOMPARE(watch.largest(), 3 * LargestAllocation);
    QByteArray growing("small");
    growing.reserve(static_cast<int>(4 * LargestAllocation));
    QVERIFY(watch.largest() >= 4 * LargestAllocation);
}

void TestDamagedStoredForm::eachTruncationRestoresWhatItHolds_data()
{
    QTest::addColumn<bool>("configured");
    QTest::newRow("on a new adapter") << false;
    QTest::newRow("on a configured adapter") << true;
}

void TestDamagedStoredForm::eachTruncationRestoresWhatItHolds()
{
    QFETCH(bool, configured);
    const QByteArray whole = joined(FullForm);
    const LogRecorder withoutWarnings;
    const AllocationWatch watch;
    for (int size = 0; size <= whole.size(); ++size) {
        FakeAdapter adapter;
        if (configured)
            configureFully(adapter);
        const QStringList before = allOptions(adapter);
        adapter.setValuesFromByteArray(whole.left(size));
        const QStringList wanted = afterPrefix(size, before);
        const QStringList actual = allOptions(adapter);
        for (int position = 0; position < actual.size(); ++position) {
            QVERIFY2(actual[position] == wanted[position],
                     qPrintable(QStringLiteral("%1 bytes, position %2: %3 instead of %4")
                                    .arg(size)
                                    .arg(position)
                                    .arg(actual[position], wanted[position])));
        }
    }
    QVERIFY(watch.largest() <= LargestAllocation);
}

void TestDamagedStoredForm::eachFlippedByteLeavesThePrefixRestored_data()
{
    QTest::addColumn<int>("pattern");
    for (const int pattern : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0x0A, 0x7F, 0xFF})
        QTest::newRow(qPrintable(QString::number(pattern, 16))) << pattern;
}

void TestDamagedStoredForm::eachFlippedByteLeavesThePrefixRestored()
{
    QFETCH(int, pattern);
    const QByteArray whole = joined(FullForm);
    const QList<int> starts = positionStarts();
    const QStringList before = allOptions(FakeAdapter());
    const LogRecorder withoutWarnings;
    const AllocationWatch watch;
    int position = 0;
    QStringList wanted = before;
    for (int index = 0; index < whole.size(); ++index) {
        if (index == starts[position + 1])
            wanted = afterPrefix(starts[++position], before);
        QByteArray damaged = whole;
        damaged[index] = static_cast<char>(damaged[index] ^ pattern);
        FakeAdapter adapter;
        adapter.setValuesFromByteArray(damaged);
        const QStringList actual = allOptions(adapter);
        for (int earlier = 0; earlier < position; ++earlier) {
            QVERIFY2(actual[earlier] == wanted[earlier],
                     qPrintable(QStringLiteral("byte %1, position %2: %3 instead of %4")
                                    .arg(index)
                                    .arg(earlier)
                                    .arg(actual[earlier], wanted[earlier])));
        }
        QVERIFY2(watch.largest() <= LargestAllocation,
                 qPrintable(QStringLiteral("byte %1 takes %2 bytes").arg(index).arg(watch.largest())));
    }
    QCOMPARE(position, 45);
}

void TestDamagedStoredForm::countsBeyondTheDataTakeNoMemory_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("list") << hex("00000009 00 7FFFFFFF");
    QTest::newRow("list, the largest count") << hex("00000009 00 FFFFFFFF");
    QTest::newRow("list by a number of 31 bits") << hex("40000009 00 7FFFFFFF");
    QTest::newRow("list by a number of 32 bits") << hex("C0000009 00 7FFFFFFF");
    QTest::newRow("list of texts") << hex("0000000B 00 7FFFFFFF");
    QTest::newRow("list of byte arrays") << hex("00000031 00 7FFFFFFF");
    QTest::newRow("map") << hex("00000008 00 7FFFFFFF");
    QTest::newRow("hash") << hex("0000001C 00 7FFFFFFF");
    QTest::newRow("list by its name") << hex("00000400 00 0000000D 515661726961 6E744C69737400 7FFFFFFF");
    QTest::newRow("list in a list") << hex("00000009 00 00000001 00000009 00 7FFFFFFF");
    QTest::newRow("list in a value in a value") << hex("00000029 00 00000029 00 00000009 00 7FFFFFFF");
    QTest::newRow("list in a map") << hex("00000008 00 00000001 00000002 0041 00000009 00 7FFFFFFF");
    QTest::newRow("text") << hex("0000000A 00 7FFFFFFE");
    QTest::newRow("byte array") << hex("0000000C 00 7FFFFFFF");
    QTest::newRow("bit array") << hex("0000000D 00 7FFFFFFF");
    QTest::newRow("type name") << hex("00000400 00 7FFFFFFF");
}

void TestDamagedStoredForm::countsBeyondTheDataTakeNoMemory()
{
    QFETCH(QByteArray, value);
    const LogRecorder withoutWarnings;
    FakeAdapter adapter;
    configureFully(adapter);
    QStringList wanted = allOptions(adapter);
    const AllocationWatch watch;
    adapter.setValuesFromByteArray(hex(FullForm[0]) + value + hex("00000000 00000000"));
    QVERIFY2(watch.largest() <= LargestAllocation, qPrintable(QString::number(watch.largest())));
    // The value that breaks off counts as an empty one, a type that nobody knows as none.
    if (!value.startsWith(hex("00000400 00 7FFFFFFF")))
        wanted[A::option_adapterType] = QStringLiteral("int 0");
    QCOMPARE(allOptions(adapter), wanted);
}

void TestDamagedStoredForm::deeplyNestedValuesEndTheRestoring()
{
    const LogRecorder withoutWarnings;
    for (const char *level : {"00000009 00 00000001", "00000029 00", "00000008 00 00000001 00000000"}) {
        FakeAdapter adapter;
        configureFully(adapter);
        QStringList wanted = allOptions(adapter);
        wanted[A::option_adapterType] = QStringLiteral("int 0");
        adapter.setValuesFromByteArray(hex(FullForm[0]) + hex(level).repeated(1000000) + hex(FullForm[2]));
        QCOMPARE(allOptions(adapter), wanted);
    }
}

void TestDamagedStoredForm::damagedMapKeyEndsTheRestoring_data()
{
    QTest::addColumn<QByteArray>("value");
    QTest::newRow("map") << hex("00000008 00 00000001 00000003 00000002 00 00000007");
    QTest::newRow("hash") << hex("0000001C 00 00000001 00000003 00000002 00 00000007");
}

void TestDamagedStoredForm::damagedMapKeyEndsTheRestoring()
{
    QFETCH(QByteArray, value);
    FakeAdapter adapter;
    QStringList wanted = allOptions(adapter);
    adapter.setValuesFromByteArray(hex(FullForm[0]) + value + hex(FullForm[2]));
    wanted[A::option_CANFD] = valuesOfFullForm()[A::option_CANFD];
    QCOMPARE(allOptions(adapter), wanted);
}

QTEST_GUILESS_MAIN(TestDamagedStoredForm)
#include "tst_damaged_stored_form.moc"
