// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/backends/serial/usb_message_p.h>

#include <QtCore/QDebug>
#include <QtCore/QTime>

using buslink::relaxedLoad;

ZorbekUSBCanAdapter::ZorbekUSBCanAdapter(QString name, QObject *parent) : serialPortAdapter(std::move(name), parent) {}

ZorbekUSBCanAdapter::~ZorbekUSBCanAdapter()
{
    mRunningFlag.exchange(false);
    wait();
}

CAN::RetType ZorbekUSBCanAdapter::write(CAN::CanMessage *message)
{
    return write(message, true);
}

CAN::RetType ZorbekUSBCanAdapter::write(CAN::CanMessage *message, bool firstSend)
{
    if (!message)
        return CAN::RetError;
    const buslink::UsbMessage wire = buslink::encodeUsbMessage(*message);
    const QByteArray bytes = QByteArray::fromRawData(wire.bytes.data(), wire.size);
    if (relaxedLoad(mHalfDuplex)) {
        if (firstSend) {
            const QMutexLocker lock(&mPendingMutex);
            mPendingMessages.append(*message);
        } else {
            qDebug() << "CAN::RetType ZorbekUSBCanAdapter::write(CAN::CanMessage*, bool)" << QTime::currentTime()
                     << "Resend serial message: " << bytes.toHex();
        }
    }
    if (relaxedLoad(mEcho)) {
        CAN::CanRxMessage echo;
        echo.message = *message;
        echo.isTx = true;
        stamp(echo);
        handleNewTxCanMessage(echo);
    }
    addToBuffer(bytes);
    return CAN::RetOk;
}

void ZorbekUSBCanAdapter::resendLastMessage()
{
    CAN::CanMessage message;
    {
        const QMutexLocker lock(&mPendingMutex);
        if (mPendingMessages.isEmpty())
            return;
        mLastMessage = mPendingMessages.takeFirst();
        message = mLastMessage;
    }
    write(&message, false);
}

QMap<QString, unsigned int> ZorbekUSBCanAdapter::getAdvDeviceList()
{
    QMap<QString, unsigned int> devices = serialPortAdapter::getAdvDeviceList();
    for (unsigned int &number : devices)
        number = 128;
    return devices;
}
