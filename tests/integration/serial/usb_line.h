// SPDX-License-Identifier: MIT
#pragma once

#include "live_usb_adapter.h"

#include "support/mock_serial_port.h"
#include "support/simulated_usb_device.h"

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
        return waitForLoop(adapter.get(), WaitMs);
    }
    /// The same by the option, which says itself whether that worked: a run that came late is tried again.
    bool openByOption() const
    {
        const auto opened = [this] {
            if (adapter->setCanAdapterOption(AbstractCanAdapter::option_toggleComPort, true))
                return true;
            if (waitForLoop(adapter.get(), WaitMs))
                adapter->closeAdapter();
            adapter->wait();
            return false;
        };
        return QTest::qWaitFor(opened, WaitMs);
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
