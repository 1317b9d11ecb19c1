// SPDX-License-Identifier: MIT
#include "integration/example_programs.h"

#include <QtTest/QtTest>

#include <csignal>

namespace {

const QByteArray everyKind = "(1) can0 0FF#01\n(1) can0 100#02\n(1) can0 123#05\n(1) can0 00000123#06\n"
                             "(1) can0 123#R2\n(1) can0 1FF##107\n(1) can0 200#08\n(1) can0 1FFFFFFF#09\n"
                             "(1) can0 7FE#\n";

} // namespace

class TestBusdumpIds : public QObject, private ExamplePrograms
{
    Q_OBJECT

private Q_SLOTS:
    void onlyFramesOfTheIdentifiersArePrinted_data()
    {
        QTest::addColumn<QString>("ids");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char *name, const char *ids, const char *expected) {
            QTest::newRow(name) << QString::fromLatin1(ids) << QByteArray(expected);
        };
        row("one", "123", "123#05 00000123#06 123#R2");
        row("range with both its ends", "100-1FF", "100#02 123#05 00000123#06 123#R2 1FF##107");
        row("range of one", "200-200", "200#08");
        row("several", "0FF 200 1FFFFFFF", "0FF#01 200#08 1FFFFFFF#09");
        row("nothing", "7FF", "");
        row("range behind 11 bits", "1FFFFFF0-1FFFFFFF", "1FFFFFFF#09");
        row("overlap prints once", "100-1FF 123 120-200 123", "100#02 123#05 00000123#06 123#R2 1FF##107 200#08");
        row("small letters", "0ff", "0FF#01");
    }
    void onlyFramesOfTheIdentifiersArePrinted()
    {
        QFETCH(QString, ids);
        QFETCH(QByteArray, expected);
        QStringList arguments;
        for (const QString &id : ids.split(QLatin1Char(' ')))
            arguments += {QStringLiteral("--id"), id};
        // The last frame is for the identifier that ends the recording.
        arguments += {QStringLiteral("--id"), QStringLiteral("7FE")};
        const quint16 port = freeUdpPort();
        const auto dump = listen(port, arguments);
        const auto player = play(port, {QStringLiteral("--fast"), writeFile(everyKind)});
        QCOMPARE(player->waitForStatus(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(dump->output().endsWith("7FE#\n"), PatienceMs);
        QList<QByteArray> frames = expected.isEmpty() ? QList<QByteArray>() : expected.split(' ');
        frames.append("7FE#");
        dump->sendSignal(SIGINT);
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), frames);
        QCOMPARE(dump->errors(), QByteArray());
    }

    void theCountIsOfPrintedFrames()
    {
        const quint16 port = freeUdpPort();
        const auto dump = listen(
            port, {QStringLiteral("--id"), QStringLiteral("123"), QStringLiteral("--count"), QStringLiteral("2")});
        const auto player = play(port, {QStringLiteral("--fast"), writeFile(everyKind)});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), (QList<QByteArray>{"123#05", "00000123#06"}));
    }

    void aHundredThousandIdentifiersWork()
    {
        const quint16 port = freeUdpPort();
        const auto dump = listen(
            port, {QStringLiteral("--id"), QStringLiteral("0-1869F"), QStringLiteral("--count"), QStringLiteral("2")});
        const auto player = play(port, {QStringLiteral("--fast"),
                                        writeFile("(1) can0 0001869F#01\n(1) can0 000186A0#02\n(1) can0 000#03\n")});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(framesOf(dump->output()), (QList<QByteArray>{"0001869F#01", "000#03"}));
    }
};

QTEST_GUILESS_MAIN(TestBusdumpIds)
#include "tst_busdump_ids.moc"
