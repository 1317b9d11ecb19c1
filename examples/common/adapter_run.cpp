// SPDX-License-Identifier: MIT
#include "common/adapter_run.h"

#include <BusLinkDesk/backends/serial/serial_port_adapter.h>

#include <utility>

namespace buslink {

AdapterRun::AdapterRun(std::unique_ptr<AbstractCanAdapter> adapter) : mAdapter(std::move(adapter))
{
    connect(mAdapter.get(), &AbstractCanAdapter::interfaceError, this, &AdapterRun::fail, Qt::DirectConnection);
    // Some adapters end their loop without a word.
    connect(
        mAdapter.get(), &QThread::finished, this,
        [this] {
            if (!mStopping.load())
                fail();
        },
        Qt::DirectConnection);
    if (auto *const serial = qobject_cast<serialPortAdapter *>(mAdapter.get()))
        connect(serial, &serialPortAdapter::serialPortError, this, &AdapterRun::fail, Qt::DirectConnection);
}

// The flag is set on the adapter's thread, so that it is right as soon as that thread has ended; the signal waits
// for the event loop.
void AdapterRun::fail()
{
    if (!mFailed.exchange(true))
        QMetaObject::invokeMethod(this, &AdapterRun::failed, Qt::QueuedConnection);
}

AdapterRun::~AdapterRun()
{
    stop();
}

CAN::RetType AdapterRun::start()
{
    const CAN::RetType result = mAdapter->open();
    mOpenFailed = result != CAN::RetOk;
    // An adapter that is told to stop before its loop has begun would not hear it and run for ever. That goes
    // for a failure too: a port that is slow to open gets its loop behind it. Adapters without a thread are ready
    // when open returns.
    while (mAdapter->isRunning() && !mAdapter->getRunning())
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
    mStopping = true;
    mAdapter->prepareToTerminate();
    mAdapter->wait();
    mAdapter.reset();
}

} // namespace buslink
