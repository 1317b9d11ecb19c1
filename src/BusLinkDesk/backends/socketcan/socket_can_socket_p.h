// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/socketcan/socket_can_frame_p.h>

#include <QtCore/QByteArray>

#include <optional>

// System calls on a raw CAN socket. What fails is reported on standard error, if nothing else is said.
namespace buslink {

/// Puts the socket `fresh`, or none, in the place of the one in `field`, which is closed. A number that was valid
/// stays for a new socket, so a thread that is just writing to it never meets a foreign file.
void replaceDescriptor(int &field, int fresh);

/// Binds a socket that takes CAN FD frames too to an interface. A name too long for any interface
/// aborts the process. *Fails:* false; there is no such interface, or it cannot be bound.
bool bindToInterface(int socket, const QByteArray &name);

/// Asks for a receive buffer that lasts through a burst, and returns the size that came of it, if known.
std::optional<int> enlargeReceiveBuffer(int socket);

/// Asks for the error frames that tell of the bus state.
void requestErrorFrames(int socket);

/// Takes the next frame, at most `capacity` bytes of it, and returns their number.
/// *Fails:* a negative number.
qint64 receiveFrame(int socket, std::size_t capacity, KernelFrame &frame);

/// Hands a classic frame to the interface.
/// *Fails:* `CAN::RetTxBufferFull` where the interface has no room, else `CAN::RetError`; reports nothing.
CAN::RetType sendFrame(int socket, const can_frame &frame);

/// Hands a CAN FD frame to the interface. *Fails:* `CAN::RetError`; one that was not taken whole, which has no
/// reason, is reported as "write: Success".
CAN::RetType sendFrame(int socket, const canfd_frame &frame);

} // namespace buslink
