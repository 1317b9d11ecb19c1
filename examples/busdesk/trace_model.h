// SPDX-License-Identifier: MIT
#pragma once

#include "busdump/id_argument.h"

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QAbstractTableModel>

#include <deque>
#include <vector>

namespace buslink {

/// Which frames of a trace are shown.
struct TraceFilter
{
    std::vector<IdRange> ids; ///< Ascending and without overlap; empty: all.
    quint16 adapterId = 0;    ///< 0: every adapter.

    bool passes(const CAN::CanRxMessage &frame) const;
    bool operator==(const TraceFilter &) const = default;
};

/// The frames that went over the desk, in the order in which they were delivered. The oldest are dropped a batch at a
/// time, since a view looks at every row when rows at its front go.
class TraceModel : public QAbstractTableModel
{
    Q_OBJECT

public:
    enum Column { Time, Adapter, Direction, Identifier, Kind, Length, Payload, ColumnCount };

    /// How many frames are kept at most.
    static constexpr std::size_t DefaultLimit = 1000000;

    explicit TraceModel(std::size_t limit = DefaultLimit);

    /// Adds frames. While the trace is paused they wait behind it.
    void append(const std::vector<CAN::CanRxMessage> &frames);
    void clear();
    void setFilter(const TraceFilter &filter);
    void setPaused(bool paused);
    bool isPaused() const { return mPaused; }

    /// How many frames are kept, shown or not.
    std::size_t size() const { return mFrames.size(); }
    /// How many frames wait for the end of the pause.
    std::size_t waiting() const { return mWaiting.size(); }
    /// The frame of a row.
    const CAN::CanRxMessage &frameAt(int row) const;

    int rowCount(const QModelIndex &parent = {}) const override;
    int columnCount(const QModelIndex &parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex &index, int role = Qt::DisplayRole) const override;

private:
    void makeRoom(std::size_t coming);
    QString text(const CAN::CanRxMessage &frame, int column) const;

    const std::size_t mLimit;
    std::deque<CAN::CanRxMessage> mFrames;
    quint64 mDropped = 0;       // before the first of mFrames; a frame's number counts these too
    std::deque<quint64> mShown; // numbers of the frames that pass; unused without a filter
    std::deque<CAN::CanRxMessage> mWaiting;
    TraceFilter mFilter;
    bool mFiltered = false;
    bool mPaused = false;
};

} // namespace buslink
