// SPDX-License-Identifier: MIT
// Discovery by the real program, and by stand-ins for it that print what cannot be had here.
#include "socketcan_guest.h"
#include "support/repeated.h"

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>

#include <algorithm>
#include <csignal>
#include <net/if.h>

namespace {

using Props = AbstractCanAdapter::SocketCANProps;
using Types = QList<AbstractCanAdapter::CanAdapterType>;

/// The script of a stand-in that only looks on.
const QByteArray realProgram = R"($real "$@")";

constexpr auto peak = AbstractCanAdapter::CanAdapterType(16);

const QStringList usualNames{QStringLiteral("can0"),  QStringLiteral("can1"),  QStringLiteral("can2"),
                             QStringLiteral("vcan0"), QStringLiteral("vcan1"), QStringLiteral("vcan2")};

bool hasControllers()
{
    return qgetenv("BUSLINKDESK_GUEST") != "direct";
}

QVector<int> numbersOf(const char *device)
{
    const Props props = SocketCanAdapter::getSocketCanProps(QString::fromLatin1(device));
    return {props.isFd ? 1 : 0, props.bitrate, props.dbitrate, props.restartMs};
}

QString rateOf(const char *device)
{
    return SocketCanAdapter::getBitrateOfDevice(QString::fromLatin1(device));
}

QStringList devicesOf(const Types &types)
{
    return SocketCanAdapter::getDeviceList(types);
}

/// The names of the CAN interfaces as the kernel gives them, in the order of their numbers.
QStringList namesOfTheKernel()
{
    QVector<QPair<unsigned int, QString>> numbered;
    const QStringList all = QDir(QStringLiteral("/sys/class/net")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &name : all) {
        QFile type(QStringLiteral("/sys/class/net/%1/type").arg(name));
        if (type.open(QIODevice::ReadOnly) && type.readAll().trimmed() == "280")
            numbered.append({::if_nametoindex(qPrintable(name)), name});
    }
    std::sort(numbered.begin(), numbered.end());
    QStringList names;
    for (const auto &one : numbered)
        names.append(one.second);
    return names;
}

/// Puts a program in the place of /sbin/ip while it lives, which keeps what it was asked. Mounted over it, so that
/// a machine's own file is never changed. In its script $real is the program that it stands in for.
class StandIn
{
public:
    explicit StandIn(const QByteArray &script, bool executable = true)
        : mProgram(QFileInfo(QStringLiteral("/sbin/ip")).canonicalFilePath())
    {
        const QString real = mFolder.filePath(QStringLiteral("real"));
        QFile file(mFolder.filePath(QStringLiteral("ip")));
        const QByteArray text = "#!/bin/sh\nreal=" + real.toUtf8() + "\nlog=" + logName().toUtf8()
                                + "\necho \"$*\" >>$log\n" + script + "\necho answered >>$log\n";
        if (!QFile::copy(mProgram, real) || !file.open(QIODevice::WriteOnly) || file.write(text) < 0)
            qFatal("no stand-in");
        file.close();
        file.setPermissions(QFile::ReadOwner | (executable ? QFile::ExeOwner : QFile::ReadOwner));
        if (!shell(QStringLiteral("mount --bind %1 %2").arg(file.fileName(), mProgram)).isEmpty())
            qFatal("the stand-in takes no place");
    }
    ~StandIn() { shell(QStringLiteral("umount -l %1").arg(mProgram)); }
    StandIn(const StandIn &) = delete;
    StandIn &operator=(const StandIn &) = delete;

    /// What it was asked in the last attempt, its arguments, with the word "answered" behind each that it came to
    /// the end of.
    QByteArrayList asked() const
    {
        QFile file(logName());
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().split('\n') : QByteArrayList();
    }

    /// The result of a call for which every run of the program came to its end. On a slow machine the second that a
    /// run gets may be too little, so the call is made again then.
    template <typename Call>
    auto answerTo(Call call) const
    {
        decltype(call()) result;
        const bool answered = QTest::qWaitFor(
            [&] {
                QFile::remove(logName());
                result = call();
                const QByteArrayList lines = asked();
                return lines.size() >= 2 && lines.count("answered") * 2 == lines.size();
            },
            WaitMs);
        if (!answered)
            qFatal("the program never answered in time");
        return result;
    }

private:
    QString logName() const { return mFolder.filePath(QStringLiteral("log")); }

    QTemporaryDir mFolder;
    QString mProgram;
};

} // namespace

class TestSocketCanDiscovery : public QObject
{
    Q_OBJECT

private:
    bool mInterfacesChanged = false;

    QString change(const char *command)
    {
        mInterfacesChanged = true;
        return shell(QString::fromLatin1(command));
    }

private Q_SLOTS:
    void cleanup()
    {
        if (mInterfacesChanged)
            QCOMPARE(shell(QFINDTESTDATA("set_up_interfaces")), QString());
        mInterfacesChanged = false;
    }

    void everyCanInterfaceIsListed()
    {
        if (!hasControllers())
            QSKIP("no controllers");
        const QStringList names = namesOfTheKernel();
        QCOMPARE(names.size(), 4);
        QCOMPARE(repeatedUntil(names, [] { return devicesOf({}); }), names);
        const StandIn program(realProgram);
        QCOMPARE(program.answerTo([] { return devicesOf({peak}); }), QStringList());
        QCOMPARE(program.answerTo([] { return devicesOf({AbstractCanAdapter::CanAdapterTypeSocketCan}); }),
                 QStringList());
    }

    void linksOfOtherKindsAreNotListed()
    {
        QCOMPARE(change("ip link add br0 type bridge && ip link add veth0 type veth peer name veth1"
                        " && ip link set veth0 master br0 && ip link add dummy0 type dummy"
                        " && ip link property add dev vcan0 altname engine"
                        " && ip link set vcan1 down && ip link set vcan1 name body"),
                 QString());
        QStringList names;
        QVERIFY(repeatedUntil(true, [&names] {
            names = devicesOf({});
            return names.contains(QStringLiteral("body"));
        }));
        QCOMPARE(change("ip link del br0; ip link del veth0; ip link del dummy0"), QString());
        QCOMPARE(names.filter(QRegularExpression(QStringLiteral("br0|veth|dummy|engine"))), QStringList());
        QVERIFY(names.contains(QStringLiteral("vcan0")));
    }

    void linkWithAPeerIsListedAsTheProgramNamesIt()
    {
        QCOMPARE(change("ip link add dev left type vxcan peer name right"), QString());
        for (const QString &device : {QStringLiteral("left@right"), QStringLiteral("right@left")})
            QVERIFY(repeatedUntil(true, [&device] { return devicesOf({}).contains(device); }));
    }

    void withoutCanInterfacesTheUsualNamesAreGiven()
    {
        const StandIn standIn("echo '1: lo: <LOOPBACK>'; echo '    link/loopback'; trap 'exit 1' EXIT");
        QCOMPARE(standIn.answerTo([] { return devicesOf({}); }), usualNames);
        QCOMPARE(standIn.answerTo([] { return devicesOf({peak}); }), QStringList());
        QCOMPARE(standIn.asked(), (QByteArrayList{"-det -p link", "answered"}));
    }

    void controllerTellsItsRates()
    {
        if (!hasControllers())
            QSKIP("no controllers");
        QCOMPARE(repeatedUntil(QVector<int>{0, 500, 0, 100}, [] { return numbersOf("can0"); }),
                 (QVector<int>{0, 500, 0, 100}));
        QCOMPARE(repeatedUntil(QVector<int>{0, 500, 0, 100}, [] { return numbersOf(" can0 | PEAK"); }),
                 (QVector<int>{0, 500, 0, 100}));
        QCOMPARE(repeatedUntil(QStringLiteral("500"), [] { return rateOf("can0"); }), QStringLiteral("500"));
        QCOMPARE(change("ip link set can0 down"), QString());
        QCOMPARE(repeatedUntil(QVector<int>{0, 500, 0, 100}, [] { return numbersOf("can0"); }),
                 (QVector<int>{0, 500, 0, 100}));
        QCOMPARE(change("ip link set can0 type can bitrate 83333 restart-ms 0"), QString());
        QCOMPARE(repeatedUntil(QVector<int>{0, 83, 0, 0}, [] { return numbersOf("can0"); }),
                 (QVector<int>{0, 83, 0, 0}));
        QCOMPARE(repeatedUntil(QStringLiteral("83"), [] { return rateOf("can0"); }), QStringLiteral("83"));
        QCOMPARE(change("ip link set can0 type can bitrate 125000 restart-ms 1500 && ip link set can0 up"), QString());
        QCOMPARE(repeatedUntil(QVector<int>{0, 125, 0, 1500}, [] { return numbersOf("can0"); }),
                 (QVector<int>{0, 125, 0, 1500}));
    }

    void virtualInterfaceTellsCanFdAndNoRates()
    {
        const StandIn program(realProgram);
        QCOMPARE(program.answerTo([] { return numbersOf("vcan0"); }), (QVector<int>{1, 0, 0, 0}));
        QCOMPARE(program.answerTo([] { return rateOf("vcan0"); }), QString());
        QCOMPARE(change("ip link set vcan0 down && ip link set vcan0 mtu 16"), QString());
        QCOMPARE(program.answerTo([] { return numbersOf("vcan0"); }), (QVector<int>{0, 0, 0, 0}));
    }

    void otherInterfacesTellNothing()
    {
        const StandIn program(realProgram);
        QCOMPARE(program.answerTo([] { return numbersOf("lo"); }), (QVector<int>{0, 0, 0, 0}));
        QCOMPARE(program.answerTo([] { return numbersOf("nothing0"); }), (QVector<int>{0, 0, 0, 0}));
        QCOMPARE(program.answerTo([] { return rateOf("nothing0"); }), QString());
        QCOMPARE(program.asked(), (QByteArrayList{"-det link show nothing0", "answered"}));
    }

    void outputLargerThanAPipeIsReadToItsEnd()
    {
        const StandIn standIn("seq 1 50000; printf '3: can7: <>\\n    link/can \\n'");
        QCOMPARE(standIn.answerTo([] { return devicesOf({}); }), QStringList{QStringLiteral("can7")});
    }

    void programIsRunWithItsArgumentsAndItsMakersAreTold()
    {
        const StandIn standIn(R"(case $* in
"-det -p link") printf '3: can0: <>\n    link/can \n4: can1: <>\n    link/can \n5: can2: <>\n    link/can \n' ;;
"-d link show can0") echo 'pcan_usb_fd: tseg1 1..256' ;;
"-d link show can1") echo 'PCAN' ;;
"-d link show can2") echo 'ixxat_usb systec_can' ;;
"-det link show can0") printf 'restart-ms 100 \n bitrate 500000 sample-point 0.875\n dbitrate 2000000 dsample-point 0.75' ;;
esac
)");
        const QString can0 = QStringLiteral("can0 | PEAK");
        const QString can2 = QStringLiteral("can2 | SysTec");
        const QByteArrayList listing{"-det -p link",      "answered", "-d link show can0", "answered",
                                     "-d link show can1", "answered", "-d link show can2", "answered"};
        const QByteArrayList one{"-det link show can0", "answered"};
        QCOMPARE(standIn.answerTo([] { return devicesOf({}); }), (QStringList{can0, QStringLiteral("can1"), can2}));
        QCOMPARE(standIn.asked(), listing);
        QCOMPARE(standIn.answerTo([] { return devicesOf({peak}); }), QStringList{can0});
        QCOMPARE(standIn.asked(), listing);
        QCOMPARE(standIn.answerTo([] { return numbersOf("can0 | PEAK"); }), (QVector<int>{1, 500, 2000, 100}));
        QCOMPARE(standIn.asked(), one);
        QCOMPARE(standIn.answerTo([] { return rateOf("can0 | PEAK"); }), QStringLiteral("500"));
        QCOMPARE(standIn.asked(), one);
    }

    void hangingProgramIsGivenUpAndEnded()
    {
        const QTemporaryDir folder;
        const QString number = folder.filePath(QStringLiteral("number"));
        const StandIn standIn("echo $$ >" + number.toUtf8()
                              + "; echo 'bitrate 250000 sample-point'; exec sleep 3000\n");
        const LogRecorder log;
        QElapsedTimer timer;
        timer.start();
        // What came before the time was over counts.
        QCOMPARE(repeatedUntil(QStringLiteral("250"), [] { return rateOf("can0"); }), QStringLiteral("250"));
        QVERIFY(timer.elapsed() >= 1000);
        QVERIFY(timer.elapsed() < 2LL * WaitMs);
        QFile file(number);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const auto process = static_cast<pid_t>(file.readAll().trimmed().toInt());
        QVERIFY(process > 0);
        QCOMPARE(::kill(process, 0), -1);
        QVERIFY(log.records().isEmpty());
    }

    void programThatCannotBeStartedIsSilent()
    {
        const StandIn standIn("", false);
        const LogRecorder log;
        const StderrRecorder errors;
        QCOMPARE(SocketCanAdapter::getDeviceList({}), usualNames);
        QCOMPARE(SocketCanAdapter::getDeviceList({peak}), QStringList());
        QCOMPARE(numbersOf("can0"), (QVector<int>{0, 0, 0, 0}));
        QCOMPARE(rateOf("can0"), QString());
        QVERIFY(log.records().isEmpty());
        QCOMPARE(errors.text(), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestSocketCanDiscovery)
#include "tst_socketcan_discovery.moc"
