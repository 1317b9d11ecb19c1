// SPDX-License-Identifier: MIT
#include "busdesk/payload_delegate.h"

#include "busdesk/identifier_model.h"

#include <QtGui/QPainter>
#include <QtWidgets/QApplication>

namespace buslink {

// The style draws what stands behind the text, a selection above all.
void PayloadDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    QStyleOptionViewItem item = option;
    initStyleOption(&item, index);
    const QString text = item.text;
    item.text.clear();
    QApplication::style()->drawControl(QStyle::CE_ItemViewItem, &item, painter, item.widget);

    const quint64 changed = index.data(IdentifierModel::ChangedBytesRole).toULongLong();
    const int letter = item.fontMetrics.horizontalAdvance(QLatin1Char('0'));
    const bool selected = item.state.testFlag(QStyle::State_Selected);
    painter->save();
    painter->setClipRect(item.rect);
    painter->setFont(item.font);
    QRect place(item.rect.left() + 3, item.rect.top(), 2 * letter, item.rect.height());
    for (int i = 0; 3 * i < text.size() && place.left() < item.rect.right(); ++i, place.translate(3 * letter, 0)) {
        const bool marked = (changed >> unsigned(i)) & 1U;
        if (marked)
            painter->fillRect(place.adjusted(-2, 2, 2, -2), QColor(0xFF, 0xCC, 0x80));
        painter->setPen(marked     ? QColor(0x8A, 0x2B, 0x00)
                        : selected ? item.palette.color(QPalette::HighlightedText)
                                   : item.palette.color(QPalette::Text));
        painter->drawText(place, Qt::AlignVCenter, text.mid(3 * i, 2));
    }
    painter->restore();
}

} // namespace buslink
