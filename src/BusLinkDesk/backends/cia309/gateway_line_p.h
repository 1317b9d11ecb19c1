// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

// The text that goes to a CiA 309-3 gateway and comes back from it.
namespace buslink {

/// The line of a command: the number in brackets, a blank, the command and a line feed. A place marker in the
/// command is filled too, as `QString::arg` fills the lowest ones: "%1" becomes the number.
QString gatewayLine(short number, const QString &command);

/// The number after `number`: 0 to 32767 and then from 0 again.
short nextGatewayNumber(short number) noexcept;

/// The text of received bytes up to the first zero byte. Bytes that are no UTF-8 become U+FFFD.
QString gatewayText(const QByteArray &bytes);

} // namespace buslink
