// SPDX-License-Identifier: MIT
#pragma once

#include "support/journal_adapter.h"

#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

/// A handler, and one journal for its three signals and for the life of its adapters.
class SetUnderTest
{
public:
    SetUnderTest();
    /// Removes all adapters that are still in the set.
    ~SetUnderTest();
    SetUnderTest(const SetUnderTest &) = delete;
    SetUnderTest &operator=(const SetUnderTest &) = delete;

    /// Makes an adapter that is in no set.
    JournalAdapter *make(const char *name);
    /// Makes an adapter and adds it without any of the flags.
    JournalAdapter *add(const char *name);
    /// Makes an adapter and adds it under an identifier of the test's choice.
    JournalAdapter *addUnder(unsigned short id, const char *name);
    /// Makes an adapter for a device and adds it.
    JournalAdapter *addDevice(const char *name, int type, const char *device);
    /// Deletes an adapter behind the handler's back.
    void deleteFromOutside(unsigned short id);

    /// The whole set, one line an entry: identifier, name, P for primary, A for active; the adapter's own
    /// identifier where it is another one.
    QStringList rows();
    /// The journal since it was last read or cleared.
    QStringList events() { return journal.take(); }

    Journal journal;
    MultiCanAdapterHandler handler;
};

/// Texts from literals, for comparisons with `rows` and `events`.
template <typename... Literals>
QStringList lines(const Literals &...literals)
{
    return {QLatin1String(literals)...};
}

/// Gives an adapter both roles, or takes them.
void setRoles(AbstractCanAdapter *adapter, bool primary, bool active);
