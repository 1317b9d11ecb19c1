// SPDX-License-Identifier: MIT
// The example programs on CAN interfaces, with the programs of others as their peers.
#include "raw_can_socket.h"
#include "support/program.h"
#include "support/repeated.h"

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>

namespace {

constexpr int WaitMs = 60000;
const QString busdump = QStringLiteral(BUSDUMP_PROGRAM);
const QString busplay = QStringLiteral(BUSPLAY_PROGRAM);
const QString buscycle = QStringLiteral(BUSCYCLE_PROGRAM);

/// What the adapter logs as it is opened and its loop begins.
const QByteArray recordsOfTheLibrary = "virtual CAN::RetType SocketCanAdapter::open() Line: 429 rcvbuf_size 1000000\n"
                                       "newState:  \"0\"\n";

QStringList words(const char *text)
{
    return QString::fromLatin1(text).split(QLatin1Char(' '));
}

std::unique_ptr<Program> started(const QString &path, const QStringList &arguments)
{
    auto program = std::make_unique<Program>(path, arguments);
    program->start();
    return program;
}

/// Starts a program that receives, and waits until it hears the interface.
std::unique_ptr<Program> listening(const QString &path, const QStringList &arguments, const char *interface = "vcan0")
{
    auto program = started(path, arguments);
    const auto hears = [interface] {
        QFile listeners(QStringLiteral("/proc/net/can/rcvlist_all"));
        return listeners.open(QIODevice::ReadOnly) && listeners.readAll().contains(' ' + QByteArray(interface) + ' ');
    };
    if (!QTest::qWaitFor(hears, WaitMs))
        qFatal("%s does not listen", qPrintable(path));
    return program;
}

/// The lines of a log without their time stamps. Of the flags of CAN FD frames those that a recording has are left:
/// some kernels mark such frames by one more.
QStringList linesOf(const QByteArray &log)
{
    static const QRegularExpression stamp(QStringLiteral("\\A\\(\\d+\\.\\d{6}\\) "));
    static const QRegularExpression flags(QStringLiteral("##([0-9A-F])"));
    QStringList lines = QString::fromLatin1(log).trimmed().split(QLatin1Char('\n'));
    for (QString &line : lines) {
        line = line.contains(stamp) ? line.remove(stamp) : QStringLiteral("no time stamp: ") + line;
        const QRegularExpressionMatch match = flags.match(line);
        if (match.hasMatch())
            line.replace(match.capturedStart(1), 1, QString::number(match.captured(1).toInt(nullptr, 16) & 3));
    }
    return lines;
}

QStringList linesOfFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? linesOf(file.readAll()) : QStringList();
}

} // namespace

class TestExamplePrograms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup()
    {
        if (mInterfacesChanged)
            QCOMPARE(shell(QFINDTESTDATA("set_up_interfaces")), QString());
        mInterfacesChanged = false;
    }

    void framesOfAPeerArePrinted()
    {
        const auto dump = listening(busdump, words("--adapter socketcan:vcan0 --count 6"));
        for (const char *frame :
             {"123#1122", "1ABCDEF0#R", "7FF#R4", "321##0112233445566778899AABBCC", "00000321##3AABB", "001#"})
            QCOMPARE(shell(QStringLiteral("cansend vcan0 ") + QLatin1String(frame)), QString());
        QCOMPARE(dump->waitForStatus(), 0);
        const QStringList expected{
            QStringLiteral("vcan0 123#1122"),        QStringLiteral("vcan0 1ABCDEF0#R"),
            QStringLiteral("vcan0 7FF#R4"),          QStringLiteral("vcan0 321##0112233445566778899AABBCC"),
            QStringLiteral("vcan0 00000321##3AABB"), QStringLiteral("vcan0 001#")};
        QCOMPARE(linesOf(dump->output()), expected);
        QVERIFY2(dump->output().startsWith("("), dump->output().constData());
        QVERIFY(dump->output().mid(1).split('.').constFirst().toInt() < 600); // Counted from the program's start.
    }

    void chosenIdentifiersArePrintedAlone()
    {
        const auto dump = listening(busdump, words("--adapter socketcan:vcan0 --count 2 --id 100-1FF"));
        QCOMPARE(shell(QStringLiteral("for frame in 0FF#00 100#01 200#02 1FF#03; do cansend vcan0 $frame; done")),
                 QString());
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(linesOf(dump->output()),
                 (QStringList{QStringLiteral("vcan0 100#01"), QStringLiteral("vcan0 1FF#03")}));
    }

    void recordingReachesAPeer()
    {
        QStringList expected = linesOfFile(QStringLiteral(VARIED_LOG));
        QCOMPARE(expected.size(), 320);
        expected.replaceInStrings(QStringLiteral("can0 "), QStringLiteral("vcan0 "));
        // With room for all of them: nobody waits for a peer that is slow.
        const auto peer = listening(QStringLiteral("candump"), words("-L -r 1000000 -n 320 vcan0"));
        const auto player =
            started(busplay, words("--adapter socketcan:vcan0 --fast") + QStringList{QStringLiteral(VARIED_LOG)});
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(player->errors(), recordsOfTheLibrary);
        QCOMPARE(peer->waitForStatus(), 0);
        QCOMPARE(linesOf(peer->output()), expected);
    }

    void framesThatFindNoRoomAreWrittenAgain()
    {
        mInterfacesChanged = true;
        QCOMPARE(shell(QStringLiteral("tc qdisc add dev vcan0 root netem delay 30ms limit 5")), QString());
        QByteArray log;
        QStringList expected;
        for (int index = 0; index < 60; ++index) {
            const QString frame = QStringLiteral("%1#00").arg(index, 3, 16, QLatin1Char('0')).toUpper();
            log += "(0.0) can0 " + frame.toLatin1() + '\n';
            expected.append(QStringLiteral("vcan0 ") + frame);
        }
        const auto peer = listening(QStringLiteral("candump"), words("-L -n 60 vcan0"));
        const auto player = started(busplay, words("--adapter socketcan:vcan0 --fast -"));
        player->write(log);
        player->endInput();
        QCOMPARE(player->waitForStatus(), 0);
        QCOMPARE(player->errors(), recordsOfTheLibrary);
        QCOMPARE(peer->waitForStatus(), 0);
        QCOMPARE(linesOf(peer->output()), expected);
    }

    void cyclesReachAPeer()
    {
        const auto peer = listening(QStringLiteral("candump"), words("-L -n 5 vcan0"));
        const auto sender =
            started(buscycle, words("--adapter socketcan:vcan0 --count 5 --interval 10 --sync-max 3 080#00"));
        QCOMPARE(sender->waitForStatus(), 0);
        QCOMPARE(sender->output(), QByteArray("frames sent: 5\n"));
        QCOMPARE(sender->errors(), recordsOfTheLibrary);
        QCOMPARE(peer->waitForStatus(), 0);
        QCOMPARE(linesOf(peer->output()).join(QLatin1Char(' ')),
                 QStringLiteral("vcan0 080#01 vcan0 080#02 vcan0 080#03 vcan0 080#01 vcan0 080#02"));
    }

    void controllersCarryWhatTheProgramsSend()
    {
        const auto dump = listening(busdump, words("--adapter socketcan:can1 --count 3"), "can1");
        const auto sender = started(buscycle, words("--adapter socketcan:can0 --count 3 --interval 20 1ABCDEF0#0102"));
        QCOMPARE(sender->waitForStatus(), 0);
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(linesOf(dump->output()),
                 (QStringList{QStringLiteral("can1 1ABCDEF0#0102"), QStringLiteral("can1 1ABCDEF0#0102"),
                              QStringLiteral("can1 1ABCDEF0#0102")}));
    }

    void stopSignalEndsBusdump()
    {
        const auto dump = listening(busdump, words("--adapter socketcan:vcan0"));
        dump->sendSignal(SIGINT);
        QCOMPARE(dump->waitForStatus(), 0);
        QCOMPARE(dump->output(), QByteArray());
    }

    void interfaceThatGoesDownIsAnError()
    {
        mInterfacesChanged = true;
        const auto dump = listening(busdump, words("--adapter socketcan:vcan1"), "vcan1");
        QCOMPARE(shell(QStringLiteral("ip link set vcan1 down")), QString());
        QCOMPARE(dump->waitForStatus(), 1);
        QVERIFY2(dump->errors().endsWith("busdump: socketcan:vcan1: the transport of the adapter failed\n"),
                 dump->errors().constData());
    }

    void missingInterfaceIsAnError()
    {
        const auto dump = started(busdump, words("--adapter socketcan:nothing0"));
        QCOMPARE(dump->waitForStatus(), 1);
        QCOMPARE(dump->errors(), QByteArray("SIOCGIFINDEX: No such device\n"
                                            "busdump: socketcan:nothing0: the adapter could not be opened\n"));
    }

    void interfacesAreListed()
    {
        if (qgetenv("BUSLINKDESK_GUEST") == "direct")
            QSKIP("no controllers");
        mInterfacesChanged = true;
        const QByteArray first = "INTERFACE  MAKER  FD   KBIT/S  DATA KBIT/S\n"
                                 "can0       -      no      500            -\n"
                                 "can1       -      no      500            -\n"
                                 "vcan0      -      yes       -            -\n"
                                 "vcan1      -      yes       -            -\n";
        QCOMPARE(repeatedUntil(first, &listed), first);
        QCOMPARE(shell(QStringLiteral("ip link del vcan0 && ip link del vcan1 && ip link set can1 down"
                                      " && ip link set can1 type can bitrate 125000"
                                      " && ip link add dev left type vxcan peer name right-engine")),
                 QString());
        const QByteArray second = "INTERFACE     MAKER  FD   KBIT/S  DATA KBIT/S\n"
                                  "can0          -      no      500            -\n"
                                  "can1          -      no      125            -\n"
                                  "left          -      yes       -            -\n"
                                  "right-engine  -      yes       -            -\n";
        QCOMPARE(repeatedUntil(second, &listed), second);
    }

    // The library would name six usual ones.
    void withoutInterfacesNoneAreListed()
    {
        const auto list =
            started(QStringLiteral("unshare"), {QStringLiteral("--net"), busdump, QStringLiteral("--list")});
        QCOMPARE(list->waitForStatus(), 0);
        QCOMPARE(interfacesOf(list->output()), QByteArray("no CAN interfaces found\n"));
        QCOMPARE(list->errors(), QByteArray());
    }

private:
    /// The table in front of the empty line.
    static QByteArray interfacesOf(const QByteArray &list) { return list.left(list.indexOf("\n\n") + 1); }

    /// A run of the program that lists; on a slow machine "ip" may be given up, and the list says less then.
    static QByteArray listed()
    {
        const auto list = started(busdump, {QStringLiteral("--list")});
        const int status = list->waitForStatus();
        return status == 0 && list->errors().isEmpty() ? interfacesOf(list->output()) : "failed: " + list->errors();
    }

    bool mInterfacesChanged = false;
};

QTEST_GUILESS_MAIN(TestExamplePrograms)
#include "tst_example_programs.moc"
