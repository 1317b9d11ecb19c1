// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtWidgets/QPushButton>

#include <type_traits>
#include <utility>

namespace buslink {

/// A widget with the name that it is found under, and with the text that explains it. A button is never narrower than
/// the text that it is made with.
template <typename Widget, typename... Arguments>
Widget *named(const char *name, const QString &toolTip, Arguments &&...arguments)
{
    auto *const widget = new Widget(std::forward<Arguments>(arguments)...);
    widget->setObjectName(QString::fromLatin1(name));
    widget->setToolTip(toolTip);
    // Some styles leave long texts no room beside them.
    if constexpr (std::is_base_of_v<QPushButton, Widget>)
        widget->setMinimumWidth(widget->fontMetrics().horizontalAdvance(widget->text()) + 24);
    return widget;
}

} // namespace buslink
