// SPDX-License-Identifier: MIT
#include "busdesk/frame_bits.h"

#include <algorithm>

namespace buslink {

namespace {

constexpr int Acknowledge = 2; // slot and delimiter
constexpr int EndAndPause = 7 + 3;
constexpr int LengthOfShortCrc = 16; // longest CAN FD payload with the CRC of 17 bits

// Counts what is sent of a frame, with a bit of the other kind behind five alike, and reckons the classic CRC if
// wanted.
template <bool ReckonsCrc>
class StuffedBits
{
public:
    void add(bool bit)
    {
        endRun();
        mRun = bit == mLast ? mRun + 1 : 1;
        mLast = bit;
        ++mCount;
        if constexpr (ReckonsCrc)
            mCrc = (mCrc << 1U & 0x7FFFU) ^ (bit != ((mCrc >> 14U & 1U) != 0) ? 0x4599U : 0U);
    }
    void add(quint32 value, int bits)
    {
        for (int bit = bits - 1; bit >= 0; --bit)
            add((value >> unsigned(bit) & 1U) != 0);
    }
    // The stuff bit behind the last run, where the standard asks for it.
    void endRun()
    {
        if (mRun < 5)
            return;
        ++mCount;
        mLast = !mLast;
        mRun = 1;
    }
    int count() const { return mCount; }
    quint32 crc() const { return mCrc; }

private:
    int mCount = 0;
    int mRun = 0;
    bool mLast = true; // the idle bus, which does not count as a run
    quint32 mCrc = 0;
};

// The start of the frame, the identifier, and the bits around it up to the one that tells a remote frame.
template <typename Bits>
void addIdentifier(Bits &bits, const CAN::CanMessage &message, bool remote)
{
    bits.add(false);
    if (message.isExtended) {
        bits.add(message.id >> 18U, 11);
        bits.add(0b11, 2);
        bits.add(message.id, 18);
        bits.add(remote);
        return;
    }
    bits.add(message.id, 11);
    bits.add(remote);
    bits.add(false);
}

FrameBits classicBits(const CAN::CanMessage &message)
{
    StuffedBits<true> bits;
    const quint32 length = std::min<quint32>(message.length, 8);
    addIdentifier(bits, message, message.isRtr);
    bits.add(0, message.isExtended ? 2 : 1); // reserved
    bits.add(length, 4);
    for (quint32 i = 0; i < length && !message.isRtr; ++i)
        bits.add(message.data[i], 8);
    bits.add(bits.crc(), 15);
    bits.endRun();
    const int crcDelimiter = 1;
    return {bits.count() + crcDelimiter + Acknowledge + EndAndPause, 0};
}

// The CRC and the count of stuff bits in front of it have stuff bits at fixed places, one before them and one behind
// every fourth bit, instead of one that a run would need.
FrameBits fdBits(const CAN::CanMessage &message)
{
    StuffedBits<false> bits; // the length of its CRC does not depend on its value
    const auto fitting = std::lower_bound(canFdLengths.begin(), canFdLengths.end() - 1, message.length);
    const quint32 length = message.length > 8 ? *fitting : message.length;
    addIdentifier(bits, message, false);
    bits.add(0b10, 2); // CAN FD; reserved
    bits.add(message.isBrs);
    const int nominal = bits.count();
    bits.add(message.isEsi);
    bits.add(message.length > 8 ? 9U + static_cast<quint32>(fitting - canFdLengths.begin()) : length, 4);
    for (quint32 i = 0; i < length; ++i)
        bits.add(message.data[i], 8);
    const int crc = 4 + (length <= LengthOfShortCrc ? 17 : 21);
    const int fixedStuffBits = 1 + crc / 4;
    const int crcDelimiter = 1;
    const int fast = bits.count() - nominal + fixedStuffBits + crc + crcDelimiter;
    const int slow = nominal + Acknowledge + EndAndPause;
    return message.isBrs ? FrameBits{slow, fast} : FrameBits{slow + fast, 0};
}

} // namespace

FrameBits frameBits(const CAN::CanMessage &message)
{
    return message.isFd ? fdBits(message) : classicBits(message);
}

double busyNs(const CAN::CanMessage &message, const BusRates &rates)
{
    const FrameBits bits = frameBits(message);
    return 1e6 * bits.nominal / rates.nominal + 1e6 * bits.data / rates.data;
}

} // namespace buslink
