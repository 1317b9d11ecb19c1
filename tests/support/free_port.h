// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

/// A UDP port that nobody on this host has bound, so that suites do not hear each other.
quint16 freeUdpPort();

/// How many UDP sockets of this host are bound to a port for IPv4.
int udpSocketsOnPort(quint16 port);
