// SPDX-License-Identifier: MIT
#include "busplay/deadline_timer.h"

#include <algorithm>
#include <ctime>
#include <sys/timerfd.h>
#include <unistd.h>

namespace buslink {

namespace {

int timerDescriptor()
{
    const int descriptor = ::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
    if (descriptor < 0)
        qFatal("no descriptor for a timer");
    return descriptor;
}

} // namespace

qint64 monotonicUs()
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<qint64>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

DeadlineTimer::DeadlineTimer() : mDescriptor(timerDescriptor()), mNotifier(mDescriptor.get(), QSocketNotifier::Read)
{
    connect(&mNotifier, &QSocketNotifier::activated, this, [this] {
        quint64 expirations = 0;
        if (::read(mDescriptor.get(), &expirations, sizeof expirations) > 0)
            Q_EMIT expired();
    });
}

void DeadlineTimer::startAt(qint64 monotonicUs)
{
    // Zero would disarm the timer.
    arm(std::max<qint64>(monotonicUs, 1));
}

void DeadlineTimer::stop()
{
    arm(0);
}

void DeadlineTimer::arm(qint64 monotonicUs)
{
    itimerspec when{};
    when.it_value.tv_sec = monotonicUs / 1000000;
    when.it_value.tv_nsec = monotonicUs % 1000000 * 1000;
    ::timerfd_settime(mDescriptor.get(), TFD_TIMER_ABSTIME, &when, nullptr);
}

} // namespace buslink
