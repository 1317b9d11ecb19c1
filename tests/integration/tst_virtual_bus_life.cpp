// SPDX-License-Identifier: MIT
#include "support/frame_recorder.h"
#include "support/free_port.h"
#include "support/log_recorder.h"
#include "support/open_adapter.h"

#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

#include <atomic>
#include <memory>

namespace {

constexpr int WaitMs = 8000;

using Adapter = AdapterPointer<DemoCanAdapter>;

/// Sends two datagrams for each frame that an adapter delivers, so that there is always one to read.
class Flood
{
public:
    Flood(AbstractCanAdapter *adapter, quint16 port) : mAdapter(adapter), mPort(port)
    {
        QObject::connect(
            adapter, &AbstractCanAdapter::newCanMessage, adapter, [this] { send(); }, Qt::DirectConnection);
    }
    ~Flood()
    {
        stop();
        mAdapter->closeAdapter();
        mAdapter->wait();
    }
    Q_DISABLE_COPY_MOVE(Flood)

    /// Sends the first ones, and waits until it feeds itself.
    bool start()
    {
        QUdpSocket().writeDatagram(mDatagram, mAddress, mPort);
        return QTest::qWaitFor([this] { return mFrames > 100; }, WaitMs);
    }
    void stop() { mStopped = true; }

private:
    void send()
    {
        // Belongs to the adapter's thread, as this function does.
        if (!mSocket)
            mSocket = std::make_unique<QUdpSocket>();
        for (int i = 0; i < 2 && !mStopped; ++i)
            mSocket->writeDatagram(mDatagram, mAddress, mPort);
        ++mFrames;
    }

    const QByteArray mDatagram = bytesOf(makeFrame(1, "flood"));
    const QHostAddress mAddress{QStringLiteral("127.255.255.255")};
    AbstractCanAdapter *const mAdapter;
    const quint16 mPort;
    std::unique_ptr<QUdpSocket> mSocket;
    std::atomic<int> mFrames = 0;
    std::atomic<bool> mStopped = false;
};

} // namespace

class TestVirtualBusLife : public QObject
{
    Q_OBJECT

private:
    quint16 mPort = 0;

private Q_SLOTS:
    void init() { mPort = freeUdpPort(); }

    void openAnnouncesTheStateOnTheCallersThread()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        QVector<QPair<CAN::CanState, QThread *>> states;
        connect(
            a.get(), &AbstractCanAdapter::newCanState, a.get(),
            [&states](CAN::CanState state) {
                states.append({state, QThread::currentThread()});
            },
            Qt::DirectConnection);
        QCOMPARE(a->open(), CAN::RetOk);
        QCOMPARE(states, (QVector<QPair<CAN::CanState, QThread *>>{{CAN::CanStateErrorActive, thread()}}));
        QTRY_VERIFY_WITH_TIMEOUT(a->getRunning(), WaitMs);
        QCOMPARE(a->getState(), CAN::CanStateNone);
        a->closeAdapter();
        QVERIFY(a->wait(WaitMs));
        QVERIFY(!a->getRunning());
        QCOMPARE(states.size(), 1);
        QCOMPARE(a->open(), CAN::RetOk);
        QTRY_VERIFY_WITH_TIMEOUT(a->getRunning(), WaitMs);
        QElapsedTimer timer;
        qint64 announcedAfter = -1;
        connect(
            a.get(), &AbstractCanAdapter::newCanState, a.get(), [&] { announcedAfter = timer.elapsed(); },
            Qt::DirectConnection);
        timer.start();
        a->prepareToTerminate();
        QVERIFY2(announcedAfter >= 199, "the pause comes before the announcement");
        QVERIFY(!a->getRunning());
        QCOMPARE(states.size(), 3);
        QCOMPARE(states.at(1).first, CAN::CanStateErrorActive);
        QCOMPARE(states.at(2), qMakePair(CAN::CanStateStopped, thread()));
        QVERIFY(a->wait(WaitMs));
    }

    void repeatedOpenAnnouncesAgainAndStartsNoSecondLoop()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        QSignalSpy states(a.get(), &AbstractCanAdapter::newCanState);
        a->setEcho(true);
        const FrameRecorder atA(a.get());
        QVERIFY(openOnBus(a.get()));
        QCOMPARE(a->priority(), QThread::InheritPriority);
        QCOMPARE(a->open(), CAN::RetOk);
        QCOMPARE(states.count(), 2);
        // Passes go by, in which a second loop would have bound a socket of its own.
        for (quint32 id = 0; id < 20; ++id)
            a->write(makeFrame(id, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 20, WaitMs);
        QCOMPARE(udpSocketsOnPort(mPort), 1);
    }

    void terminatingAnAdapterThatNeverRanStillAnnouncesStopped()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        QSignalSpy states(a.get(), &AbstractCanAdapter::newCanState);
        a->prepareToTerminate();
        QCOMPARE(states.count(), 1);
        QCOMPARE(states.at(0).at(0).value<CAN::CanState>(), CAN::CanStateStopped);
        QCOMPARE(states.at(0).at(1).value<CanTimeStamp>().seconds, CanTimeStamp().seconds);
        QCOMPARE(states.at(0).at(1).value<CanTimeStamp>().microseconds, CanTimeStamp().microseconds);
    }

    void failedBindIsLoggedThenReportedThenStopped()
    {
        QUdpSocket occupant;
        QVERIFY(occupant.bind(QHostAddress::AnyIPv4, mPort, QAbstractSocket::DontShareAddress));
        const Adapter a = makeVirtualAdapter(mPort);
        QMutex mutex;
        QStringList events;
        QVector<QThread *> threads;
        const LogRecorder log;
        const auto record = [&](const QString &event) {
            const QMutexLocker lock(&mutex);
            events << QStringLiteral("%1 running %2 log %3").arg(event).arg(a->getRunning()).arg(log.records().size());
            threads << QThread::currentThread();
        };
        connect(
            a.get(), &AbstractCanAdapter::interfaceError, a.get(), [&] { record(QStringLiteral("error")); },
            Qt::DirectConnection);
        connect(
            a.get(), &AbstractCanAdapter::newCanState, a.get(),
            [&](CAN::CanState state) {
                if (state != CAN::CanStateErrorActive)
                    record(QStringLiteral("state %1").arg(state));
            },
            Qt::DirectConnection);
        QCOMPARE(a->open(), CAN::RetOk);
        QVERIFY(a->wait(WaitMs));
        QVERIFY(!a->getRunning());
        QCOMPARE(events,
                 (QStringList{QStringLiteral("error running 0 log 1"), QStringLiteral("state 4 running 0 log 1")}));
        QCOMPARE(threads, (QVector<QThread *>{a.get(), a.get()}));
        const QByteArray text = "virtual void DemoCanAdapter::run() could not bind UDP demo interface on port "
                                + QByteArray::number(mPort) + " : \"The bound address is already in use\"";
        QCOMPARE(log.records(), (QList<LogRecord>{defaultLogRecord(QtWarningMsg, text.constData())}));
        // Once the port is free, the same adapter opens.
        occupant.close();
        QVERIFY(openOnBus(a.get()));
    }

    void failedBindTakesBackAnAnnouncementThatCameBefore()
    {
        QUdpSocket occupant;
        QVERIFY(occupant.bind(QHostAddress::AnyIPv4, mPort, QAbstractSocket::DontShareAddress));
        const LogRecorder log;
        const Adapter a = makeVirtualAdapter(mPort);
        for (int pass = 0; pass < 300; ++pass) {
            QMutex mutex;
            QVector<int> order;
            const auto append = [&](int what) {
                const QMutexLocker lock(&mutex);
                order.append(what);
            };
            const auto states = connect(
                a.get(), &AbstractCanAdapter::newCanState, a.get(), [&](CAN::CanState state) { append(state); },
                Qt::DirectConnection);
            const auto errors = connect(
                a.get(), &AbstractCanAdapter::interfaceError, a.get(), [&] { append(-1); }, Qt::DirectConnection);
            a->open();
            QVERIFY(a->wait(WaitMs));
            disconnect(states);
            disconnect(errors);
            QCOMPARE(order, (QVector<int>{CAN::CanStateErrorActive, -1, CAN::CanStateStopped}));
        }
    }

    void receiverOfTheAnnouncementMayWaitForTheThread()
    {
        QUdpSocket occupant;
        QVERIFY(occupant.bind(QHostAddress::AnyIPv4, mPort, QAbstractSocket::DontShareAddress));
        const LogRecorder log;
        const Adapter a = makeVirtualAdapter(mPort);
        bool ended = false;
        connect(
            a.get(), &AbstractCanAdapter::newCanState, a.get(),
            [&](CAN::CanState state) {
                if (state == CAN::CanStateErrorActive)
                    ended = a->wait(WaitMs);
            },
            Qt::DirectConnection);
        a->open();
        QVERIFY(ended);
    }

    void adapterThatIsNotOpenReadsNothingWhenAsked()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        const FrameRecorder atA(a.get());
        QVERIFY(QMetaObject::invokeMethod(a.get(), "readPendingDatagrams"));
        QCOMPARE(atA.count(), 0);
    }

    void nothingIsLoggedInOrdinaryOperation()
    {
        const LogRecorder log;
        const Adapter a = makeVirtualAdapter(mPort);
        const Adapter b = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(a.get()));
        QVERIFY(openOnBus(b.get()));
        a->write(makeFrame(1, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
        a->prepareToTerminate();
        QVERIFY(a->wait(WaitMs));
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void adapterDeletedWithQueuedFramesReleasesThem()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        a->setEcho(true);
        for (quint32 id = 0; id < 1000; ++id)
            a->write(makeFrame(id, QByteArray(64, 'x')));
    }

    void smallOperationsAnswerAsTheyAlwaysDo()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        a->write(makeFrame(1, ""));
        QCOMPARE(a->setBitrate(static_cast<unsigned short>(500)), CAN::RetOk);
        QCOMPARE(a->setBitrate(500U), CAN::RetError);
        QCOMPARE(a->getBitRate(), static_cast<unsigned short>(0));
        QCOMPARE(a->getState(), CAN::CanStateNone);
        QCOMPARE(a->clearTxQueue(), 0);
        QCOMPARE(a->clearRxQueue(), 0);
        QCOMPARE(a->getTxQueueCount(), 0);
        QCOMPARE(a->getRxQueueCount(), 0);
        // The frame that waits is still there.
        const Adapter b = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(b.get()));
        a->open();
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
        a->resetDriver();
        a->timeout();
        QVERIFY(!DemoCanAdapter::isBaudrateChangeable());
        QCOMPARE(DemoCanAdapter::getAdvDeviceList(),
                 (QMap<QString, unsigned int>{{QStringLiteral("zorbek Virtual"), 128U}}));
        QVERIFY(a->getSkippedOptions().isEmpty());
        const DemoCanAdapter fresh(QStringLiteral("virtual"));
        QCOMPARE(fresh.getCanAdapterOption(AbstractCanAdapter::option_portNumber), QVariant(45674));
    }

    void closingEndsTheLoopHoweverFastFramesCome()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        Flood flood(a.get(), mPort);
        QVERIFY(openOnBus(a.get()));
        QVERIFY(flood.start());
        a->closeAdapter();
        const bool ended = a->wait(30000);
        flood.stop();
        QVERIFY(ended);
    }

    void framesGoOutHoweverFastOthersCome()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        a->setEcho(true);
        std::atomic<int> echoes = 0;
        connect(
            a.get(), &AbstractCanAdapter::newCanMessage, a.get(),
            [&](CAN::CanRxMessage *message) { echoes += message->isTx ? 1 : 0; }, Qt::DirectConnection);
        Flood flood(a.get(), mPort);
        QVERIFY(openOnBus(a.get()));
        QVERIFY(flood.start());
        a->write(makeFrame(2, "own"));
        const bool sent = QTest::qWaitFor([&] { return echoes > 0; }, 30000);
        flood.stop();
        QVERIFY(sent);
    }

    void closeAndReopenAHundredTimesKeepsNoSocket()
    {
        const Adapter a = makeVirtualAdapter(mPort);
        for (int pass = 0; pass < 100; ++pass) {
            a->open();
            QTRY_VERIFY_WITH_TIMEOUT(a->getRunning(), WaitMs);
            a->closeAdapter();
            QVERIFY(a->wait(WaitMs));
        }
        QCOMPARE(udpSocketsOnPort(mPort), 0);
        const Adapter b = makeVirtualAdapter(mPort);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(b.get()));
        a->write(makeFrame(0x99, ""));
        a->open();
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
    }
};

QTEST_GUILESS_MAIN(TestVirtualBusLife)
#include "tst_virtual_bus_life.moc"
