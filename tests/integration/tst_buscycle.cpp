// SPDX-License-Identifier: MIT
#include "integration/example_programs.h"
#include "support/frame_recorder.h"
#include "support/open_adapter.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QRegularExpression>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

#include <csignal>

namespace {

std::unique_ptr<Program> cycle(quint16 port, const char *arguments)
{
    auto program = std::make_unique<Program>(buscycle, QStringList{QStringLiteral("--adapter"), virtualBus(port)}
                                                           + QString::fromLatin1(arguments).split(QLatin1Char(' ')));
    program->start();
    return program;
}

// The number that a buscycle printed, -1 if it printed anything else.
int sentFrames(const QByteArray &output)
{
    static const QRegularExpression report(QStringLiteral("\\Aframes sent: ([0-9]+)\n\\z"));
    const QRegularExpressionMatch match = report.match(QString::fromLocal8Bit(output));
    return match.hasMatch() ? match.captured(1).toInt() : -1;
}

} // namespace

class TestBuscycle : public QObject, private ExamplePrograms
{
    Q_OBJECT

private Q_SLOTS:
    void theCountArrivesAsGiven_data()
    {
        QTest::addColumn<QByteArray>("arguments");
        QTest::addColumn<QByteArray>("frames");
        const auto row = [](const char *name, const char *arguments, const char *frames) {
            QTest::newRow(name) << QByteArray(arguments) << QByteArray(frames);
        };
        row("one", "--count 1 123#1122", "123#1122");
        row("three", "--count 3 --interval 5 123#1122", "123#1122 123#1122 123#1122");
        row("without pauses", "--interval 0 --count 2 7FF#", "7FF# 7FF#");
        row("extended", "--count 1 00000123#FF", "00000123#FF");
        row("remote", "--count 1 123#R4", "123#R4");
        row("FD", "--count 1 123##11122", "123##11122");
        row("options behind the frame", "321#05 --count 2 --interval 1", "321#05 321#05");
        row("counter", "--count 4 --interval 1 --sync-max 3 080#00", "080#01 080#02 080#03 080#01");
        row("counter before another byte", "--count 2 --interval 1 --sync-max 240 080#AABB", "080#01BB 080#02BB");
        row("counter up to 0", "--count 3 --interval 1 --sync-max 0 080#07", "080#01 080#01 080#01");
        row("counter up to 1", "--count 3 --interval 1 --sync-max 1 080#07", "080#01 080#01 080#01");
        row("counter in FD", "--count 2 --interval 1 --sync-max 255 080##000", "080##001 080##002");
    }
    void theCountArrivesAsGiven()
    {
        QFETCH(QByteArray, arguments);
        QFETCH(QByteArray, frames);
        const QList<QByteArray> expected = frames.split(' ');
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, {QStringLiteral("--count"), QString::number(expected.size())});
        const auto sender = cycle(port, arguments.constData());
        QCOMPARE(sender->waitForStatus(), 0);
        QCOMPARE(sender->output(), "frames sent: " + QByteArray::number(expected.size()) + '\n');
        QCOMPARE(sender->errors(), QByteArray());
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), expected);
    }

    void noPauseIsTooShort()
    {
        QElapsedTimer timer;
        timer.start();
        const auto sender = cycle(freeUdpPort(), "--count 4 --interval 200 123#");
        QCOMPARE(sender->waitForStatus(), 0);
        QVERIFY2(timer.elapsed() >= 800, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(timer.elapsed() < 30000, qPrintable(QString::number(timer.elapsed())));
    }

    void everyFrameLeavesWithoutPauses()
    {
        const auto sender = cycle(freeUdpPort(), "--count 5000 --interval 0 123#1122");
        QCOMPARE(sender->waitForStatus(), 0);
        QCOMPARE(sender->output(), QByteArray("frames sent: 5000\n"));
        QCOMPARE(sender->errors(), QByteArray());
    }

    void aSignalEndsItWithTheNumberThatLeft_data()
    {
        QTest::addColumn<int>("signal");
        QTest::addColumn<QByteArray>("arguments");
        QTest::addColumn<int>("status");
        QTest::newRow("SIGINT") << SIGINT << QByteArray("--interval 2 123#1122") << 0;
        QTest::newRow("SIGTERM") << SIGTERM << QByteArray("--interval 2 123#1122") << 0;
        QTest::newRow("SIGINT with count 0") << SIGINT << QByteArray("--count 0 --interval 2 123#1122") << 0;
        QTest::newRow("SIGINT before the count")
            << SIGINT << QByteArray("--count 4294967295 --interval 2 123#1122") << 130;
        QTest::newRow("SIGTERM before the count")
            << SIGTERM << QByteArray("--count 1000000 --interval 2 123#1122") << 143;
    }
    void aSignalEndsItWithTheNumberThatLeft()
    {
        QFETCH(int, signal);
        QFETCH(QByteArray, arguments);
        const quint16 port = freeUdpPort();
        const auto adapter = makeVirtualAdapter(port);
        const FrameRecorder recorder(adapter.get());
        QVERIFY(openOnBus(adapter.get(), PatienceMs));
        const auto sender = cycle(port, arguments.constData());
        QTRY_VERIFY_WITH_TIMEOUT(recorder.count() > 50, PatienceMs);
        QCOMPARE(sender->output(), QByteArray());
        sender->sendSignal(signal);
        QTEST(sender->waitForStatus(), "status");
        QCOMPARE(sender->errors(), QByteArray());
        const int sent = sentFrames(sender->output());
        QVERIFY2(sent > 50, sender->output().constData());
        QTRY_COMPARE_WITH_TIMEOUT(recorder.count(), sent, PatienceMs);
    }

    void aSignalEndsItWithoutPauses()
    {
        const quint16 port = freeUdpPort();
        const auto adapter = makeVirtualAdapter(port);
        const FrameRecorder recorder(adapter.get());
        QVERIFY(openOnBus(adapter.get(), PatienceMs));
        const auto sender = cycle(port, "--interval 0 123#1122");
        QTRY_VERIFY_WITH_TIMEOUT(recorder.count() > 50, PatienceMs);
        sender->sendSignal(SIGINT);
        QCOMPARE(sender->waitForStatus(), 0);
        // So fast a bus may lose frames on their way to the recorder.
        QVERIFY2(sentFrames(sender->output()) >= recorder.count(), sender->output().constData());
        QCOMPARE(sender->errors(), QByteArray());
    }

    void aPortThatCannotBeBoundIsAnError()
    {
        QUdpSocket taken;
        QVERIFY(taken.bind(QHostAddress::AnyIPv4, 0, QAbstractSocket::DontShareAddress));
        const auto sender = cycle(taken.localPort(), "123#1122");
        QCOMPARE(sender->waitForStatus(), 1);
        QCOMPARE(sender->output(), QByteArray("frames sent: 0\n"));
        const QByteArray report =
            "buscycle: virtual:" + QByteArray::number(taken.localPort()) + ": the transport of the adapter failed\n";
        QVERIFY2(sender->errors().endsWith(report), sender->errors().constData());
    }

    void outputThatCannotBeWrittenIsAnError()
    {
        Program sender(QStringLiteral("/bin/sh"),
                       {QStringLiteral("-c"), QStringLiteral("exec \"$@\" >/dev/full"), QStringLiteral("sh"), buscycle,
                        QStringLiteral("--adapter"), virtualBus(freeUdpPort()), QStringLiteral("--count"),
                        QStringLiteral("1"), QStringLiteral("123#")});
        sender.start();
        QCOMPARE(sender.waitForStatus(), 1);
        QCOMPARE(sender.errors(), QByteArray("buscycle: cannot write to standard output: No space left on device\n"));
    }

    void wrongArgumentsAreRefused_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("errors");
        const auto row = [](const char *name, const char *arguments, const QByteArray &errors) {
            QTest::newRow(name) << QString::fromLatin1(arguments).split(QLatin1Char(' '))
                                << "buscycle: " + errors + '\n';
        };
        row("no frame", "--count 1", "no frame to send, such as 123#1122");
        row("two frames", "123# 124#", "unexpected argument '124#'");
        row("empty frame", "", "no # behind the identifier: ''");
        row("damaged frame", "123#112", "odd number of payload digits: '112'");
        row("error frame", "20000004#", "an error frame cannot be sent: '20000004'");
        row("unknown adapter", "--adapter foo 123#", QByteArray("unknown adapter 'foo', expected ") + adapterForms);
        row("interval of letters", "--interval ten 123#", "--interval takes a number from 0 to 60000: 'ten'");
        row("negative interval", "--interval=-1 123#", "--interval takes a number from 0 to 60000: '-1'");
        row("interval too long", "--interval 60001 123#", "--interval takes a number from 0 to 60000: '60001'");
        row("negative count", "--count=-1 123#", "--count takes a number from 0 to 4294967295: '-1'");
        row("count too high", "--count 4294967296 123#", "--count takes a number from 0 to 4294967295: '4294967296'");
        row("limit too high", "--sync-max 256 123#00", "--sync-max takes a number from 0 to 255: '256'");
        row("limit of letters", "--sync-max all 123#00", "--sync-max takes a number from 0 to 255: 'all'");
        row("counter without a byte", "--sync-max 3 080#", "--sync-max needs a frame with a byte to count in");
        row("counter in FD without a byte", "--sync-max 3 080##1", "--sync-max needs a frame with a byte to count in");
        row("counter in a remote frame", "--sync-max 3 080#R1", "--sync-max needs a frame with a byte to count in");
    }
    void wrongArgumentsAreRefused()
    {
        QFETCH(QStringList, arguments);
        Program run(buscycle, arguments);
        run.start();
        QCOMPARE(run.waitForStatus(), 2);
        QTEST(run.errors(), "errors");
        QCOMPARE(run.output(), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestBuscycle)
#include "tst_buscycle.moc"
