// SPDX-License-Identifier: MIT
#include "example_programs.h"

namespace {

const QString bussets = QStringLiteral(BUSSETS_PROGRAM);

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

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

    void fileThatCannotBeWrittenIsReported()
    {
        mPath = mFolder->filePath(QStringLiteral("none/my.bussets"));
        QCOMPARE(run({"--adapter", "virtual", "add"}), 1);
        QVERIFY2(mErrors.startsWith("bussets: " + mPath.toLocal8Bit() + ": "), mErrors.constData());
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
