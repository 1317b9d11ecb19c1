// SPDX-License-Identifier: MIT
#include "busdesk/identifier_model.h"

#include "busdesk/frame_texts.h"
#include "busdesk/table_heading.h"

#include <algorithm>

namespace buslink {

namespace {

constexpr std::array<TableHeading, IdentifierModel::ColumnCount> headings{{
    {"Adapter", "Number of the adapter that delivered the frames"},
    {"Way", "Rx: received; Tx: sent from here"},
    {"Identifier", "Hexadecimal; 8 digits where it is extended"},
    {"Kind", "Of the last frame: classic, remote or CAN FD"},
    {"Count", "Frames so far"},
    {"Period (ms)", "Time between the last two frames in milliseconds, as precise as the adapter's time stamps"},
    {"Payload", "Of the last frame, hexadecimal; bytes that differ from the frame before are marked"},
}};

quint64 changedBytes(const CAN::CanMessage &before, const CAN::CanMessage &now)
{
    quint64 changed = 0;
    for (unsigned i = 0; i < std::min<unsigned>(now.length, sizeof now.data); ++i) {
        if (i >= before.length || before.data[i] != now.data[i])
            changed |= quint64(1) << i;
    }
    return changed;
}

} // namespace

// A stamp that counts from midnight falls back there.
void IdentifierModel::take(const CAN::CanRxMessage &frame)
{
    Row &row = mRows[Key(frame.adapterId, frame.message.id, frame.message.isExtended, frame.isTx)];
    if (row.count > 0) {
        row.periodUs = std::max<qint64>(-1, timeUs(frame) - timeUs(row.last));
        row.changed = changedBytes(row.last.message, frame.message);
    }
    row.last = frame;
    ++row.count;
}

void IdentifierModel::append(const std::vector<CAN::CanRxMessage> &frames)
{
    if (frames.empty())
        return;
    const std::size_t before = mRows.size();
    for (const CAN::CanRxMessage &frame : frames)
        take(frame);
    if (mRows.size() == before) {
        Q_EMIT dataChanged(index(0, Kind), index(rowCount() - 1, Payload));
        return;
    }
    beginResetModel();
    mOrder.clear();
    for (const auto &[key, row] : mRows)
        mOrder.push_back(&row);
    endResetModel();
}

void IdentifierModel::clear()
{
    beginResetModel();
    mOrder.clear();
    mRows.clear();
    endResetModel();
}

int IdentifierModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(mOrder.size());
}

int IdentifierModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant IdentifierModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return headingData(headings, section, orientation, role);
}

QVariant IdentifierModel::text(const Row &row, int column) const
{
    switch (column) {
    case Adapter:
        return row.last.adapterId;
    case Direction:
        return row.last.isTx ? QStringLiteral("Tx") : QStringLiteral("Rx");
    case Identifier:
        return identifierText(row.last.message);
    case Kind:
        return kindText(row.last.message);
    case Count:
        return row.count;
    case Period:
        return row.periodUs < 0 ? QString() : QString::number(static_cast<double>(row.periodUs) / 1e3, 'f', 3);
    default:
        return payloadText(row.last.message);
    }
}

QVariant IdentifierModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const Row &row = *mOrder.at(static_cast<std::size_t>(index.row()));
    switch (role) {
    case Qt::DisplayRole:
        return text(row, index.column());
    case ChangedBytesRole:
        return row.changed;
    case Qt::TextAlignmentRole:
        if (index.column() == Count || index.column() == Period)
            return int(Qt::AlignCenter);
        return {};
    default:
        return {};
    }
}

} // namespace buslink
