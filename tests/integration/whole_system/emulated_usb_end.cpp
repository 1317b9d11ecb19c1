// SPDX-License-Identifier: MIT
#include "guest/usb_far_end.h"
#include "usb_end.h"

struct UsbEnd::Private
{
    ~Private()
    {
        device.reset();
        ::close(descriptor);
    }
    const int descriptor = openFarEnd();
    std::unique_ptr<SimulatedUsbDevice> device = std::make_unique<SimulatedUsbDevice>(descriptor);
};

UsbEnd::UsbEnd() : mPrivate(std::make_unique<Private>()) {}
UsbEnd::~UsbEnd() = default;

QString UsbEnd::portName() const
{
    return QStringLiteral("ttyUSB0");
}

SimulatedUsbDevice &UsbEnd::device()
{
    return *mPrivate->device;
}
