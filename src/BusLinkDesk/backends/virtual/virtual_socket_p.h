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

/// Makes a descriptor that ends a pause, to be closed by the caller. *Fails:* -1.
int openPauseEnd();

/// Ends the pause at hand, or else the next one. *Thread:* any.
void endPause(int pauseEnd);

/// Pauses until a datagram is there or the pause is ended, but for 10 ms at most. Without something to end it,
/// `pauseEnd` being -1, for the shortest time that the system offers.
void pauseUnlessReadable(qintptr descriptor, int pauseEnd);

} // namespace buslink
