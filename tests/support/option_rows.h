// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QStringList>

/// One option as it is in a new adapter.
struct OptionRow
{
    AbstractCanAdapter::AdapterOption option;
    const char *name;
    const char *byDefault; ///< Type and value, as `told` gives them.
};

/// All 47 enumerators, in the order of their numbers.
extern const OptionRow OptionRows[47];

/// The name of an option.
const char *nameOf(AbstractCanAdapter::AdapterOption option);

/// The exact type of an option's value and all of its content.
QString told(const QVariant &value);

/// What `told` gives for each of the 47 options of an adapter.
QStringList allOptions(const AbstractCanAdapter &adapter);
