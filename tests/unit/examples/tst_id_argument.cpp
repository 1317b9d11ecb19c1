// SPDX-License-Identifier: MIT
#include "busdump/id_argument.h"

#include <QtTest/QtTest>

using buslink::IdArgument;
using buslink::IdRange;
using Ranges = std::vector<IdRange>;
Q_DECLARE_METATYPE(Ranges)

namespace {

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

QString textOf(const Ranges &ranges)
{
    QString text;
    for (const IdRange &range : ranges)
        text += QStringLiteral("%1-%2 ").arg(range.first, 0, 16).arg(range.last, 0, 16);
    return text;
}

} // namespace

class TestIdArgument : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void identifiersAndRangesAreRead_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<Ranges>("ranges");
        const auto row = [](const char *name, const char *arguments, const Ranges &ranges) {
            QTest::newRow(name) << words(arguments) << ranges;
        };
        QTest::newRow("none") << QStringList() << Ranges();
        row("an identifier", "123", {{0x123, 0x123}});
        row("lowest", "0", {{0, 0}});
        row("highest", "1FFFFFFF", {{0x1FFFFFFF, 0x1FFFFFFF}});
        row("small letters", "1abcdef", {{0x1ABCDEF, 0x1ABCDEF}});
        row("leading zeros", "0000000000000007FF", {{0x7FF, 0x7FF}});
        row("range", "100-1FF", {{0x100, 0x1FF}});
        row("range of one", "5-5", {{5, 5}});
        row("range up to the highest", "1FFFFFFE-1FFFFFFF", {{0x1FFFFFFE, 0x1FFFFFFF}});
        row("as many as there may be", "0-F423F", {{0, 999999}});
        row("several", "300 100-1FF 7", {{7, 7}, {0x100, 0x1FF}, {0x300, 0x300}});
        row("twice the same", "5 5", {{5, 5}});
        row("inside a range", "100-1FF 123", {{0x100, 0x1FF}});
        row("overlap", "180-2FF 100-1FF", {{0x100, 0x2FF}});
        row("common end", "100-1FF 1FF-2FF", {{0x100, 0x2FF}});
        row("neighbours", "100-1FF 200-2FF", {{0x100, 0x1FF}, {0x200, 0x2FF}});
        row("one range around two", "10-1F 30-3F 0-FF", {{0, 0xFF}});
        row("as many as there may be, twice", "0-F423F 0-F423F", {{0, 999999}});
    }
    void identifiersAndRangesAreRead()
    {
        QFETCH(QStringList, arguments);
        QFETCH(Ranges, ranges);
        const IdArgument result = buslink::parseIds(arguments);
        QCOMPARE(result.error, QString());
        QCOMPARE(textOf(result.ranges), textOf(ranges));
    }

    void rangesMayBeAsWideAsTheyAre()
    {
        const IdArgument result = buslink::parseIdRanges(words("10-1FFFFFFF 0-F"));
        QCOMPARE(result.error, QString());
        QCOMPARE(textOf(result.ranges), textOf({{0, 0xF}, {0x10, 0x1FFFFFFF}}));
        // What is wrong comes before what is too much.
        QVERIFY(buslink::parseIds(words("0-1FFFFFFF wrong")).error.contains(QStringLiteral("'wrong'")));
    }

    void wrongArgumentsAreExplained_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error");
        const auto row = [](const char *name, const char *arguments, const QString &error) {
            QTest::newRow(name) << words(arguments) << error;
        };
        const auto form = [row](const char *name, const char *argument) {
            row(name, argument,
                QStringLiteral("--id takes a hexadecimal identifier or a range such as 100-1FF: '%1'")
                    .arg(QLatin1String(argument)));
        };
        const auto above = [row](const char *name, const char *argument) {
            row(name, argument,
                QStringLiteral("--id: no identifier is above 1FFFFFFF: '%1'").arg(QLatin1String(argument)));
        };
        const auto tooMany = [row](const char *name, const char *arguments, int identifiers) {
            row(name, arguments,
                QStringLiteral("--id: %1 identifiers, but each costs memory, and 1000000 are the most")
                    .arg(identifiers));
        };
        form("empty", "");
        form("not hexadecimal", "12G");
        form("prefix", "0x123");
        form("negative", "-5");
        form("no upper end", "100-");
        form("only a dash", "-");
        form("three ends", "100-1FF-2FF");
        form("upper end not hexadecimal", "100-1FG");
        form("list", "100,200");
        row("wrong behind right", "123 xyz",
            QStringLiteral("--id takes a hexadecimal identifier or a range such as 100-1FF: 'xyz'"));
        above("above the highest", "20000000");
        above("range beyond the highest", "1FFFFFFF-20000000");
        above("range far beyond the highest", "0-FFFFFFFF");
        above("beyond every number", "FFFFFFFFFFFFFFFFFFFFFFFF");
        row("backwards", "1FF-100", QStringLiteral("--id: the lower end of a range comes first: '1FF-100'"));
        tooMany("one too many", "0-F4240", 1000001);
        tooMany("all", "0-1FFFFFFF", 536870912);
        tooMany("too many together", "0-7FFFF 100000-17FFFF", 1048576);
    }
    void wrongArgumentsAreExplained()
    {
        QFETCH(QStringList, arguments);
        QTEST(buslink::parseIds(arguments).error, "error");
    }
};

QTEST_GUILESS_MAIN(TestIdArgument)
#include "tst_id_argument.moc"
