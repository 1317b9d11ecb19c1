// SPDX-License-Identifier: MIT
#pragma once

#include <QtWidgets/QStyledItemDelegate>

namespace buslink {

/// Draws a payload with the bytes marked that have changed, of which the model tells by
/// `IdentifierModel::ChangedBytesRole`.
class PayloadDelegate : public QStyledItemDelegate
{
    Q_OBJECT

public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override;
};

} // namespace buslink
