// SPDX-License-Identifier: MIT
#include "support/mock_serial_port.h"
#include "usb_end.h"

struct UsbEnd::Private
{
    MockSerialPort port;
    SimulatedUsbDevice device{port.farEnd()};
};

UsbEnd::UsbEnd() : mPrivate(std::make_unique<Private>()) {}
UsbEnd::~UsbEnd() = default;

QString UsbEnd::portName() const
{
    return mPrivate->port.name();
}

SimulatedUsbDevice &UsbEnd::device()
{
    return mPrivate->device;
}
