// SPDX-License-Identifier: MIT
#include "busdesk/frame_texts.h"
#include "desk_user.h"
#include "recording_files.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <tuple>

using buslink::Recording;
using buslink::RecordingReader;

namespace {

// More than is read at once.
constexpr int LargeCount = 6000;

QByteArray largeRecording()
{
    return QByteArray("(1.0) a 123#0011223344556677\n").repeated(LargeCount);
}

} // namespace

class TestDeskRecording : public QObject, RecordingFiles
{
    Q_OBJECT

private Q_SLOTS:
    void aRecordingIsReadWithItsPausesLinesAndAdapters()
    {
        const Loaded recording = readAll("(10.000000) adapter2 123#11\n"
                                         "\n"
                                         "(10.250000) can0 12345678#R3 T\n"
                                         "(9.000000) adapter3 5##1AA\n"
                                         "(10.000001) adapter1 6#");
        QVERIFY(recording);
        QStringList seen;
        for (const Recording::Frame &frame : recording->frames)
            seen.append(
                QStringLiteral("%1 %2 %3").arg(frame.line).arg(frame.dueUs).arg(buslink::logText(frame.record)));
        // The two short identifiers are damaged.
        QCOMPARE(seen, strings({"1 0 (10.000000) adapter2 123#11", "3 250000 (10.250000) adapter0 12345678#R3"}));
        QCOMPARE(recording->damagedLines, qint64(2));
        QCOMPARE(recording->durationUs(), qint64(250000));
        QVERIFY(recording->damages.constFirst().contains(QStringLiteral(":4: an identifier has")));
    }

    void whereARecordingGoesBackThereIsNoPause()
    {
        const Loaded recording = readAll("(10.0) a 123#\n(4.0) a 123#\n(4.5) a 123#\n");
        QCOMPARE(recording->durationUs(), qint64(500000));
        QCOMPARE(recording->frames.at(1).dueUs, qint64(0));
    }

    void aStampBeyondARecordIsBounded()
    {
        const Loaded recording = readAll("(999999999999.000001) a 123#\n");
        QCOMPARE(recording->frames.front().record.timeStamp.seconds, std::numeric_limits<qint32>::max());
        QCOMPARE(recording->frames.front().record.timeStamp.microseconds, 1);
    }

    void whatCannotBeReadIsRefused_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("error");
        QTest::newRow("missing") << QStringLiteral("/nowhere/x.log")
                                 << QStringLiteral("/nowhere/x.log: No such file or directory");
        QTest::newRow("folder") << QStringLiteral("/") << QStringLiteral("/: not a file");
        QTest::newRow("no end") << QStringLiteral("/dev/zero") << QStringLiteral("/dev/zero: not a file");
    }

    void whatCannotBeReadIsRefused()
    {
        QFETCH(QString, path);
        RecordingReader reader;
        QTEST(reader.start(path), "error");
        QVERIFY(!reader.isReading());
    }

    void aRecordingBeyondTheLimitIsRefused()
    {
        RecordingReader reader(2);
        const QString path = fileWith("(1.0) a 1#\n(1.0) a 123#\n(1.0) a 123#\n(1.0) a 123#\n");
        Loaded recording;
        QString error;
        connect(&reader, &RecordingReader::finished, &reader,
                [&](const Loaded &loaded, const QString &why) { std::tie(recording, error) = std::tie(loaded, why); });
        QCOMPARE(reader.start(path), QString());
        QTRY_COMPARE_WITH_TIMEOUT(error, path + QStringLiteral(": more than 2 frames"), PatienceMs);
        QVERIFY(!recording);
    }

    void aLargeRecordingIsReadInPieces()
    {
        const QString path = fileWith(largeRecording());
        RecordingReader reader;
        QVector<qint64> positions;
        QVector<qint64> sizes;
        connect(&reader, &RecordingReader::progressed, &reader, [&](qint64 bytes, qint64 size) {
            positions.append(bytes);
            sizes.append(size);
        });
        Loaded recording;
        connect(&reader, &RecordingReader::finished, &reader, [&](const Loaded &loaded) { recording = loaded; });
        QCOMPARE(reader.start(path), QString());
        QTRY_VERIFY_WITH_TIMEOUT(recording, PatienceMs);
        const qint64 size = largeRecording().size();
        QVERIFY(positions.size() > 1);
        QVERIFY(positions.first() > 0);
        QVERIFY(std::adjacent_find(positions.begin(), positions.end(), std::greater_equal<>()) == positions.end());
        QCOMPARE(positions.last(), size);
        QCOMPARE(sizes, QVector<qint64>(positions.size(), size));
        // A piece ends within a line.
        QVERIFY(positions.first() % (size / LargeCount) != 0);
        QCOMPARE(recording->damagedLines, qint64(0));
        QCOMPARE(recording->frames.size(), std::size_t(LargeCount));
        QCOMPARE(recording->frames.back().line, qint64(LargeCount));
    }

    void aSecondStartInTheMiddleBeginsAnew()
    {
        const QString other = fileWith("(5.0) adapter7 124#\n(5.5) adapter7 125#\n");
        RecordingReader reader;
        int progress = 0;
        QStringList starts;
        connect(&reader, &RecordingReader::progressed, &reader, [&] {
            if (++progress == 1)
                starts.append(reader.start(other));
        });
        QVector<Loaded> recordings;
        connect(&reader, &RecordingReader::finished, &reader, [&](const Loaded &loaded) { recordings.append(loaded); });
        QCOMPARE(reader.start(fileWith(largeRecording())), QString());
        QTRY_VERIFY_WITH_TIMEOUT(!recordings.isEmpty(), PatienceMs);
        QCOMPARE(starts, QStringList{QString()});
        QVERIFY(!reader.isReading());
        QCOMPARE(recordings.size(), 1);
        const Recording &recording = *recordings.first();
        QCOMPARE(recording.path, other);
        QCOMPARE(recording.damagedLines, qint64(0));
        QCOMPARE(recording.durationUs(), qint64(500000));
        QCOMPARE(recording.frames.size(), std::size_t(2));
        QCOMPARE(recording.frames.front().line, qint64(1));
        QCOMPARE(recording.frames.front().dueUs, qint64(0));
        QCOMPARE(recording.frames.front().record.adapterId, quint16(7));
    }
};

QTEST_GUILESS_MAIN(TestDeskRecording)
#include "tst_desk_recording.moc"
