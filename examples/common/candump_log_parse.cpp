// SPDX-License-Identifier: MIT
#include "common/candump_log.h"

#include <algorithm>
#include <optional>

namespace buslink {

namespace {

constexpr quint32 StandardIdMax = 0x7FF;
constexpr quint32 ExtendedIdMax = 0x1FFFFFFF;
constexpr quint32 ErrorFrameFlag = 0x20000000;
// Twelve digits of seconds are 30,000 years, and far from the end of 64 bits of microseconds.
constexpr std::size_t SecondsDigitsMax = 12;
constexpr std::size_t FractionDigitsMax = 9;
constexpr std::size_t QuotedSizeMax = 40;

// Empty where all went well.
using Error = std::string;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::optional<quint8> hexValue(char c)
{
    if (isDigit(c))
        return static_cast<quint8>(c - '0');
    if (c >= 'A' && c <= 'F')
        return static_cast<quint8>(c - 'A' + 10);
    if (c >= 'a' && c <= 'f')
        return static_cast<quint8>(c - 'a' + 10);
    return std::nullopt;
}

// A damaged line may hold anything, and the error goes to a terminal.
std::string quoted(std::string_view text)
{
    std::string result = "'";
    for (const char c : text.substr(0, QuotedSizeMax))
        result += c >= ' ' && c <= '~' ? c : '?';
    return result + (text.size() > QuotedSizeMax ? "...'" : "'");
}

// Takes the next word from the front; empty at the end of the line.
std::string_view takeWord(std::string_view &rest)
{
    constexpr std::string_view blanks = " \t\r";
    rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
    const std::string_view word = rest.substr(0, rest.find_first_of(blanks));
    rest.remove_prefix(word.size());
    return word;
}

bool isNumber(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), isDigit);
}

Error parseTimeStamp(std::string_view word, qint64 &timeUs)
{
    if (word.size() < 3 || word.front() != '(' || word.back() != ')')
        return "no time stamp of the form (seconds.microseconds): " + quoted(word);
    word = word.substr(1, word.size() - 2);
    const std::size_t dot = word.find('.');
    const std::string_view seconds = word.substr(0, dot);
    const std::string_view fraction = dot == std::string_view::npos ? "0" : word.substr(dot + 1);
    if (!isNumber(seconds) || !isNumber(fraction))
        return "a time stamp has digits and one point: " + quoted(word);
    if (seconds.size() > SecondsDigitsMax || fraction.size() > FractionDigitsMax)
        return "time stamp with too many digits: " + quoted(word);
    timeUs = 0;
    for (const char c : seconds)
        timeUs = timeUs * 10 + (c - '0');
    for (std::size_t i = 0; i < 6; ++i)
        timeUs = timeUs * 10 + (i < fraction.size() ? fraction[i] - '0' : 0);
    return {};
}

Error parseIdentifier(std::string_view digits, CAN::CanMessage &message)
{
    if (digits.size() != 3 && digits.size() != 8)
        return "an identifier has 3 or 8 hexadecimal digits: " + quoted(digits);
    quint32 id = 0;
    for (const char c : digits) {
        const std::optional<quint8> value = hexValue(c);
        if (!value)
            return "an identifier has 3 or 8 hexadecimal digits: " + quoted(digits);
        id = id << 4U | *value;
    }
    message.id = id;
    message.isExtended = digits.size() == 8;
    if (id <= (message.isExtended ? ExtendedIdMax : StandardIdMax))
        return {};
    // The two bits above the error flag are the marks of other kinds of frames and never written out.
    if (message.isExtended && id >> 29U == ErrorFrameFlag >> 29U)
        return "an error frame cannot be sent: " + quoted(digits);
    return "identifier out of range: " + quoted(digits);
}

Error parseRemote(std::string_view length, CAN::CanMessage &message)
{
    message.isRtr = true;
    if (length.empty())
        return {};
    if (length.front() < '0' || length.front() > '8')
        return "a remote frame asks for 0 to 8 bytes: " + quoted(length);
    message.length = static_cast<quint8>(length.front() - '0');
    return length.size() == 1 ? Error() : "unexpected text behind the frame: " + quoted(length.substr(1));
}

// Takes pairs of digits, with single dots between them where there are any.
Error parseBytes(std::string_view text, std::size_t lengthMax, CAN::CanMessage &message)
{
    std::size_t length = 0;
    for (std::size_t at = 0; at < text.size(); at += 2, ++length) {
        if (length > 0 && text[at] == '.')
            ++at;
        const auto high = at < text.size() ? hexValue(text[at]) : std::nullopt;
        if (!high)
            return "the payload is not made of hexadecimal digits: " + quoted(text);
        if (at + 1 == text.size())
            return "odd number of payload digits: " + quoted(text);
        const auto low = hexValue(text[at + 1]);
        if (!low)
            return "the payload is not made of hexadecimal digits: " + quoted(text);
        if (length == lengthMax)
            return "more than " + std::to_string(lengthMax) + " bytes of payload";
        message.data[length] = static_cast<quint8>(*high << 4U | *low);
    }
    message.length = static_cast<quint8>(length);
    return {};
}

// The raw length code tells 8 bytes with a code above 8 from those with the code 8.
bool isRawLengthCode(std::string_view code)
{
    return code.size() == 1 && hexValue(code.front()).value_or(0) > 8;
}

Error parseClassic(std::string_view text, CAN::CanMessage &message)
{
    const std::size_t mark = text.find('_');
    const std::string_view frame = text.substr(0, mark);
    const bool remote = !frame.empty() && (frame.front() == 'R' || frame.front() == 'r');
    Error error = remote ? parseRemote(frame.substr(1), message) : parseBytes(frame, 8, message);
    if (!error.empty() || mark == std::string_view::npos)
        return error;
    if (message.length == 8 && isRawLengthCode(text.substr(mark + 1)))
        return {};
    return "a raw length code is 9 to F and stands behind 8 bytes: " + quoted(text.substr(mark));
}

Error parseFd(std::string_view text, CAN::CanMessage &message)
{
    message.isFd = true;
    const std::optional<quint8> flags = text.empty() ? std::nullopt : hexValue(text.front());
    // 4 says that the frame is CAN FD, which the second # has said already.
    if (!flags || *flags > 7)
        return "CAN FD flags are one digit from 0 to 7: " + quoted(text.substr(0, 1));
    message.isBrs = (*flags & 1U) != 0;
    message.isEsi = (*flags & 2U) != 0;
    Error error = parseBytes(text.substr(1), sizeof message.data, message);
    if (error.empty() && message.length > 8 && !canFdLengths.contains(message.length))
        error = "CAN FD has no frames of " + std::to_string(message.length) + " bytes";
    return error;
}

} // namespace

std::string parseFrame(std::string_view text, CAN::CanMessage &message)
{
    const std::size_t hash = text.find('#');
    if (hash == std::string_view::npos)
        return "no # behind the identifier: " + quoted(text);
    if (Error error = parseIdentifier(text.substr(0, hash), message); !error.empty())
        return error;
    const std::string_view rest = text.substr(hash + 1);
    return rest.substr(0, 1) == "#" ? parseFd(rest.substr(1), message) : parseClassic(rest, message);
}

namespace {

Error parseWords(std::string_view stamp, std::string_view rest, LogFrame &frame)
{
    if (Error error = parseTimeStamp(stamp, frame.timeUs); !error.empty())
        return error;
    const std::string_view name = takeWord(rest);
    if (name.empty())
        return "no interface name behind the time stamp";
    frame.interfaceName = name;
    const std::string_view word = takeWord(rest);
    if (word.empty())
        return "no frame behind the interface name";
    if (Error error = parseFrame(word, frame.message); !error.empty())
        return error;
    const std::string_view direction = takeWord(rest);
    const std::string_view excess = direction == "R" || direction == "T" ? takeWord(rest) : direction;
    return excess.empty() ? Error() : "unexpected text behind the frame: " + quoted(excess);
}

} // namespace

LogLine parseLogLine(std::string_view line)
{
    LogLine result;
    const std::string_view stamp = takeWord(line);
    if (stamp.empty())
        return result;
    result.error = parseWords(stamp, line, result.frame);
    result.kind = result.error.empty() ? LogLine::Kind::Frame : LogLine::Kind::Damaged;
    return result;
}

LogLine parseLogLine(const LineSplitter::Line &line)
{
    if (!line.tooLong)
        return parseLogLine(std::string_view(line.text));
    LogLine result;
    result.kind = LogLine::Kind::Damaged;
    result.error = "longer than " + std::to_string(LineSplitter::LineSizeMax) + " bytes";
    return result;
}

} // namespace buslink
