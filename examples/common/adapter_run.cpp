// SPDX-License-Identifier: MIT
#include "common/adapter_run.h"

#include <utility>

namespace buslink {

AdapterRun::AdapterRun(std::unique_ptr<AbstractCanAdapter> adapter) : mAdapter(std::move(adapter))
{
    // The flag is set on the adapter's thread, so that it is right as soon as that thread has ended; the
    // signal waits for the event loop.
    connect(
        mAdapter.get(), &AbstractCanAdapter::interfaceError, this, [this] { mFailed = true; }, Qt::DirectConnection);
    connect(mAdapter.get(), &AbstractCanAdapter::interfaceError, this, &AdapterRun::failed, Qt::QueuedConnection);
}

AdapterRun::~AdapterRun()
{
    stop();
}

CAN::RetType AdapterRun::start()
{
    const CAN::RetType result = mAdapter->open();
    // An adapter that is told to stop before its loop has begun would not hear it and run for ever. Those
    // without a thread are ready when open returns.
    while (result == CAN::RetOk && mAdapter->isRunning() && !mAdapter->getRunning())
        QThread::msleep(1);
    return result;
}

void AdapterRun::stop()
{
    if (!mAdapter)
        return;
    mAdapter->prepareToTerminate();
    mAdapter->wait();
    mAdapter.reset();
}

} // namespace buslink
