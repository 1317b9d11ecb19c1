// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <BusLinkDesk/backends/serial/usb_message_p.h>

#include <algorithm>
#include <cstring>

// Takes any received bytes through the decoder as the adapter does: every pass removes something or ends the
// run, the buffer grows by no more than five bytes a pass, and a frame with an honest length can be sent on.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    using Outcome = buslink::UsbDecodeStep::Outcome;
    QByteArray buffer(reinterpret_cast<const char *>(data), static_cast<int>(size));
    CAN::CanMessage message;
    int unknownTypes = 0;
    while (!buffer.isEmpty()) {
        const int before = buffer.size();
        const buslink::UsbDecodeStep step = buslink::decodeUsbMessage(buffer, message);
        require(buffer.size() <= before + 5);
        require(message.length <= 64);
        for (const int position : step.cuts) {
            require(position > 0 && position < buffer.size());
            buffer.remove(0, position);
        }
        require(step.remove >= 0 && step.remove <= buffer.size());
        buffer.remove(0, step.remove);
        switch (step.outcome) {
        case Outcome::Frame: {
            require(step.cuts.isEmpty() && step.remove == step.lengthByte + 1);
            const buslink::UsbMessage wire = buslink::encodeUsbMessage(message);
            QByteArray again(wire.bytes.data(), wire.size);
            CAN::CanMessage copy = message;
            require(buslink::decodeUsbMessage(again, copy).outcome == Outcome::Frame);
            require(std::memcmp(&copy, &message, sizeof copy) == 0);
            break;
        }
        case Outcome::BadChecksum:
        case Outcome::StrayByte:
            require(step.remove > 0);
            break;
        case Outcome::StartInside:
            require(!step.cuts.isEmpty() && step.remove == 0);
            break;
        case Outcome::UnknownType:
            // Left where it is; once more with its bits restored, and then the adapter would wait.
            if (++unknownTypes == 2)
                return 0;
            break;
        case Outcome::Incomplete:
            if (step.cuts.isEmpty())
                return 0;
            break;
        }
    }
    return 0;
}
