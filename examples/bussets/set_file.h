// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QVector>

namespace buslink {

/// What brings one adapter of a set back.
struct SavedAdapter
{
    int type = 0;             ///< A `CanAdapterType`.
    QString device;           ///< What the factory is given.
    int bitrate = 0;          ///< In kbit/s for adapters that are told their rate; 0: none.
    QByteArray configuration; ///< The stored form.

    bool operator==(const SavedAdapter &other) const = default;
};

/// The content of a file, or why it is none.
struct SetFile
{
    QVector<SavedAdapter> adapters;
    QString error; ///< Empty where the adapters are those of the file.
};

/// The bytes of a file: JSON with a name, a version and a checksum over the adapters.
QByteArray encodeSet(const QVector<SavedAdapter> &adapters);
/// Reads such bytes; nothing is taken from a file that is damaged or of another version.
SetFile decodeSet(const QByteArray &bytes);

/// Reads a file. One that does not exist is an empty set.
SetFile loadSet(const QString &path);
/// Replaces a file as a whole or not at all. Returns why not, or an empty text.
QString saveSet(const QString &path, const QVector<SavedAdapter> &adapters);

} // namespace buslink
