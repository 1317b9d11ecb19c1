// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QMap>
#include <QtCore/QPointer>

namespace buslink {

using AdapterSet = QMap<unsigned short, QPointer<AbstractCanAdapter>>;

/// Returns the first adapter in ascending order that is alive and answers `matches`, null if none does.
template <typename Predicate>
AbstractCanAdapter *firstLive(const AdapterSet &adapters, Predicate matches)
{
    for (const QPointer<AbstractCanAdapter> &adapter : adapters) {
        if (adapter && matches(*adapter))
            return adapter;
    }
    return nullptr;
}

/// Calls `act` with every live adapter in ascending order. The set is taken by value, because opening an
/// adapter emits signals, and whoever is connected may change the set meanwhile.
template <typename Action>
void forEachLive(const AdapterSet adapters, Action act)
{
    for (const QPointer<AbstractCanAdapter> &adapter : adapters) {
        if (adapter)
            act(*adapter);
    }
}

inline void makePrimaryAndActive(AbstractCanAdapter &adapter)
{
    adapter.setCanAdapterOption(AbstractCanAdapter::option_primaryAdapter, true);
    adapter.setCanAdapterOption(AbstractCanAdapter::option_activeAdapter, true);
}

} // namespace buslink
