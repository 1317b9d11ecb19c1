// SPDX-License-Identifier: MIT
#pragma once

#include "soak/frame_count.h"

#include <memory>
#include <vector>

/// One back end under load: who sends, who receives, and what is in between.
class SoakLine
{
public:
    virtual ~SoakLine() = default;
    /// Makes it ready. False if that does not work.
    virtual bool open() = 0;
    /// Sends one frame. False if there is no room for it just now. *Thread:* the sender's, one.
    virtual bool send(quint32 number) = 0;
    /// Whether it sends on the thread that made it, where an event loop runs.
    virtual bool needsEventLoop() const { return false; }
    /// All who receive each frame.
    const std::vector<std::unique_ptr<FrameCount>> &receivers() const { return mReceivers; }

protected:
    FrameCount &addReceiver(const QString &name, quint32 frames)
    {
        return *mReceivers.emplace_back(std::make_unique<FrameCount>(name, frames));
    }

private:
    std::vector<std::unique_ptr<FrameCount>> mReceivers;
};

/// The lines of all back ends that there are here, for this many frames each. SocketCAN and can4linux take a kernel of
/// the tests' own, serial ports take umockdev. With `only`, the line of this name: virtual, socketcan, can4linux, usb,
/// gateway or bridge.
std::vector<std::unique_ptr<SoakLine>> makeLines(quint32 frames, const QString &only);

/// The two can4linux devices of a kernel of the tests' own, of which each receives what the other one sends. None
/// elsewhere.
QStringList loopingDevices();

std::unique_ptr<SoakLine> makeGatewayLine(quint32 frames);
std::unique_ptr<SoakLine> makeBridgeLine(quint32 frames);
