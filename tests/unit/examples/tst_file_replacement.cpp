// SPDX-License-Identifier: MIT
#include "common/file_replacement.h"
#include "support/file_content.h"
#include "support/file_size_limit.h"

#include <QtTest/QtTest>

using buslink::FileReplacement;

class TestFileReplacement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        mFolder = std::make_unique<QTemporaryDir>();
        mPath = mFolder->filePath(QStringLiteral("file"));
        FileReplacement file(mPath);
        QVERIFY(file.write("old") && file.write(" content"));
        QCOMPARE(file.commit(), QString());
        QCOMPARE(contentOf(mPath), QByteArray("old content"));
    }

    void theOldContentStaysUntilTheNewOneIsWhole()
    {
        FileReplacement file(mPath);
        QVERIFY(file.write("new"));
        QCOMPARE(contentOf(mPath), QByteArray("old content"));
        QCOMPARE(file.commit(), QString());
        QCOMPARE(contentOf(mPath), QByteArray("new"));
        QCOMPARE(files(), QStringList{QStringLiteral("file")});
    }

    void whatIsGivenUpLeavesNothingBehind()
    {
        {
            FileReplacement file(mPath);
            QVERIFY(file.write("new"));
        }
        QCOMPARE(contentOf(mPath), QByteArray("old content"));
        QCOMPARE(files(), QStringList{QStringLiteral("file")});
    }

    void withoutRoomTheOldContentStays_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("count");
        QTest::addColumn<bool>("taken");
        QTest::newRow("told by the flush at the end") << 10 << 200 << true;
        QTest::newRow("told by a write in between") << 1000 << 100 << false;
        QTest::newRow("told by the only write") << 100000 << 1 << false;
    }

    void withoutRoomTheOldContentStays()
    {
        QFETCH(int, size);
        QFETCH(int, count);
        QString error;
        bool taken = true;
        {
            const FileSizeLimit limit(1024);
            FileReplacement file(mPath);
            for (int i = 0; i < count; ++i)
                taken = file.write(QByteArray(size, 'x'));
            error = file.commit();
        }
        QTEST(taken, "taken");
        QCOMPARE(error, QStringLiteral("File too large"));
        QCOMPARE(contentOf(mPath), QByteArray("old content"));
        QCOMPARE(files(), QStringList{QStringLiteral("file")});
    }

    // Room that comes back would otherwise leave a gap within.
    void nothingIsTakenBehindAGap()
    {
        FileReplacement file(mPath);
        {
            const FileSizeLimit limit(1024);
            QVERIFY(!file.write(QByteArray(100000, 'x')));
        }
        QVERIFY(!file.write("y"));
        QCOMPARE(file.commit(), QStringLiteral("File too large"));
        QCOMPARE(contentOf(mPath), QByteArray("old content"));
    }

    void aFolderThatIsMissingIsTold()
    {
        FileReplacement file(mFolder->filePath(QStringLiteral("none/file")));
        QVERIFY(!file.write("new"));
        QCOMPARE(file.commit(), QStringLiteral("No such file or directory"));
    }

private:
    QStringList files() const { return QDir(mFolder->path()).entryList(QDir::Files | QDir::Hidden); }

    std::unique_ptr<QTemporaryDir> mFolder;
    QString mPath;
};

QTEST_GUILESS_MAIN(TestFileReplacement)
#include "tst_file_replacement.moc"
