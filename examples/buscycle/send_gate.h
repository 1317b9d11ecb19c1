// SPDX-License-Identifier: MIT
#pragma once

#include "common/echo_counter.h"
#include "common/write_only_adapter.h"

#include <atomic>

namespace buslink {

/// Stands between a transmitter and an adapter: counts the frames that the adapter accepts, and holds the
/// transmitter back while the adapter has no room. A transmitter takes a full buffer for a frame that was
/// sent, and without pauses it would fill an unbounded queue until the memory ends.
class SendGate : public WriteOnlyAdapter
{
public:
    using WriteOnlyAdapter::write;

    /// Counts in `echoes`, which knows how many frames are on their way.
    explicit SendGate(EchoCounter *echoes) : mEchoes(echoes) {}

    /// Sets where the frames go. The adapter outlives the last write.
    void setTarget(AbstractCanAdapter *target) { mTarget = target; }
    /// Lets no frame pass any more, a write that is held back included. *Thread:* any.
    void shut() { mShut = true; }

    /// Hands the frame on. *Thread:* the transmitter's. *Blocks:* while the adapter has no room.
    /// *Fails:* `CAN::RetError` if the adapter refuses the frame, `CAN::RetTxBufferFull` if the gate is shut.
    CAN::RetType write(CAN::CanMessage *message) override;

    CAN::CanState getState() override { return mTarget->getState(); }

private:
    EchoCounter *mEchoes;
    AbstractCanAdapter *mTarget = nullptr;
    std::atomic<bool> mShut = false;
};

} // namespace buslink
