// SPDX-License-Identifier: MIT
#include "integration/example_programs.h"
#include "support/file_content.h"
#include "support/frame_recorder.h"
#include "support/open_adapter.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

#include <csignal>
#include <numeric>

namespace {

const QString variedLog = QStringLiteral(VARIED_LOG);

QVector<quint32> idsOf(const FrameRecorder &recorder)
{
    QVector<quint32> ids;
    for (const CAN::CanRxMessage &frame : recorder.frames())
        ids.append(frame.message.id);
    return ids;
}

// The identifiers from 0 to below `count`.
QVector<quint32> countingIds(int count)
{
    QVector<quint32> ids(count);
    std::iota(ids.begin(), ids.end(), 0U);
    return ids;
}

} // namespace

class TestBusdumpBusplay : public QObject, private ExamplePrograms
{
    Q_OBJECT

private Q_SLOTS:
    void everyFrameOfTheVariedLogArrivesInOrder()
    {
        const QList<QByteArray> frames = framesOf(contentOf(variedLog));
        QCOMPARE(frames.size(), 320);
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, {QStringLiteral("--count"), QString::number(frames.size())});
        const auto player = play(port, {variedLog});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(player->output(), QByteArray());
        QCOMPARE(player->errors(), QByteArray());
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), frames);
        QCOMPARE(dump->errors(), QByteArray());
        static const QRegularExpression line(QStringLiteral("^\\([0-9]+\\.[0-9]{3}000\\) virtual [^ ]+$"));
        for (const QByteArray &one : dump->output().trimmed().split('\n'))
            QVERIFY2(line.match(QString::fromLatin1(one)).hasMatch(), one.constData());
    }

    void noMoreThanTheCountIsPrinted()
    {
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, {QStringLiteral("--count"), QStringLiteral("2")});
        const auto player = play(port, {writeFile("(1) can0 001#\n(1) can0 002#\n(1) can0 003#\n")});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), (QList<QByteArray>{"001#", "002#"}));
    }

    void aDamagedLineIsReportedAndSkipped()
    {
        const QString path =
            writeFile("(1.0) can0 001#\n\n(1.0) can0 123#112\n(1.0) can0 002#\n(1.0) can0 20000004#0000000000000000");
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, {QStringLiteral("--count"), QStringLiteral("2")});
        const auto player = play(port, {path});
        QCOMPARE(player->waitForStatus(), 3);
        QCOMPARE(player->errors(), path.toLocal8Bit() + ":3: odd number of payload digits: '112'\n" + path.toLocal8Bit()
                                       + ":5: an error frame cannot be sent: '20000004'\n");
        QCOMPARE(player->output(), QByteArray());
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), (QList<QByteArray>{"001#", "002#"}));
    }

    void aLineWithoutEndIsReportedAndSkipped()
    {
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, {QStringLiteral("--count"), QStringLiteral("1")});
        const auto player = play(port, {});
        player->write(QByteArray(100000, 'x') + "\n(1.0) can0 001#\n");
        player->endInput();
        QCOMPARE(player->waitForStatus(), 3);
        QCOMPARE(player->errors(), QByteArray("<stdin>:1: longer than 4096 bytes\n"));
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), QList<QByteArray>{"001#"});
    }

    void recordedPausesAreKept()
    {
        QElapsedTimer timer;
        timer.start();
        const auto player = play(freeUdpPort(), {writeFile(countingLog(7, 0.2))});
        QCOMPARE(player->waitForStatus(), 0);
        QVERIFY2(timer.elapsed() >= 1200, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(timer.elapsed() < 30000, qPrintable(QString::number(timer.elapsed())));
    }

    void fastLeavesThePausesOut()
    {
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, {QStringLiteral("--count"), QStringLiteral("3")});
        const auto player = play(port, {QStringLiteral("--fast"), writeFile(countingLog(3, 3600))});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), (QList<QByteArray>{"00000000#", "00000001#", "00000002#"}));
    }

    void goingBackInTimeIsNoPause()
    {
        const auto player = play(freeUdpPort(), {writeFile("(86400.0) can0 001#\n(0.0) can0 002#\n(0.0) can0 003#\n")});
        QCOMPARE(player->waitForStatus(), 0);
    }

    void standardInputIsPlayedAsItComes_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("without an argument") << QStringList();
        QTest::newRow("by its name") << QStringList{QStringLiteral("-")};
    }
    void standardInputIsPlayedAsItComes()
    {
        QFETCH(QStringList, arguments);
        const quint16 port = freeUdpPort();
        const auto dump = listen(port);
        const auto player = play(port, arguments);
        player->write("(1.0) can0 001#\n");
        QTRY_COMPARE_WITH_TIMEOUT(framesOf(dump->output()), QList<QByteArray>{"001#"}, PatienceMs);
        player->write("(1.1) can0 00");
        player->write("2#");
        player->endInput();
        QCOMPARE(player->waitForStatus(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(framesOf(dump->output()), (QList<QByteArray>{"001#", "002#"}), PatienceMs);
    }

    void aSignalEndsBusdump_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        const QStringList count{QStringLiteral("--count"), QStringLiteral("100")};
        QTest::newRow("SIGINT") << SIGINT << QStringList() << 0;
        QTest::newRow("SIGTERM") << SIGTERM << QStringList() << 0;
        QTest::newRow("SIGINT before the count") << SIGINT << count << 130;
        QTest::newRow("SIGTERM before the count") << SIGTERM << count << 143;
    }
    void aSignalEndsBusdump()
    {
        QFETCH(int, signal);
        QFETCH(QStringList, arguments);
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, arguments);
        const auto player = play(port, {QStringLiteral("--fast"), writeFile(countingLog(3, 1))});
        QCOMPARE(player->waitForStatus(), 0);
        const QList<QByteArray> frames{"00000000#", "00000001#", "00000002#"};
        QTRY_COMPARE_WITH_TIMEOUT(framesOf(dump->output()), frames, PatienceMs);
        dump->sendSignal(signal);
        QTEST(dump->waitForStatus(), "status");
        QCOMPARE(framesOf(dump->output()), frames);
        QCOMPARE(dump->errors(), QByteArray());
    }

    void aSignalEndsBusplayWhenWhatWasAcceptedHasLeft_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::newRow("SIGINT while fast") << SIGINT << QStringList{QStringLiteral("--fast")} << 130;
        QTest::newRow("SIGTERM while fast") << SIGTERM << QStringList{QStringLiteral("--fast")} << 143;
        QTest::newRow("SIGINT with pauses") << SIGINT << QStringList() << 130;
    }
    void aSignalEndsBusplayWhenWhatWasAcceptedHasLeft()
    {
        QFETCH(int, signal);
        QFETCH(QStringList, arguments);
        const quint16 port = freeUdpPort();
        const auto adapter = makeVirtualAdapter(port);
        const FrameRecorder recorder(adapter.get());
        QVERIFY(openOnBus(adapter.get(), PatienceMs));
        const auto player = play(port, arguments);
        // The input stays open, so the signal alone can end it.
        player->write(countingLog(5000, 0.002));
        QTRY_VERIFY_WITH_TIMEOUT(recorder.count() > 50, PatienceMs);
        player->sendSignal(signal);
        QTEST(player->waitForStatus(), "status");
        static const QRegularExpression report(
            QStringLiteral("\\Abusplay: interrupted, ([0-9]+) frames were sent\n\\z"));
        const QRegularExpressionMatch match = report.match(QString::fromLocal8Bit(player->errors()));
        QVERIFY2(match.hasMatch(), player->errors().constData());
        const int sent = match.captured(1).toInt();
        QVERIFY(sent > 50);
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(), sent, PatienceMs);
        QCOMPARE(idsOf(recorder), countingIds(sent));
    }
};

QTEST_GUILESS_MAIN(TestBusdumpBusplay)
#include "tst_busdump_busplay.moc"
