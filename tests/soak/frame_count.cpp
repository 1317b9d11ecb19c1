// SPDX-License-Identifier: MIT
#include "soak/frame_count.h"

#include "support/frame_recorder.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtTest/QtTest>

#include <algorithm>
#include <array>
#include <cstring>

CAN::CanMessage numberedFrame(quint32 number)
{
    const std::array<quint32, 2> words{number, ~number};
    return makeFrame(number & 0x7FFU, QByteArray(reinterpret_cast<const char *>(words.data()), sizeof words));
}

FrameCount::FrameCount(QString name, quint32 frames) : mSeen(frames)
{
    mResult.name = std::move(name);
}

void FrameCount::listenTo(AbstractCanAdapter &adapter, bool echoes)
{
    QObject::connect(&adapter, &AbstractCanAdapter::newCanMessage, [this, echoes](CAN::CanRxMessage *record) {
        quint32 number = 0;
        std::memcpy(&number, record->message.data, sizeof number);
        if (record->isTx == echoes && bytesOf(record->message) == bytesOf(numberedFrame(number)))
            take(number);
        else
            takeForeign();
    });
}

void FrameCount::take(quint32 number)
{
    const QMutexLocker lock(&mMutex);
    noteArrival();
    if (number >= mSeen.size()) {
        ++mResult.foreign;
    } else if (mSeen[number]) {
        ++mResult.doubled;
    } else {
        mSeen[number] = true;
        ++mDistinct;
        if (number < mNext)
            ++mResult.reordered;
        mNext = std::max(mNext, number + 1);
    }
}

void FrameCount::takeForeign()
{
    const QMutexLocker lock(&mMutex);
    noteArrival();
    ++mResult.foreign;
}

void FrameCount::noteArrival()
{
    const Clock::time_point now = Clock::now();
    if (mResult.received++ > 0)
        mResult.longestGap = std::max<std::chrono::duration<double, std::milli>>(mResult.longestGap, now - mLast);
    mLast = now;
}

FrameCount::Result FrameCount::result() const
{
    const QMutexLocker lock(&mMutex);
    Result result = mResult;
    result.lost = static_cast<quint32>(mSeen.size()) - mDistinct;
    return result;
}

quint32 FrameCount::received() const
{
    const QMutexLocker lock(&mMutex);
    return mResult.received;
}

bool waitWhileFramesCome(const std::function<bool()> &isDone, const std::function<quint64()> &received, int patienceMs)
{
    quint64 before = 0;
    do {
        before = received();
        if (QTest::qWaitFor(isDone, patienceMs))
            return true;
    } while (received() != before);
    return false;
}
