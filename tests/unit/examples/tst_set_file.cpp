// SPDX-License-Identifier: MIT
#include "bussets/set_file.h"
#include "support/file_content.h"

#include <QtTest/QtTest>

using buslink::SavedAdapter;
using buslink::SetFile;

namespace {

QVector<SavedAdapter> someAdapters()
{
    return {{6, QStringLiteral("zorbek Virtual"), 0, QByteArray("\x00\x01\xFF", 3)},
            {4, QString::fromUtf8("/dev/\u00e4 \"0\""), 250, QByteArray(300, 'x')}};
}

} // namespace

class TestSetFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatIsSavedIsRead()
    {
        for (const QVector<SavedAdapter> &adapters : {QVector<SavedAdapter>(), someAdapters()}) {
            const SetFile file = buslink::decodeSet(buslink::encodeSet(adapters));
            QCOMPARE(file.error, QString());
            QVERIFY(file.adapters == adapters);
        }
    }

    void everyTruncationIsRefused()
    {
        const QByteArray bytes = buslink::encodeSet(someAdapters()).trimmed();
        for (int size = 0; size < bytes.size(); ++size) {
            const SetFile file = buslink::decodeSet(bytes.left(size));
            QVERIFY2(!file.error.isEmpty() && file.adapters.isEmpty(), qPrintable(QString::number(size)));
        }
    }

    void changedBytesAreRefusedOrMeanTheSame()
    {
        const QByteArray bytes = buslink::encodeSet(someAdapters());
        for (int position = 0; position < bytes.size(); ++position) {
            for (const int bit : {0, 1, 4, 6, 7}) {
                QByteArray damaged = bytes;
                damaged[position] = static_cast<char>(damaged.at(position) ^ 1 << bit);
                const SetFile file = buslink::decodeSet(damaged);
                // White space may change; what a file says may not.
                QVERIFY2(file.error.isEmpty() ? file.adapters == someAdapters() : file.adapters.isEmpty(),
                         qPrintable(QStringLiteral("%1 bit %2").arg(position).arg(bit)));
            }
        }
    }

    void reasonsAreTold_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QString>("error");
        QTest::newRow("empty") << QByteArray() << QStringLiteral("no set of adapters: illegal value at byte 0");
        QTest::newRow("other JSON") << QByteArray("{}") << QStringLiteral("no set of adapters");
        QTest::newRow("an array") << QByteArray("[1]") << QStringLiteral("no set of adapters");
        QTest::newRow("later version") << buslink::encodeSet({}).replace("\"version\": 1", "\"version\": 2")
                                       << QStringLiteral("version 2 of the format is not known here");
        QTest::newRow("changed type") << buslink::encodeSet(someAdapters()).replace("\"type\": 6", "\"type\": 1")
                                      << QStringLiteral("damaged: the checksum is not that of the adapters");
    }
    void reasonsAreTold()
    {
        QFETCH(QByteArray, bytes);
        QTEST(buslink::decodeSet(bytes).error, "error");
    }

    void missingFileIsAnEmptySet()
    {
        const QTemporaryDir folder;
        const SetFile file = buslink::loadSet(folder.filePath(QStringLiteral("none")));
        QCOMPARE(file.error, QString());
        QVERIFY(file.adapters.isEmpty());
    }

    void fileThatIsTooLargeForASetIsNotRead()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("large"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.resize((1 << 26) + 1)); // takes no room on the disk
        QCOMPARE(buslink::loadSet(path).error, QStringLiteral("no set of adapters: too large"));
    }

    void fileIsReplacedAsAWholeOrNotAtAll()
    {
        const QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("set"));
        QCOMPARE(buslink::saveSet(path, {}), QString());
        QCOMPARE(buslink::saveSet(path, someAdapters()), QString());
        QVERIFY(buslink::loadSet(path).adapters == someAdapters());
        QCOMPARE(contentOf(path), buslink::encodeSet(someAdapters()));
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList{QStringLiteral("set")});

        // Whoever has the old file open goes on reading the old set.
        QFile old(path);
        QVERIFY(old.open(QIODevice::ReadOnly));
        QCOMPARE(buslink::saveSet(path, {}), QString());
        QCOMPARE(old.readAll(), buslink::encodeSet(someAdapters()));
        QCOMPARE(contentOf(path), buslink::encodeSet({}));

        QVERIFY(!buslink::saveSet(folder.filePath(QStringLiteral("no folder/set")), {}).isEmpty());
        QVERIFY(!buslink::loadSet(folder.path()).error.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestSetFile)
#include "tst_set_file.moc"
