// SPDX-License-Identifier: MIT
// Opening the USB adapter on a real serial stack, and everything that can go wrong there.
#include "usb_line.h"

#include <QtCore/QThreadPool>
#include <QtSerialPort/QSerialPortInfo>

#include <functional>

namespace {

using A = AbstractCanAdapter;

/// Keeps the only thread of the global pool busy while it lives or until it is told to let go.
class PoolBlocker
{
public:
    PoolBlocker() : mThreadsBefore(QThreadPool::globalInstance()->maxThreadCount())
    {
        QThreadPool::globalInstance()->setMaxThreadCount(1);
        QThreadPool::globalInstance()->start([this] { mLetGo.acquire(); });
    }
    ~PoolBlocker()
    {
        letGo();
        QThreadPool::globalInstance()->waitForDone();
        QThreadPool::globalInstance()->setMaxThreadCount(mThreadsBefore);
    }
    PoolBlocker(const PoolBlocker &) = delete;
    PoolBlocker &operator=(const PoolBlocker &) = delete;
    void letGo() { mLetGo.release(); }

private:
    int mThreadsBefore;
    QSemaphore mLetGo;
};

} // namespace

class TestUsbOpening : public QObject
{
    Q_OBJECT

private:
    /// Opens an adapter whose thread does not get the port ready, with these records on the way.
    static void checkLateFailure(const UsbLine &line, const QStringList &records)
    {
        const PortErrors errors(line.adapter.get());
        const LogRecorder log;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(line.adapter->open(), CAN::RetError);
        QVERIFY(timer.elapsed() > 500);
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(errors.count(), 1);
        QCOMPARE(log.texts(), probeRecord() + records + closedPortRecords());
    }

private Q_SLOTS:
    void openStartsTheLoopAndReportsTheProbe()
    {
        const UsbLine line;
        const LogRecorder log;
        QVERIFY(line.open());
        QVERIFY(line.adapter->isRunning());
        QCOMPARE(log.texts(), probeRecord() + portOpeningRecords() + modemLineRecords());
        QCOMPARE(line.adapter->getState(), CAN::CanStateNone);
    }

    void nameBehindALabelAndADashIsThePort()
    {
        const MockSerialPort port;
        const auto adapter = makeUsbAdapter(QStringLiteral("Bench-left -  ") + port.name() + QLatin1Char(' '));
        adapter->open();
        QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), WaitMs);
    }

    void missingPortFailsAtTheProbe()
    {
        const QString name = QStringLiteral("ttyUSBnone");
        const auto adapter = makeUsbAdapter(name);
        const PortErrors errors(adapter.get());
        const LogRecorder log;
        QCOMPARE(adapter->open(), CAN::RetError);
        QCOMPARE(log.records(),
                 QList<LogRecord>{defaultLogRecord(
                     QtDebugMsg, "cannot open serial port \"ttyUSBnone\" DeviceNotFoundError QObject(0x0) "
                                 "virtual CAN::RetType serialPortAdapter::open()")});
        QVERIFY(!adapter->isRunning());
        QCOMPARE(errors.count(), 0);
    }

    void busyPortFailsAtTheProbe()
    {
        const UsbLine line;
        QSerialPort holder{QSerialPortInfo(line.port.name())};
        QVERIFY(holder.open(QIODevice::ReadWrite));
        {
            const LogRecorder log;
            QCOMPARE(line.adapter->open(), CAN::RetError);
            QCOMPARE(log.texts(), QStringList{QStringLiteral("cannot open serial port \"%1\" PermissionError "
                                                             "QObject(0x0) virtual CAN::RetType "
                                                             "serialPortAdapter::open()")
                                                  .arg(line.port.name())});
            QVERIFY(!line.adapter->isRunning());
        }
        holder.close();
        QVERIFY(line.open());
    }

    void openWhileTheThreadRunsReturnsErrorAndLeavesItAlone()
    {
        UsbLine line;
        QVERIFY(line.open());
        const LogRecorder log;
        QCOMPARE(line.adapter->open(), CAN::RetError);
        QCOMPARE(log.texts(), QStringList());
        line.adapter->write(makeFrame(0x123, {}));
        QTRY_COMPARE_WITH_TIMEOUT(line.device.received().toHex(), QByteArray("86012301000025"), WaitMs);
        QVERIFY(line.adapter->getRunning());
    }

    void refusedSettingEmitsSerialPortErrorAndOpenFailsAfterHalfASecond()
    {
        const UsbLine line;
        line.adapter->setCanAdapterOption(A::option_baudrate, 0);
        // The lines are set all the same.
        checkLateFailure(line, portOpeningRecords() + QStringList(UnsupportedOperation) + modemLineRecords());
        QVERIFY(opens(line.port.name()));
    }

    void portThatIsTakenBetweenProbeAndThreadEmitsSerialPortError()
    {
        const UsbLine line;
        std::unique_ptr<QSerialPort> taker;
        // Emitted on the new thread before its loop touches the port.
        connect(
            line.adapter.get(), &QThread::started, line.adapter.get(),
            [&] {
                taker = std::make_unique<QSerialPort>(QSerialPortInfo(line.port.name()));
                taker->open(QIODevice::ReadWrite);
            },
            Qt::DirectConnection);
        connect(
            line.adapter.get(), &QThread::finished, line.adapter.get(), [&] { taker.reset(); }, Qt::DirectConnection);
        checkLateFailure(line, {QStringLiteral("NoError"), QStringLiteral("PermissionError"),
                                QStringLiteral("cannot open serial port")});
    }

    void portThatIsGoneWhenTheLoopBeginsEndsTheRun()
    {
        UsbLine line;
        const PortErrors errors(line.adapter.get());
        // The first error record of the thread comes while its port opens: after the name was looked up, and
        // before the list of ports is asked again.
        static std::function<void()> onFirstError;
        static QStringList texts;
        texts.clear();
        onFirstError = [&line] { line.port.hide(); };
        const QtMessageHandler before =
            qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &text) {
                texts.append(text);
                if (text == UnsupportedOperation)
                    onFirstError();
            });
        line.adapter->open();
        const bool ended = line.adapter->wait(WaitMs);
        qInstallMessageHandler(before);
        QVERIFY(ended);
        QCOMPARE(texts, probeRecord() + portOpeningRecords() + modemLineRecords()
                            << QStringLiteral("current port is no more valid"));
        QCOMPARE(errors.count(), 1);
        QVERIFY(!line.adapter->getRunning());
    }

    void resetRunsOnThePoolWhileTheCallersEventsGoOn()
    {
        const UsbLine line;
        line.adapter->setCanAdapterOption(A::option_Reset, true);
        PoolBlocker pool;
        bool startedBeforeTheReset = true;
        QTimer::singleShot(50, this, [&] {
            startedBeforeTheReset = line.adapter->isRunning();
            pool.letGo();
        });
        QVERIFY(line.open());
        QVERIFY(!startedBeforeTheReset);
        QCOMPARE(line.adapter->getCanAdapterOption(A::option_Reset), QVariant(true));
    }

    void toggledPortOpensWithoutResetAndKeepsThatOption()
    {
        const UsbLine line;
        line.adapter->setCanAdapterOption(A::option_Reset, true);
        // The reset would have to wait for the pool.
        const PoolBlocker pool;
        QVERIFY(line.openByOption());
        QVERIFY(line.adapter->getRunning());
        QCOMPARE(line.adapter->getCanAdapterOption(A::option_Reset), QVariant(true));
        // The same again while it runs: there is a port, but it cannot be opened.
        QVERIFY(!line.adapter->setCanAdapterOption(A::option_toggleComPort, true));
        QCOMPARE(line.adapter->getCanAdapterOption(A::option_Reset), QVariant(true));
        QVERIFY(line.adapter->getRunning());
    }

    void toggledPortThatIsMissingOrBusyStaysShut()
    {
        const LogRecorder log;
        const auto missing = makeUsbAdapter(QStringLiteral("ttyUSBnone"));
        QVERIFY(!missing->setCanAdapterOption(A::option_toggleComPort, true));
        QCOMPARE(log.texts(), QStringList());
        const UsbLine line;
        QSerialPort holder{QSerialPortInfo(line.port.name())};
        QVERIFY(holder.open(QIODevice::ReadWrite));
        QVERIFY(!line.adapter->setCanAdapterOption(A::option_toggleComPort, true));
        QVERIFY(!line.adapter->isRunning());
        QCOMPARE(log.texts().size(), 1);
    }

    void portsAreListedInOrderWhateverTheirCase()
    {
        const MockSerialPort b(QStringLiteral("b"));
        const MockSerialPort c(QStringLiteral("C"));
        const MockSerialPort a(QStringLiteral("A"));
        const MockSerialPort d(QStringLiteral("d"));
        QCOMPARE(serialPortAdapter::getDeviceList(), QStringList({a.name(), b.name(), c.name(), d.name()}));
    }

    void advancedListsHaveZeroOr128ForEveryPort()
    {
        const MockSerialPort a(QStringLiteral("A"));
        const MockSerialPort b(QStringLiteral("b"));
        const auto both = [&](unsigned int number) {
            return QMap<QString, unsigned int>{{a.name(), number}, {b.name(), number}};
        };
        QCOMPARE(serialPortAdapter::getAdvDeviceList(), both(0));
        QCOMPARE(ZorbekUSBCanAdapter::getAdvDeviceList(), both(128));
    }
};

QTEST_GUILESS_MAIN(TestUsbOpening)
#include "tst_usb_opening.moc"
