// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QList>
#include <QtWidgets/QComboBox>

class AbstractCanAdapter;

namespace buslink {

class AdapterDesk;

/// Fills a box with adapters, behind what else there is to choose; what was chosen stays so where it is still there.
void offerAdapters(QComboBox &box, const QList<AbstractCanAdapter *> &adapters, const QString &otherwise = QString());

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
    void offer();

    AdapterDesk *mDesk;
};

} // namespace buslink
