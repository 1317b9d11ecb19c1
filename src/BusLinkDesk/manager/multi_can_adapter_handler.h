// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/export.h>

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QObject>
#include <QtCore/QPointer>
#include <QtCore/QString>

/// The adapters of one application, each under a 16-bit identifier, with their active and primary roles.
///
/// An identifier is the key in the map, the adapter's `option_uniqueId` and its place in the list that
/// an application shows: an index counts the identifiers in ascending order. Generated ones start at 1;
/// only when 1 to 65535 are all taken is 0 the next. 0 is also what operations return when nothing was
/// added or moved.
///
/// An adapter in the set belongs to the set: `removeAdapter`, `removeAdapterAt` and `removeAllAdapters`
/// stop and delete it; `updateAdapter` deletes the one it replaces without stopping it. The destructor
/// does neither, so call `removeAllAdapters()` before.
///
/// Delete adapters only through this class. One that was deleted all the same leaves an entry without an
/// adapter: it counts in `getAdapterCount` and keeps its identifier taken until it is removed or
/// replaced, and everything that walks the set steps over it.
///
/// The roles are the adapters' own `option_activeAdapter` and `option_primaryAdapter`. They open and
/// close nothing by themselves; `toggleConnection` looks at them.
///
/// *Thread:* the one of the application that owns the set, for operations and signals alike; no lock.
class BUSLINKDESK_EXPORT MultiCanAdapterHandler : public QObject
{
    Q_OBJECT

public:
    /// Where `moveAdapter` moves to. Every value other than `Up` acts as `Down`.
    enum Direction : qint32 {
        Up = 0,   ///< To the identifier below.
        Down = 1, ///< To the identifier above.
    };

    /// Creates an empty set.
    explicit MultiCanAdapterHandler(QObject *parent = nullptr);
    /// Frees the set alone.
    /// *Kept on purpose:* the adapters stay alive and their threads run on.
    ~MultiCanAdapterHandler() override;

    /// Takes an adapter into the set, under its `option_uniqueId` with `keepId` or else under the lowest
    /// free identifier, and returns that identifier. With `checkDuplicate` an adapter that equals one of
    /// the set stays outside, and the call returns 0 without a signal. With `makePrimary` the adapter, or
    /// the one of the set that it duplicates, becomes the primary one. An adapter that comes with the
    /// primary flag takes the role from the one that had it.
    /// *Fails:* 0 for null, for a duplicate, and for a full set (65,536 entries) without `keepId`; the
    /// adapter remains the caller's.
    /// *Kept on purpose:* the first adapter of a set becomes primary and active by itself, but not with
    /// `keepId`; `makePrimary` does not make active; with `keepId` an adapter of the same identifier
    /// drops out, neither stopped nor deleted, and an identifier of 0 is stored under 0 and returned.
    unsigned short addNewCanAdapter(AbstractCanAdapter *adapter, bool keepId = false, bool checkDuplicate = false,
                                    bool makePrimary = false);
    /// Makes an adapter of a type for a device, restores its configuration from its stored form and takes
    /// it into the set under the identifier and with the roles that are stored there. So restoring the
    /// adapters of a saved set one by one restores its order and its roles too.
    /// *Fails:* silently, with nothing added, for a type that is not allowed or that no back end has.
    /// *Kept on purpose:* damaged bytes are no failure, the adapter comes with what could be restored, so
    /// with no bytes under identifier 0. As with `keepId` in `addNewCanAdapter`, an adapter of the same
    /// identifier drops out, neither stopped nor deleted.
    void addAdapterFromByteArray(AbstractCanAdapter::CanAdapterType type, QString name, QByteArray data);
    /// Puts `adapter` in the place of the one with this identifier, which is deleted, or adds it there.
    /// Nothing happens for null, and no adapter is deleted in favour of itself.
    /// *Kept on purpose:* the old adapter is not stopped here: end its thread before. Roles are not
    /// handed over, and `adapterRemoved` is not emitted.
    void updateAdapter(unsigned short id, AbstractCanAdapter *adapter);
    /// Stops the adapter, deletes it and removes its entry; one that was only just opened is given up to a
    /// second to begin its loop first, since it does not hear a stop before. If it was the primary one, the live
    /// adapter with the lowest identifier becomes primary and active. *Blocks:* until the adapter's thread has ended,
    /// without limit. *Kept on purpose:* emits `adapterRemoved` for an unknown identifier too, and never
    /// `adapterMapChanged`.
    void removeAdapter(unsigned short id);
    /// Removes the adapter at an index as `removeAdapter` does, by the identifier that the adapter has.
    /// *Blocks:* until the adapter's thread has ended, without limit.
    /// *Kept on purpose:* an index past the end stands for identifier 0, so an adapter stored under 0 is
    /// removed; an entry without an adapter stays.
    void removeAdapterAt(unsigned short index);
    /// Stops, deletes and removes all adapters in ascending order. No role is handed over.
    /// *Blocks:* until every adapter's thread has ended, without limit.
    void removeAllAdapters();
    /// Moves an adapter to the next identifier and returns it. An adapter that stands there changes
    /// places with it; if none does, the adapter just takes the identifier.
    /// *Fails:* 0 for null, for `Up` from an identifier below 2, and for `Down` from 65535.
    /// *Kept on purpose:* goes by the adapter's own identifier and does not look whether the set holds
    /// the adapter, so one from outside comes in and drops what stood under its identifier.
    unsigned short moveAdapter(AbstractCanAdapter *adapter, MultiCanAdapterHandler::Direction direction);
    /// Returns the lowest free identifier from 1 on, 0 if none is left.
    unsigned short createUniqueIdForAdapter();
    /// Returns the adapter at an index, null past the end or where the adapter is gone.
    AbstractCanAdapter *adapterAt(unsigned short index);
    /// Returns the adapter with this identifier, null if there is none or it is gone.
    AbstractCanAdapter *getAdapter(unsigned short id);
    /// Returns the set itself, not a copy.
    QMap<unsigned short, QPointer<AbstractCanAdapter>> &getAdapterMap();
    /// Returns the number of entries, those without an adapter included.
    unsigned short getAdapterCount();
    /// Returns the adapter's name, followed by its description in parentheses if it has one, or the
    /// translated "Invalid adapter id".
    QString getAdapterName(unsigned short id);
    /// Returns the adapters whose thread runs, in ascending order.
    /// *Kept on purpose:* an adapter that works without a thread of its own is never among them.
    QList<AbstractCanAdapter *> getConnectedAdapters();
    /// Emits `interfaceColorsChanged`.
    void informAboutChangedColors();
    /// Takes the primary role from every adapter.
    void unsetPrimaryAdapter();

    /// Returns the number of active adapters.
    unsigned short getActiveAdapterCount();
    /// Returns the first adapter with the primary role, null if there is none.
    AbstractCanAdapter *getPrimaryAdapter();
    /// Returns whether no adapter but virtual ones is active; true if none is active at all.
    bool getOnlyDemoInActiveAdapterList();
    /// Gives the primary adapter, if there is one, a nominal bit rate in kbit/s.
    void setPrimaryBitrate(unsigned short bitrate);
    /// Makes an adapter the primary one and active. The other active adapters stay active.
    /// *Kept on purpose:* an unknown identifier leaves the set without a primary adapter.
    void setPrimaryAdapterByID(unsigned short id);
    /// Takes the active role from every adapter, the primary one included.
    void unsetAllActiveAdapters();
    /// Takes the active role from all other adapters of the same type and device name. Nothing happens
    /// for null.
    /// *Kept on purpose:* virtual adapters count as well, although they may share a device.
    void unsetActiveAtSameAdapters(AbstractCanAdapter *adapter);
    /// Opens every active adapter, whatever the others' `open()` returned, or closes every adapter,
    /// active or not.
    /// *Blocks:* as each adapter's `open()` or `closeAdapter()`.
    void toggleConnection(bool connect);
    /// Sets the active role of the adapter at an index. Applies no rule; ask `couldActiveChanged` first.
    /// The index is cut to 16 bits. Nothing happens where there is no adapter.
    void handleActiveChanged(int index, bool active);
    /// Sets the primary role of the adapter at an index. The index is cut to 16 bits. Nothing happens
    /// where there is no adapter.
    /// *Kept on purpose:* true leaves this adapter as the only active one; false leaves it active and
    /// the set without a primary adapter.
    void handlePrimaryChanged(int index, bool primary);
    /// Returns whether the active role of the adapter at an index may change: 0 if it may, 1 if another
    /// adapter on the same device is active, 2 if the adapter is primary. Virtual adapters may share a
    /// device. The index is cut to 16 bits; where there is no adapter, the result is 0.
    /// *Kept on purpose:* the answer is the same for switching on and for switching off.
    int couldActiveChanged(int index);

Q_SIGNALS:
    /// The set changed: an adapter was added, replaced, moved or removed by its index, or all were removed.
    /// *Kept on purpose:* not emitted by `removeAdapter`; always emitted by `removeAdapterAt` and
    /// `removeAllAdapters`, even if there was nothing to remove.
    void adapterMapChanged();
    /// The entry of this identifier is gone.
    void adapterRemoved(unsigned short id);
    /// The application's colours changed; the library keeps none and only relays this.
    void interfaceColorsChanged();

private:
    Q_DECL_HIDDEN void dropDeadEntry(unsigned short id);

    QMap<unsigned short, QPointer<AbstractCanAdapter>> mAdapters;
};
