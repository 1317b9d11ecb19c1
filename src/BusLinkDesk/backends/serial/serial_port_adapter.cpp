// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/serial/serial_port_adapter.h>

#include <BusLinkDesk/adapter/relaxed_p.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QMetaEnum>
#include <QtCore/QSemaphore>
#include <QtCore/QSharedPointer>
#include <QtCore/QThreadPool>
#include <QtSerialPort/QSerialPortInfo>

#include <atomic>
#include <utility>

using buslink::relaxedLoad;
using buslink::relaxedStore;

QElapsedTimer serialPortAdapter::mElapsedTimer;

namespace {

constexpr int StartTimeoutMs = 500;
constexpr int ProbeTimeoutMs = 5000;
constexpr int BufferReserve = 4096;

// Tells writers on other threads that the clock may be read.
std::atomic<bool> clockRuns = false;

const char *nameOf(QSerialPort::SerialPortError error)
{
    return QMetaEnum::fromType<QSerialPort::SerialPortError>().valueToKey(error);
}

QList<QString> portNames()
{
    QList<QString> names;
    for (const QSerialPortInfo &port : QSerialPortInfo::availablePorts()) {
        if (!port.isNull())
            names.append(port.portName());
    }
    return names;
}

} // namespace

serialPortAdapter::serialPortAdapter(QString name, QObject *parent)
    : AbstractCanAdapter(parent), mPortName(name.split(QLatin1Char('-')).last().simplified())
{
    mRunningFlag.exchange(false);
    mAllowSleep = true;
    // A reserved buffer keeps its memory when it runs empty.
    mReceiveBuffer.reserve(BufferReserve);
    mTransmitBuffer.reserve(BufferReserve);
}

serialPortAdapter::~serialPortAdapter() = default;

CAN::RetType serialPortAdapter::open()
{
    const QSerialPortInfo info(mPortName);
    QSerialPort probe(info);
    if (isRunning())
        return CAN::RetError;
    if (!probe.open(QIODevice::ReadWrite)) {
        qDebug() << "cannot open serial port" << mPortName << nameOf(probe.error()) << mPort.data()
                 << "virtual CAN::RetType serialPortAdapter::open()";
        return CAN::RetError;
    }
    probe.flush();
    probe.close();
    qDebug() << probe.isOpen() << "virtual CAN::RetType serialPortAdapter::open()";

    if (mReset)
        startAfterReset(info.vendorIdentifier(), info.productIdentifier());
    else
        start(QThread::InheritPriority);

    QElapsedTimer sinceStart;
    sinceStart.start();
    while (!mRunningFlag.load()) {
        if (sinceStart.elapsed() > StartTimeoutMs)
            return CAN::RetError;
        QCoreApplication::processEvents();
    }
    return CAN::RetOk;
}

// A reset may take its time, so it must not hold up the caller's events.
void serialPortAdapter::startAfterReset(quint16 vendorId, quint16 productId)
{
    QSemaphore finished;
    QThreadPool::globalInstance()->start([this, vendorId, productId, &finished] {
        resetDevice(vendorId, productId);
        finished.release();
    });
    while (!finished.tryAcquire())
        QCoreApplication::processEvents();
}

void serialPortAdapter::resetDevice(quint16 vendorId, quint16 productId)
{
    Q_UNUSED(vendorId)
    Q_UNUSED(productId)
    start(QThread::InheritPriority);
}

void serialPortAdapter::closeAdapter()
{
    mRunningFlag.exchange(false);
}

void serialPortAdapter::prepareToTerminate()
{
    mRunningFlag.exchange(false);
    QThread::msleep(300);
}

CAN::RetType serialPortAdapter::write(QString text)
{
    if (!sendProbe())
        return CAN::RetError;
    QTimer::singleShot(ProbeTimeoutMs, this, &serialPortAdapter::errorSendingString);
    while (!relaxedLoad(mResponseReceived)) {
        if (relaxedLoad(mSendingFailed))
            return CAN::RetError;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    }
    if (relaxedLoad(mSendingFailed))
        return CAN::RetError;
    text.append(QLatin1Char('\r'));
    if (text.isEmpty()) {
        qDebug() << "write error";
        return CAN::RetError;
    }
    addToBuffer(text.toUtf8());
    mRunningFlag.exchange(false);
    return CAN::RetOk;
}

// Past the transmit buffer, but by the thread that owns the port. The flags are cleared first, since the
// answer can be there before this thread goes on.
bool serialPortAdapter::sendProbe()
{
    const QMutexLocker lock(&mTransmitMutex);
    if (!mPort)
        return false;
    relaxedStore(mResponseReceived, false);
    relaxedStore(mSendingFailed, false);
    QSerialPort *const port = mPort;
    return QMetaObject::invokeMethod(
        port, [port] { port->write(QByteArrayLiteral(" \r")); }, Qt::QueuedConnection);
}

void serialPortAdapter::errorSendingString()
{
    if (!relaxedLoad(mResponseReceived))
        relaxedStore(mSendingFailed, true);
}

bool serialPortAdapter::readResponse()
{
    const QMutexLocker lock(&mReceiveMutex);
    if (!mPort)
        return false;
    const QByteArray data = mPort->readAll();
    if (!relaxedLoad(mResponseReceived) && data.contains('\r')) {
        qDebug() << "readResponse" << data;
        relaxedStore(mResponseReceived, true);
    } else {
        mReceiveBuffer.append(data.constData(), data.size());
        mReceivedBytes += data.size();
    }
    return !data.isEmpty();
}

void serialPortAdapter::serialError(QSerialPort::SerialPortError error)
{
    if (error == QSerialPort::ResourceError)
        qDebug() << "ressource error";
    qDebug() << nameOf(error);
}

// The bytes are copied even into an empty buffer, so that they may be a view of the caller's.
void serialPortAdapter::addToBuffer(QByteArray bytes)
{
    const QMutexLocker lock(&mTransmitMutex);
    mTransmitBuffer.append(bytes.constData(), bytes.size());
}

CAN::RetType serialPortAdapter::setBitrate(unsigned short rate)
{
    mBitrate = rate;
    return CAN::RetOk;
}

void serialPortAdapter::resetDriver() {}

CAN::CanState serialPortAdapter::getState()
{
    return CAN::CanStateNone;
}

bool serialPortAdapter::setSpecificCanAdapterOption(AdapterOption option, QVariant value)
{
    if (option != option_toggleComPort)
        return false;
    return value.toBool() ? connectPort() : disconnectPort();
}

bool serialPortAdapter::connectPort()
{
    if (QSerialPortInfo(mPortName).isNull())
        return false;
    const bool reset = std::exchange(mReset, false);
    const CAN::RetType result = open();
    mReset = reset;
    return result == CAN::RetOk;
}

bool serialPortAdapter::disconnectPort()
{
    const auto linesTakenAway = QSharedPointer<QSemaphore>::create();
    {
        const QMutexLocker lock(&mTransmitMutex);
        if (!mPort)
            return false;
        QSerialPort *const port = mPort;
        QMetaObject::invokeMethod(
            port,
            [port, linesTakenAway] {
                port->setRequestToSend(false);
                port->setDataTerminalReady(false);
                linesTakenAway->release();
            },
            Qt::QueuedConnection);
    }
    // Bounded, since a port that takes no bytes keeps the loop from its events.
    linesTakenAway->tryAcquire(1, StartTimeoutMs);
    prepareToTerminate();
    wait();
    quit();
    QThread::msleep(300);
    return mPort && mPort->isOpen();
}

QList<AbstractCanAdapter::AdapterOption> serialPortAdapter::getSkippedOptions() const
{
    return {option_ipAddress,      option_portNumber,        option_reconnectTimeout,
            option_connectTimeout, option_disconnectTimeout, option_protocol,
            option_peakAdvValues,  option_canLowSpeed,       option_isCiA309,
            option_autoBusOn,      option_errorFrames,       option_listenOnly,
            option_btrExt,         option_systecXm3Values,   option_canClassicBusParams,
            option_canFDBusParams};
}

int serialPortAdapter::clearTxQueue()
{
    return 0;
}

int serialPortAdapter::clearRxQueue()
{
    return 0;
}

int serialPortAdapter::getTxQueueCount()
{
    return 0;
}

int serialPortAdapter::getRxQueueCount()
{
    return 0;
}

bool serialPortAdapter::isBaudrateChangeable()
{
    return false;
}

QStringList serialPortAdapter::getDeviceList()
{
    QStringList names = portNames();
    names.sort(Qt::CaseInsensitive);
    return names;
}

QMap<QString, unsigned int> serialPortAdapter::getAdvDeviceList()
{
    QMap<QString, unsigned int> devices;
    for (const QString &name : portNames())
        devices.insert(name, 0);
    return devices;
}

void serialPortAdapter::startClock()
{
    static QMutex mutex;
    const QMutexLocker lock(&mutex);
    if (!mElapsedTimer.isValid())
        mElapsedTimer.start();
    clockRuns.store(true, std::memory_order_release);
}

void serialPortAdapter::stamp(CAN::CanRxMessage &record)
{
    if (relaxedLoad(mSystemTime)) {
        setSystemtimestampInCanMsg(record);
        return;
    }
    const qint64 milliseconds = clockRuns.load(std::memory_order_acquire) ? mElapsedTimer.elapsed() : 0;
    record.timeStamp.seconds = static_cast<qint32>(milliseconds / 1000);
    record.timeStamp.microseconds = static_cast<qint32>(milliseconds % 1000) * 1000;
}
