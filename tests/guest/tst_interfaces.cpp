// SPDX-License-Identifier: MIT
// What the tests in a guest take for granted: the interfaces, and peers that are none of ours.
#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtTest/QtTest>

#include <memory>

namespace {

constexpr int WaitMs = 60000;

struct Result
{
    int status;
    QByteArray output;
};

Result run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForFinished(WaitMs) || process.exitStatus() != QProcess::NormalExit)
        return {-1, process.readAll()};
    return {process.exitCode(), process.readAll()};
}

QByteArray fileContent(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The lines of "ip" for one interface, from the second on: the first holds an index that counts on.
QList<QByteArray> linkLines(const char *name)
{
    const Result shown = run(QStringLiteral("ip"), {QStringLiteral("-det"), QStringLiteral("link"),
                                                    QStringLiteral("show"), QString::fromLatin1(name)});
    QList<QByteArray> lines;
    for (const QByteArray &line : shown.output.split('\n'))
        lines << line.simplified();
    return shown.status == 0 ? lines.mid(1) : QList<QByteArray>();
}

bool hasControllers()
{
    return qgetenv("BUSLINKDESK_GUEST") != "direct";
}

} // namespace

class TestInterfaces : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<QProcess> listen(const QString &interface)
    {
        auto listener = std::make_unique<QProcess>();
        listener->start(QStringLiteral("candump"), {QStringLiteral("-n"), QStringLiteral("1"), interface});
        return listener;
    }

    static bool isHeard(const QString &interface)
    {
        return fileContent(QStringLiteral("/proc/net/can/rcvlist_all")).contains(' ' + interface.toLatin1() + ' ');
    }

private Q_SLOTS:
    void theRunnerSaysWhereTheTestRuns()
    {
        const QByteArray where = qgetenv("BUSLINKDESK_GUEST");
        QVERIFY2(where == "qemu" || where == "direct", where.constData());
    }

    void everyInterfaceHasItsFrameSize_data()
    {
        QTest::addColumn<QByteArray>("mtu");
        QTest::newRow("can0") << QByteArray("16\n");
        QTest::newRow("can1") << QByteArray("16\n");
        QTest::newRow("vcan0") << QByteArray("72\n");
        QTest::newRow("vcan1") << QByteArray("72\n");
    }

    void everyInterfaceHasItsFrameSize()
    {
        QFETCH(QByteArray, mtu);
        QCOMPARE(fileContent(QStringLiteral("/sys/class/net/%1/mtu").arg(QLatin1String(QTest::currentDataTag()))), mtu);
    }

    void aFrameArrivesAtAnIndependentPeer_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<QString>("frame");
        QTest::addColumn<QByteArray>("dumped");
        const auto row = [](const char *name, const char *from, const char *to, const char *frame, const char *dumped) {
            QTest::newRow(name) << QString::fromLatin1(from) << QString::fromLatin1(to) << QString::fromLatin1(frame)
                                << QByteArray(dumped);
        };
        row("controller to controller", "can0", "can1", "123#1122", "can1 123 [2] 11 22");
        row("and back, extended", "can1", "can0", "1ABCDEF0#01", "can0 1ABCDEF0 [1] 01");
        row("virtual, FD", "vcan0", "vcan0", "321##1112233445566778899AABBCC",
            "vcan0 321 [12] 11 22 33 44 55 66 77 88 99 AA BB CC");
    }

    void aFrameArrivesAtAnIndependentPeer()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(QString, frame);
        QFETCH(QByteArray, dumped);
        const auto listener = listen(to);
        QTRY_VERIFY_WITH_TIMEOUT(isHeard(to), WaitMs);
        const Result sent = run(QStringLiteral("cansend"), {from, frame});
        QCOMPARE(sent.output, QByteArray());
        QCOMPARE(sent.status, 0);
        QVERIFY(listener->waitForFinished(WaitMs));
        QCOMPARE(listener->readAll().simplified(), dumped);
    }

    void aControllerHasABitRate()
    {
        if (!hasControllers())
            QSKIP("this machine's own kernel is used, which has no emulated controllers");
        const QList<QByteArray> lines = linkLines("can0");
        QVERIFY(lines.size() > 2);
        QVERIFY2(lines[0].startsWith("link/can"), lines[0].constData());
        QCOMPARE(lines[1], QByteArray("can state ERROR-ACTIVE (berr-counter tx 0 rx 0) restart-ms 100"));
        QCOMPARE(lines[2], QByteArray("bitrate 500000 sample-point 0.875"));
    }

    void theFirstStateComesBackAfterAnyChange()
    {
        const QString network = QStringLiteral("/sys/class/net/");
        const QList<QByteArray> before = linkLines("can0") + linkLines("can1") + linkLines("vcan1");
        const QString change = QStringLiteral("ip link del vcan1 && ip link set vcan0 down"
                                              " && ip link set vcan0 mtu 16"
                                              " && ip link add other type vcan && ip link set can0 down"
                                              " && ip link set can0 name renamed");
        const Result changed = run(QStringLiteral("sh"), {QStringLiteral("-c"), change});
        QCOMPARE(changed.output, QByteArray());
        if (hasControllers()) {
            const QString rate = QStringLiteral("ip link set renamed type can bitrate 125000 listen-only on");
            QCOMPARE(run(QStringLiteral("sh"), {QStringLiteral("-c"), rate}).output, QByteArray());
        }

        const Result restored = run(QFINDTESTDATA("set_up_interfaces"), {});
        QCOMPARE(restored.output, QByteArray());
        QCOMPARE(restored.status, 0);
        QVERIFY(!QFile::exists(network + QStringLiteral("other")));
        QVERIFY(!QFile::exists(network + QStringLiteral("renamed")));
        QCOMPARE(linkLines("can0") + linkLines("can1") + linkLines("vcan1"), before);
        QCOMPARE(fileContent(network + QStringLiteral("vcan0/mtu")), QByteArray("72\n"));
    }
};

QTEST_GUILESS_MAIN(TestInterfaces)
#include "tst_interfaces.moc"
