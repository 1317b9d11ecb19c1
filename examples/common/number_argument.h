// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

#include <optional>

namespace buslink {

/// Reads a number that is written in digits alone: no sign, no blank, no prefix. One that is too large for
/// the type is the largest of the type.
/// *Fails:* nothing, for any other text.
std::optional<quint64> numberOfDigits(const QString &text, int base = 10);

/// Reads a decimal number from `min` to `max`.
/// *Fails:* nothing, for any other text.
std::optional<quint64> numberBetween(const QString &text, quint64 min, quint64 max);

} // namespace buslink
