// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/cia309/gateway_line_p.h>

#include <limits>

namespace buslink {

QString gatewayLine(short number, const QString &command)
{
    // The number goes in last, on purpose: markers of the command have always taken part.
    return (QStringLiteral("[%1] ") + command + QLatin1Char('\n')).arg(number);
}

short nextGatewayNumber(short number) noexcept
{
    return number == std::numeric_limits<short>::max() ? short(0) : static_cast<short>(number + 1);
}

QString gatewayText(const QByteArray &bytes)
{
    return QString::fromUtf8(bytes.constData(), static_cast<int>(qstrnlen(bytes.constData(), uint(bytes.size()))));
}

} // namespace buslink
