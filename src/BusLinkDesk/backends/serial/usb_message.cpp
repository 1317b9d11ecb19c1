// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/serial/usb_message_p.h>

#include <BusLinkDesk/adapter/payload_length_p.h>

#include <algorithm>
#include <cstddef>

namespace buslink {

namespace {

constexpr quint8 StartMark = 0x80;
constexpr quint8 LowBits = 0x7F;
constexpr quint8 RemoteFlag = 0x10;
constexpr quint8 FdFlag = 0x40;
constexpr quint8 StandardType = 1;
constexpr quint8 ExtendedType = 2;
constexpr int BitsPerExtraByte = 7;

constexpr int extraBytesFor(int bytes)
{
    return (bytes + BitsPerExtraByte - 1) / BitsPerExtraByte;
}

constexpr int extraBytesWithin(int lengthByte)
{
    return (lengthByte + 6) / 8;
}

quint8 byteAt(const QByteArray &buffer, int position)
{
    return position < buffer.size() ? static_cast<quint8>(buffer.at(position)) : quint8(0);
}

bool startsAt(const QByteArray &buffer, int position)
{
    return (byteAt(buffer, position) & StartMark) != 0;
}

quint8 checksumOf(const char *bytes, int count)
{
    quint8 sum = 0;
    for (int i = 0; i < count; ++i)
        sum ^= static_cast<quint8>(bytes[i]);
    return sum & LowBits;
}

/// Whether a message starts at one of the positions from 1 to `last`, which are in the buffer.
bool anyStart(const QByteArray &buffer, int last)
{
    const char *const bytes = buffer.constData();
    quint8 all = 0;
    for (int position = 1; position <= last; ++position)
        all |= static_cast<quint8>(bytes[position]);
    return (all & StartMark) != 0;
}

/// Cuts at every start of a message from position 1 on, up to position `last`. A cut moves what follows to
/// the front, and the search goes on one position further there.
void findStarts(const QByteArray &buffer, int last, UsbDecodeStep &step)
{
    int removed = 0;
    for (int position = 1; position <= last && position < buffer.size() - removed; ++position) {
        if (startsAt(buffer, removed + position)) {
            step.cuts.append(position);
            removed += position;
        }
    }
}

void restoreHighBits(QByteArray &buffer, int lengthByte)
{
    const int extraBytes = extraBytesWithin(lengthByte);
    const int firstExtraByte = lengthByte - extraBytes;
    // Read whole before the first is put back: what is put back may reach into the extra bytes.
    std::array<quint8, extraBytesWithin(LowBits)> extra{};
    for (int i = 0; i < extraBytes; ++i)
        extra[static_cast<std::size_t>(i)] = byteAt(buffer, firstExtraByte + i);

    // Only behind a message that ends the buffer: bytes put behind the beginning of a next one would
    // damage it.
    const int last = BitsPerExtraByte * extraBytes;
    if (buffer.size() == lengthByte + 1 && buffer.size() <= last)
        buffer.append(last + 1 - buffer.size(), '\0');
    char *const bytes = buffer.data();
    const int end = std::min(last + 1, buffer.size());
    for (int i = 0; i < extraBytes; ++i) {
        const int groupEnd = std::min(BitsPerExtraByte * (i + 1) + 1, end);
        unsigned int bits = extra[static_cast<std::size_t>(i)];
        for (int position = BitsPerExtraByte * i + 1; bits != 0 && position < groupEnd; ++position, bits >>= 1)
            bytes[position] = static_cast<char>(static_cast<quint8>(bytes[position]) | (bits & 1U) << 7);
    }
}

void takeFrame(const QByteArray &buffer, bool extended, CAN::CanMessage &message)
{
    const int idBytes = extended ? 4 : 2;
    quint32 id = 0;
    for (int i = 0; i < idBytes; ++i)
        id |= static_cast<quint32>(byteAt(buffer, 2 + i)) << (8 * i);
    const quint8 control = byteAt(buffer, 2 + idBytes);
    const quint8 lengthCode = control & 0x0FU;

    message.id = id;
    message.isExtended = extended;
    message.isRtr = (control & RemoteFlag) != 0;
    message.isFd = (control & FdFlag) != 0;
    message.isEsi = false;
    message.length = message.isFd ? fdLengthOfDlc(lengthCode) : lengthCode;
    if (message.isRtr)
        return;
    for (int i = 0; i < message.length; ++i)
        message.data[i] = byteAt(buffer, 3 + idBytes + i);
}

} // namespace

UsbMessage encodeUsbMessage(const CAN::CanMessage &message)
{
    UsbMessage wire;
    const auto append = [&wire](quint8 byte) {
        wire.bytes[static_cast<std::size_t>(wire.size++)] = static_cast<char>(byte);
    };
    append(StartMark);
    append(message.isExtended ? ExtendedType : StandardType);
    for (int i = 0; i < (message.isExtended ? 4 : 2); ++i)
        append(static_cast<quint8>(message.id >> (8 * i)));
    append(static_cast<quint8>((message.isFd ? fdDlcOfLength(message.length) | FdFlag : message.length)
                               | (message.isRtr ? RemoteFlag : 0)));
    const int payload = message.isRtr ? 0 : std::min<int>(message.length, sizeof message.data);
    for (int i = 0; i < payload; ++i)
        append(message.data[i]);

    char *const bytes = wire.bytes.data();
    const int logicalSize = wire.size;
    wire.size += extraBytesFor(logicalSize - 1);
    for (int i = 0; i < logicalSize - 1; ++i) {
        char &byte = bytes[1 + i];
        char &extra = bytes[logicalSize + i / BitsPerExtraByte];
        if (static_cast<quint8>(byte) & StartMark)
            extra = static_cast<char>(extra | 1 << (i % BitsPerExtraByte));
        byte = static_cast<char>(byte & LowBits);
    }
    bytes[0] = static_cast<char>(StartMark | wire.size);
    append(checksumOf(bytes, wire.size));
    return wire;
}

UsbDecodeStep decodeUsbMessage(QByteArray &buffer, CAN::CanMessage &message)
{
    using Outcome = UsbDecodeStep::Outcome;
    UsbDecodeStep step;
    if (!startsAt(buffer, 0)) {
        step.outcome = Outcome::StrayByte;
        step.remove = std::min(1, buffer.size());
        return step;
    }
    step.lengthByte = byteAt(buffer, 0) & LowBits;
    if (step.lengthByte == 0 || step.lengthByte >= buffer.size()) {
        findStarts(buffer, buffer.size() - 1, step);
        return step;
    }
    // Seldom, so that the search need not be quick.
    if (anyStart(buffer, step.lengthByte)) {
        findStarts(buffer, step.lengthByte, step);
        step.outcome = Outcome::StartInside;
        return step;
    }
    if (checksumOf(buffer.constData(), step.lengthByte) != (byteAt(buffer, step.lengthByte) & LowBits)) {
        step.outcome = Outcome::BadChecksum;
        step.remove = step.lengthByte + 1;
        return step;
    }
    restoreHighBits(buffer, step.lengthByte);
    const quint8 type = byteAt(buffer, 1);
    if (type != StandardType && type != ExtendedType) {
        step.outcome = Outcome::UnknownType;
        return step;
    }
    takeFrame(buffer, type == ExtendedType, message);
    step.outcome = Outcome::Frame;
    step.remove = step.lengthByte + 1;
    return step;
}

} // namespace buslink
