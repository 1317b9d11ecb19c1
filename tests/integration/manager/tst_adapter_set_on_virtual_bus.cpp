// SPDX-License-Identifier: MIT
#include "support/frame_recorder.h"
#include "support/free_port.h"

#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

#include <QtTest/QtTest>

#include <memory>

namespace {

constexpr int PatienceMs = 20'000;

DemoCanAdapter *makeAdapter(quint16 port)
{
    auto *adapter = new DemoCanAdapter(QStringLiteral("bus"));
    adapter->setCanAdapterOption(AbstractCanAdapter::option_adapterType, AbstractCanAdapter::CanAdapterTypeVirtual);
    adapter->setCanAdapterOption(AbstractCanAdapter::option_portNumber, port);
    return adapter;
}

} // namespace

class TestAdapterSetOnVirtualBus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        mPort = freeUdpPort();
        mHandler = std::make_unique<MultiCanAdapterHandler>();
        mFirst = makeAdapter(mPort);
        mSecond = makeAdapter(mPort);
        QCOMPARE(mHandler->addNewCanAdapter(mFirst), static_cast<unsigned short>(1));
        QCOMPARE(mHandler->addNewCanAdapter(mSecond), static_cast<unsigned short>(2));
    }

    void cleanup()
    {
        mHandler->removeAllAdapters();
        mHandler.reset();
    }

    void onlyActiveAdaptersAreConnected()
    {
        mHandler->toggleConnection(true);
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 1, PatienceMs);
        QCOMPARE(mHandler->getConnectedAdapters(), QList<AbstractCanAdapter *>{mFirst});
        mHandler->handleActiveChanged(1, true);
        QCOMPARE(mHandler->getConnectedAdapters(), QList<AbstractCanAdapter *>{mFirst});
        mHandler->toggleConnection(true);
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 2, PatienceMs);
        QCOMPARE(mHandler->getConnectedAdapters(), (QList<AbstractCanAdapter *>{mFirst, mSecond}));
    }

    void frameCrossesTheBusUnderTheIdentifierOfTheReceiver()
    {
        connectBoth();
        const FrameRecorder frames(mSecond);
        QCOMPARE(mFirst->write(makeFrame(0x123, "abc")), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, PatienceMs);
        QCOMPARE(bytesOf(frames.frames().constFirst().message), bytesOf(makeFrame(0x123, "abc")));
        QCOMPARE(frames.frames().constFirst().adapterId, quint16(2));
    }

    void moveChangesTheIdentifierOfLaterFrames()
    {
        connectBoth();
        const FrameRecorder frames(mSecond);
        QCOMPARE(mHandler->moveAdapter(mSecond, MultiCanAdapterHandler::Up), static_cast<unsigned short>(1));
        QCOMPARE(mFirst->write(makeFrame(0x124, "abc")), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, PatienceMs);
        QCOMPARE(frames.frames().constFirst().adapterId, quint16(1));
    }

    void disconnectingClosesInactiveAdaptersTooAndTheyOpenAgain()
    {
        connectBoth();
        mHandler->handleActiveChanged(1, false);
        mHandler->toggleConnection(false);
        QTRY_COMPARE_WITH_TIMEOUT(mHandler->getConnectedAdapters(), QList<AbstractCanAdapter *>(), PatienceMs);
        QCOMPARE(udpSocketsOnPort(mPort), 0);
        connectBoth();
    }

    void removedAdapterHasLeftTheBus()
    {
        connectBoth();
        const QPointer<AbstractCanAdapter> first = mFirst;
        mHandler->removeAdapter(1);
        QVERIFY(first.isNull());
        QCOMPARE(udpSocketsOnPort(mPort), 1);
        QCOMPARE(mHandler->getConnectedAdapters(), QList<AbstractCanAdapter *>{mSecond});
        QCOMPARE(mHandler->getPrimaryAdapter(), mSecond);
        mHandler->removeAllAdapters();
        QCOMPARE(udpSocketsOnPort(mPort), 0);
    }

    void adapterThatWasOnlyJustOpenedIsRemoved()
    {
        for (int pass = 0; pass < 20; ++pass) {
            mHandler->toggleConnection(true);
            mHandler->removeAllAdapters();
            QCOMPARE(udpSocketsOnPort(mPort), 0);
            QCOMPARE(mHandler->addNewCanAdapter(makeAdapter(mPort)), static_cast<unsigned short>(1));
        }
    }

    void destroyedHandlerLeavesTheAdaptersOnTheBus()
    {
        connectBoth();
        mHandler = std::make_unique<MultiCanAdapterHandler>();
        QVERIFY(mFirst->isRunning());
        QVERIFY(mSecond->isRunning());
        const FrameRecorder frames(mSecond);
        QCOMPARE(mFirst->write(makeFrame(0x125, "abc")), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(frames.count(), 1, PatienceMs);
        mHandler->addNewCanAdapter(mFirst, true);
        mHandler->addNewCanAdapter(mSecond, true);
    }

private:
    void connectBoth()
    {
        mHandler->handleActiveChanged(0, true);
        mHandler->handleActiveChanged(1, true);
        mHandler->toggleConnection(true);
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 2, PatienceMs);
    }

    quint16 mPort = 0;
    std::unique_ptr<MultiCanAdapterHandler> mHandler;
    DemoCanAdapter *mFirst = nullptr;
    DemoCanAdapter *mSecond = nullptr;
};

QTEST_GUILESS_MAIN(TestAdapterSetOnVirtualBus)
#include "tst_adapter_set_on_virtual_bus.moc"
