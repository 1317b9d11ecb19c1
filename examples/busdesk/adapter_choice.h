// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QComboBox>

class AbstractCanAdapter;

namespace buslink {

class AdapterDesk;

/// Chooses where frames go: one of the adapters that carry any.
class AdapterChoice : public QComboBox
{
    Q_OBJECT

public:
    explicit AdapterChoice(AdapterDesk *desk);

    /// The adapter that is chosen, if it is open; otherwise null, and `refused` tells why.
    AbstractCanAdapter *openAdapter();

Q_SIGNALS:
    void refused(const QString &why);

private:
    void offerAdapters();

    AdapterDesk *mDesk;
};

} // namespace buslink
