// SPDX-License-Identifier: MIT
#pragma once

#include "busdesk/frame_inbox.h"
#include "bussets/adapter_set.h"

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QPointer>

#include <memory>

namespace buslink {

/// What became of an adapter since it was connected.
struct AdapterStatus
{
    bool open = false;                          ///< Connected and not told to end.
    bool closing = false;                       ///< Told to end; its thread has not yet.
    CAN::CanState busState = CAN::CanStateNone; ///< What it announced.
    QString problem;                            ///< What failed since it was connected; empty if nothing did.

    bool operator==(const AdapterStatus &) const = default;
};

/// The set of adapters that the window works on, and what becomes of them. Operations that return a text return
/// why it could not be done; it is empty where it was.
class AdapterDesk : public QObject
{
    Q_OBJECT

public:
    AdapterDesk();
    /// Stops the adapters. *Blocks:* until their threads have ended.
    ~AdapterDesk() override;

    /// The adapters in the order of their identifiers.
    QList<AbstractCanAdapter *> adapters();
    AbstractCanAdapter *adapter(unsigned short id) { return mSet->handler().getAdapter(id); }
    AdapterStatus status(const AbstractCanAdapter *adapter) const { return mStatus.value(adapter); }
    /// Whether any adapter is open or about to be closed.
    bool isConnected() const;
    /// What the adapters delivered, echoes included.
    FrameInbox &inbox() { return mInbox; }

    QString add(AdapterArgument argument, const QString &description);
    /// Puts another adapter in the place of one that is closed, with its roles and those of its settings that the
    /// other was not made with.
    QString replace(unsigned short id, AdapterArgument argument, const QString &description);
    /// Stops and deletes an adapter. *Blocks:* until its thread has ended.
    QString remove(unsigned short id);
    QString move(unsigned short id, MultiCanAdapterHandler::Direction direction);
    QString makePrimary(unsigned short id);
    QString setActive(unsigned short id, bool active);
    void describe(unsigned short id, const QString &description);

    QString save(const QString &path);
    /// Puts the adapters of a file in the place of all. *Blocks:* until the threads of these have ended.
    QString load(const QString &path);

    /// Opens the active adapters that are closed. *Blocks:* as each adapter's `open`.
    void connectActive();
    /// Tells all adapters to end; `statusChanged` follows when one has.
    void disconnectAll();

Q_SIGNALS:
    /// Adapters came, went, or changed their places, roles or settings.
    void setChanged();
    /// An adapter was opened, has ended, failed, or announced a state.
    void statusChanged();
    /// Nothing is written to this adapter any more once the signal is over, since it ends or goes.
    void aboutToClose(AbstractCanAdapter *adapter);
    /// Something to tell the user. *Thread:* this object's.
    void told(const QString &text, bool isProblem);

private:
    void adopt(AbstractCanAdapter *adapter);
    QString changed(const QString &error);
    void announce(AbstractCanAdapter *adapter, CAN::CanState state);
    void fail(AbstractCanAdapter *adapter, const QString &problem);
    void ended(AbstractCanAdapter *adapter);
    QString name(AbstractCanAdapter *adapter);

    FrameInbox mInbox; // outlives the adapters, which fill it
    std::unique_ptr<AdapterSet> mSet;
    QHash<const AbstractCanAdapter *, AdapterStatus> mStatus;
};

} // namespace buslink
