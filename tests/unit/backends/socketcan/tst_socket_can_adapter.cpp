// SPDX-License-Identifier: MIT
// Life cycle: names, opening, closing, what is set up on the way and what is said about failures.
#include "kernel_frames.h"
#include "running_socket_can.h"
#include "support/frame_recorder.h"
#include "support/process_level.h"
#include "support/stderr_recorder.h"

#include <QtCore/QSemaphore>

#include <cerrno>
#include <csignal>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int WaitMs = 20000;

QStringList callsOfOpen(const char *name = "can0")
{
    return {QStringLiteral("socket(29, 3, 1)"),
            QStringLiteral("ioctl(0x8933, '%1')").arg(QString::fromUtf8(name)),
            QStringLiteral("setsockopt(101, 5, 4 bytes: 0x1)"),
            QStringLiteral("bind(24 bytes, 29, 77)"),
            QStringLiteral("setsockopt(1, 33, 4 bytes: 0x7a120)"),
            QStringLiteral("getsockopt(1, 8, 4 bytes)"),
            QStringLiteral("setsockopt(101, 2, 4 bytes: 0x2000004c)")};
}

/// An adapter whose loop can be held within a pass, until `leave` is released.
struct HeldLoop : SocketCanFixture
{
    QSemaphore leave;

    /// False if the loop does not come to the frame that it is held at.
    bool hold()
    {
        QSemaphore entered;
        const auto connection = QObject::connect(
            adapter.get(), &AbstractCanAdapter::newCanMessage, adapter.get(),
            [&] {
                entered.release();
                leave.acquire();
            },
            Qt::DirectConnection);
        sockets.arrive(classicBytes(1, 0, {}));
        const bool held = entered.tryAcquire(1, WaitMs);
        QObject::disconnect(connection);
        return held;
    }
};

const LogRecord bufferRecord =
    defaultLogRecord(QtInfoMsg, "virtual CAN::RetType SocketCanAdapter::open() Line: 429 rcvbuf_size 425984");
const LogRecord firstStateRecord = defaultLogRecord(QtDebugMsg, "newState:  \"0\"");

} // namespace

class TestSocketCanAdapter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameLeadsToItsInterface_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("interface");
        const auto row = [](const char *title, const char *name, const char *interface) {
            QTest::newRow(title) << QString::fromUtf8(name) << QString::fromUtf8(interface);
        };
        row("null", nullptr, "can0");
        row("empty", "", "can0");
        row("one character", "c", "can0");
        row("one blank", " ", "can0");
        row("two characters", "c1", "c1");
        row("plain", "vcan3", "vcan3");
        row("label", "can1 | PEAK", "can1");
        row("label without blanks", "can1|PEAK", "can1");
        row("two labels", "can1 | PEAK | more", "can1");
        row("blanks around", "  can1\t", "can1");
        row("blanks within", " my   can ", "my can");
        row("label alone", "| PEAK", "");
        row("two blanks", "  ", "");
        row("15 bytes", "abcdefghijklmno", "abcdefghijklmno");
        row("15 bytes in 14 characters", "abcdefghijklm\u00e4", "abcdefghijklm\u00e4");
        row("15 bytes and blanks", "  abcdefghijklmno  | PEAK", "abcdefghijklmno");
    }

    void nameLeadsToItsInterface()
    {
        QFETCH(QString, name);
        QFETCH(QString, interface);
        const LogRecorder log;
        const FakeCanSockets sockets;
        const AdapterPointer<SocketCanAdapter> adapter(new SocketCanAdapter(name));
        QCOMPARE(adapter->open(), CAN::RetOk);
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
        QCOMPARE(sockets.calls().value(1), QStringLiteral("ioctl(0x8933, '%1')").arg(interface));
    }

    void nameThatFitsNoInterfaceAbortsTheProcess_data()
    {
        QTest::addColumn<QString>("name");
        for (const int length : {16, 17, 40, 100000})
            QTest::addRow("%d bytes", length) << QString(length, QLatin1Char('c'));
        QTest::newRow("16 bytes in 15 characters") << QString::fromUtf8("abcdefghijklmn\u00e4");
        QTest::newRow("16 bytes before a label") << QStringLiteral("abcdefghijklmnop | PEAK");
    }

    void nameThatFitsNoInterfaceAbortsTheProcess()
    {
        QFETCH(QString, name);
        const FakeCanSockets sockets;
        SocketCanAdapter adapter(name);
        const pid_t child = ::fork();
        if (child == 0) {
            const rlimit noCore{0, 0};
            ::setrlimit(RLIMIT_CORE, &noCore);
            std::signal(SIGABRT, SIG_DFL);
            adapter.open();
            ::_exit(0);
        }
        QVERIFY(child > 0);
        int status = 0;
        QCOMPARE(::waitpid(child, &status, 0), child);
        QVERIFY(WIFSIGNALED(status));
        QCOMPARE(WTERMSIG(status), SIGABRT);
    }

    void openMakesItsCallsInTheirOrder()
    {
        SocketCanFixture can;
        const StderrRecorder errors;
        QVERIFY(can.open());
        QVERIFY(can.close());
        QCOMPARE(can.sockets.calls(), callsOfOpen());
        QCOMPARE(can.log.records(), (QList<LogRecord>{bufferRecord, firstStateRecord}));
        QCOMPARE(errors.text(), QByteArray());
    }

    void canFdOptionChangesNothingOfThis()
    {
        SocketCanFixture can;
        can.adapter->setCanAdapterOption(AbstractCanAdapter::option_CANFD, true);
        QVERIFY(can.open());
        QVERIFY(can.close());
        QCOMPARE(can.sockets.calls(), callsOfOpen());
    }

    void fatalFailureEndsOpen_data()
    {
        QTest::addColumn<QByteArray>("call");
        QTest::addColumn<int>("error");
        QTest::addColumn<int>("callsMade");
        QTest::addColumn<QByteArray>("text");
        const auto row = [](const char *name, const char *call, int error, int callsMade, const char *text) {
            QTest::newRow(name) << QByteArray(call) << error << callsMade << QByteArray(text);
        };
        row("no CAN", "socket", EAFNOSUPPORT, 1, "socket: Address family not supported by protocol\n");
        row("no descriptor", "socket", EMFILE, 1, "socket: Too many open files\n");
        row("no interface", "ioctl", ENODEV, 2, "SIOCGIFINDEX: No such device\n");
        row("no CAN interface", "bind", ENODEV, 4, "bind: No such device\n");
    }

    void fatalFailureEndsOpen()
    {
        QFETCH(QByteArray, call);
        QFETCH(int, error);
        QFETCH(int, callsMade);
        QFETCH(QByteArray, text);
        SocketCanFixture can;
        can.sockets.fail(call.constData(), error);
        {
            const StderrRecorder errors;
            QCOMPARE(can.adapter->open(), CAN::RetError);
            QCOMPARE(errors.text(), text);
        }
        QCOMPARE(can.sockets.calls(), callsOfOpen().mid(0, callsMade));
        QVERIFY(can.log.records().isEmpty());
        QVERIFY(!can.adapter->isRunning());
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(can.adapter->getState(), CAN::CanStateNone);
    }

    void otherFailuresAreToldAndOpenGoesOn_data()
    {
        QTest::addColumn<QStringList>("calls");
        QTest::addColumn<QStringList>("made");
        QTest::addColumn<bool>("sizeKnown");
        QTest::addColumn<QByteArray>("text");
        const char *const force = "setsockopt(1, 33";
        const char *const size = "setsockopt(1, 8";
        const char *const readSize = "getsockopt";
        const auto row = [](const char *name, std::initializer_list<const char *> calls, QStringList made,
                            bool sizeKnown, const char *text) {
            QStringList list;
            for (const char *call : calls)
                list.append(QString::fromUtf8(call));
            QTest::newRow(name) << list << made << sizeKnown << QByteArray(text);
        };
        const QStringList all = callsOfOpen();
        const QString setSize = QStringLiteral("setsockopt(1, 8, 4 bytes: 0x7a120)");
        QStringList unforced = all;
        unforced.insert(5, setSize);
        QStringList unforcedAndRead = unforced;
        unforcedAndRead.insert(6, all[5]);
        row("CAN FD", {"setsockopt(101, 5"}, all, true, "error when enabling CAN FD support\n");
        row("forced size", {force}, unforcedAndRead, true, "");
        row("any size", {force, size}, unforced, true, "setsockopt SO_RCVBUF: Operation not permitted\n");
        row("reading an unforced size", {force, readSize}, unforcedAndRead, false,
            "getsockopt SO_RCVBUF: Operation not permitted\n");
        row("any size and reading it", {force, size, readSize}, unforced, false,
            "setsockopt SO_RCVBUF: Operation not permitted\n");
        row("reading a forced size", {readSize}, all, false, "");
        row("error frames", {"setsockopt(101, 2"}, all, true,
            "no error messages possible\n: Operation not permitted\n");
    }

    void otherFailuresAreToldAndOpenGoesOn()
    {
        QFETCH(QStringList, calls);
        QFETCH(QStringList, made);
        QFETCH(bool, sizeKnown);
        QFETCH(QByteArray, text);
        SocketCanFixture can;
        for (const QString &call : calls)
            can.sockets.fail(call.toLatin1().constData(), EPERM);
        {
            const StderrRecorder errors;
            QVERIFY(can.open());
            QVERIFY(can.close());
            QCOMPARE(errors.text(), text);
        }
        QCOMPARE(can.sockets.calls(), made);
        QList<LogRecord> records{firstStateRecord};
        if (sizeKnown)
            records.prepend(bufferRecord);
        QCOMPARE(can.log.records(), records);
    }

    void machineWithoutCanIsTold()
    {
        const int probe = ::socket(PF_CAN, SOCK_RAW, 1);
        if (probe >= 0) {
            ::close(probe);
            QSKIP("this machine's kernel has CAN");
        }
        const LogRecorder log;
        const StderrRecorder errors;
        SocketCanAdapter adapter(QStringLiteral("can0"));
        QCOMPARE(adapter.open(), CAN::RetError);
        QCOMPARE(errors.text(), QByteArray("socket: Address family not supported by protocol\n"));
        QVERIFY(log.records().isEmpty());
        QVERIFY(!adapter.isRunning());
    }

    void closedAdapterKeepsItsSocketUntilItIsDeleted()
    {
        SocketCanFixture can;
        QVERIFY(can.open());
        can.sockets.forgetCalls();
        QVERIFY(can.close());
        QCOMPARE(can.sockets.calls(), QStringList());
        QCOMPARE(can.adapter->write(CAN::CanMessage()), CAN::RetOk);
        QCOMPARE(can.sockets.takeWritten().size(), 16);
        can.adapter.reset();
        QCOMPARE(can.sockets.calls(), QStringList{QStringLiteral("close()")});
    }

    void failedCloseIsTold()
    {
        SocketCanFixture can;
        QVERIFY(can.open());
        QVERIFY(can.close());
        can.sockets.fail("close", EIO);
        const StderrRecorder errors;
        can.adapter.reset();
        QCOMPARE(errors.text(), QByteArray("close: Input/output error\n"));
    }

    void adapterWithoutASocketClosesNone()
    {
        SocketCanFixture can;
        can.adapter.reset();
        QCOMPARE(can.sockets.calls(), QStringList());
    }

    void socketOfAFailedOpenIsClosedWithTheAdapter()
    {
        SocketCanFixture can;
        const int before = openDescriptors();
        can.sockets.fail("bind", EINVAL);
        {
            const StderrRecorder errors;
            QCOMPARE(can.adapter->open(), CAN::RetError);
        }
        QCOMPARE(openDescriptors(), before + 2); // The other end is the test's.
        can.adapter.reset();
        QCOMPARE(openDescriptors(), before + 1);
    }

    void reopeningLeavesNoDescriptorBehind()
    {
        SocketCanFixture can;
        QVERIFY(can.open());
        QVERIFY(can.close());
        const int before = openDescriptors();
        for (int pass = 0; pass < 100; ++pass) {
            QVERIFY(can.open());
            QVERIFY(can.close());
        }
        QCOMPARE(openDescriptors(), before);
        QCOMPARE(can.adapter->write(CAN::CanMessage()), CAN::RetOk);
        QCOMPARE(can.sockets.takeWritten().size(), 16);
    }

    void failedReopeningLeavesNoDescriptorBehind()
    {
        SocketCanFixture can;
        QVERIFY(can.open());
        QVERIFY(can.close());
        const int before = openDescriptors();
        const StderrRecorder errors;
        const int recorder = openDescriptors() - before;
        can.sockets.fail("ioctl", ENODEV);
        QCOMPARE(can.adapter->open(), CAN::RetError);
        QCOMPARE(can.adapter->open(), CAN::RetError);
        QCOMPARE(openDescriptors(), before + recorder);
        can.sockets.fail("socket", EMFILE);
        QCOMPARE(can.adapter->open(), CAN::RetError);
        QCOMPARE(openDescriptors(), before + recorder - 1);
    }

    void openingOnceMoreWhileTheLoopRunsMovesItToTheNewSocket()
    {
        SocketCanFixture can;
        QSignalSpy errors(can.adapter.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(can.open());
        QVERIFY(can.open());
        QTRY_VERIFY_WITH_TIMEOUT(can.sockets.calls().contains(QStringLiteral("close()")), WaitMs);
        QStringList calls = can.sockets.calls();
        calls.removeOne(QStringLiteral("close()")); // It comes from the other thread, at any place.
        QCOMPARE(calls, callsOfOpen() + callsOfOpen());
        QTest::qWait(50); // Passes of the loop, each of which could have ended it.
        QVERIFY(can.adapter->getRunning());
        QVERIFY(errors.isEmpty());
    }

    void reopeningWhileTheLoopRunsDeliversAndLeavesNoDescriptorBehind()
    {
        SocketCanFixture can;
        const FrameRecorder frames(can.adapter.get());
        QVERIFY(can.open());
        const int before = openDescriptors();
        for (int pass = 1; pass <= 50; ++pass) {
            QVERIFY(can.open());
            if (pass % 3 == 0)
                continue; // So that the loop meets several at once.
            can.sockets.arrive(classicBytes(static_cast<canid_t>(pass), 0, {}));
            QTRY_COMPARE_WITH_TIMEOUT(frames.count(), pass - pass / 3, WaitMs);
            QCOMPARE(frames.frames().constLast().message.id, quint32(pass));
        }
        QTRY_COMPARE_WITH_TIMEOUT(openDescriptors(), before, WaitMs);
        QCOMPARE(can.adapter->write(CAN::CanMessage()), CAN::RetOk);
        QCOMPARE(can.sockets.takeWritten().size(), 16);
        QVERIFY(can.adapter->getRunning());
    }

    void socketIsOnlyClosedBetweenPassesOfTheLoop()
    {
        HeldLoop can;
        QVERIFY(can.open());
        const bool held = can.hold();
        const CAN::RetType result = can.adapter->open();
        const bool closedInside = can.sockets.calls().contains(QStringLiteral("close()"));
        can.leave.release();
        QVERIFY(held);
        QCOMPARE(result, CAN::RetOk);
        QVERIFY(!closedInside);
        QTRY_VERIFY_WITH_TIMEOUT(can.sockets.calls().contains(QStringLiteral("close()")), WaitMs);
    }

    void socketRetiredFromALoopThatEndedIsClosedByTheNextOpenOrTheDestructor_data()
    {
        QTest::addColumn<bool>("reopened");
        QTest::newRow("open") << true;
        QTest::newRow("destructor") << false;
    }
    void socketRetiredFromALoopThatEndedIsClosedByTheNextOpenOrTheDestructor()
    {
        QFETCH(bool, reopened);
        HeldLoop can;
        QVERIFY(can.open());
        const bool held = can.hold();
        const CAN::RetType result = can.adapter->open();
        can.adapter->closeAdapter(); // The pass ends, and no other one follows.
        can.leave.release();
        QVERIFY(held);
        QCOMPARE(result, CAN::RetOk);
        QVERIFY(can.adapter->wait(WaitMs));
        const QString close = QStringLiteral("close()");
        QCOMPARE(can.sockets.calls().count(close), 0);
        if (reopened)
            QVERIFY(can.open());
        else
            can.adapter.reset();
        QCOMPARE(can.sockets.calls().count(close), 2); // The one retired, and the one or its second number.
    }

    void prepareToTerminateWaitsOnlyForALoopThatRuns()
    {
        SocketCanFixture can;
        can.adapter->prepareToTerminate();
        QCOMPARE(can.sockets.pauses(), QVector<qint64>());
        QVERIFY(can.open());
        can.adapter->prepareToTerminate();
        QVERIFY(!can.adapter->getRunning());
        QCOMPARE(can.sockets.pauses(), QVector<qint64>{200000});
        QVERIFY(can.adapter->wait(WaitMs));
        can.adapter->prepareToTerminate();
        QCOMPARE(can.sockets.pauses(), QVector<qint64>{200000});
    }

    void operationsForSettingsOfTheSystemDoNothing()
    {
        SocketCanAdapter adapter(QStringLiteral("can0"));
        QCOMPARE(adapter.setBitrate(static_cast<unsigned short>(500)), CAN::RetOk);
        QCOMPARE(adapter.setBitrate(500U), CAN::RetError);
        QCOMPARE(adapter.setFdBitrate(2000), CAN::RetError);
        QCOMPARE(adapter.getBitRate(), static_cast<unsigned short>(0));
        adapter.resetDriver();
        QCOMPARE(adapter.clearTxQueue(), 0);
        QCOMPARE(adapter.clearRxQueue(), 0);
        QCOMPARE(adapter.getTxQueueCount(), 0);
        QCOMPARE(adapter.getRxQueueCount(), 0);
        QVERIFY(!SocketCanAdapter::isBaudrateChangeable());
        QCOMPARE(adapter.getState(), CAN::CanStateNone);
    }

    void skippedOptionsStandInTheirOrder()
    {
        using A = AbstractCanAdapter;
        const QList<A::AdapterOption> expected{
            A::option_ipAddress,  A::option_portNumber, A::option_toggleComPort, A::option_flowControl,
            A::option_toggleDTR,  A::option_toggleRTS,  A::option_peakAdvValues, A::option_Reset,
            A::option_halfDuplex, A::option_isCiA309,   A::option_btrExt,        A::option_systecXm3Values};
        QCOMPARE(SocketCanAdapter(QStringLiteral("can0")).getSkippedOptions(), expected);
    }
};

QTEST_GUILESS_MAIN(TestSocketCanAdapter)
#include "tst_socket_can_adapter.moc"
