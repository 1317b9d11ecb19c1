// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/export.h>

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QPair>
#include <QtCore/QString>

/// Makes adapters by type and device name, and answers what can be asked of a type before there is an
/// adapter. A program that creates its adapters here names no back end class.
///
/// `addAllowedAdapters` narrows the types that can be created and listed; it does not touch the answers
/// about rates and abilities. These go by type alone, whatever device is named.
///
/// All operations are static. *Thread:* one thread at a time, since the list of allowed types has no lock
/// and `getImplementedAdapters` writes to it.
class BUSLINKDESK_EXPORT CanAdapterFactory
{
public:
    /// Does nothing; no object is needed.
    CanAdapterFactory();

    /// Returns a new adapter of the type for a device, with `option_adapterType` set; it belongs to the
    /// caller and is not open. The virtual bus and the gateway make no use of the name.
    /// *Fails:* null for a type that is not allowed or that no back end has.
    static AbstractCanAdapter *createCanAdapter(AbstractCanAdapter::CanAdapterType type, QString deviceName);
    /// Allows a type. The first call forbids all others; nothing takes a type back.
    static void addAllowedAdapters(AbstractCanAdapter::CanAdapterType type);
    /// Returns the types that can be created, with the labels they are offered under.
    /// *Kept on purpose:* where types were allowed by name, every call allows SocketCAN once more.
    static QList<QPair<QString, AbstractCanAdapter::CanAdapterType>> getImplementedAdapters();
    /// Returns the devices of a type, each with a number that is the same for all devices of the type.
    /// *Blocks:* for SocketCAN as `SocketCanAdapter::getDeviceList` does. *Fails:* empty for a type that is
    /// not allowed or that no back end has.
    static QMap<QString, unsigned int> getAdvInterfaceList(AbstractCanAdapter::CanAdapterType type);
    /// Returns the selectable classic rates of a type (kbit/s, sample point in percent), with `shortList`
    /// those that go with CAN FD; empty where the rate is set elsewhere.
    static QList<CAN::CANBitrateDesc> getSupportedBitrates(AbstractCanAdapter::CanAdapterType type, bool shortList);
    /// Returns an empty list.
    /// *Kept on purpose:* the tables of data-phase rates are asked of the adapter classes.
    static QList<CAN::CANBitrateDesc> getSupportedFDBitrates(AbstractCanAdapter::CanAdapterType type);
    /// Returns whether an adapter of the type can be given a bit rate.
    static bool isBaudrateChangeable(AbstractCanAdapter::CanAdapterType type);
    /// Returns whether timing values of CAN FD can be set.
    /// *Kept on purpose:* true for types without a back end alone.
    static bool isCANFDBaudrateSettingAvailable(AbstractCanAdapter::CanAdapterType type);
    /// Returns whether timing values of classic CAN can be set.
    /// *Kept on purpose:* true for types without a back end alone.
    static bool isCANClassicBaudrateSettingAvailable(AbstractCanAdapter::CanAdapterType type);
    /// Returns whether the type has settings beside the bit rate.
    static bool isAdditionalConfigAvailable(AbstractCanAdapter::CanAdapterType type);
    /// Returns false.
    static bool canDisableAutoBusOn(AbstractCanAdapter::CanAdapterType type, QString device);
    /// Returns false.
    static bool isInterfaceLowSpeed(AbstractCanAdapter::CanAdapterType type, QString device);
    /// Returns whether the type knows CAN FD; the device is not looked at.
    static bool isInterfaceFd(AbstractCanAdapter::CanAdapterType type, QString device);
    /// Returns false and leaves the texts alone: no driver is too old.
    static bool checkDriverVersion(AbstractCanAdapter::CanAdapterType type, QString &installed, QString &required);
    /// Returns what `SocketCanAdapter::getSocketCanProps` tells of a device. *Blocks:* up to 1 s.
    static AbstractCanAdapter::SocketCANProps getSocketCanProps(QString device);
    /// Returns the rate that `SocketCanAdapter::getBitrateOfDevice` tells of a device. *Blocks:* up to 1 s.
    static QString getSocketCanBitrate(QString device);

    /// The allowed types; all are while it is empty.
    static QList<AbstractCanAdapter::CanAdapterType> allowedAdapters;
};
