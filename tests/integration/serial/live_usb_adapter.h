// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/serial/usb_message_p.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/frame_recorder.h"
#include "support/log_recorder.h"
#include "support/open_adapter.h"

#include <QtSerialPort/QSerialPortInfo>

#include <atomic>
#include <utility>

/// Enough for a machine that is busy with something else.
constexpr int WaitMs = 20'000;

/// A USB adapter whose state can be looked at.
class LiveUsbAdapter : public ZorbekUSBCanAdapter
{
public:
    using ZorbekUSBCanAdapter::mPort;
    using ZorbekUSBCanAdapter::mResponseReceived;
    using ZorbekUSBCanAdapter::mSendingFailed;
    using ZorbekUSBCanAdapter::mTransmitBuffer;
    using ZorbekUSBCanAdapter::ZorbekUSBCanAdapter;

    /// Makes a call on the adapter's thread, between two passes of its running loop.
    template <typename Call>
    void inLoop(Call call)
    {
        QMetaObject::invokeMethod(mPort.data(), call, Qt::BlockingQueuedConnection);
    }
    /// Bytes that have come in during this run.
    qint64 receivedBytes()
    {
        const QMutexLocker lock(&mReceiveMutex);
        return mReceivedBytes;
    }
    /// Bytes that were not taken yet. The loop has to run.
    QByteArray waitingBytes()
    {
        QByteArray bytes;
        inLoop([&] { bytes = QByteArray(mReceiveBuffer.constData(), mReceiveBuffer.size()); });
        return bytes;
    }
    /// Bytes that wait for the port. *Thread:* any.
    QByteArray bytesToTransmit()
    {
        const QMutexLocker lock(&mTransmitMutex);
        return QByteArray(mTransmitBuffer.constData(), mTransmitBuffer.size());
    }
    /// Forgets them. *Thread:* any.
    void dropBytesToTransmit()
    {
        const QMutexLocker lock(&mTransmitMutex);
        mTransmitBuffer.clear();
    }
    /// Whether a return is awaited, while a port that takes nothing holds the loop.
    bool heldLoopAwaitsReturn()
    {
        const QMutexLocker lock(&mTransmitMutex);
        return mResendTimer->isActive();
    }
    /// Milliseconds until a frame is sent again, -1 without a return to await. The loop has to run.
    int remainingWait()
    {
        int milliseconds = 0;
        inLoop([&] { milliseconds = mResendTimer->remainingTime(); });
        return milliseconds;
    }
    /// Whether a return is awaited. The loop has to run.
    bool awaitsReturn()
    {
        bool active = false;
        inLoop([&] { active = mResendTimer->isActive(); });
        return active;
    }
};

inline AdapterPointer<LiveUsbAdapter> makeUsbAdapter(const QString &portName, int uniqueId = 0)
{
    AdapterPointer<LiveUsbAdapter> adapter(new LiveUsbAdapter(portName));
    adapter->setCanAdapterOption(AbstractCanAdapter::option_baudrate, 115200);
    adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, uniqueId);
    return adapter;
}

/// Counts how often an adapter reports that its port failed, on whatever thread it does so.
class PortErrors
{
public:
    explicit PortErrors(serialPortAdapter *adapter)
    {
        QObject::connect(
            adapter, &serialPortAdapter::serialPortError, adapter, [this] { ++mCount; }, Qt::DirectConnection);
    }
    int count() const { return mCount; }

private:
    std::atomic<int> mCount = 0;
};

/// Whether anybody can open a port now.
inline bool opens(const QString &portName)
{
    QSerialPort port{QSerialPortInfo(portName)};
    return port.open(QIODevice::ReadWrite);
}

/// The message that stands for a frame.
inline QByteArray wire(const CAN::CanMessage &message)
{
    const buslink::UsbMessage encoded = buslink::encodeUsbMessage(message);
    return QByteArray(encoded.bytes.data(), encoded.size);
}

/// Whether these are what a dead port reports: failed reads, and in pairs failed calls of other kinds.
inline bool deadPortRecordsAlone(QStringList records)
{
    records.removeAll(QStringLiteral("ReadError"));
    for (int index = 0; index < records.size(); ++index) {
        if (records.at(index) != QLatin1String(index % 2 ? "ResourceError" : "ressource error"))
            return false;
    }
    return records.size() % 2 == 0;
}
