// SPDX-License-Identifier: MIT
#include "common/number_argument.h"

#include <QtTest/QtTest>

#include <limits>

using Number = std::optional<quint64>;
Q_DECLARE_METATYPE(Number)

class TestNumberArgument : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void onlyDigitsAreANumber_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("base");
        QTest::addColumn<Number>("number");
        const auto row = [](const char *name, const char *text, int base, Number number) {
            QTest::newRow(name) << QString::fromUtf8(text) << base << number;
        };
        row("zero", "0", 10, 0);
        row("decimal", "4711", 10, 4711);
        row("leading zeros", "0000000000000000000000012", 10, 12);
        row("largest", "18446744073709551615", 10, std::numeric_limits<quint64>::max());
        row("too large", "18446744073709551616", 10, std::numeric_limits<quint64>::max());
        row("hexadecimal", "1aF", 16, 0x1AF);
        row("too large hexadecimal", "10000000000000000", 16, std::numeric_limits<quint64>::max());
        row("empty", "", 10, {});
        row("sign", "+1", 10, {});
        row("negative", "-1", 10, {});
        row("blank before", " 1", 10, {});
        row("blank behind", "1 ", 10, {});
        row("letter", "1A", 10, {});
        row("letter behind too many digits", "18446744073709551616x", 10, {});
        row("beyond hexadecimal", "1G", 16, {});
        row("prefix", "0x1", 16, {});
        row("digits of another script", "\u0661\u0662", 10, {});
    }
    void onlyDigitsAreANumber()
    {
        QFETCH(QString, text);
        QFETCH(int, base);
        QFETCH(Number, number);
        QVERIFY(buslink::numberOfDigits(text, base) == number);
    }

    void theLimitsBelongToTheRange_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<Number>("number");
        QTest::newRow("below") << QStringLiteral("4") << Number();
        QTest::newRow("lowest") << QStringLiteral("5") << Number(5);
        QTest::newRow("highest") << QStringLiteral("10") << Number(10);
        QTest::newRow("above") << QStringLiteral("11") << Number();
        QTest::newRow("far above") << QStringLiteral("99999999999999999999") << Number();
        QTest::newRow("no number") << QStringLiteral("six") << Number();
    }
    void theLimitsBelongToTheRange()
    {
        QFETCH(QString, text);
        QFETCH(Number, number);
        QVERIFY(buslink::numberBetween(text, 5, 10) == number);
    }
};

QTEST_GUILESS_MAIN(TestNumberArgument)
#include "tst_number_argument.moc"
