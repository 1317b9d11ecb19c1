// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

namespace buslink {

/// How many bits a frame takes on the wire, from its start to the end of the pause of 3 bits behind it.
struct FrameBits
{
    int nominal = 0; ///< At the nominal rate.
    int data = 0;    ///< At the rate of the data phase; only with the bit-rate switch.

    bool operator==(const FrameBits &) const = default;
};

/// Counts them. Stuff bits are those that this very frame needs, since all that they depend on is known. Of a frame
/// with the bit-rate switch, the bit that switches counts as nominal and the one that switches back as fast. What a
/// bus carries besides good frames, such as error frames, is not known here.
FrameBits frameBits(const CAN::CanMessage &message);

/// Rates of a bus.
struct BusRates
{
    quint32 nominal = 500; ///< In kbit/s.
    quint32 data = 2000;   ///< In kbit/s.
};

/// How long a frame keeps the bus busy, in ns.
double busyNs(const CAN::CanMessage &message, const BusRates &rates);

} // namespace buslink
