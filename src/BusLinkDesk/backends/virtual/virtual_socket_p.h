// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/virtual/virtual_datagram_p.h>

#include <QtCore/qglobal.h>

namespace buslink {

/// Asks for a receive buffer that holds seconds of a fully loaded bus; the system may give less.
void enlargeReceiveBuffer(qintptr descriptor);

/// Takes the next waiting datagram of an IPv4 socket. Bytes that it does not have stay as they are in
/// `datagram`, bytes that it has too many are dropped. One system call, no allocation, no waiting.
/// *Fails:* false; nothing is waiting.
bool receiveDatagram(qintptr descriptor, VirtualDatagram &datagram, quint16 &senderPort);

} // namespace buslink
