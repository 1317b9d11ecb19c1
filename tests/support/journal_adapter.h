// SPDX-License-Identifier: MIT
#pragma once

#include "support/fake_adapter.h"
#include "support/journal.h"

#include <functional>

/// An adapter that notes under its name each step of its life. Its thread loops like that of a real back
/// end, and takes its time to end.
class JournalAdapter : public FakeAdapter
{
public:
    /// The journal must outlive the adapter.
    JournalAdapter(Journal &journal, const QString &name) : mJournal(journal), mName(name)
    {
        setCanAdapterOption(option_adapterName, name);
    }
    ~JournalAdapter() override
    {
        note(isRunning() ? "deleted while its thread runs" : "deleted");
        mRunningFlag.exchange(false);
        wait();
    }

    CAN::RetType open() override
    {
        note("open");
        if (onOpen)
            onOpen();
        if (openResult == CAN::RetOk) {
            mRunningFlag.exchange(true);
            if (startsThread)
                start(QThread::InheritPriority);
        }
        return openResult;
    }
    void closeAdapter() override
    {
        note("closeAdapter");
        mRunningFlag.exchange(false);
    }
    void prepareToTerminate() override
    {
        note("prepareToTerminate");
        mRunningFlag.exchange(false);
        // A copy, since the adapter may be gone afterwards.
        const std::function<void()> call = onPrepareToTerminate;
        if (call)
            call();
    }

    /// Called by open, on the caller's thread.
    std::function<void()> onOpen;
    /// Called last by prepareToTerminate, on the caller's thread.
    std::function<void()> onPrepareToTerminate;
    /// What open returns.
    CAN::RetType openResult = CAN::RetOk;
    /// Whether open starts the thread, as the back ends with a receive loop do.
    bool startsThread = true;
    /// How long the thread goes on after it was told to end.
    unsigned long lingerMs = 0;

protected:
    void run() override
    {
        while (mRunningFlag.load())
            QThread::msleep(1);
        QThread::msleep(lingerMs);
        note("thread ends");
    }

private:
    void note(const char *step) { mJournal.add(mName + QLatin1Char(' ') + QLatin1String(step)); }

    Journal &mJournal;
    QString mName;
};
