// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVariant>

class QDataStream;

namespace buslink {

/// How deep values may nest in a stored form.
constexpr int StoredValueDepth = 256;

/// Reads one value as `stream >> value` does, but safely from damaged data: lists grow only with the
/// elements that are there, whatever a list's count says, and values nested deeper than
/// `StoredValueDepth` are damage. Values of QtGui's and QtWidgets' types are damage whether these
/// modules are loaded or not; where they are, a value that converts to nothing stands for them. Needs a
/// stream with a device that can seek and the status Ok.
/// *Fails:* the status of the stream tells; the value is what could be read of it.
QVariant readStoredValue(QDataStream &stream);

} // namespace buslink
