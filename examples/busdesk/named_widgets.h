// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <utility>

namespace buslink {

/// A widget with the name that it is found under, and with the text that explains it.
template <typename Widget, typename... Arguments>
Widget *named(const char *name, const QString &toolTip, Arguments &&...arguments)
{
    auto *const widget = new Widget(std::forward<Arguments>(arguments)...);
    widget->setObjectName(QString::fromLatin1(name));
    widget->setToolTip(toolTip);
    return widget;
}

} // namespace buslink
