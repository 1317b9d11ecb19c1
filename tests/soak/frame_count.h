// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QMutex>
#include <QtCore/QString>

#include <chrono>
#include <functional>
#include <vector>

class AbstractCanAdapter;

/// The frame that carries a number: its identifier and all 8 bytes follow from it.
CAN::CanMessage numberedFrame(quint32 number);

/// What became of numbered frames at one receiver. *Thread:* any.
class FrameCount
{
public:
    /// For frames with the numbers from 0 to `frames` - 1.
    FrameCount(QString name, quint32 frames);

    /// Counts all that an adapter delivers, which has to be echoes alone or no echo at all.
    void listenTo(AbstractCanAdapter &adapter, bool echoes);
    /// Counts a frame by its number.
    void take(quint32 number);
    /// Counts something that was never sent.
    void takeForeign();

    struct Result
    {
        QString name;
        quint32 received = 0;
        quint32 lost = 0;
        quint32 doubled = 0;
        quint32 reordered = 0; ///< Frames that came behind a later one.
        quint32 foreign = 0;   ///< Records that are none of the frames, damaged ones included.
        std::chrono::duration<double, std::milli> longestGap{0.0};

        bool isClean() const { return lost + doubled + reordered + foreign == 0; }
    };
    Result result() const;
    /// How many records came so far, of whatever kind.
    quint32 received() const;

private:
    using Clock = std::chrono::steady_clock;

    void noteArrival();

    mutable QMutex mMutex;
    Result mResult;
    std::vector<bool> mSeen;
    quint32 mDistinct = 0;
    quint32 mNext = 0;
    Clock::time_point mLast;
};

/// Runs the event loop until `isDone`, and gives up when `received` has not grown for the time of the patience. False
/// if it gave up.
bool waitWhileFramesCome(const std::function<bool()> &isDone, const std::function<quint64()> &received, int patienceMs);
