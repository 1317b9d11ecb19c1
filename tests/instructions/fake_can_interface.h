// SPDX-License-Identifier: MIT
#pragma once

/// The other end of the CAN socket that was made last. A program that is linked with fake_can_interface.cpp has
/// CAN interfaces of any name, whatever its kernel has: each socket is one end of a pair of local ones that keep
/// the bounds of frames.
int farEndOfCanSocket();
