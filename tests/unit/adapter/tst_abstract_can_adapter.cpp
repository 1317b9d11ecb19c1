// SPDX-License-Identifier: MIT
#include "support/fake_adapter.h"
#include "support/frame_recorder.h"
#include "support/log_recorder.h"

#include <QtCore/QTime>
#include <QtTest/QtTest>

#include <thread>

namespace {

CAN::CanRxMessage rxFrame(quint32 id, const QByteArray &payload = QByteArray())
{
    CAN::CanRxMessage message;
    message.message = makeFrame(id, payload);
    return message;
}

qint64 millisecondsOf(const CanTimeStamp &stamp)
{
    return stamp.seconds * 1000LL + stamp.microseconds / 1000;
}

} // namespace

class TestAbstractCanAdapter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // What the base offers to back ends that provide nothing of their own

    void operationsThatNoBackEndProvidesReturnAnErrorAndTouchNothing()
    {
        FakeAdapter adapter;
        short number = 77;
        bool isFd = true;
        unsigned short first = 11;
        unsigned short second = 22;
        CAN::CanMessage message;
        QCOMPARE(adapter.write(QStringLiteral("text")), CAN::RetError);
        QCOMPARE(adapter.write(QStringLiteral("text"), number), CAN::RetError);
        QCOMPARE(number, short(77));
        QCOMPARE(adapter.setBitrate(static_cast<unsigned short>(500)), CAN::RetError);
        QCOMPARE(adapter.setBitrate(500U), CAN::RetError);
        QCOMPARE(adapter.setFdBitrate(2000U), CAN::RetError);
        QCOMPARE(adapter.startCyclic(1, 10, &message), CAN::RetError);
        QCOMPARE(adapter.stopCyclic(1), CAN::RetError);
        QCOMPARE(adapter.getBitrateSettings(isFd, first, second), CAN::RetError);
        QCOMPARE(isFd, true);
        QCOMPARE(first, static_cast<unsigned short>(11));
        QCOMPARE(second, static_cast<unsigned short>(22));
        QCOMPARE(adapter.getCanFeatures(), 0U);
        QVERIFY(adapter.AbstractCanAdapter::getSkippedOptions().isEmpty());
        QVERIFY(!adapter.setSpecificCanAdapterOption(AbstractCanAdapter::option_toggleDTR, true));
    }

    void specificOptionsReadTrueExceptTheGatewayFlag()
    {
        const FakeAdapter adapter;
        for (int number = 0; number <= AbstractCanAdapter::option_lastEnum + 3; ++number) {
            const auto option = static_cast<AbstractCanAdapter::AdapterOption>(number);
            QCOMPARE(adapter.getSpecificCanAdapterOption(option),
                     QVariant(option != AbstractCanAdapter::option_isCiA309));
        }
    }

    void bitRateFieldStaysZero()
    {
        FakeAdapter adapter;
        adapter.setBitrate(static_cast<unsigned short>(250));
        adapter.setCanAdapterOption(AbstractCanAdapter::option_bitrate, 250);
        QCOMPARE(adapter.getBitRate(), static_cast<unsigned short>(0));
    }

    void timingThresholdsAreTheSameForBothPhases()
    {
        FakeAdapter adapter;
        for (const bool dataPhase : {false, true}) {
            const CAN::CANBitTimingThresholds thresholds = adapter.getTimingThresholds(dataPhase);
            QCOMPARE(thresholds.thresholdWord, quint16(8));
            QCOMPARE(thresholds.prescalerMin, quint16(1));
            QCOMPARE(thresholds.prescalerMax, qint16(128));
            QCOMPARE(thresholds.tSeg1Min, quint16(3));
            QCOMPARE(thresholds.tSeg1Max, quint16(16));
            QCOMPARE(thresholds.tSeg2Min, quint16(2));
            QCOMPARE(thresholds.tSeg2Max, quint16(8));
            QCOMPARE(thresholds.sjwMax, quint16(8));
            QCOMPARE(thresholds.thresholdFlag, quint8(0));
        }
    }

    void newAdapterDoesNotRunAndHasNoRoleAndNoId()
    {
        FakeAdapter adapter;
        QVERIFY(!adapter.isRunning());
        QVERIFY(!adapter.getRunning());
        QVERIFY(!adapter.isActiveAdapter());
        QVERIFY(!adapter.isPrimaryAdapter());
        QCOMPARE(adapter.getId(), static_cast<unsigned short>(0));
        QVERIFY(adapter.mEcho);
        QVERIFY(!adapter.mDriverConfigFlag);
        QVERIFY(adapter.mLinkedAdapter.isNull());
    }

    void rolesAndIdAreReadFromTheirOptions()
    {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_activeAdapter, true);
        QVERIFY(adapter.isActiveAdapter());
        QVERIFY(!adapter.isPrimaryAdapter());
        adapter.setCanAdapterOption(AbstractCanAdapter::option_primaryAdapter, true);
        QVERIFY(adapter.isPrimaryAdapter());
        adapter.setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 513);
        QCOMPARE(adapter.getId(), static_cast<unsigned short>(513));
    }

    void autoBusOnIsStoredByItsOperation()
    {
        FakeAdapter adapter;
        adapter.setAutoBusOn(true);
        QCOMPARE(adapter.getCanAdapterOption(AbstractCanAdapter::option_autoBusOn), QVariant(true));
        adapter.setAutoBusOn(false);
        QCOMPARE(adapter.getCanAdapterOption(AbstractCanAdapter::option_autoBusOn), QVariant(false));
    }

    void constFrameIsWrittenAsACopyThatTheBackEndMayChange()
    {
        FakeAdapter adapter;
        adapter.onWrite = [](CAN::CanMessage *message) {
            message->length = 0;
            return CAN::RetTxBufferFull;
        };
        CAN::CanMessage message = makeFrame(0x123, "\x01\x02");
        message.reservedFlag = 0x5A;
        message.fillByte = 0xA5;
        const CAN::CanMessage before = message;
        QCOMPARE(adapter.write(static_cast<const CAN::CanMessage &>(message)), CAN::RetTxBufferFull);
        QCOMPARE(bytesOf(message), bytesOf(before));
        QCOMPARE(bytesOf(adapter.written().constFirst()), bytesOf(before));
    }

    void holdPausesUnlessSleepIsDisabled()
    {
        FakeAdapter adapter;
        const auto hundredHolds = [&adapter] {
            QElapsedTimer timer;
            timer.start();
            for (int pass = 0; pass < 100; ++pass)
                adapter.hold();
            return timer.nsecsElapsed();
        };
        QVERIFY2(hundredHolds() >= 1000000, "100 pauses of 10 us");
        adapter.setCanAdapterOption(AbstractCanAdapter::option_disableSleep, true);
        // Without pauses a hundred passes fit into less than the pauses alone; a busy machine gets tries.
        QTRY_VERIFY(hundredHolds() < 1000000);
    }

    // Delivery

    void frameIsStampedWithTheIdAndDeliveredDirectlyBeforeByValue()
    {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 4660);
        QStringList order;
        CAN::CanRxMessage direct;
        CAN::CanRxMessage byValue;
        connect(
            &adapter, &AbstractCanAdapter::newCanMessageByValue, this,
            [&](CAN::CanRxMessage message) {
                order << QStringLiteral("value");
                byValue = message;
            },
            Qt::DirectConnection);
        connect(
            &adapter, &AbstractCanAdapter::newCanMessage, this,
            [&](CAN::CanRxMessage *message) {
                order << QStringLiteral("pointer");
                direct = *message;
            },
            Qt::DirectConnection);
        CAN::CanRxMessage sent = rxFrame(0x1ABCDE, "abc");
        sent.timeStamp.seconds = 17;
        sent.timeStamp.microseconds = 250000;
        sent.packetWord = 0xCAFEBABE;
        sent.adapterId = 9999;
        adapter.handleNewCanMessage(sent);
        QCOMPARE(order, (QStringList{QStringLiteral("pointer"), QStringLiteral("value")}));
        for (const CAN::CanRxMessage &got : {direct, byValue}) {
            QCOMPARE(bytesOf(got.message), bytesOf(sent.message));
            QCOMPARE(got.timeStamp.seconds, 17);
            QCOMPARE(got.timeStamp.microseconds, 250000);
            QCOMPARE(got.isTx, false);
            QCOMPARE(got.packetWord, 0xCAFEBABEU);
            QCOMPARE(got.adapterId, quint16(4660));
        }
        QCOMPARE(adapter.mLastTimeStamp.seconds, 17);
        QCOMPARE(adapter.mLastTimeStamp.microseconds, 250000);
        QCOMPARE(sent.adapterId, quint16(9999));
    }

    void changeByADirectReceiverReachesTheByValueSignalOfThatFrame()
    {
        FakeAdapter adapter;
        connect(
            &adapter, &AbstractCanAdapter::newCanMessage, this,
            [](CAN::CanRxMessage *message) { message->message.id = 2; }, Qt::DirectConnection);
        quint32 got = 0;
        connect(
            &adapter, &AbstractCanAdapter::newCanMessageByValue, this,
            [&got](CAN::CanRxMessage message) { got = message.message.id; }, Qt::DirectConnection);
        adapter.handleNewCanMessage(rxFrame(1));
        QCOMPARE(got, 2U);
    }

    void byValueSignalCrossesThreads()
    {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 3);
        CAN::CanRxMessage got;
        QThread *thread = nullptr;
        connect(&adapter, &AbstractCanAdapter::newCanMessageByValue, this, [&](CAN::CanRxMessage message) {
            got = message;
            thread = QThread::currentThread();
        });
        std::thread deliverer([&adapter] { adapter.handleNewCanMessage(rxFrame(0x321, "xyz")); });
        deliverer.join();
        QVERIFY(!thread);
        QTRY_VERIFY(thread);
        QCOMPARE(thread, QThread::currentThread());
        QCOMPARE(got.message.id, 0x321U);
        QCOMPARE(got.adapterId, quint16(3));
    }

    void stateAndStampCrossThreads()
    {
        FakeAdapter adapter;
        CAN::CanState state = CAN::CanStateNone;
        CanTimeStamp stamp;
        QThread *thread = nullptr;
        connect(&adapter, &AbstractCanAdapter::newCanState, this, [&](CAN::CanState newState, CanTimeStamp ts) {
            state = newState;
            stamp = ts;
            thread = QThread::currentThread();
        });
        CanTimeStamp sent;
        sent.seconds = 11;
        sent.microseconds = 22;
        std::thread announcer([&] { Q_EMIT adapter.newCanState(CAN::CanStateErrorPassive, sent); });
        announcer.join();
        QVERIFY(!thread);
        QTRY_COMPARE(thread, QThread::currentThread());
        QCOMPARE(state, CAN::CanStateErrorPassive);
        QCOMPARE(stamp.seconds, 11);
        QCOMPARE(stamp.microseconds, 22);
    }

    void stateIsAnnouncedInBothFormsWithADefaultStamp()
    {
        FakeAdapter adapter;
        QSignalSpy states(&adapter, SIGNAL(newCanState(CAN::CanState, CanTimeStamp)));
        QSignalSpy shortStates(&adapter, SIGNAL(newCanState(CAN::CanState)));
        QVERIFY(states.isValid());
        QVERIFY(shortStates.isValid());
        Q_EMIT adapter.newCanState(CAN::CanStateBusOff);
        QCOMPARE(states.count(), 1);
        QCOMPARE(shortStates.count(), 1);
        QCOMPARE(states.at(0).at(0).value<CAN::CanState>(), CAN::CanStateBusOff);
        QCOMPARE(states.at(0).at(1).value<CanTimeStamp>().seconds, CanTimeStamp().seconds);
    }

    void echoIsMarkedAndKeepsTheStampOfTheBackEnd_data()
    {
        QTest::addColumn<bool>("continuous");
        QTest::newRow("plain") << false;
        QTest::newRow("continuous without system time") << true;
    }
    void echoIsMarkedAndKeepsTheStampOfTheBackEnd()
    {
        QFETCH(bool, continuous);
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, continuous);
        adapter.setCanAdapterOption(AbstractCanAdapter::option_uniqueId, 12);
        const FrameRecorder recorder(&adapter);
        CAN::CanRxMessage echo = rxFrame(0x10, "e");
        echo.timeStamp.seconds = -5;
        echo.timeStamp.microseconds = 6;
        echo.packetWord = 0x12345678;
        adapter.handleNewTxCanMessage(echo);
        const CAN::CanRxMessage got = recorder.frames().constFirst();
        QCOMPARE(got.isTx, true);
        QCOMPARE(got.adapterId, quint16(12));
        QCOMPARE(got.timeStamp.seconds, -5);
        QCOMPARE(got.timeStamp.microseconds, 6);
        QCOMPARE(got.packetWord, 0x12345678U);
        QCOMPARE(bytesOf(got.message), bytesOf(echo.message));
        QCOMPARE(adapter.mLastTimeStamp.seconds, -5);
    }

    void echoWithSystemTimeIsStampedAnew()
    {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_systemTime, true);
        adapter.setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, true);
        const FrameRecorder recorder(&adapter);
        CAN::CanRxMessage echo = rxFrame(0x10);
        echo.timeStamp.seconds = -5;
        CAN::CanRxMessage before;
        CAN::CanRxMessage after;
        adapter.setSystemtimestampInCanMsg(before);
        adapter.handleNewTxCanMessage(echo);
        adapter.setSystemtimestampInCanMsg(after);
        const CanTimeStamp got = recorder.frames().constFirst().timeStamp;
        QVERIFY(millisecondsOf(before.timeStamp) <= millisecondsOf(got));
        QVERIFY(millisecondsOf(got) <= millisecondsOf(after.timeStamp));
    }

    void receivedFrameKeepsItsStampWithSystemTime()
    {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_systemTime, true);
        const FrameRecorder recorder(&adapter);
        CAN::CanRxMessage message = rxFrame(1);
        message.timeStamp.seconds = 123456789;
        adapter.handleNewCanMessage(message);
        QCOMPARE(recorder.frames().constFirst().timeStamp.seconds, 123456789);
    }

    // Time stamps

    void systemStampIsTheTimeOfDayAndTouchesNothingElse()
    {
        FakeAdapter adapter;
        CAN::CanRxMessage message = rxFrame(0x77, "p");
        message.packetWord = 5;
        message.adapterId = 6;
        const QTime before = QTime::currentTime();
        adapter.setSystemtimestampInCanMsg(message);
        const QTime after = QTime::currentTime();
        if (after < before)
            QSKIP("midnight passed between two looks at the clock");
        QVERIFY(millisecondsOf(message.timeStamp) >= before.msecsSinceStartOfDay());
        QVERIFY(millisecondsOf(message.timeStamp) <= after.msecsSinceStartOfDay());
        QCOMPARE(message.timeStamp.microseconds % 1000, 0);
        QCOMPARE(message.message.id, 0x77U);
        QCOMPARE(message.packetWord, 5U);
        QCOMPARE(message.adapterId, quint16(6));
        QCOMPARE(message.isTx, false);
    }

    void continuousStampCountsFromTheSharedStartOnEachAdaptersOwnTimer()
    {
        QElapsedTimer apart;
        apart.start();
        FakeAdapter first;
        const unsigned int start = first.mStartTime;
        first.setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, true);
        QTest::qSleep(120);
        FakeAdapter second;
        const qint64 atLeast = 120;
        QCOMPARE(second.mStartTime, start);
        second.setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, true);
        CAN::CanRxMessage fromSecond;
        CAN::CanRxMessage fromFirst;
        second.setSystemtimestampInCanMsg(fromSecond);
        first.setSystemtimestampInCanMsg(fromFirst);
        const qint64 difference = millisecondsOf(fromFirst.timeStamp) - millisecondsOf(fromSecond.timeStamp);
        QVERIFY2(difference >= atLeast - 1 && difference <= apart.elapsed() + 1,
                 qPrintable(QString::number(difference)));
        QVERIFY(millisecondsOf(fromSecond.timeStamp) >= start);
    }

    void continuousStampRunsOnPastMidnight()
    {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, true);
        const unsigned int start = FakeAdapter::mStartTime;
        FakeAdapter::mStartTime = 86'399'990;
        CAN::CanRxMessage message;
        QTRY_VERIFY((adapter.setSystemtimestampInCanMsg(message), message.timeStamp.seconds >= 86'400));
        QVERIFY(message.timeStamp.seconds < 86'500);
        FakeAdapter::mStartTime = start;
    }

    void continuousStampIsComputedInSigned32Bits()
    {
        FakeAdapter adapter;
        adapter.setCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp, true);
        const unsigned int start = FakeAdapter::mStartTime;
        FakeAdapter::mStartTime = 0x80000000U;
        CAN::CanRxMessage message;
        adapter.setSystemtimestampInCanMsg(message);
        FakeAdapter::mStartTime = start;
        // -2147483648 ms and the few that have passed, cut towards zero.
        QVERIFY(message.timeStamp.seconds <= -2147000 && message.timeStamp.seconds >= -2147483);
        QVERIFY(message.timeStamp.microseconds <= 0 && message.timeStamp.microseconds > -1000000);
    }

    void startTimeIsSetAgainWhileItIsZero()
    {
        const unsigned int start = FakeAdapter::mStartTime;
        FakeAdapter::mStartTime = 0;
        const FakeAdapter adapter;
        const auto now = static_cast<unsigned int>(QTime::currentTime().msecsSinceStartOfDay());
        const unsigned int set = FakeAdapter::mStartTime;
        FakeAdapter::mStartTime = start;
        if (now < 60'000)
            QSKIP("too close to midnight");
        QVERIFY(set <= now && now - set < 60'000);
    }

    // Echo

    void setEchoEmitsOnEveryCall()
    {
        FakeAdapter adapter;
        QSignalSpy spy(&adapter, &AbstractCanAdapter::echoChanged);
        adapter.setEcho(true);
        adapter.setEcho(true);
        adapter.setEcho(false);
        QCOMPARE(spy.count(), 3);
        QCOMPARE(spy.at(0).at(0).toBool(), true);
        QCOMPARE(spy.at(1).at(0).toBool(), true);
        QCOMPARE(spy.at(2).at(0).toBool(), false);
        QVERIFY(!adapter.mEcho);
    }

    void echoChangeReachesTheBackEndsOwnSlot()
    {
        class Listening : public FakeAdapter
        {
        public:
            QVector<bool> modes;

        protected:
            void echoModeChanged(bool echoEnabled) override { modes.append(echoEnabled); }
        };
        Listening adapter;
        adapter.setEcho(false);
        adapter.setEcho(true);
        QCOMPARE(adapter.modes, (QVector<bool>{false, true}));
    }

    // Links

    void receivedFrameIsForwardedByteForByteOnTheSourcesThread()
    {
        FakeAdapter source;
        FakeAdapter target;
        source.setLinkedAdapter(&target);
        CAN::CanRxMessage received = rxFrame(0x1FFFFFFF, QByteArray(64, 'x'));
        received.message.isFd = true;
        received.message.isExtended = true;
        received.message.reservedFlag = 3;
        received.message.fillByte = 4;
        QThread *deliveringThread = nullptr;
        QScopedPointer<QThread> thread(QThread::create([&] {
            deliveringThread = QThread::currentThread();
            source.handleNewCanMessage(received);
        }));
        thread->start();
        QVERIFY(thread->wait());
        QCOMPARE(target.written().size(), 1);
        QCOMPARE(bytesOf(target.written().constFirst()), bytesOf(received.message));
        QCOMPARE(target.lastWriter(), deliveringThread);
    }

    void markedFramesAreNotForwarded_data()
    {
        QTest::addColumn<quint32>("id");
        QTest::addColumn<bool>("isTx");
        QTest::newRow("echo") << 0x123U << true;
        QTest::newRow("the identifier that is never forwarded") << 0xFFFF00EFU << false;
    }
    void markedFramesAreNotForwarded()
    {
        QFETCH(quint32, id);
        QFETCH(bool, isTx);
        FakeAdapter source;
        FakeAdapter target;
        source.setLinkedAdapter(&target);
        const FrameRecorder recorder(&source);
        CAN::CanRxMessage message = rxFrame(id);
        if (isTx)
            source.handleNewTxCanMessage(message);
        else
            source.handleNewCanMessage(message);
        QCOMPARE(recorder.count(), 1);
        QVERIFY(target.written().isEmpty());
        source.handleNewCanMessage(rxFrame(1));
        QCOMPARE(target.written().size(), 1);
    }

    void identifiersBesideTheFilteredOneAreForwarded()
    {
        FakeAdapter source;
        FakeAdapter target;
        source.setLinkedAdapter(&target);
        for (const quint32 id : {0x1FFF00EFU, 0xFFFF00EEU, 0xEFU})
            source.handleNewCanMessage(rxFrame(id));
        QCOMPARE(target.written().size(), 3);
    }

    void relinkLeavesOtherConnectionsAlone()
    {
        FakeAdapter source;
        FakeAdapter target;
        source.setLinkedAdapter(&target);
        bool heard = false;
        connect(&source, &AbstractCanAdapter::interfaceError, &target, [&heard] { heard = true; });
        source.relink();
        Q_EMIT source.interfaceError();
        QVERIFY(heard);
    }

    void failedForwardIsDropped()
    {
        FakeAdapter source;
        FakeAdapter target;
        target.onWrite = [](CAN::CanMessage *message) {
            message->id = 0;
            return CAN::RetError;
        };
        source.setLinkedAdapter(&target);
        const FrameRecorder recorder(&source);
        LogRecorder log;
        source.handleNewCanMessage(rxFrame(5));
        source.handleNewCanMessage(rxFrame(6));
        QCOMPARE(target.written().size(), 2);
        QCOMPARE(recorder.frames().at(0).message.id, 5U);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void repeatedLinksMakeOneConnection()
    {
        FakeAdapter source;
        FakeAdapter target;
        source.setLinkedAdapter(&target);
        source.setLinkedAdapter(&target);
        source.relink();
        source.relink();
        source.handleNewCanMessage(rxFrame(5));
        QCOMPARE(target.written().size(), 1);
    }

    void newTargetReplacesTheOldOne()
    {
        FakeAdapter source;
        FakeAdapter first;
        FakeAdapter second;
        source.setLinkedAdapter(&first);
        source.setLinkedAdapter(&second);
        source.handleNewCanMessage(rxFrame(5));
        QVERIFY(first.written().isEmpty());
        QCOMPARE(second.written().size(), 1);
    }

    void leavingATargetCutsEveryConnectionToIt()
    {
        FakeAdapter source;
        FakeAdapter target;
        source.setLinkedAdapter(&target);
        bool heard = false;
        connect(&source, &AbstractCanAdapter::interfaceError, &target, [&heard] { heard = true; });
        source.setLinkedAdapter(nullptr);
        Q_EMIT source.interfaceError();
        QVERIFY(!heard);
        source.handleNewCanMessage(rxFrame(5));
        QVERIFY(target.written().isEmpty());
        QVERIFY(source.mLinkedAdapter.isNull());
    }

    void nullTargetOnAnUnlinkedAdapterOnlyStoresTheNull()
    {
        FakeAdapter source;
        source.setLinkedAdapter(nullptr);
        source.relink();
        QVERIFY(source.mLinkedAdapter.isNull());
    }

    void deletedTargetLeavesANullLink()
    {
        FakeAdapter source;
        auto target = std::make_unique<FakeAdapter>();
        source.setLinkedAdapter(target.get());
        target.reset();
        QVERIFY(source.mLinkedAdapter.isNull());
        source.relink();
        source.handleNewCanMessage(rxFrame(5));
    }

    void twoAdaptersLinkedToEachOtherMakeNoLoop()
    {
        FakeAdapter left;
        FakeAdapter right;
        for (FakeAdapter *adapter : {&left, &right}) {
            adapter->onWrite = [adapter](CAN::CanMessage *message) {
                CAN::CanRxMessage echo;
                echo.message = *message;
                adapter->handleNewTxCanMessage(echo);
                return CAN::RetOk;
            };
        }
        left.setLinkedAdapter(&right);
        right.setLinkedAdapter(&left);
        const FrameRecorder atLeft(&left);
        const FrameRecorder atRight(&right);
        left.handleNewCanMessage(rxFrame(8));
        QCOMPARE(right.written().size(), 1);
        QVERIFY(left.written().isEmpty());
        QCOMPARE(atLeft.count(), 1);
        QCOMPARE(atRight.frames().constFirst().isTx, true);
    }

    void storedLinkIdMakesNoLink()
    {
        FakeAdapter source;
        source.setCanAdapterOption(AbstractCanAdapter::option_linkedAdapter, 2);
        QVERIFY(source.mLinkedAdapter.isNull());
    }

    // Payload length and DLC

    void dlcOfEveryLength()
    {
        FakeAdapter adapter;
        for (int length = 0; length <= 255; ++length) {
            int dlc = 15;
            if (length <= 8)
                dlc = length;
            else if (length <= 12)
                dlc = 9;
            else if (length <= 16)
                dlc = 10;
            else if (length <= 20)
                dlc = 11;
            else if (length <= 24)
                dlc = 12;
            else if (length <= 32)
                dlc = 13;
            else if (length <= 48)
                dlc = 14;
            QCOMPARE(int(adapter.len2dlc(static_cast<unsigned char>(length))), dlc);
        }
    }

    void lengthOfEveryDlcLooksAtTheLowFourBits()
    {
        FakeAdapter adapter;
        const QVector<int> lengths{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
        for (int dlc = 0; dlc <= 255; ++dlc)
            QCOMPARE(int(adapter.dlcToBytesFD(static_cast<unsigned char>(dlc))), lengths.at(dlc % 16));
    }
};

QTEST_GUILESS_MAIN(TestAbstractCanAdapter)
#include "tst_abstract_can_adapter.moc"
