// SPDX-License-Identifier: MIT
#include "example_programs.h"

#include "support/file_content.h"
#include "support/traced_program.h"

#include <csignal>

class TestBussets : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        mFolder = std::make_unique<QTemporaryDir>();
        mPath = mFolder->filePath(QStringLiteral("my.bussets"));
    }

    void setComesBackWithOrderAndRoles()
    {
        QCOMPARE(run({"list"}), 0);
        QCOMPARE(mOutput, QByteArray("no adapters\n"));
        QVERIFY(!QFile::exists(mPath));

        QCOMPARE(run({"--adapter", "virtual:47001", "add", "on the table"}), 0);
        QCOMPARE(run({"--adapter", "usb:ttyUSB3", "--baudrate", "9600", "add"}), 0);
        QCOMPARE(run({"--adapter", "cia309:gateway:1234", "add", "hall 2"}), 0);
        QCOMPARE(run({"--adapter", "can4linux:/dev/can1", "--bitrate", "250", "add"}), 0);
        QCOMPARE(run({"--adapter", "socketcan:can7", "add"}), 0);
        QCOMPARE(run({"up", "3"}), 0);
        QCOMPARE(run({"down", "1"}), 0);
        QCOMPARE(run({"primary", "4"}), 0);
        QCOMPARE(run({"active", "5"}), 0);
        QCOMPARE(run({"inactive", "2"}), 0);
        QCOMPARE(run({"remove", "3"}), 0);
        QCOMPARE(mErrors, QByteArray());
        QCOMPARE(run({"list"}), 0);
        QCOMPARE(mOutput, QByteArray("   id  role     type            device                description\n"
                                     "    1  -        CiA 309-3       gateway:1234          hall 2\n"
                                     "    2  -        zorbek Virtual  port 47001            on the table\n"
                                     "    4  primary  can4linux       /dev/can1             \n"
                                     "    5  active   SocketCAN       can7|                 \n"));
        const QByteArray content = contentOf(mPath);
        QVERIFY(content.contains("\"bitrate\": 250"));

        // Restoring and saving again changes nothing.
        QCOMPARE(run({"active", "5"}), 0);
        QCOMPARE(contentOf(mPath), content);
    }

    void whatCannotBeDoneLeavesTheFileAlone_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("error");
        QTest::newRow("unknown adapter") << words({"remove", "9"}) << QByteArray("there is no adapter 9");
        QTest::newRow("no number") << words({"up", "x"}) << QByteArray("there is no adapter x");
        QTest::newRow("first up") << words({"up", "1"}) << QByteArray("adapter 1 cannot be moved further");
        QTest::newRow("last down") << words({"down", "1"}) << QByteArray("adapter 1 cannot be moved further");
        QTest::newRow("primary stays active") << words({"inactive", "1"}) << QByteArray("adapter 1 is the primary one");
        QTest::newRow("the same again") << words({"--adapter", "virtual:47001", "add"})
                                        << QByteArray("an adapter like that is in the set");
    }

    void whatCannotBeDoneLeavesTheFileAlone()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, error);
        QCOMPARE(run({"--adapter", "virtual:47001", "add"}), 0);
        const QByteArray before = contentOf(mPath);
        QCOMPARE(run(arguments), 1);
        QCOMPARE(mErrors, "bussets: " + error + '\n');
        QCOMPARE(mOutput, QByteArray());
        QCOMPARE(contentOf(mPath), before);
    }

    void wrongArgumentsAreRefused_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("error");
        QTest::newRow("none") << QStringList() << QByteArray("no command: ''");
        QTest::newRow("unknown") << words({"show"}) << QByteArray("no command: 'show'");
        QTest::newRow("no identifier") << words({"remove"}) << QByteArray("no command: 'remove'");
        QTest::newRow("list of something") << words({"list", "1"}) << QByteArray("no command: 'list 1'");
        QTest::newRow("adapter") << words({"--adapter", "usb:", "add"})
                                 << QByteArray("'' is no serial port, as ttyUSB0");
        QTest::newRow("useless") << words({"--bitrate", "250", "add"})
                                 << QByteArray("--bitrate cannot be set for virtual");
    }

    void wrongArgumentsAreRefused()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, error);
        QCOMPARE(run(arguments), 2);
        QVERIFY2(mErrors.startsWith("bussets: " + error + '\n'), mErrors.constData());
        QVERIFY(!QFile::exists(mPath));
    }

    void damagedFileIsRefusedAndLeftUntouched()
    {
        QCOMPARE(run({"--adapter", "virtual:47001", "add"}), 0);
        QByteArray damaged = contentOf(mPath);
        damaged.replace("\"type\": 6", "\"type\": 1");
        QFile file(mPath);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(damaged);
        file.close();
        for (const QStringList &arguments : {words({"list"}), words({"remove", "1"}), words({"add"})}) {
            QCOMPARE(run(arguments), 1);
            QCOMPARE(mErrors,
                     "bussets: " + mPath.toLocal8Bit() + ": damaged: the checksum is not that of the adapters\n");
            QCOMPARE(contentOf(mPath), damaged);
        }
    }

    void sameDeviceIsNotTakenTwice()
    {
        for (const char *adapter : {"can4linux:/dev/can1", "socketcan:can1", "usb:ttyUSB1", "cia309:gateway"}) {
            QCOMPARE(run(words({"--adapter", adapter, "add"})), 0);
            QCOMPARE(run(words({"--adapter", adapter, "add"})), 1);
            QVERIFY2(mErrors.endsWith(" has the same device\n"), mErrors.constData());
        }
        QCOMPARE(run({"--adapter", "cia309:gateway:99", "add"}), 0);
    }

    void twoGatewaysMayBeActiveAtOnce()
    {
        QCOMPARE(run({"--adapter", "cia309:gateway", "add"}), 0);
        QCOMPARE(run({"--adapter", "cia309:gateway:99", "add"}), 0);
        QCOMPARE(run({"active", "1"}), 0);
        QCOMPARE(run({"active", "2"}), 0);
        QCOMPARE(mErrors, QByteArray());
        QCOMPARE(run({"list"}), 0);
        QCOMPARE(mOutput, QByteArray("   id  role     type            device                description\n"
                                     "    1  primary  CiA 309-3       gateway:45674         \n"
                                     "    2  active   CiA 309-3       gateway:99            \n"));
    }

    void fileThatCannotBeWrittenIsReported()
    {
        mPath = mFolder->filePath(QStringLiteral("none/my.bussets"));
        QCOMPARE(run({"--adapter", "virtual", "add"}), 1);
        QVERIFY2(mErrors.startsWith("bussets: " + mPath.toLocal8Bit() + ": "), mErrors.constData());
    }

    // In a name space of its own, on a file system of two pages of which the old file and a filler take one each.
    void fullDiskLeavesTheOldFile()
    {
        QCOMPARE(run({"--adapter", "virtual:47001", "add"}), 0);
        const QString script = QStringLiteral("mount -t tmpfs -o size=8k none \"$1\" || exit 90\n"
                                              "cp \"$2\" \"$1/set\" || exit 91\n"
                                              "head -c 4096 /dev/zero >\"$1/filler\" || exit 92\n"
                                              "\"$0\" --file \"$1/set\" --adapter virtual:47002 add\n"
                                              "status=$?\n"
                                              "ls -A \"$1\"\n"
                                              "cmp \"$1/set\" \"$2\" || exit 93\n"
                                              "exit $status");
        const QTemporaryDir disk;
        Program shell(QStringLiteral("unshare"),
                      {QStringLiteral("--map-root-user"), QStringLiteral("--mount"), QStringLiteral("sh"),
                       QStringLiteral("-c"), script, bussets, disk.path(), mPath});
        shell.start();
        const int status = shell.waitForStatus();
        if (shell.errors().contains("unshare") || status == 90)
            QSKIP("a full disk: name spaces are not allowed here");
        QCOMPARE(shell.errors(),
                 "bussets: " + disk.filePath(QStringLiteral("set")).toLocal8Bit() + ": No space left on device\n");
        QCOMPARE(status, 1);
        QCOMPARE(shell.output(), QByteArray("filler\nset\n"));
    }

    void limitOfTheFileSizeLeavesTheOldFile_data()
    {
        QTest::addColumn<QString>("disposition");
        QTest::addColumn<int>("status");
        QTest::newRow("the write fails") << QStringLiteral("trap '' XFSZ; ") << 1;
        QTest::newRow("the signal ends the program") << QString() << -1;
    }
    void limitOfTheFileSizeLeavesTheOldFile()
    {
        QFETCH(QString, disposition);
        QFETCH(int, status);
        QCOMPARE(run({"--adapter", "virtual:47001", "add"}), 0);
        const QByteArray before = contentOf(mPath);
        QVERIFY(before.size() > 1024);
        // 1024 bytes.
        Program shell(
            QStringLiteral("sh"),
            {QStringLiteral("-c"),
             disposition + QStringLiteral("ulimit -f 2; exec \"$0\" --file \"$1\" --adapter virtual:47002 add"),
             bussets, mPath});
        shell.start();
        QCOMPARE(shell.waitForStatus(), status);
        QCOMPARE(contentOf(mPath), before);
    }

    void signalWhileSavingLeavesOneOfTheTwoSets_data()
    {
        QTest::addColumn<int>("signal");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGKILL") << SIGKILL;
    }
    void signalWhileSavingLeavesOneOfTheTwoSets()
    {
        QFETCH(int, signal);
        // What finds leaks at the end of a program cannot be traced.
        const QByteArray options = qgetenv("ASAN_OPTIONS");
        qputenv("ASAN_OPTIONS", options + ":detect_leaks=0");
        const auto restored = qScopeGuard([&options] {
            if (options.isNull())
                qunsetenv("ASAN_OPTIONS");
            else
                qputenv("ASAN_OPTIONS", options);
        });
        QCOMPARE(run({"--adapter", "virtual:47001", "add"}), 0);
        const QByteArray before = contentOf(mPath);
        QCOMPARE(run({"--adapter", "virtual:47002", "add"}), 0);
        const QByteArray after = contentOf(mPath);
        int old = 0;
        int stop = 0;
        for (;; ++stop) {
            QFile file(mPath);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(before) == before.size());
            file.close();
            const TracedEnd end = signalWhileSaving(bussets,
                                                    {QStringLiteral("--file"), mPath, QStringLiteral("--adapter"),
                                                     QStringLiteral("virtual:47002"), QStringLiteral("add")},
                                                    stop, signal);
            const QByteArray content = contentOf(mPath);
            QVERIFY2(content == before || content == after, qPrintable(QString::number(stop)));
            if (end == TracedEnd::Finished)
                break;
            QCOMPARE(end, TracedEnd::Signalled);
            old += content == before ? 1 : 0;
        }
        QCOMPARE(contentOf(mPath), after);
        // The replacement lies in between.
        QVERIFY2(old > 4 && old < stop, qPrintable(QStringLiteral("%1 of %2").arg(old).arg(stop)));
    }

private:
    static QStringList words(std::initializer_list<const char *> literals)
    {
        QStringList list;
        for (const char *literal : literals)
            list.append(QString::fromUtf8(literal));
        return list;
    }

    int run(std::initializer_list<const char *> arguments) { return run(words(arguments)); }

    int run(const QStringList &arguments)
    {
        Program program(bussets, QStringList{QStringLiteral("--file"), mPath} + arguments);
        program.start();
        const int status = program.waitForStatus();
        mOutput = program.output();
        mErrors = program.errors();
        return status;
    }

    std::unique_ptr<QTemporaryDir> mFolder;
    QString mPath;
    QByteArray mOutput;
    QByteArray mErrors;
};

QTEST_GUILESS_MAIN(TestBussets)
#include "tst_bussets.moc"
