// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>

#include <valgrind/callgrind.h>

/// Counts the instructions that the calling thread runs between `begin()` and `end()`, under callgrind. Each
/// such stretch is handed over as one dump, whose reason is how many times it did a thing, and which.
class InstructionCount
{
public:
    InstructionCount(int times, const char *what) : mReason(QByteArray::number(times) + ' ' + what) {}

    void begin() const
    {
        CALLGRIND_ZERO_STATS;
        CALLGRIND_TOGGLE_COLLECT;
    }
    void end() const
    {
        CALLGRIND_TOGGLE_COLLECT;
        CALLGRIND_DUMP_STATS_AT(mReason.constData());
    }

private:
    QByteArray mReason;
};

/// Each stretch is counted so often; what happens now and then, such as the clock's next second, is in few of them.
inline constexpr int CountsOfEach = 3;

/// Counts a call that does a thing so many times. It runs once more ahead, for what is done the first time alone.
template <typename Call>
void countInstructions(int times, const char *what, Call call)
{
    const InstructionCount count(times, what);
    call();
    for (int run = 0; run < CountsOfEach; ++run) {
        count.begin();
        call();
        count.end();
    }
}
