// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QString>
#include <QtCore/QVector>

namespace buslink {

/// A CAN interface as `busdump --list` shows it.
struct ListedInterface
{
    QString name;  ///< As `--adapter` takes it.
    QString maker; ///< Empty where it is not known.
    AbstractCanAdapter::SocketCANProps properties;
};

/// The CAN interfaces of this machine. *Blocks:* up to 2 s, and 4 s more for each.
QVector<ListedInterface> findInterfaces();

/// An adapter that is no CAN interface, as `busdump --list` shows it.
struct ListedAdapter
{
    QString argument; ///< As `--adapter` takes it, or the form of that.
    QString label;    ///< What kind it is.
};

/// The other adapters that can be named on this machine; of device files those that exist.
QVector<ListedAdapter> findOtherAdapters();

/// A table with a line for each adapter, headed as well.
QString adapterTable(const QVector<ListedAdapter> &adapters);

/// A headed table with a line for each interface, or the line that there are none.
QString interfaceTable(const QVector<ListedInterface> &interfaces);

} // namespace buslink
