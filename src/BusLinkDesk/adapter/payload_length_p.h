// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#include <array>

// Payload length in bytes and DLC code of CAN FD frames.
namespace buslink {

/// Payload lengths by DLC code.
inline constexpr std::array<quint8, 16> fdLengthByDlc{0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

/// Returns the payload length of a DLC code, of which the low four bits count.
constexpr quint8 fdLengthOfDlc(quint8 dlc) noexcept
{
    return fdLengthByDlc[dlc & 0x0FU];
}

/// Returns the DLC code of the smallest frame that holds `length` bytes; 15 for all that no frame holds.
constexpr quint8 fdDlcOfLength(quint8 length) noexcept
{
    quint8 dlc = 0;
    while (dlc < 15 && fdLengthByDlc[dlc] < length)
        ++dlc;
    return dlc;
}

/// Rounds a length up to the next one that a CAN FD frame can carry, at most 64.
constexpr quint8 roundUpToFdLength(quint8 length) noexcept
{
    return fdLengthOfDlc(fdDlcOfLength(length));
}

} // namespace buslink
