// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#include <optional>

namespace buslink {

/// How long to wait for room for the next frame, in µs: a full transmit buffer empties at the speed of the bus.
constexpr qint64 RetryPauseUs = 1000;

/// When the frames of a recording are due. All times count from the first frame, so that what one frame
/// is late is not carried over to those behind it. Where a recording goes back in time there is no pause.
class PlaySchedule
{
public:
    /// Returns when the next frame is due, in µs after the first, given its recorded time stamp in µs.
    qint64 nextDueUs(qint64 timeStampUs)
    {
        if (mPreviousUs && timeStampUs > *mPreviousUs)
            mDueUs += timeStampUs - *mPreviousUs;
        mPreviousUs = timeStampUs;
        return mDueUs;
    }

private:
    std::optional<qint64> mPreviousUs;
    qint64 mDueUs = 0;
};

} // namespace buslink
