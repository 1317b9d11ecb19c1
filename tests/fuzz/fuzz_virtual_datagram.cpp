// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <BusLinkDesk/backends/virtual/virtual_datagram_p.h>

#include <algorithm>
#include <cstring>

// Decodes any datagram: a short one leaves what an empty one holds, a long one is cut. The frame is valid
// whatever the bytes were, and encoding it gives a datagram of the same frame.

namespace {

bool isZeroOrOne(const bool &flag)
{
    unsigned char byte = 0;
    std::memcpy(&byte, &flag, sizeof byte);
    return byte <= 1;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    buslink::VirtualDatagram datagram = buslink::emptyVirtualDatagram();
    std::copy_n(data, std::min(size, datagram.size()), datagram.begin());

    const CAN::CanMessage message = buslink::decodeVirtualDatagram(datagram);
    std::uint32_t id = 0;
    std::memcpy(&id, datagram.data(), sizeof id);
    require(message.id == id);
    require(message.length == std::min<unsigned>(datagram[4], 64));
    require(std::equal(message.data, message.data + message.length, datagram.data() + 5));
    require(std::all_of(message.data + message.length, std::end(message.data), [](quint8 byte) { return byte == 0; }));
    require(isZeroOrOne(message.isRtr) && message.isRtr == (datagram[69] != 0));
    require(isZeroOrOne(message.isExtended) && message.isExtended == (datagram[70] != 0));
    require(isZeroOrOne(message.isFd) && message.isFd == (datagram[71] != 0));
    require(isZeroOrOne(message.isEsi) && !message.isEsi);
    require(isZeroOrOne(message.isBrs) && message.isBrs == (datagram[73] != 0));

    const CAN::CanMessage again = buslink::decodeVirtualDatagram(buslink::encodeVirtualDatagram(message));
    require(std::memcmp(&again, &message, sizeof message) == 0);
    return 0;
}
