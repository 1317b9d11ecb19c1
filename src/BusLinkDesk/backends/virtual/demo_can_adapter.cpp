// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include <BusLinkDesk/adapter/payload_length_p.h>
#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/backends/virtual/virtual_datagram_p.h>
#include <BusLinkDesk/backends/virtual/virtual_socket_p.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDebug>
#include <QtNetwork/QUdpSocket>

#include <unistd.h>

using buslink::relaxedLoad;

namespace {

// More than the socket's buffer has room for, so that a pass takes all that was there when it began. Whoever
// sends faster than receivers take must not keep the loop from its flag and from its own frames.
constexpr int DatagramsInPass = 32768;

} // namespace

DemoCanAdapter::DemoCanAdapter(QString device, QObject *parent)
    : AbstractCanAdapter(parent), mDeviceName(std::move(device))
{
    mRunningFlag.exchange(false);
    mEcho = false;
    mPortNumber = 45674;
}

DemoCanAdapter::~DemoCanAdapter()
{
    quit();
    if (mPauseEnd >= 0)
        ::close(mPauseEnd);
}

CAN::RetType DemoCanAdapter::open()
{
    if (mPauseEnd < 0 && !isRunning())
        mPauseEnd = buslink::openPauseEnd();
    mAnnouncing.exchange(true);
    start(QThread::InheritPriority);
    Q_EMIT newCanState(CAN::CanStateErrorActive, CanTimeStamp());
    mAnnouncing.exchange(false);
    return CAN::RetOk;
}

void DemoCanAdapter::closeAdapter()
{
    mRunningFlag.exchange(false);
    endPause();
}

CAN::RetType DemoCanAdapter::setBitrate(unsigned short bitrate)
{
    mBitrate = bitrate;
    return CAN::RetOk;
}

void DemoCanAdapter::resetDriver() {}

CAN::CanState DemoCanAdapter::getState()
{
    return CAN::CanStateNone;
}

void DemoCanAdapter::prepareToTerminate()
{
    if (mRunningFlag.exchange(false)) {
        endPause();
        QThread::msleep(200);
    }
    Q_EMIT newCanState(CAN::CanStateStopped, CanTimeStamp());
}

int DemoCanAdapter::clearTxQueue()
{
    return 0;
}

int DemoCanAdapter::clearRxQueue()
{
    return 0;
}

int DemoCanAdapter::getTxQueueCount()
{
    return 0;
}

int DemoCanAdapter::getRxQueueCount()
{
    return 0;
}

bool DemoCanAdapter::isBaudrateChangeable()
{
    return false;
}

QMap<QString, unsigned int> DemoCanAdapter::getAdvDeviceList()
{
    return {{QStringLiteral("zorbek Virtual"), 128}};
}

void DemoCanAdapter::timeout() {}

CAN::RetType DemoCanAdapter::write(CAN::CanMessage *pMessage)
{
    // The wake-up belongs to the lock: a second writer must not rely on that of a first which does not get to it.
    const QMutexLocker lock(&mTxMutex);
    mTxQueue.append(*pMessage);
    endPause();
    return CAN::RetOk;
}

void DemoCanAdapter::run()
{
    mRunningFlag.exchange(true);
    waitForAnnouncement();
    mBroadcastAddress = QHostAddress(QStringLiteral("127.255.255.255"));
    mTxSocket = new QUdpSocket;
    mRxSocket = new QUdpSocket;
    if (!bindRxSocket()) {
        reportBindFailure();
        return;
    }
    while (mRunningFlag.load()) {
        handleTxQueue();
        readPendingDatagrams();
        pauseUnlessBusy();
    }
    deleteSockets();
}

// A failed bind must not be reported before open has announced the state that it takes back. Bounded,
// since a receiver of the announcement may be waiting for this thread.
void DemoCanAdapter::waitForAnnouncement() const
{
    const QDeadlineTimer deadline(1000);
    while (mAnnouncing.load() && !deadline.hasExpired())
        QThread::usleep(10);
}

bool DemoCanAdapter::bindRxSocket()
{
    // Sharing is what lets any number of adapters on the host listen on one port.
    if (!mRxSocket->bind(QHostAddress::AnyIPv4, relaxedLoad(mPortNumber),
                         QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint))
        return false;
    buslink::enlargeReceiveBuffer(mRxSocket->socketDescriptor());
    return true;
}

void DemoCanAdapter::reportBindFailure()
{
    qWarning() << "virtual void DemoCanAdapter::run()"
               << "could not bind UDP demo interface on port" << relaxedLoad(mPortNumber) << ":"
               << mRxSocket->errorString();
    deleteSockets();
    mRunningFlag.exchange(false);
    Q_EMIT interfaceError();
    Q_EMIT newCanState(CAN::CanStateStopped, CanTimeStamp());
}

void DemoCanAdapter::deleteSockets()
{
    delete std::exchange(mTxSocket, nullptr);
    delete std::exchange(mRxSocket, nullptr);
}

// Whoever writes or closes after the second look finds that the loop pauses, and ends that.
void DemoCanAdapter::pauseUnlessBusy()
{
    if (!nothingToTransmit())
        return;
    mPausing.exchange(true);
    if (nothingToTransmit() && mRunningFlag.load())
        buslink::pauseUnlessReadable(mRxSocket->socketDescriptor(), mPauseEnd);
    mPausing.exchange(false);
}

void DemoCanAdapter::endPause()
{
    if (mPausing.load() && mPausing.exchange(false))
        buslink::endPause(mPauseEnd);
}

// The lock is only tried for: where a writer holds it, there is something to transmit.
bool DemoCanAdapter::nothingToTransmit()
{
    if (!mTxMutex.tryLock())
        return false;
    const bool empty = mTxQueue.isEmpty();
    mTxMutex.unlock();
    return empty;
}

void DemoCanAdapter::handleTxQueue()
{
    const QMutexLocker lock(&mTxMutex);
    if (mTxQueue.isEmpty())
        return;
    CAN::CanMessage message = mTxQueue.takeFirst();
    message.length = buslink::roundUpToFdLength(message.length);
    const buslink::VirtualDatagram datagram = buslink::encodeVirtualDatagram(message);
    mTxSocket->writeDatagram(reinterpret_cast<const char *>(datagram.data()), static_cast<qint64>(datagram.size()),
                             mBroadcastAddress, relaxedLoad(mPortNumber));
    if (relaxedLoad(mEcho)) {
        CAN::CanRxMessage echo;
        setSystemtimestampInCanMsg(echo);
        echo.message = message;
        echo.isTx = true;
        mEchoQueue.append(echo);
    }
}

void DemoCanAdapter::readPendingDatagrams()
{
    // As a slot it can be called by name on an adapter that is not open.
    if (!mRxSocket)
        return;
    while (!mEchoQueue.isEmpty())
        handleNewCanMessage(mEchoQueue.takeFirst());

    buslink::VirtualDatagram datagram = buslink::emptyVirtualDatagram();
    quint16 senderPort = 0;
    for (int left = DatagramsInPass;
         left > 0 && buslink::receiveDatagram(mRxSocket->socketDescriptor(), datagram, senderPort); --left) {
        // Every adapter sends from a port of its own, so this is our own frame coming back.
        if (senderPort != mTxSocket->localPort()) {
            CAN::CanRxMessage received;
            setSystemtimestampInCanMsg(received);
            received.message = buslink::decodeVirtualDatagram(datagram);
            handleNewCanMessage(received);
        }
        datagram = buslink::emptyVirtualDatagram();
    }
}
