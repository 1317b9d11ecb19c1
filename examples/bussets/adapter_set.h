// SPDX-License-Identifier: MIT
#pragma once

#include "bussets/set_file.h"
#include "common/adapter_argument.h"

#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

#include <QtCore/QStringList>

namespace buslink {

/// The label of a type, as the factory offers it.
QString typeLabel(int type);
/// What tells an adapter from others of its type, for people.
QString deviceText(AbstractCanAdapter *adapter);

/// What is said of an identifier that no adapter has.
QString noAdapter(const QString &id);

/// A set of adapters as the program's commands see it: each returns why it could not be done, or an empty
/// text. An adapter is named by its identifier, the number in front of its line.
class AdapterSet
{
public:
    ~AdapterSet();

    /// Makes the adapters of a file. After an error the set is of no use.
    QString restore(const QVector<SavedAdapter> &saved);
    /// What brings the set back.
    QVector<SavedAdapter> saved();

    QString add(AdapterArgument argument, const QString &description);
    QString remove(unsigned short id);
    QString move(unsigned short id, MultiCanAdapterHandler::Direction direction);
    QString makePrimary(unsigned short id);
    QString setActive(unsigned short id, bool active);

    /// The set itself, for what no command does.
    MultiCanAdapterHandler &handler() { return mHandler; }
    /// One line an adapter, in the order of the identifiers, below a heading; a single line for an empty set.
    QStringList lines();

private:
    QString missing(unsigned short id);

    MultiCanAdapterHandler mHandler;
};

} // namespace buslink
