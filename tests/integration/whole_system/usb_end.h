// SPDX-License-Identifier: MIT
#pragma once

#include "support/simulated_usb_device.h"

#include <QtCore/QString>

#include <memory>

/// A serial port and the device on its far end, mocked or emulated, whichever the program is linked with.
class UsbEnd
{
public:
    UsbEnd();
    ~UsbEnd();
    UsbEnd(const UsbEnd &) = delete;
    UsbEnd &operator=(const UsbEnd &) = delete;

    QString portName() const;
    SimulatedUsbDevice &device();

private:
    struct Private;
    std::unique_ptr<Private> mPrivate;
};
