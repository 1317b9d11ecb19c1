// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/serial/serial_port_adapter.h>

/// A serial adapter without a port: it echoes what it accepts, as one does whose queue has no end.
class FakeSerialAdapter : public serialPortAdapter
{
public:
    using serialPortAdapter::write;

    explicit FakeSerialAdapter(quint32 bitsPerSecond) : serialPortAdapter(QStringLiteral("none"))
    {
        setCanAdapterOption(option_baudrate, bitsPerSecond);
    }

    CAN::RetType write(CAN::CanMessage *message) override
    {
        CAN::CanRxMessage echo;
        echo.message = *message;
        echo.isTx = true;
        ++written;
        handleNewTxCanMessage(echo);
        return CAN::RetOk;
    }

    int written = 0;
};
