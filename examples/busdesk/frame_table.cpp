// SPDX-License-Identifier: MIT
#include "busdesk/frame_table.h"

#include <QtGui/QFontDatabase>
#include <QtWidgets/QHeaderView>

namespace buslink {

// Not every platform knows a fixed font of the system's.
QFont fixedFont()
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    if (!QFontInfo(font).fixedPitch())
        font.setFamily(QStringLiteral("monospace"));
    return font;
}

// Heights and widths that follow the content would have the view look at every row.
void prepareFrameTable(QTableView *table, std::initializer_list<int> letters)
{
    const QFont font = fixedFont();
    const QFontMetrics metrics(font);
    table->setFont(font);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setAlternatingRowColors(true);
    table->setShowGrid(false);
    table->setWordWrap(false);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    QHeaderView *const rows = table->verticalHeader();
    rows->hide();
    rows->setMinimumSectionSize(1);
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(metrics.height() + 4);
    QHeaderView *const columns = table->horizontalHeader();
    columns->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    columns->setStretchLastSection(true);
    int column = 0;
    for (const int width : letters)
        columns->resizeSection(column++, (width + 2) * metrics.horizontalAdvance(QLatin1Char('0')));
}

} // namespace buslink
