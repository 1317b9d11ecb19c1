// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/option_meta_types_p.h>
#include <BusLinkDesk/types/can_bitrates.h>

#include "support/bitrate_records.h"
#include "support/hex.h"
#include "support/log_recorder.h"
#include "support/saved.h"

#include <QtCore/QBuffer>
#include <QtCore/QDataStream>
#include <QtTest/QtTest>

#include <cstring>

using CAN::CANClassicBusParameter;
using CAN::CANFDBusParameter;

namespace {

struct LoadResult
{
    QString record;
    QDataStream::Status status = QDataStream::Ok;
    qint64 position = 0;
};

template <typename Record>
LoadResult loaded(const QByteArray &data, Record record)
{
    QDataStream stream(data);
    stream >> record;
    return {described(record), stream.status(), stream.device()->pos()};
}

// A device like a socket: it knows no position.
class SequentialDevice : public QIODevice
{
public:
    explicit SequentialDevice(const QByteArray &data) : mData(data)
    {
        open(QIODevice::ReadOnly | QIODevice::Unbuffered);
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char *data, qint64 maxSize) override
    {
        const QByteArray part = mData.left(static_cast<int>(maxSize));
        std::memcpy(data, part.constData(), static_cast<std::size_t>(part.size()));
        mData.remove(0, part.size());
        return part.size();
    }
    qint64 writeData(const char *, qint64) override { return -1; }

private:
    QByteArray mData;
};

struct CutStage
{
    int from;
    const char *record;
};

// Loads each proper prefix of the data; a stage tells the record for all prefixes up to the next stage.
template <typename Record, std::size_t Count>
void checkCuts(const QByteArray &whole, const Record &before, const CutStage (&stages)[Count])
{
    std::size_t stage = 0;
    for (int size = 0; size < whole.size(); ++size) {
        if (stage + 1 < Count && stages[stage + 1].from <= size)
            ++stage;
        const LoadResult result = loaded(whole.left(size), before);
        QVERIFY2(result.record == QString::fromUtf8(stages[stage].record),
                 qPrintable(QStringLiteral("%1: %2").arg(size).arg(result.record)));
        QCOMPARE(result.status, QDataStream::ReadPastEnd);
    }
    QCOMPARE(stage + 1, Count);
}

} // namespace

class TestBusParameterStreams : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { buslink::registerOptionMetaTypes(); }

    void savingWritesHeaderAndVersion1();
    void savingADefaultRecordWritesZerosAndANullText();
    void savingFollowsTheByteOrderOfTheStream();
    void loadingReversesSavingExceptValid();
    void olderDataHasNoHeader();
    void classicRecordTakesVersion1AndFdRecord0And1_data();
    void classicRecordTakesVersion1AndFdRecord0And1();
    void olderDataBeginningWithTheMagicIsTakenForTheNewFormat();
    void positionBeforeTheRecordIsRemembered();
    void cutClassicDataReadsAsZerosFromTheCutOn();
    void cutFdDataReadsAsZerosFromTheCutOn();
    void streamWithoutDeviceLeavesTheRecord();
    void sequentialDeviceIsReadOnceFromFrontToBack();
    void variantStreamsUnderEitherName_data();
    void variantStreamsUnderEitherName();
};

void TestBusParameterStreams::savingWritesHeaderAndVersion1()
{
    QCOMPARE(saved(classicRecord()).toHex(), hex(ClassicStream).toHex());
    QCOMPARE(saved(fdRecord()).toHex(), hex(FdStream).toHex());
}

void TestBusParameterStreams::savingADefaultRecordWritesZerosAndANullText()
{
    QCOMPARE(saved(CANClassicBusParameter()).toHex(),
             hex("43434250 0001 00000000 0000 0000 0000 FFFFFFFF 00 0000000000000000 0000").toHex());
    QCOMPARE(saved(CANFDBusParameter()).toHex(),
             hex("43434250 0001 00000000 0000 0000 0000 0000 FFFFFFFF 00 00 0000000000000000").toHex());
}

void TestBusParameterStreams::savingFollowsTheByteOrderOfTheStream()
{
    QByteArray data;
    QDataStream stream(&data, QIODevice::WriteOnly);
    stream.setByteOrder(QDataStream::LittleEndian);
    stream << classicRecord();
    QCOMPARE(data.toHex(), hex("50424343 0100 98BADCFE 0400 0D00 0200 04000000 4100 AC20 01"
                               "000000000000EC3F 0201")
                               .toHex());
    QDataStream back(data);
    back.setByteOrder(QDataStream::LittleEndian);
    CANClassicBusParameter record;
    record.timing.valid = true;
    back >> record;
    QCOMPARE(described(record), described(classicRecord()));
}

void TestBusParameterStreams::loadingReversesSavingExceptValid()
{
    for (const bool valid : {false, true}) {
        CANClassicBusParameter classic = usedClassicRecord();
        CANClassicBusParameter wantedClassic = classicRecord();
        classic.timing.valid = wantedClassic.timing.valid = valid;
        const LoadResult one = loaded(saved(classicRecord()), classic);
        QCOMPARE(one.record, described(wantedClassic));
        QCOMPARE(one.status, QDataStream::Ok);
        QCOMPARE(one.position, qint64(hex(ClassicStream).size()));

        CANFDBusParameter fd = usedFdRecord();
        CANFDBusParameter wantedFd = fdRecord();
        fd.timing.valid = wantedFd.timing.valid = valid;
        const LoadResult other = loaded(saved(fdRecord()), fd);
        QCOMPARE(other.record, described(wantedFd));
        QCOMPARE(other.status, QDataStream::Ok);
        QCOMPARE(other.position, qint64(hex(FdStream).size()));
    }
}

void TestBusParameterStreams::olderDataHasNoHeader()
{
    // busValue, sjw, tSeg1, tSeg2, busText, busFlag and nothing of the next item.
    const LoadResult classic = loaded(hex("00000009 0004 000D 0002 00000002 0042 01 EEEE"), usedClassicRecord());
    QCOMPARE(classic.record, QStringLiteral("9 0.25 70/13/2/4/1 \"B\" 1"));
    QCOMPARE(classic.status, QDataStream::Ok);
    QCOMPARE(classic.position, qint64(17));

    // busValue, prescaler, sjw, tSeg1, tSeg2, busText, busFlag, busOffset.
    const LoadResult fd = loaded(hex("00000009 0005 0004 000D 0002 00000002 0042 01 FF EEEE"), usedFdRecord());
    QCOMPARE(fd.record, QStringLiteral("9 \"B\" 0.25 5/13/2/4/1 -1 1"));
    QCOMPARE(fd.status, QDataStream::Ok);
    QCOMPARE(fd.position, qint64(20));
}

void TestBusParameterStreams::classicRecordTakesVersion1AndFdRecord0And1_data()
{
    QTest::addColumn<QByteArray>("version");
    QTest::addColumn<bool>("classicTakes");
    QTest::addColumn<bool>("fdTakes");
    QTest::newRow("0") << hex("0000") << false << true;
    QTest::newRow("1") << hex("0001") << true << true;
    QTest::newRow("2") << hex("0002") << false << false;
    QTest::newRow("256, low byte 0") << hex("0100") << false << false;
    QTest::newRow("257, low byte 1") << hex("0101") << false << false;
    QTest::newRow("32768, negative when signed") << hex("8000") << false << false;
    QTest::newRow("65535, -1 when signed") << hex("FFFF") << false << false;
}

void TestBusParameterStreams::classicRecordTakesVersion1AndFdRecord0And1()
{
    QFETCH(QByteArray, version);
    QFETCH(bool, classicTakes);
    QFETCH(bool, fdTakes);

    const QByteArray classicData = hex(ClassicStream).replace(4, 2, version);
    const LoadResult classic = loaded(classicData, usedClassicRecord());
    QCOMPARE(classic.record, described(classicTakes ? classicRecord() : usedClassicRecord()));
    QCOMPARE(classic.status, QDataStream::Ok);
    QCOMPARE(classic.position, qint64(classicTakes ? classicData.size() : 6));

    const QByteArray fdData = hex(FdStream).replace(4, 2, version);
    const LoadResult fd = loaded(fdData, usedFdRecord());
    QCOMPARE(fd.record, described(fdTakes ? fdRecord() : usedFdRecord()));
    QCOMPARE(fd.status, QDataStream::Ok);
    QCOMPARE(fd.position, qint64(fdTakes ? fdData.size() : 6));
}

void TestBusParameterStreams::olderDataBeginningWithTheMagicIsTakenForTheNewFormat()
{
    // Older data with this busValue: its sjw and prescaler of 4 are read as a version and refused.
    const LoadResult classic = loaded(hex("43434250 0004 000D 0002 00000000 01"), usedClassicRecord());
    QCOMPARE(classic.record, described(usedClassicRecord()));
    QCOMPARE(classic.position, qint64(6));
    const LoadResult fd = loaded(hex("43434250 0004 0001 000D 0002 00000000 01 01"), usedFdRecord());
    QCOMPARE(fd.record, described(usedFdRecord()));
    QCOMPARE(fd.position, qint64(6));

    // With an sjw of 1 the rest is read as the items of version 1.
    const LoadResult shifted =
        loaded(hex("43434250 0001 000D 0002 0000 0002 0058 00000000 01 3FF0000000000000 0007"), usedClassicRecord());
    QCOMPARE(shifted.record, QStringLiteral("851970 1 7/2/88/0/1 \"\" 1"));
}

void TestBusParameterStreams::positionBeforeTheRecordIsRemembered()
{
    QByteArray data = hex("1122334455");
    data += hex("00000009 0004 000D 0002 00000002 0042 01");
    QBuffer buffer(&data);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    QVERIFY(buffer.seek(5));
    QDataStream stream(&buffer);
    CANClassicBusParameter record = usedClassicRecord();
    stream >> record;
    QCOMPARE(described(record), QStringLiteral("9 0.25 70/13/2/4/1 \"B\" 1"));
    QCOMPARE(buffer.pos(), qint64(22));
}

void TestBusParameterStreams::cutClassicDataReadsAsZerosFromTheCutOn()
{
    checkCuts(hex(ClassicStream), usedClassicRecord(),
              {
                  {0, "0 0.25 70/0/0/0/1 \"\" 0"},          // no magic, so the older layout, of which all is missing
                  {4, "7 0.25 70/71/72/73/1 \"before\" 0"}, // version 0
                  {6, "0 0 0/0/0/0/1 \"\" 0"},
                  {10, "-19088744 0 0/0/0/0/1 \"\" 0"},
                  {12, "-19088744 0 0/0/0/4/1 \"\" 0"},
                  {14, "-19088744 0 0/13/0/4/1 \"\" 0"},
                  {16, "-19088744 0 0/13/2/4/1 \"\" 0"},
                  {20, "-19088744 0 0/13/2/4/1 null 0"},
                  {24, "-19088744 0 0/13/2/4/1 \"A\u20AC\" 0"},
                  {25, "-19088744 0 0/13/2/4/1 \"A\u20AC\" 1"},
                  {33, "-19088744 0.875 0/13/2/4/1 \"A\u20AC\" 1"},
              });
}

void TestBusParameterStreams::cutFdDataReadsAsZerosFromTheCutOn()
{
    checkCuts(hex(FdStream), usedFdRecord(),
              {
                  {0, "0 \"\" 0.25 0/0/0/0/1 0 0"}, // the older layout
                  {4, "0 \"\" 0 0/0/0/0/1 0 0"},    // version 0, which is read
                  {10, "19088743 \"\" 0 0/0/0/0/1 0 0"},
                  {12, "19088743 \"\" 0 258/0/0/0/1 0 0"},
                  {14, "19088743 \"\" 0 258/0/0/4/1 0 0"},
                  {16, "19088743 \"\" 0 258/13/0/4/1 0 0"},
                  {18, "19088743 \"\" 0 258/13/2/4/1 0 0"},
                  {22, "19088743 null 0 258/13/2/4/1 0 0"},
                  {26, "19088743 \"A\u20AC\" 0 258/13/2/4/1 0 0"},
                  {27, "19088743 \"A\u20AC\" 0 258/13/2/4/1 0 1"},
                  {28, "19088743 \"A\u20AC\" 0 258/13/2/4/1 -2 1"},
              });
}

void TestBusParameterStreams::streamWithoutDeviceLeavesTheRecord()
{
    QDataStream stream;
    CANClassicBusParameter classic = usedClassicRecord();
    CANFDBusParameter fd = usedFdRecord();
    stream >> classic >> fd;
    QCOMPARE(described(classic), described(usedClassicRecord()));
    QCOMPARE(described(fd), described(usedFdRecord()));
}

void TestBusParameterStreams::sequentialDeviceIsReadOnceFromFrontToBack()
{
    SequentialDevice withHeader(hex(ClassicStream));
    QDataStream stream(&withHeader);
    CANClassicBusParameter record = usedClassicRecord();
    stream >> record;
    QCOMPARE(described(record), described(classicRecord()));
    QCOMPARE(stream.status(), QDataStream::Ok);

    // Such a device cannot go back, so of older data the first word is lost and the end comes too early.
    SequentialDevice withoutHeader(hex("00000009 0004 000D 0002 00000002 0042 01"));
    stream.setDevice(&withoutHeader);
    const LogRecorder log;
    stream >> record;
    QCOMPARE(stream.status(), QDataStream::ReadPastEnd);
    QCOMPARE(described(record), QStringLiteral("262157 0.875 258/0/2/2/1 \"\" 0"));
    QCOMPARE(log.records(), QList<LogRecord>{defaultLogRecord(
                                QtWarningMsg, "QIODevice::seek (QIODevice): Cannot call seek on a sequential device")});
}

void TestBusParameterStreams::variantStreamsUnderEitherName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QString>("wanted");
    // valid stays at the false that a fresh record has.
    const auto classic = QStringLiteral("-19088744 0.875 258/13/2/4/0 \"A\u20AC\" 1");
    const auto fd = QStringLiteral("19088743 \"A\u20AC\" -1.5 258/13/2/4/0 -2 1");
    QTest::newRow("classic") << hex("0000001C 43414E3A3A43414E436C6173736963427573506172616D6574657200")
                             << hex(ClassicStream) << classic;
    QTest::newRow("classic, other name") << hex(
        "0000002B 416273747261637443616E416461707465723A3A43414E436C6173736963427573506172616D6574657200")
                                         << hex(ClassicStream) << classic;
    QTest::newRow("FD") << hex("00000017 43414E3A3A43414E4644427573506172616D6574657200") << hex(FdStream) << fd;
    QTest::newRow("FD, other name") << hex(
        "00000026 416273747261637443616E416461707465723A3A43414E4644427573506172616D6574657200")
                                    << hex(FdStream) << fd;
}

void TestBusParameterStreams::variantStreamsUnderEitherName()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, record);
    QFETCH(QString, wanted);
    const QByteArray data = hex("00000400 00") + name + record;
    QDataStream stream(data);
    stream.setVersion(QDataStream::Qt_5_12);
    QVariant value;
    stream >> value;
    QCOMPARE(stream.status(), QDataStream::Ok);
    QVERIFY(stream.atEnd());
    if (value.userType() == qMetaTypeId<CANClassicBusParameter>())
        QCOMPARE(described(value.value<CANClassicBusParameter>()), wanted);
    else
        QCOMPARE(described(value.value<CANFDBusParameter>()), wanted);
}

QTEST_APPLESS_MAIN(TestBusParameterStreams)
#include "tst_bus_parameter_streams.moc"
