// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMutex>
#include <QtCore/QString>
#include <QtNetwork/QHostAddress>

class QUdpSocket;

/// The back end without hardware: all adapters of this type on one host and one port form a bus. A
/// frame goes out as one UDP datagram to 127.255.255.255, and every other adapter on the port
/// delivers it.
///
/// Starts without echo; `setEcho(true)` turns it on, and an echo is delivered right after its frame's
/// turn to be sent, whether or not the system took it. Stamps are always taken from the system's clock. Options with an
/// effect here: `option_portNumber` (read when the loop binds and at each transmission), `option_uniqueId` and
/// `option_continuousTimestamp`.
///
/// The receive loop never pauses while there is something to transmit; a pause ends with a datagram, a `write()` or a
/// close, and after 10 ms. From its first `open()` on an adapter holds one descriptor until it is deleted. It asks for
/// a receive buffer of 8 MiB, which a process without CAP_NET_ADMIN gets only up to net.core.rmem_max; what arrives
/// beyond the buffer while the loop is not scheduled is lost, as frames are on a real bus with a slow receiver.
/// docs/virtual-bus.md has figures.
///
/// *Thread:* `write(CAN::CanMessage*)` from any thread; delivery, echoes included, on the adapter's own.
class BUSLINKDESK_EXPORT DemoCanAdapter : public AbstractCanAdapter
{
    Q_OBJECT

public:
    /// Creates an adapter without echo on port 45674. `device` is kept and has no further use.
    explicit DemoCanAdapter(QString device, QObject *parent = nullptr);
    /// Releases what is still queued. The thread must have ended.
    ~DemoCanAdapter() override;

    using AbstractCanAdapter::setBitrate;
    using AbstractCanAdapter::write;

    /// Starts the adapter's thread and announces `CAN::CanStateErrorActive` on the caller's thread,
    /// before the port is bound. Returns `CAN::RetOk`, also on an adapter that runs already. To reopen
    /// an adapter, wait for its thread first: an open while the old loop is ending starts nothing.
    /// *Fails:* a port that cannot be bound is reported later, on the adapter's thread: a warning,
    /// `interfaceError`, then `newCanState` with `CAN::CanStateStopped`.
    CAN::RetType open() override;
    /// Ends the receive loop after the pass at hand; announces nothing.
    /// *Kept on purpose:* a pass takes all datagrams that are there, so a direct receiver that is slower
    /// than the bus holds it up. A close before the loop has begun (`getRunning()`) is not heard.
    void closeAdapter() override;
    /// Stores the rate; the bus has none. Returns `CAN::RetOk`.
    CAN::RetType setBitrate(unsigned short bitrate) override;
    /// Does nothing.
    void resetDriver() override;
    /// Returns `CAN::CanStateNone`.
    CAN::CanState getState() override;
    /// Ends the receive loop like `closeAdapter()` and announces `CAN::CanStateStopped` on the caller's
    /// thread, run or not.
    /// *Blocks:* 200 ms if the loop ran.
    void prepareToTerminate() override;

    /// Returns 0 and touches nothing; there is no view of the queues.
    int clearTxQueue();
    /// Returns 0 and touches nothing; there is no view of the queues.
    int clearRxQueue();
    /// Returns 0; there is no view of the queues.
    int getTxQueueCount();
    /// Returns 0; there is no view of the queues.
    int getRxQueueCount();
    /// Returns false: the bus has no rate.
    static bool isBaudrateChangeable();
    /// Returns the one device name of this back end with its number.
    static QMap<QString, unsigned int> getAdvDeviceList();

public Q_SLOTS:
    /// Does nothing.
    void timeout();
    /// Queues a copy of the frame and returns `CAN::RetOk`, whether or not the adapter is open; a queued
    /// frame goes out once the loop runs. The queue has no limit. A length that no CAN FD frame has is
    /// rounded up to the next one, for classic frames as well, and `isEsi` does not survive the bus.
    /// *Thread:* any.
    CAN::RetType write(CAN::CanMessage *pMessage) override;

private Q_SLOTS:
    void readPendingDatagrams();

protected:
    /// The receive loop.
    void run() override;

private:
    Q_DECL_HIDDEN void waitForAnnouncement() const;
    Q_DECL_HIDDEN bool bindRxSocket();
    Q_DECL_HIDDEN void deleteSockets();
    Q_DECL_HIDDEN void reportBindFailure();
    Q_DECL_HIDDEN void handleTxQueue();
    Q_DECL_HIDDEN bool nothingToTransmit();
    Q_DECL_HIDDEN void pauseUnlessBusy();
    Q_DECL_HIDDEN void endPause();

    QString mDeviceName;
    unsigned short mBitrate = 0;
    std::atomic<bool> mAnnouncing{false};
    std::atomic<bool> mPausing{false};
    int mPauseEnd = -1;
    QUdpSocket *mTxSocket = nullptr;
    QUdpSocket *mRxSocket = nullptr;
    QHostAddress mBroadcastAddress;
    QList<CAN::CanRxMessage> mEchoQueue;
    QList<CAN::CanMessage> mTxQueue;
    QMutex mTxMutex;
};
