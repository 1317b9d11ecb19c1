// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/export.h>
#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QPointer>

/// The frames of one CAN identifier, as a `CanScheduler` hands them out. It belongs to its scheduler and
/// lives on the thread that registered the identifier, while it signals on the adapter's thread.
class BUSLINKDESK_EXPORT CanSender : public QObject
{
    Q_OBJECT

public:
    /// Belongs to the scheduler; nobody else deletes a sender.
    ~CanSender() override;

Q_SIGNALS:
    /// A frame of the identifier was delivered. A receiver on another thread gets a queued copy. One
    /// that is connected directly runs on the adapter's thread with the scheduler locked, so it must
    /// not register identifiers, and while it runs frames from other threads are lost after 2 ms.
    void received(CAN::CanRxMessage message);
    /// *Kept on purpose:* never emitted; 16 bits wide although identifiers have 32.
    void received(unsigned short id);

private:
    friend class CanScheduler;

    Q_DECL_HIDDEN explicit CanSender(unsigned int canId);

    [[maybe_unused]] unsigned int mCanId;
};

/// Hands the frames of one adapter to those who want them, by CAN identifier: register identifiers,
/// connect to the senders, call `connectToAdapter(true)`, open the adapter. More identifiers may be
/// registered at any time. The number stands for itself: standard and extended frames with the same
/// number go to one sender, and no range of valid numbers is checked.
///
/// A delivered frame costs a bounded lock attempt, a look-up and an emission, and allocates nothing; the
/// cost does not grow with the number of identifiers.
///
/// The scheduler does not own its adapter and does not notice its end: the adapter has to outlive every
/// `connectToAdapter`. Call `connectToAdapter(false)` or stop the adapter before the scheduler is
/// destroyed.
///
/// *Thread:* registration belongs to one thread at a time. That thread is the only one that changes the
/// table, so it looks into the table without the lock and takes the lock to change it; the dispatching
/// thread reads under the lock. No other field is shared.
class BUSLINKDESK_EXPORT CanScheduler : public QObject
{
    Q_OBJECT

public:
    /// Serves `adapter`, without connecting to it yet. The scheduler has no parent.
    explicit CanScheduler(AbstractCanAdapter *adapter);
    /// Deletes all senders.
    ~CanScheduler() override;

    /// Starts or ends dispatch: connects to the adapter's frames, or disconnects the adapter from this
    /// scheduler.
    /// *Kept on purpose:* connecting twice dispatches every frame twice, until one disconnect ends both.
    void connectToAdapter(bool connectIt);
    /// Returns the adapter of the constructor, also after its end.
    AbstractCanAdapter *canAdapter() const;
    /// Returns the sender of an identifier; the same one however often it is asked for. Null once the
    /// scheduler is gone.
    /// *Blocks:* for a new identifier, while a directly connected receiver runs.
    QPointer<CanSender> registerCanId(unsigned int canId);
    /// Returns the senders of all identifiers from `first` to `last`, both included, in ascending order;
    /// none if `last` is less than `first`. Frames that arrive meanwhile wait at most 2 ms and are lost
    /// then.
    /// *Blocks:* while a directly connected receiver runs.
    /// *Kept on purpose:* a range that ends at 4294967295 never ends.
    QList<QPointer<CanSender>> registerCanIdRange(unsigned int first, unsigned int last);
    /// Disconnects a receiver from a sender, or with a null receiver all of them. The identifier stays
    /// registered.
    /// *Fails:* a null or dead sender is reported in the debug log.
    void unregisterCan(QPointer<CanSender> sender, QObject *receiver);

public Q_SLOTS:
    /// Hands one frame to the sender of its identifier; without one, nothing happens. The record is only
    /// read.
    /// *Thread:* the adapter's. *Blocks:* up to 2 ms for the lock, and for directly connected receivers.
    /// *Fails:* without the lock the frame is lost and reported in the debug log.
    void newRawCanMessage(CAN::CanRxMessage *pMessage);

private:
    AbstractCanAdapter *mAdapter;
    QHash<unsigned int, CanSender *> mSenders;
    QMutex mSendersMutex;
};
