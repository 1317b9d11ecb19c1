// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/can4linux/can4linux_record_p.h>

// Calls of the driver's devices. None of them reports anything; a failure leaves its reason in errno.
namespace buslink {

/// Gives the file of `fresh` the number of another, which is closed: who uses that number goes on with the new file.
/// Returns that number. *Fails:* `fresh`; it is negative, or the system refuses, and the other stays open.
int moveDescriptor(int fresh, int number);

/// What the driver's command request asks for.
enum class DriverCommand : qint32 { Start = 1, Stop = 2, Reset = 3, HandFlag = 6 };

/// What the driver's configuration request sets.
enum class DriverTarget : qint32 { NominalRate = 3, SelfReception = 9, DataRateFactor = 13 };

/// Gives the driver a command; only `HandFlag` has a value. *Fails:* a negative number.
int commandDriver(int device, DriverCommand command, quint64 value = 0);

/// Changes a setting of the driver. *Fails:* a negative number.
int configureDriver(int device, DriverTarget target, quint64 value);

/// Reads the next frame, and returns how many that were; without one, `frame` stays as it was.
/// *Fails:* a negative number.
qint64 readDriverFrame(int device, canmsg_t &frame);

/// Hands a frame to the driver. *Fails:* -1.
qint64 writeDriverFrame(int device, const canmsg_t &frame);

} // namespace buslink
