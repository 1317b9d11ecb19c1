// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QMutex>
#include <QtCore/QVector>

#include <functional>

/// An adapter without a transport: it keeps what is written to it and delivers what the test says. The
/// protected members of the base are public here.
class FakeAdapter : public AbstractCanAdapter
{
public:
    using AbstractCanAdapter::AbstractCanAdapter;
    using AbstractCanAdapter::write;

    using AbstractCanAdapter::dlcToBytesFD;
    using AbstractCanAdapter::handleNewCanMessage;
    using AbstractCanAdapter::handleNewTxCanMessage;
    using AbstractCanAdapter::len2dlc;
    using AbstractCanAdapter::mAllowSleep;
    using AbstractCanAdapter::mClassicBusParams;
    using AbstractCanAdapter::mDriverConfigFlag;
    using AbstractCanAdapter::mEcho;
    using AbstractCanAdapter::mFdBusParams;
    using AbstractCanAdapter::mLastTimeStamp;
    using AbstractCanAdapter::mLinkedAdapter;
    using AbstractCanAdapter::mStartTime;
    using AbstractCanAdapter::setSystemtimestampInCanMsg;

    CAN::RetType open() override { return CAN::RetOk; }
    void closeAdapter() override { mRunningFlag.exchange(false); }
    void resetDriver() override {}
    CAN::CanState getState() override { return CAN::CanStateNone; }
    void prepareToTerminate() override { mRunningFlag.exchange(false); }
    QList<AdapterOption> getSkippedOptions() const override { return skippedOptions; }

    CAN::RetType write(CAN::CanMessage *pMessage) override
    {
        const QMutexLocker lock(&mMutex);
        mWritten.append(*pMessage);
        mLastWriter = QThread::currentThread();
        return onWrite ? onWrite(pMessage) : CAN::RetOk;
    }

    /// The frames written so far. *Thread:* any.
    QVector<CAN::CanMessage> written() const
    {
        const QMutexLocker lock(&mMutex);
        return mWritten;
    }
    /// The thread of the last write, null before the first.
    QThread *lastWriter() const
    {
        const QMutexLocker lock(&mMutex);
        return mLastWriter;
    }

    /// Called by each write, with the frame; gives the write's result. Set it before other threads write.
    std::function<CAN::RetType(CAN::CanMessage *)> onWrite;
    /// What getSkippedOptions returns.
    QList<AdapterOption> skippedOptions;

private:
    mutable QMutex mMutex;
    QVector<CAN::CanMessage> mWritten;
    QThread *mLastWriter = nullptr;
};
