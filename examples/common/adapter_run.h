// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <atomic>
#include <memory>

namespace buslink {

/// Owns an adapter from its creation to its end, and stops it in the proper order on every path.
class AdapterRun : public QObject
{
    Q_OBJECT

public:
    /// Takes over an adapter that was configured and not opened yet.
    explicit AdapterRun(std::unique_ptr<AbstractCanAdapter> adapter);
    /// Stops the adapter if `stop()` has not.
    ~AdapterRun() override;

    /// The adapter; gone after `stop()`.
    AbstractCanAdapter *adapter() const { return mAdapter.get(); }
    /// Opens the adapter. *Blocks:* until its receive loop runs or has given up.
    /// *Fails:* the code of the adapter, whose loop may run even so; `stop()` ends it.
    CAN::RetType start();
    /// Ends reception, waits for the adapter's thread and deletes the adapter. Connections to it are cut by that, and
    /// nothing is delivered any more. Does nothing the second time.
    void stop();
    /// What failed so far: opening the adapter or its transport; empty if nothing did. Final after `stop()`.
    QString problem() const;

Q_SIGNALS:
    /// The transport failed. *Thread:* the one that this object lives in.
    void failed();

private:
    void fail();

    bool mOpenFailed = false;
    std::atomic<bool> mFailed = false;
    std::atomic<bool> mStopping = false;
    std::unique_ptr<AbstractCanAdapter> mAdapter;
};

} // namespace buslink
