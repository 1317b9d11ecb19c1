// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QAbstractTableModel>
#include <QtCore/QList>

class AbstractCanAdapter;

namespace buslink {

class AdapterDesk;

/// The set of adapters as a table. Roles are set by ticking them, the description by writing it.
class AdapterTableModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Number, Type, Device, Rate, Description, Active, Primary, State, ColumnCount };

    explicit AdapterTableModel(AdapterDesk *desk);

    /// The identifier of the adapter in a row; 0 past the end.
    unsigned short idAt(int row) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex &index, const QVariant &value, int role) override;
    Qt::ItemFlags flags(const QModelIndex &index) const override;

Q_SIGNALS:
    /// Why something could not be set.
    void refused(const QString &error);

private:
    void reload();
    QVariant text(AbstractCanAdapter *adapter, int column) const;

    AdapterDesk *mDesk;
    QList<AbstractCanAdapter *> mAdapters;
};

} // namespace buslink
