// SPDX-License-Identifier: MIT
#include "common/adapter_run.h"

#include <BusLinkDesk/backends/serial/serial_port_adapter.h>

#include <algorithm>
#include <utility>

namespace buslink {

namespace {

// Bytes that a frame has on a serial line, at most, and bits that a byte has there.
constexpr double FramingBytes = 20;
constexpr double BitsPerByte = 11;
// What the line's drivers may take beyond that.
constexpr qint64 LineMarginMs = 100;

} // namespace

AdapterRun::AdapterRun(std::unique_ptr<AbstractCanAdapter> adapter) : mAdapter(std::move(adapter))
{
    // The flag is set on the adapter's thread, so that it is right as soon as that thread has ended; the
    // signal waits for the event loop.
    connect(
        mAdapter.get(), &AbstractCanAdapter::interfaceError, this, [this] { mFailed = true; }, Qt::DirectConnection);
    connect(mAdapter.get(), &AbstractCanAdapter::interfaceError, this, &AdapterRun::failed, Qt::QueuedConnection);
    if (auto *const serial = qobject_cast<serialPortAdapter *>(mAdapter.get())) {
        connect(
            serial, &serialPortAdapter::serialPortError, this, [this] { mFailed = true; }, Qt::DirectConnection);
        connect(serial, &serialPortAdapter::serialPortError, this, &AdapterRun::failed, Qt::QueuedConnection);
        keepTimeOfLine(serial->getCanAdapterOption(AbstractCanAdapter::option_baudrate).toDouble());
    }
}

// A serial adapter echoes a frame when it is queued. So the time is reckoned that the line needs for it: what
// is queued when the adapter stops would stay behind.
void AdapterRun::keepTimeOfLine(double bitsPerSecond)
{
    connect(
        mAdapter.get(), &AbstractCanAdapter::newCanMessage, this,
        [this, bitsPerSecond](const CAN::CanRxMessage *message) {
            if (!message->isTx)
                return;
            const double seconds = (FramingBytes + message->message.length) * BitsPerByte / bitsPerSecond;
            const std::lock_guard lock(mLineMutex);
            const qint64 free = std::max<qint64>(0, mLineFree.remainingTimeNSecs());
            mLineFree.setPreciseRemainingTime(0, free + static_cast<qint64>(seconds * 1e9), Qt::PreciseTimer);
        },
        Qt::DirectConnection);
}

void AdapterRun::waitForLine()
{
    qint64 remainingMs = 0;
    {
        const std::lock_guard lock(mLineMutex);
        if (mLineFree == QDeadlineTimer())
            return;
        remainingMs = std::max<qint64>(0, mLineFree.remainingTime());
    }
    QThread::msleep(static_cast<unsigned long>(remainingMs + LineMarginMs));
}

AdapterRun::~AdapterRun()
{
    stop();
}

CAN::RetType AdapterRun::start()
{
    const CAN::RetType result = mAdapter->open();
    mOpenFailed = result != CAN::RetOk;
    // An adapter that is told to stop before its loop has begun would not hear it and run for ever. Those
    // without a thread are ready when open returns.
    while (result == CAN::RetOk && mAdapter->isRunning() && !mAdapter->getRunning())
        QThread::msleep(1);
    return result;
}

QString AdapterRun::problem() const
{
    if (mOpenFailed)
        return QStringLiteral("the adapter could not be opened");
    return mFailed.load() ? QStringLiteral("the transport of the adapter failed") : QString();
}

void AdapterRun::stop()
{
    if (!mAdapter)
        return;
    if (mAdapter->getRunning() && !mFailed.load())
        waitForLine();
    mAdapter->prepareToTerminate();
    mAdapter->wait();
    mAdapter.reset();
}

} // namespace buslink
