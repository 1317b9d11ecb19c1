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

/// The CAN interfaces of this machine. *Blocks:* up to 1 s, and 2 s more for each.
QVector<ListedInterface> findInterfaces();

/// A headed table with a line for each interface, or the line that there are none.
QString interfaceTable(const QVector<ListedInterface> &interfaces);

} // namespace buslink
