// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/system_time_stamp_p.h>

#include <QtCore/QDateTime>

#include <ctime>

namespace buslink {

CanTimeStamp timeStampFromMilliseconds(qint32 milliseconds)
{
    CanTimeStamp stamp;
    stamp.seconds = milliseconds / 1000;
    stamp.microseconds = milliseconds % 1000 * 1000;
    return stamp;
}

CanTimeStamp timeStampOfLocalTime()
{
    // Conversion to local time looks at the time zone's file, so it is done once a second.
    struct Second
    {
        time_t sinceEpoch = -1;
        int ofDay = 0;
    };
    thread_local Second second;

    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != second.sinceEpoch) {
        second.sinceEpoch = now.tv_sec;
        second.ofDay = QDateTime::fromSecsSinceEpoch(now.tv_sec).time().msecsSinceStartOfDay() / 1000;
    }
    CanTimeStamp stamp;
    stamp.seconds = second.ofDay;
    stamp.microseconds = static_cast<qint32>(now.tv_nsec / 1'000'000 * 1000);
    return stamp;
}

} // namespace buslink
