// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVariant>

#include <array>

namespace buslink {

/// What stands above a column, and what it means, units included.
struct TableHeading
{
    const char *text;
    const char *toolTip;
};

/// The answer of a model that is asked for a heading.
template <std::size_t Count>
QVariant headingData(const std::array<TableHeading, Count> &headings, int section, Qt::Orientation orientation,
                     int role)
{
    if (orientation == Qt::Vertical || section < 0 || section >= int(Count))
        return {};
    const TableHeading &heading = headings.at(static_cast<std::size_t>(section));
    if (role == Qt::DisplayRole)
        return QString::fromLatin1(heading.text);
    return role == Qt::ToolTipRole ? QString::fromLatin1(heading.toolTip) : QVariant();
}

} // namespace buslink
