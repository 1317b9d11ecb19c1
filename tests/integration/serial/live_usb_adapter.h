// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/serial/usb_message_p.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/frame_recorder.h"
#include "support/log_recorder.h"
#include "support/mock_serial_port.h"
#include "support/open_adapter.h"
#include "support/simulated_usb_device.h"

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

/// A port with a device on its far end and an adapter that is not open yet.
struct UsbLine
{
    MockSerialPort port;
    SimulatedUsbDevice device{port.farEnd()};
    AdapterPointer<LiveUsbAdapter> adapter = makeUsbAdapter(port.name());

    /// Opens the adapter. A loaded machine may need more than the time that it gives its thread.
    bool open() const
    {
        adapter->open();
        return QTest::qWaitFor([this] { return adapter->getRunning(); }, WaitMs);
    }
    /// The same for half-duplex operation, without echoes.
    bool openHalfDuplex() const
    {
        adapter->setCanAdapterOption(AbstractCanAdapter::option_halfDuplex, true);
        adapter->setEcho(false);
        return open();
    }
    /// Lets the device send bytes and waits until the adapter has them; not until it has decoded them.
    bool sendAndWait(const QByteArray &bytes)
    {
        const qint64 before = adapter->receivedBytes();
        device.send(bytes);
        return QTest::qWaitFor([&] { return adapter->receivedBytes() == before + bytes.size(); }, WaitMs);
    }
};

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

/// The record that names all received bytes that were not taken yet.
inline QString dump(const QByteArray &bytes)
{
    return QLatin1Char('"') + QString::fromLatin1(bytes.toHex()) + QLatin1Char('"');
}

/// The records of a byte that begins no message and is dropped.
inline QStringList strayByteRecords(const QByteArray &buffer)
{
    return {QStringLiteral("virtual void ZorbekUSBCanAdapter::run() ungültige daten entfernt 1"), dump(buffer)};
}

/// The records of bytes that are dropped one after the other until the buffer begins at `last`.
inline QStringList strayBytesRecords(QByteArray buffer, int count)
{
    QStringList records;
    for (; count > 0; --count) {
        records += strayByteRecords(buffer);
        buffer.remove(0, 1);
    }
    return records;
}

/// The record of the probe in `open()`.
inline QStringList probeRecord()
{
    return {QStringLiteral("false virtual CAN::RetType serialPortAdapter::open()")};
}

inline const QString UnsupportedOperation = QStringLiteral("UnsupportedOperationError");

/// What a mocked port reports by itself while it is opened: it has no modem lines.
inline QStringList portOpeningRecords()
{
    return {QStringLiteral("NoError"), UnsupportedOperation};
}

/// What a mocked port reports when RTS and DTR are set.
inline QStringList modemLineRecords()
{
    return {UnsupportedOperation, UnsupportedOperation, UnsupportedOperation, UnsupportedOperation};
}

/// What a port that is not open reports, and Qt with it, when it is flushed, cleared and closed.
inline QStringList closedPortRecords()
{
    const QString error = QStringLiteral("NotOpenError");
    return {error, QStringLiteral("bool QSerialPort::flush(): device not open"), error,
            QStringLiteral("bool QSerialPort::clear(Directions): device not open"), error};
}
