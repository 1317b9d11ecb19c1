// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QtGlobal>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

/// Ends the program with a report of the fuzzer unless the condition holds.
inline void require(bool condition)
{
    if (!condition)
        std::abort();
}

/// Swallows Qt's log: damaged input warns on nearly every run.
inline void silenceLog()
{
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
}

/// The input without a copy.
inline QByteArray inputBytes(const std::uint8_t *data, std::size_t size)
{
    return QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<int>(size));
}
