// SPDX-License-Identifier: MIT
#include "common/line_splitter.h"

#include <QtTest/QtTest>

using buslink::LineSplitter;

namespace {

// The complete lines so far; a line that was too long is shown as "<too long>".
QList<QByteArray> linesOf(LineSplitter &splitter)
{
    QList<QByteArray> lines;
    while (const std::optional<LineSplitter::Line> line = splitter.next())
        lines.append(line->tooLong ? QByteArray("<too long>") + QByteArray::fromStdString(line->text)
                                   : QByteArray::fromStdString(line->text));
    return lines;
}

const std::string longest(LineSplitter::LineSizeMax, 'x');

} // namespace

class TestLineSplitter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void linesComeInOrderWithEmptyOnes()
    {
        LineSplitter splitter;
        splitter.add("one\n\ntwo\n");
        QCOMPARE(linesOf(splitter), (QList<QByteArray>{"one", "", "two"}));
    }

    void aLineWaitsForItsEnd()
    {
        LineSplitter splitter;
        splitter.add("on");
        QCOMPARE(linesOf(splitter), QList<QByteArray>());
        splitter.add("e\ntw");
        QCOMPARE(linesOf(splitter), QList<QByteArray>{"one"});
        splitter.add("o\n");
        QCOMPARE(linesOf(splitter), QList<QByteArray>{"two"});
    }

    void theEndCompletesTheLastLine()
    {
        LineSplitter splitter;
        splitter.add("one\ntwo");
        splitter.end();
        QCOMPARE(linesOf(splitter), (QList<QByteArray>{"one", "two"}));
        QCOMPARE(linesOf(splitter), QList<QByteArray>());
    }

    void theEndBehindALineFeedAddsNoLine()
    {
        LineSplitter splitter;
        splitter.add("one\n");
        splitter.end();
        QCOMPARE(linesOf(splitter), QList<QByteArray>{"one"});
    }

    void anEmptyStreamHasNoLine()
    {
        LineSplitter splitter;
        splitter.end();
        QCOMPARE(linesOf(splitter), QList<QByteArray>());
    }

    void theLongestLineIsKeptAndALongerOneIsNot()
    {
        LineSplitter splitter;
        splitter.add(longest + '\n');
        splitter.add(longest + "x\nnext\n");
        QCOMPARE(linesOf(splitter), (QList<QByteArray>{QByteArray::fromStdString(longest), "<too long>", "next"}));
    }

    void aLineOfManyPiecesThatIsTooLongIsOneLine()
    {
        LineSplitter splitter;
        for (int i = 0; i < 5; ++i) {
            splitter.add(longest + 'x');
            QCOMPARE(linesOf(splitter), QList<QByteArray>());
        }
        splitter.add("rest\nnext\n");
        QCOMPARE(linesOf(splitter), (QList<QByteArray>{"<too long>", "next"}));
    }

    void aLineThatIsTooLongMayEndTheStream()
    {
        LineSplitter splitter;
        splitter.add(longest + 'x');
        QCOMPARE(linesOf(splitter), QList<QByteArray>());
        splitter.end();
        QCOMPARE(linesOf(splitter), QList<QByteArray>{"<too long>"});
        QCOMPARE(linesOf(splitter), QList<QByteArray>());
    }
};

QTEST_APPLESS_MAIN(TestLineSplitter)
#include "tst_line_splitter.moc"
