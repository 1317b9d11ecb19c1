// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/backends/serial/usb_message_p.h>

#include <QtCore/QByteArray>
#include <QtCore/QList>

/// Decodes the front of a buffer as the adapter's loop does, until more bytes are needed or nothing moves.
class UsbStream
{
public:
    /// Takes further bytes and returns the frames that are complete now.
    QList<CAN::CanMessage> take(const QByteArray &bytes)
    {
        using Outcome = buslink::UsbDecodeStep::Outcome;
        mBuffer.append(bytes);
        QList<CAN::CanMessage> frames;
        while (!mBuffer.isEmpty()) {
            const buslink::UsbDecodeStep step = buslink::decodeUsbMessage(mBuffer, mMessage);
            if (step.outcome == Outcome::Frame)
                frames.append(mMessage);
            mOutcomes.append(step.outcome);
            for (const int position : step.cuts)
                mBuffer.remove(0, position);
            mBuffer.remove(0, step.remove);
            if (step.remove == 0 && step.outcome != Outcome::StartInside)
                break;
        }
        return frames;
    }

    const QByteArray &buffer() const { return mBuffer; }
    int count(buslink::UsbDecodeStep::Outcome outcome) const { return static_cast<int>(mOutcomes.count(outcome)); }

private:
    QByteArray mBuffer;
    CAN::CanMessage mMessage;
    QList<buslink::UsbDecodeStep::Outcome> mOutcomes;
};
