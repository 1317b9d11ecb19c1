// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QAbstractTableModel>

#include <map>
#include <tuple>
#include <vector>

namespace buslink {

/// One row for each identifier that an adapter saw: how often, how fast, and what came last.
class IdentifierModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Adapter, Direction, Identifier, Kind, Count, Period, Payload, ColumnCount };
    /// The places of the payload's bytes that differ from the frame before, a bit each, as a `quint64`.
    static constexpr int ChangedBytesRole = Qt::UserRole;

    void append(const std::vector<CAN::CanRxMessage> &frames);
    void clear();

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    using Key = std::tuple<quint16, quint32, bool, bool>; // adapter, identifier, extended, sent

    struct Row
    {
        CAN::CanRxMessage last;
        quint64 count = 0;
        qint64 periodUs = -1; // between the last two; negative: not known
        quint64 changed = 0;
    };

    void take(const CAN::CanRxMessage &frame);
    QVariant text(const Row &row, int column) const;

    std::map<Key, Row> mRows;
    std::vector<const Row *> mOrder; // of mRows; a map's entries stay where they are
};

} // namespace buslink
