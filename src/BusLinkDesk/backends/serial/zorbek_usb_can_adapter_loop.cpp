// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/backends/serial/usb_message_p.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtSerialPort/QSerialPortInfo>

#include <cstring>

using buslink::relaxedLoad;

namespace {

constexpr int ReturnTimeoutMs = 10'000;
constexpr unsigned long IdleMicroseconds = 5;
constexpr quint8 IdlePassesWithoutSleep = 255;

bool sameFrame(const CAN::CanMessage &a, const CAN::CanMessage &b)
{
    return a.id == b.id && a.isExtended == b.isExtended && a.isBrs == b.isBrs && a.isFd == b.isFd
           && a.length == b.length && a.isRtr == b.isRtr && std::memcmp(a.data, b.data, sizeof a.data) == 0;
}

} // namespace

void ZorbekUSBCanAdapter::run()
{
    openPort();
    mReceivedBytes = 0;
    mDiscardCount = 0;
    const QSerialPortInfo description(mPortName);
    CAN::CanRxMessage record;
    startClock();
    quint8 idlePasses = 1;
    while (mRunningFlag.load()) {
        if (description.isNull()) {
            qDebug() << "current port is no more valid";
            Q_EMIT serialPortError();
            mRunningFlag.exchange(false);
            continue;
        }
        if (mReceiveBuffer.isEmpty()) {
            if (!flushTransmitBuffer())
                idle(idlePasses);
        } else if (decode(record)) {
            flushTransmitBuffer();
        }
        QCoreApplication::processEvents();
    }
    closePort();
}

void ZorbekUSBCanAdapter::openPort()
{
    auto *const port = new QSerialPort(QSerialPortInfo(mPortName));
    auto *const resendTimer = new QTimer;
    resendTimer->setSingleShot(true);
    // By name, since this signal of the port is deprecated and a newer one says the same.
    connect(port, SIGNAL(error(QSerialPort::SerialPortError)), this, SLOT(serialError(QSerialPort::SerialPortError)),
            Qt::DirectConnection);
    connect(port, &QIODevice::readyRead, this, &serialPortAdapter::readResponse, Qt::DirectConnection);
    connect(resendTimer, &QTimer::timeout, this, &ZorbekUSBCanAdapter::resendLastMessage);
    {
        const QMutexLocker lock(&mTransmitMutex);
        mPort = port;
        mResendTimer = resendTimer;
    }
    if (!port->open(QIODevice::ReadWrite)) {
        qDebug() << "cannot open serial port";
        Q_EMIT serialPortError();
        mRunningFlag.exchange(false);
        return;
    }
    const bool accepted = applySettings();
    port->setRequestToSend(true);
    port->setDataTerminalReady(true);
    if (accepted) {
        mRunningFlag.exchange(true);
        return;
    }
    Q_EMIT serialPortError();
    mRunningFlag.exchange(false);
    port->close();
}

bool ZorbekUSBCanAdapter::applySettings()
{
    return mPort->setBaudRate(static_cast<qint32>(mBaudrate)) && mPort->setDataBits(QSerialPort::DataBits(mDataBits))
           && mPort->setParity(QSerialPort::Parity(mParity))
           && mPort->setFlowControl(QSerialPort::FlowControl(mFlowControl))
           && mPort->setStopBits(QSerialPort::StopBits(mStopBits));
}

void ZorbekUSBCanAdapter::closePort()
{
    if (mPort) {
        mPort->flush();
        mPort->clear(QSerialPort::AllDirections);
        mPort->close();
    }
    const QMutexLocker lock(&mTransmitMutex);
    delete mPort.data();
    mPort.clear();
    if (mResendTimer)
        mResendTimer->stop();
    delete mResendTimer.data();
    mResendTimer.clear();
}

void ZorbekUSBCanAdapter::idle(quint8 &passes)
{
    if (relaxedLoad(mAllowSleep)) {
        QThread::usleep(IdleMicroseconds);
    } else if (++passes == IdlePassesWithoutSleep) {
        QThread::usleep(IdleMicroseconds);
        passes = 0;
    }
}

// Returns whether there was anything to transmit. Writers get their turn between two tries.
bool ZorbekUSBCanAdapter::flushTransmitBuffer()
{
    for (bool any = false;; any = true) {
        const QMutexLocker lock(&mTransmitMutex);
        if (mTransmitBuffer.isEmpty())
            return any;
        const bool halfDuplex = relaxedLoad(mHalfDuplex) && mResendTimer;
        if (halfDuplex)
            mResendTimer->start(ReturnTimeoutMs);
        const qint64 written = mPort->write(mTransmitBuffer);
        if (written < 1 && halfDuplex)
            mResendTimer->stop();
        if (written > 0)
            mTransmitBuffer.remove(0, static_cast<int>(written));
    }
}

// Returns whether the pass goes on to transmission.
bool ZorbekUSBCanAdapter::decode(CAN::CanRxMessage &record)
{
    using Outcome = buslink::UsbDecodeStep::Outcome;
    const buslink::UsbDecodeStep step = buslink::decodeUsbMessage(mReceiveBuffer, record.message);
    switch (step.outcome) {
    case Outcome::StrayByte:
        qDebug() << "virtual void ZorbekUSBCanAdapter::run()"
                 << "ungültige daten entfernt" << 1;
        qDebug() << mReceiveBuffer.toHex();
        mReceiveBuffer.remove(0, step.remove);
        break;
    case Outcome::Incomplete:
        for (const int position : step.cuts) {
            qDebug() << "virtual void ZorbekUSBCanAdapter::run()"
                     << "ungültige daten entfernt 1 " << position;
            mReceiveBuffer.remove(0, position);
            ++mDiscardCount;
        }
        break;
    case Outcome::StartInside:
        for (const int position : step.cuts) {
            qDebug() << "virtual void ZorbekUSBCanAdapter::run()"
                     << "ungültige daten entfernt 2 " << position;
            qDebug() << mReceiveBuffer.toHex();
            mReceiveBuffer.remove(0, position);
            ++mDiscardCount;
        }
        break;
    case Outcome::BadChecksum:
        qDebug() << "checksum error" << mReceiveBuffer.toHex() << step.lengthByte;
        removeMessage(step.remove);
        return false;
    case Outcome::UnknownType:
        break;
    case Outcome::Frame:
        removeMessage(step.remove);
        stamp(record);
        if (relaxedLoad(mHalfDuplex))
            deliverUnlessReturned(record);
        else
            handleNewCanMessage(record);
        break;
    }
    return true;
}

void ZorbekUSBCanAdapter::removeMessage(int size)
{
    const QMutexLocker lock(&mReceiveMutex);
    mReceiveBuffer.remove(0, size);
}

// Delivery happens with the lock held, so that a frame which is written meanwhile does not take this one
// for its return.
void ZorbekUSBCanAdapter::deliverUnlessReturned(const CAN::CanRxMessage &record)
{
    const QMutexLocker lock(&mPendingMutex);
    if (mResendTimer)
        mResendTimer->stop();
    if (!takeReturned(record.message))
        handleNewCanMessage(record);
}

bool ZorbekUSBCanAdapter::takeReturned(const CAN::CanMessage &message)
{
    if (sameFrame(message, mLastMessage)) {
        mLastMessage = CAN::CanMessage();
        return true;
    }
    while (!mPendingMessages.isEmpty()) {
        if (sameFrame(mPendingMessages.takeFirst(), message))
            return true;
    }
    return false;
}
