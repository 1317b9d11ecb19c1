// SPDX-License-Identifier: MIT
#include "busdesk/trace_model.h"

#include "busdesk/frame_texts.h"
#include "busdesk/table_heading.h"

#include <QtGui/QColor>

#include <algorithm>
#include <iterator>

namespace buslink {

namespace {

constexpr std::array<TableHeading, TraceModel::ColumnCount> headings{{
    {"Time (s)", "Time stamp in seconds; where it counts from is the adapter's business"},
    {"Adapter", "Number of the adapter that delivered the frame"},
    {"Way", "Rx: received; Tx: sent from here"},
    {"Identifier", "Hexadecimal; 8 digits where it is extended"},
    {"Kind", "Classic, remote or CAN FD; BRS: bit-rate switch, ESI: error state indicator"},
    {"Bytes", "Length of the payload in bytes; of a remote frame the length asked for"},
    {"Payload", "Hexadecimal"},
}};

} // namespace

bool TraceFilter::passes(const CAN::CanRxMessage &frame) const
{
    if (adapterId != 0 && frame.adapterId != adapterId)
        return false;
    const auto range = std::lower_bound(ids.begin(), ids.end(), frame.message.id,
                                        [](const IdRange &one, quint32 id) { return one.last < id; });
    return ids.empty() || (range != ids.end() && range->first <= frame.message.id);
}

TraceModel::TraceModel(std::size_t limit) : mLimit(limit) {}

// A tenth at once.
void TraceModel::makeRoom(std::size_t coming)
{
    if (mFrames.size() + coming <= mLimit)
        return;
    const std::size_t needed = mFrames.size() + coming - mLimit;
    const std::size_t count = std::min(mFrames.size(), std::max(needed, mLimit / 10));
    const quint64 firstKept = mDropped + count;
    const auto shownEnd = std::lower_bound(mShown.begin(), mShown.end(), firstKept);
    const auto rows = static_cast<int>(mFiltered ? std::distance(mShown.begin(), shownEnd) : std::ptrdiff_t(count));
    if (rows > 0)
        beginRemoveRows({}, 0, rows - 1);
    mShown.erase(mShown.begin(), shownEnd);
    mFrames.erase(mFrames.begin(), mFrames.begin() + static_cast<std::ptrdiff_t>(count));
    mDropped = firstKept;
    if (rows > 0)
        endRemoveRows();
}

void TraceModel::append(const std::vector<CAN::CanRxMessage> &frames)
{
    const std::size_t count = std::min(frames.size(), mLimit);
    const auto first = frames.end() - static_cast<std::ptrdiff_t>(count);
    if (mPaused) {
        mWaiting.insert(mWaiting.end(), first, frames.end());
        if (mWaiting.size() > mLimit)
            mWaiting.erase(mWaiting.begin(), mWaiting.end() - static_cast<std::ptrdiff_t>(mLimit));
        return;
    }
    makeRoom(count);
    std::vector<quint64> passing;
    for (std::size_t i = 0; mFiltered && i < count; ++i) {
        if (mFilter.passes(first[static_cast<std::ptrdiff_t>(i)]))
            passing.push_back(mDropped + mFrames.size() + i);
    }
    const auto rows = static_cast<int>(mFiltered ? passing.size() : count);
    if (rows > 0)
        beginInsertRows({}, rowCount(), rowCount() + rows - 1);
    mFrames.insert(mFrames.end(), first, frames.end());
    mShown.insert(mShown.end(), passing.begin(), passing.end());
    if (rows > 0)
        endInsertRows();
}

void TraceModel::clear()
{
    beginResetModel();
    mDropped += mFrames.size();
    mFrames.clear();
    mShown.clear();
    mWaiting.clear();
    endResetModel();
}

void TraceModel::setFilter(const TraceFilter &filter)
{
    if (filter == mFilter)
        return;
    beginResetModel();
    mFilter = filter;
    mFiltered = !(filter == TraceFilter());
    mShown.clear();
    for (std::size_t i = 0; mFiltered && i < mFrames.size(); ++i) {
        if (filter.passes(mFrames[i]))
            mShown.push_back(mDropped + i);
    }
    endResetModel();
}

void TraceModel::setPaused(bool paused)
{
    mPaused = paused;
    if (paused)
        return;
    append({mWaiting.begin(), mWaiting.end()});
    mWaiting.clear();
}

const CAN::CanRxMessage &TraceModel::frameAt(int row) const
{
    const auto place = static_cast<std::size_t>(row);
    return mFrames.at(mFiltered ? static_cast<std::size_t>(mShown.at(place) - mDropped) : place);
}

int TraceModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(mFiltered ? mShown.size() : mFrames.size());
}

int TraceModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant TraceModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    return headingData(headings, section, orientation, role);
}

QString TraceModel::text(const CAN::CanRxMessage &frame, int column) const
{
    switch (column) {
    case Time:
        return timeText(timeUs(frame));
    case Adapter:
        return QString::number(frame.adapterId);
    case Direction:
        return frame.isTx ? QStringLiteral("Tx") : QStringLiteral("Rx");
    case Identifier:
        return identifierText(frame.message);
    case Kind:
        return kindText(frame.message);
    case Length:
        return QString::number(frame.message.length);
    default:
        return payloadText(frame.message);
    }
}

QVariant TraceModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= rowCount())
        return {};
    const CAN::CanRxMessage &frame = frameAt(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return text(frame, index.column());
    case Qt::ForegroundRole:
        return frame.isTx ? QColor(0x15, 0x65, 0xC0) : QVariant();
    case Qt::TextAlignmentRole:
        if (index.column() == Time || index.column() == Length)
            return int(Qt::AlignCenter);
        return {};
    default:
        return {};
    }
}

} // namespace buslink
