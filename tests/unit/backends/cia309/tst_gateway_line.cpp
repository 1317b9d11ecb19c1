// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/cia309/gateway_line_p.h>

#include <QtTest/QtTest>

class TestGatewayLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lineIsNumberBlankCommandAndLineFeed_data()
    {
        QTest::addColumn<short>("number");
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QByteArray>("line");
        const auto row = [](const char *name, int number, const char *command, const char *line) {
            QTest::newRow(name) << static_cast<short>(number) << QByteArray(command) << QByteArray(line);
        };
        row("single letter", 0, "x", "[0] x\n");
        row("next one", 1, "x", "[1] x\n");
        row("no leading zeros, no group signs", 1234, "1 start", "[1234] 1 start\n");
        row("largest number", 32767, "info version", "[32767] info version\n");
        row("empty command", 5, "", "[5] \n");
        row("blanks and carriage returns stay", 5, "  a \r", "[5]   a \r\n");
        row("line feeds stay", 5, "a\nb\n", "[5] a\nb\n\n");
        row("UTF-8", 7, "\xC3\xBC \xE2\x82\xAC \xF0\x9F\x9A\x97", "[7] \xC3\xBC \xE2\x82\xAC \xF0\x9F\x9A\x97\n");
        row("%1 becomes the number", 12, "a %1 b %1", "[12] a 12 b 12\n");
        row("%2 stays", 12, "a %2", "[12] a %2\n");
        row("%01 is %1", 12, "%01", "[12] 12\n");
        row("%10 stays", 12, "%10", "[12] %10\n");
        row("%0 is lower and goes first", 12, "a %0", "[%1] a 12\n");
        row("no marker", 12, "100 % of %x, 5%", "[12] 100 % of %x, 5%\n");
    }
    void lineIsNumberBlankCommandAndLineFeed()
    {
        QFETCH(short, number);
        QFETCH(QByteArray, command);
        QFETCH(QByteArray, line);
        QCOMPARE(buslink::gatewayLine(number, QString::fromUtf8(command)).toUtf8(), line);
    }

    void numbersGoUpToTheLargestAndThenFromZero()
    {
        short number = 0;
        for (int expected = 1; expected <= 32767; ++expected) {
            number = buslink::nextGatewayNumber(number);
            QCOMPARE(int(number), expected);
        }
        QCOMPARE(int(buslink::nextGatewayNumber(number)), 0);
    }

    void textEndsAtTheFirstZeroByte_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("text");
        QTest::newRow("nothing") << QByteArray() << QString();
        QTest::newRow("a line") << QByteArray("[0] OK\r\n") << QStringLiteral("[0] OK\r\n");
        QTest::newRow("zero in the middle") << QByteArray("[0] O\0K\n", 8) << QStringLiteral("[0] O");
        QTest::newRow("zero first") << QByteArray("\0[0] OK\n", 8) << QString();
        QTest::newRow("zero last") << QByteArray("[0]\0", 4) << QStringLiteral("[0]");
        QTest::newRow("UTF-8") << QByteArray("\xC3\xBC\xE2\x82\xAC") << QStringLiteral(u"\u00FC\u20AC");
        QTest::newRow("no UTF-8") << QByteArray("a\xFF"
                                                "b")
                                  << QStringLiteral(u"a\uFFFDb");
        QTest::newRow("half a character") << QByteArray("a\xC3") << QStringLiteral(u"a\uFFFD");
    }
    void textEndsAtTheFirstZeroByte()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QString, text);
        QCOMPARE(buslink::gatewayText(bytes), text);
    }

    void textDoesNotReadPastTheBytes()
    {
        // No zero byte follows these four.
        const char bytes[] = {'a', 'b', 'c', 'd', 'e', 'f'};
        QCOMPARE(buslink::gatewayText(QByteArray::fromRawData(bytes, 4)), QStringLiteral("abcd"));
    }
};

QTEST_APPLESS_MAIN(TestGatewayLine)
#include "tst_gateway_line.moc"
