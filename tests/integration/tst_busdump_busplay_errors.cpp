// SPDX-License-Identifier: MIT
#include "integration/example_programs.h"

#include <QtCore/QRegularExpression>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

#include <linux/can.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

bool kernelHasCan()
{
    const int probe = ::socket(PF_CAN, SOCK_RAW, CAN_RAW);
    if (probe < 0)
        return false;
    ::close(probe);
    return true;
}

} // namespace

class TestBusdumpBusplayErrors : public QObject, private ExamplePrograms
{
    Q_OBJECT

private Q_SLOTS:
    void aPortThatCannotBeBoundIsAnError_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QString>("report");
        QTest::newRow("busdump") << busdump << QByteArray()
                                 << QStringLiteral("busdump: virtual:%1: the transport of the adapter failed\n");
        const QString report = QStringLiteral("busplay: virtual:%1: the transport of the adapter failed; "
                                              "0 of [0-9]+ accepted frames were sent\n");
        QTest::newRow("busplay") << busplay << countingLog(3, 0) << report;
        QTest::newRow("busplay with nothing to play") << busplay << QByteArray() << report;
    }
    void aPortThatCannotBeBoundIsAnError()
    {
        QFETCH(QString, program);
        QFETCH(QByteArray, input);
        QFETCH(QString, report);
        QUdpSocket taken;
        QVERIFY(taken.bind(QHostAddress::AnyIPv4, 0, QAbstractSocket::DontShareAddress));
        Program run(program, {QStringLiteral("--adapter"), virtualBus(taken.localPort())});
        run.start();
        run.write(input);
        run.endInput();
        QCOMPARE(run.waitForStatus(), 1);
        QCOMPARE(run.output(), QByteArray());
        const QRegularExpression expected(
            QStringLiteral("\\Avirtual void DemoCanAdapter::run\\(\\) could not bind UDP demo interface on port %1 : "
                           "\"The bound address is already in use\"\n")
                .arg(taken.localPort())
            + report.arg(taken.localPort()) + QStringLiteral("\\z"));
        QVERIFY2(expected.match(QString::fromLocal8Bit(run.errors())).hasMatch(), run.errors().constData());
    }

    void anInterfaceThatIsNotThereIsAnError_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("more");
        QTest::addColumn<QByteArray>("output");
        QTest::addColumn<QByteArray>("behindTheReason");
        QTest::newRow("busdump") << busdump << QStringLiteral("--count=1") << QByteArray() << QByteArray();
        QTest::newRow("busplay") << busplay << QStringLiteral("-") << QByteArray()
                                 << QByteArray("; 0 of 0 accepted frames were sent");
        QTest::newRow("buscycle") << buscycle << QStringLiteral("123#") << QByteArray("frames sent: 0\n")
                                  << QByteArray();
    }
    void anInterfaceThatIsNotThereIsAnError()
    {
        QFETCH(QString, program);
        QFETCH(QString, more);
        QFETCH(QByteArray, output);
        QFETCH(QByteArray, behindTheReason);
        const QByteArray reason =
            kernelHasCan() ? "SIOCGIFINDEX: No such device\n" : "socket: Address family not supported by protocol\n";
        Program run(program, {QStringLiteral("--adapter"), QStringLiteral("socketcan:nothing0"), more});
        run.start();
        QCOMPARE(run.waitForStatus(), 1);
        QCOMPARE(run.errors(), reason + QTest::currentDataTag()
                                   + ": socketcan:nothing0: the adapter could not be opened" + behindTheReason + '\n');
        QCOMPARE(run.output(), output);
    }

    void aMachineWithoutCanHasNoInterfacesToList()
    {
        if (kernelHasCan())
            QSKIP("this machine's kernel has CAN");
        Program list(busdump, {QStringLiteral("--list")});
        list.start();
        QCOMPARE(list.waitForStatus(), 0);
        QVERIFY2(list.output().startsWith("no CAN interfaces found\n\nOTHER ADAPTERS"), list.output().constData());
        QVERIFY(list.output().contains("\nvirtual[:port]"));
        QCOMPARE(list.errors(), QByteArray());
    }

    void wrongArgumentsAreRefused_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("errors");
        const auto row = [](const char *name, const QString &program, const char *arguments, const QByteArray &errors) {
            QTest::newRow(name) << program << QString::fromLatin1(arguments).split(QLatin1Char(' ')) << errors + '\n';
        };
        row("busdump: unknown adapter", busdump, "--adapter foo",
            QByteArray("busdump: unknown adapter 'foo', expected ") + adapterForms);
        row("busplay: unknown adapter", busplay, "--adapter foo -",
            QByteArray("busplay: unknown adapter 'foo', expected ") + adapterForms);
        row("port out of range", busdump, "--adapter virtual:65536",
            "busdump: '65536' is no port, which is a number from 1 to 65535");
        row("no adapter", busdump, "--adapter", "busdump: Missing value after '--adapter'.");
        row("unknown option", busplay, "--slow", "busplay: Unknown option 'slow'.");
        row("two files", busplay, "- more", "busplay: unexpected argument 'more'");
        row("a file for busdump", busdump, "file", "busdump: unexpected argument 'file'");
        row("count 0", busdump, "--count 0", "busdump: --count takes a number from 1: '0'");
        row("negative count", busdump, "--count=-1", "busdump: --count takes a number from 1: '-1'");
        row("count of letters", busdump, "--count ten", "busdump: --count takes a number from 1: 'ten'");
        row("identifier of letters", busdump, "--id xyz",
            "busdump: --id takes a hexadecimal identifier or a range such as 100-1FF: 'xyz'");
        row("identifier too high", busdump, "--id 20000000",
            "busdump: --id: no identifier is above 1FFFFFFF: '20000000'");
        row("range backwards", busdump, "--id 7 --id 1FF-100",
            "busdump: --id: the lower end of a range comes first: '1FF-100'");
        row("list and another option", busdump, "--list --count 1", "busdump: --list goes with no other option");
        row("list by busplay", busplay, "--list", "busplay: Unknown option 'list'.");
        row("too many identifiers", busdump, "--id 0-1FFFFFFF",
            "busdump: --id: 536870912 identifiers, but each costs memory, and 1000000 are the most");
    }
    void wrongArgumentsAreRefused()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        Program run(program, arguments);
        run.start();
        QCOMPARE(run.waitForStatus(), 2);
        QTEST(run.errors(), "errors");
        QCOMPARE(run.output(), QByteArray());
    }

    void aFileThatCannotBeReadIsAnError_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("errors");
        QTest::newRow("missing") << QStringLiteral("/nowhere/missing.log")
                                 << QByteArray(
                                        "busplay: cannot open /nowhere/missing.log: No such file or directory\n");
        QTest::newRow("folder") << QStringLiteral("/")
                                << QByteArray("busplay: virtual:%1: cannot read /: Is a directory; "
                                              "0 of 0 accepted frames were sent\n");
    }
    void aFileThatCannotBeReadIsAnError()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, errors);
        const quint16 port = freeUdpPort();
        const auto player = play(port, {path});
        QCOMPARE(player->waitForStatus(), 1);
        QCOMPARE(player->errors(), errors.replace("%1", QByteArray::number(port)));
    }

    void helpAndVersionAreAnswers_data()
    {
        QTest::addColumn<QString>("program");
        QTest::newRow("buscycle") << buscycle;
        QTest::newRow("busdump") << busdump;
        QTest::newRow("busplay") << busplay;
    }
    void helpAndVersionAreAnswers()
    {
        QFETCH(QString, program);
        Program help(program, {QStringLiteral("--help")});
        help.start();
        QCOMPARE(help.waitForStatus(), 0);
        QVERIFY2(help.output().contains("Exit status:\n  0 "), help.output().constData());
        QVERIFY2(help.output().simplified().contains(QByteArray("--adapter <adapter> Adapter: ") + adapterForms + '.'),
                 help.output().constData());
        QCOMPARE(help.errors(), QByteArray());
        Program version(program, {QStringLiteral("--version")});
        version.start();
        QCOMPARE(version.waitForStatus(), 0);
        QCOMPARE(version.output(), QByteArray(QTest::currentDataTag()) + " " PROGRAM_VERSION "\n");
        QCOMPARE(version.errors(), QByteArray());
    }

    void aReaderThatGoesAwayEndsBusdumpInPeace()
    {
        const quint16 port = freeUdpPort();
        Program dump(busdump, {QStringLiteral("--adapter"), virtualBus(port)});
        Program reader(QStringLiteral("/usr/bin/head"), {QStringLiteral("-n1")});
        dump.process().setStandardOutputProcess(&reader.process());
        startListening(dump, port);
        reader.start();
        const auto player = play(port, {QStringLiteral("--fast"), writeFile(countingLog(1, 0))});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(reader.waitForStatus(), 0);
        QCOMPARE(framesOf(reader.output()), QList<QByteArray>{"00000000#"});
        QCOMPARE(dump.waitForStatus(), 0);
        QCOMPARE(dump.errors(), QByteArray());
    }

    void aListThatCannotBeWrittenIsAnError()
    {
        Program list(QStringLiteral("/bin/sh"),
                     {QStringLiteral("-c"), QStringLiteral("exec \"$0\" --list >/dev/full"), busdump});
        list.start();
        QCOMPARE(list.waitForStatus(), 1);
        QCOMPARE(list.errors(), QByteArray("busdump: cannot write to standard output: No space left on device\n"));
    }

    void outputThatCannotBeWrittenIsAnError_data()
    {
        QTest::addColumn<QString>("redirection");
        QTest::addColumn<QByteArray>("reason");
        QTest::newRow("closed") << QStringLiteral(">&-") << QByteArray("Bad file descriptor");
        QTest::newRow("full") << QStringLiteral(">/dev/full") << QByteArray("No space left on device");
    }
    void outputThatCannotBeWrittenIsAnError()
    {
        QFETCH(QString, redirection);
        QFETCH(QByteArray, reason);
        const quint16 port = freeUdpPort();
        Program dump(QStringLiteral("/bin/sh"),
                     {QStringLiteral("-c"), QStringLiteral("exec \"$@\" ") + redirection, QStringLiteral("sh"), busdump,
                      QStringLiteral("--adapter"), virtualBus(port)});
        startListening(dump, port);
        const auto player = play(port, {QStringLiteral("--fast"), writeFile(countingLog(1, 0))});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(dump.waitForStatus(), 1);
        QCOMPARE(dump.errors(), "busdump: cannot write to standard output: " + reason + '\n');
    }
};

QTEST_GUILESS_MAIN(TestBusdumpBusplayErrors)
#include "tst_busdump_busplay_errors.moc"
