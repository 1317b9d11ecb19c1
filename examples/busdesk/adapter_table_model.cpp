// SPDX-License-Identifier: MIT
#include "busdesk/adapter_table_model.h"

#include "busdesk/adapter_desk.h"
#include "busdesk/desk_texts.h"
#include "busdesk/table_heading.h"

#include <QtGui/QColor>
#include <QtGui/QFont>

namespace buslink {

namespace {

using A = AbstractCanAdapter;

constexpr std::array<TableHeading, AdapterTableModel::ColumnCount> headings{{
    {"No.", "The adapter's identifier and its place in the set"},
    {"Type", "What kind of bus access it is"},
    {"Device", "Interface, port or host"},
    {"Rate", "Nominal rate of the bus in kbit/s, or of the serial line in bit/s"},
    {"Description", "Your own words; double-click to change them"},
    {"Active", "Whether Connect opens it"},
    {"Primary", "The one adapter whose rate applications set directly; always active"},
    {"State", "Closed, open with the state of the bus, or what failed"},
}};

QVariant colorOf(const AdapterStatus &status)
{
    if (!status.problem.isEmpty() || status.busState == CAN::CanStateBusOff)
        return QColor(0xC6, 0x28, 0x28);
    if (status.busState == CAN::CanStateErrorPassive || status.closing)
        return QColor(0xB2, 0x6A, 0x00);
    return status.open ? QColor(0x2E, 0x7D, 0x32) : QVariant();
}

Qt::CheckState checked(bool yes)
{
    return yes ? Qt::Checked : Qt::Unchecked;
}

} // namespace

AdapterTableModel::AdapterTableModel(AdapterDesk *desk) : mDesk(desk), mAdapters(desk->adapters())
{
    connect(desk, &AdapterDesk::setChanged, this, &AdapterTableModel::reload);
    connect(desk, &AdapterDesk::statusChanged, this, [this] {
        if (!mAdapters.isEmpty())
            Q_EMIT dataChanged(index(0, State), index(rowCount() - 1, State));
    });
}

// The selection and an open editor outlive a change of roles or words.
void AdapterTableModel::reload()
{
    const QList<A *> adapters = mDesk->adapters();
    if (adapters == mAdapters) {
        if (!mAdapters.isEmpty())
            Q_EMIT dataChanged(index(0, 0), index(rowCount() - 1, ColumnCount - 1));
        return;
    }
    beginResetModel();
    mAdapters = adapters;
    endResetModel();
}

unsigned short AdapterTableModel::idAt(int row) const
{
    return row >= 0 && row < mAdapters.size() ? mAdapters.at(row)->getId() : static_cast<unsigned short>(0);
}

int AdapterTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : mAdapters.size();
}

int AdapterTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant AdapterTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return headingData(headings, section, orientation, role);
}

QVariant AdapterTableModel::text(A *adapter, int column) const
{
    switch (column) {
    case Number:
        return adapter->getId();
    case Type:
        return typeLabel(adapter->getCanAdapterOption(A::option_adapterType).toInt());
    case Device:
        return deviceText(adapter);
    case Rate:
        return rateText(*adapter);
    case Description:
        return adapter->getCanAdapterOption(A::option_description);
    case State:
        return statusText(mDesk->status(adapter));
    default:
        return {};
    }
}

QVariant AdapterTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= mAdapters.size())
        return {};
    A *const adapter = mAdapters.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
        return text(adapter, index.column());
    case Qt::ToolTipRole:
        return headerData(index.column(), Qt::Horizontal, role);
    case Qt::CheckStateRole:
        if (index.column() == Active)
            return checked(adapter->isActiveAdapter());
        return index.column() == Primary ? checked(adapter->isPrimaryAdapter()) : QVariant();
    case Qt::ForegroundRole:
        return index.column() == State ? colorOf(mDesk->status(adapter)) : QVariant();
    case Qt::FontRole:
        if (index.column() == State && !mDesk->status(adapter).problem.isEmpty()) {
            QFont font;
            font.setBold(true);
            return font;
        }
        return {};
    default:
        return {};
    }
}

bool AdapterTableModel::setData(const QModelIndex &index, const QVariant &value, int role)
{
    const unsigned short id = idAt(index.row());
    const bool tick = value.toInt() == Qt::Checked;
    QString error;
    if (role == Qt::CheckStateRole && index.column() == Active)
        error = mDesk->setActive(id, tick);
    else if (role == Qt::CheckStateRole && index.column() == Primary)
        error = tick ? mDesk->makePrimary(id) : tr("choose another adapter as the primary one instead");
    else if (role == Qt::EditRole && index.column() == Description)
        mDesk->describe(id, value.toString());
    else
        return false;
    if (!error.isEmpty())
        Q_EMIT refused(error);
    return error.isEmpty();
}

Qt::ItemFlags AdapterTableModel::flags(const QModelIndex &index) const
{
    Qt::ItemFlags flags = QAbstractTableModel::flags(index);
    if (index.column() == Active || index.column() == Primary)
        flags |= Qt::ItemIsUserCheckable;
    if (index.column() == Description)
        flags |= Qt::ItemIsEditable;
    return flags;
}

} // namespace buslink
