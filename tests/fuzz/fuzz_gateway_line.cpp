// SPDX-License-Identifier: MIT
#include "fuzz_support.h"

#include <BusLinkDesk/backends/cia309/gateway_line_p.h>

#include <cstring>

// Takes any bytes for what a gateway sent and for a command. A text ends before the first zero byte and a
// line begins with its number and ends in a line feed, whatever markers the command has.

namespace {

void requireBoundedText(const QByteArray &bytes)
{
    const QString text = buslink::gatewayText(bytes);
    const int zero = bytes.indexOf('\0');
    const QByteArray told = zero < 0 ? bytes : bytes.left(zero);
    require(text == QString::fromUtf8(told));
    require(text.size() <= told.size());
}

void requireNumberedLine(short number, const QString &command)
{
    const QString line = buslink::gatewayLine(number, command);
    require(line.startsWith(QLatin1Char('[')) && line.endsWith(QLatin1Char('\n')));
    if (command.contains(QLatin1Char('%')))
        return;
    require(line == QLatin1Char('[') + QString::number(number) + QStringLiteral("] ") + command + QLatin1Char('\n'));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    quint16 word = 0;
    if (size < sizeof word)
        return 0;
    std::memcpy(&word, data, sizeof word);
    const auto number = static_cast<short>(word & 0x7FFF);
    require(buslink::nextGatewayNumber(number) == (number + 1) % 32768);
    const QByteArray bytes = inputBytes(data + sizeof word, size - sizeof word);
    requireBoundedText(bytes);
    requireNumberedLine(number, QString::fromUtf8(bytes));
    return 0;
}
