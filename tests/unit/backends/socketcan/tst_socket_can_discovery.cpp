// SPDX-License-Identifier: MIT
// How the program that knows the interfaces is run, and what is made of what it prints.
#include <BusLinkDesk/backends/socketcan/ip_program_p.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include "backends/socketcan/fake_ip.h"
#include "support/log_recorder.h"
#include "support/repeated.h"
#include "support/stderr_recorder.h"

#include <QtTest/QtTest>

#include <array>
#include <atomic>
#include <csignal>
#include <thread>

namespace {

using Types = QList<AbstractCanAdapter::CanAdapterType>;

constexpr int WaitMs = 60000;

/// What a script prints within the second that it gets. On a loaded machine that may be too little even for
/// the start of the shell, so what is expected to come is waited for through several calls.
QString shell(const char *script)
{
    return buslink::outputOfProgram(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QString::fromUtf8(script)});
}

QString shellUntil(const QString &expected, const char *script)
{
    return repeatedUntil(expected, [script] { return shell(script); });
}

const QString listArguments = QStringLiteral("-det -p link");
const QString canLink = QStringLiteral("3: can0: <NOARP,ECHO> mtu 16 ...\n    link/can  promiscuity 0\n");

} // namespace

class TestSocketCanDiscovery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void listIsMadeOfTheListingAndTheDetailsOfEachLink()
    {
        const FakeIp ip({{listArguments, canLink + QStringLiteral("4: can1: <>\n link/can\n5: can2: <>\n link/can\n")},
                         {QStringLiteral("-d link show can1"), QStringLiteral("pcan_usb: tseg1")},
                         {QStringLiteral("-d link show can2"), QStringLiteral("systec and pcan")}});
        QCOMPARE(SocketCanAdapter::getDeviceList({}),
                 (QStringList{QStringLiteral("can0"), QStringLiteral("can1 | PEAK"), QStringLiteral("can2 | SysTec")}));
        QCOMPARE(ip.asked(), (QStringList{listArguments, QStringLiteral("-d link show can0"),
                                          QStringLiteral("-d link show can1"), QStringLiteral("-d link show can2")}));
        QCOMPARE(SocketCanAdapter::getDeviceList({AbstractCanAdapter::CanAdapterType(16)}),
                 QStringList{QStringLiteral("can1 | PEAK")});
        QCOMPARE(SocketCanAdapter::getDeviceList({AbstractCanAdapter::CanAdapterTypeSocketCan}), QStringList());
    }

    void silentProgramGivesTheUsualNamesUnlessAFilterIsSet()
    {
        const FakeIp ip({});
        QCOMPARE(SocketCanAdapter::getDeviceList({}).join(QLatin1Char(' ')),
                 QStringLiteral("can0 can1 can2 vcan0 vcan1 vcan2"));
        QCOMPARE(SocketCanAdapter::getDeviceList({AbstractCanAdapter::CanAdapterType(7)}), QStringList());
        QCOMPARE(ip.asked(), (QStringList{listArguments, listArguments}));
    }

    void propertiesAreThoseOfTheInterfaceBeforeTheLabel()
    {
        const FakeIp ip({{QStringLiteral("-det link show can0"),
                          QStringLiteral("restart-ms 100 \n bitrate 500000 sample-point 0.875\n"
                                         " dbitrate 2000000 dsample-point 0.75\n")}});
        const AbstractCanAdapter::SocketCANProps props =
            SocketCanAdapter::getSocketCanProps(QStringLiteral(" can0 | PEAK"));
        QCOMPARE(props.isFd, true);
        QCOMPARE(props.bitrate, quint16(500));
        QCOMPARE(props.dbitrate, quint16(2000));
        QCOMPARE(props.restartMs, quint16(100));
        QCOMPARE(SocketCanAdapter::getBitrateOfDevice(QStringLiteral("can0 | PEAK")), QStringLiteral("500"));
        QCOMPARE(ip.asked(),
                 (QStringList{QStringLiteral("-det link show can0"), QStringLiteral("-det link show can0")}));
    }

    void interfaceWithoutRatesHasNone()
    {
        const FakeIp ip({{QStringLiteral("-det link show vcan0"), QStringLiteral("mtu 16 link/can vcan")}});
        const auto props = SocketCanAdapter::getSocketCanProps(QStringLiteral("vcan0"));
        QCOMPARE(props.isFd, false);
        QCOMPARE(props.bitrate, quint16(0));
        QCOMPARE(props.dbitrate, quint16(0));
        QCOMPARE(props.restartMs, quint16(0));
        QCOMPARE(SocketCanAdapter::getBitrateOfDevice(QStringLiteral("vcan0")), QString());
    }

    void realProgramAnswersSilently()
    {
        const LogRecorder log;
        const StderrRecorder errors;
        const QStringList arguments{QStringLiteral("link"), QStringLiteral("show"), QStringLiteral("lo")};
        const auto isFound = [&] { return buslink::outputOfIp(arguments).contains(QLatin1String("link/loopback")); };
        QVERIFY(repeatedUntil(true, isFound));
        QVERIFY(!SocketCanAdapter::getDeviceList({}).isEmpty());
        QCOMPARE(SocketCanAdapter::getDeviceList({AbstractCanAdapter::CanAdapterTypeSocketCan}), QStringList());
        QCOMPARE(SocketCanAdapter::getSocketCanProps(QStringLiteral("lo")).bitrate, quint16(0));
        QCOMPARE(SocketCanAdapter::getBitrateOfDevice(QStringLiteral("no-such-link")), QString());
        QVERIFY(log.records().isEmpty());
        QCOMPARE(errors.text(), QByteArray());
    }

    void outputIsTakenWhateverTheProgramEndsWith()
    {
        QCOMPARE(shellUntil(QStringLiteral("out\n"), "echo out; echo err >&2; exit 3"), QStringLiteral("out\n"));
        QCOMPARE(shellUntil(QStringLiteral("one"), "printf 'one\\000two'"), QStringLiteral("one"));
        QCOMPARE(shellUntil(QString::fromUtf8("caf\u00e9"), "printf 'caf\\303\\251'"), QString::fromUtf8("caf\u00e9"));
        QCOMPARE(shell("kill -9 $$"), QString());
    }

    // One that is closed would end the wait for a line.
    void standardInputStaysOpen()
    {
        QCOMPARE(shellUntil(QStringLiteral("begun\n"), "echo begun; read -r line; echo ended"),
                 QStringLiteral("begun\n"));
    }

    void outputLargerThanAPipeIsTakenWhole()
    {
        QString expected;
        for (int number = 1; number <= 50000; ++number)
            expected += QString::number(number) + QLatin1Char('\n');
        QVERIFY(shellUntil(expected, "seq 1 50000") == expected); // Too long to be shown.
    }

    void missingProgramPrintsNothingAndIsNotLogged()
    {
        const LogRecorder log;
        const StderrRecorder errors;
        QCOMPARE(buslink::outputOfProgram(QStringLiteral("/nowhere/ip"), {}), QString());
        QVERIFY(log.records().isEmpty());
        QCOMPARE(errors.text(), QByteArray());
    }

    void hangingProgramIsGivenUpAndEnded()
    {
        const LogRecorder log;
        QElapsedTimer timer;
        timer.start();
        QString output;
        do
            output = shell("echo $$; exec sleep 600");
        while (output.isEmpty() && timer.elapsed() < WaitMs);
        QVERIFY(timer.elapsed() < WaitMs);
        QVERIFY(output.endsWith(QLatin1Char('\n')));
        const auto process = static_cast<pid_t>(output.trimmed().toInt());
        QVERIFY(process > 0);
        QCOMPARE(::kill(process, 0), -1);
        QVERIFY(log.records().isEmpty());
    }

    void programsRunOnSeveralThreadsAtOnce()
    {
        std::array<std::thread, 4> threads;
        std::atomic<int> good = 0;
        for (std::thread &thread : threads)
            thread = std::thread([&good] {
                QElapsedTimer timer;
                timer.start();
                bool seen = false;
                while (!seen && timer.elapsed() < WaitMs)
                    seen = shell("echo x") == QLatin1String("x\n");
                good += seen ? 1 : 0;
            });
        for (std::thread &thread : threads)
            thread.join();
        QCOMPARE(good.load(), 4);
    }
};

QTEST_GUILESS_MAIN(TestSocketCanDiscovery)
#include "tst_socket_can_discovery.moc"
