// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>

// What the text that `ip link` prints tells about CAN interfaces.
namespace buslink {

/// The interface name of a device string, without a label behind a `|`.
QString interfaceOfDevice(const QString &device);

/// The names of the CAN interfaces in a listing of all links, in its order.
QStringList canInterfaceNames(const QString &listing);

/// Puts the label of the maker that the details of an interface name behind the interface's name.
QString withMakerLabel(const QString &name, const QString &details);

/// How often a device string passes a filter: once for each maker that is asked for and occurs in it.
int timesPassed(const QString &device, const QList<AbstractCanAdapter::CanAdapterType> &types);

/// The device strings of a listing that pass a filter, with the usual names where there are none.
/// `detailsOf` gives the details text of an interface.
QStringList canDevices(const QString &listing, const QList<AbstractCanAdapter::CanAdapterType> &types,
                       const std::function<QString(const QString &name)> &detailsOf);

/// The properties that the details of an interface tell; 0 for what they do not.
AbstractCanAdapter::SocketCANProps propertiesFromDetails(const QString &details);

/// The nominal rate in kbit/s that the details of an interface tell, empty if they do not.
QString bitrateFromDetails(const QString &details);

} // namespace buslink
