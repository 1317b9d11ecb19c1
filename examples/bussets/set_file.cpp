// SPDX-License-Identifier: MIT
#include "bussets/set_file.h"

#include "common/file_replacement.h"

#include <QtCore/QCryptographicHash>
#include <QtCore/QFile>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <optional>

namespace buslink {

namespace {

constexpr int Version = 1;
// More than any set has; what is larger is another file.
constexpr qint64 SizeMax = 1 << 26;

QString formatName()
{
    return QStringLiteral("bussets");
}

QString checksumOf(const QJsonArray &adapters)
{
    const QByteArray text = QJsonDocument(adapters).toJson(QJsonDocument::Compact);
    return QString::fromLatin1(QCryptographicHash::hash(text, QCryptographicHash::Sha256).toHex());
}

QJsonObject toJson(const SavedAdapter &adapter)
{
    return {{QStringLiteral("type"), adapter.type},
            {QStringLiteral("device"), adapter.device},
            {QStringLiteral("bitrate"), adapter.bitrate},
            {QStringLiteral("configuration"), QString::fromLatin1(adapter.configuration.toBase64())}};
}

std::optional<SavedAdapter> fromJson(const QJsonObject &object)
{
    const QJsonValue type = object.value(QStringLiteral("type"));
    const QJsonValue device = object.value(QStringLiteral("device"));
    const QJsonValue bitrate = object.value(QStringLiteral("bitrate"));
    const auto configuration = QByteArray::fromBase64Encoding(
        object.value(QStringLiteral("configuration")).toString().toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    const bool complete = type.isDouble() && device.isString() && bitrate.isDouble();
    if (!complete || !configuration || configuration.decoded.isEmpty())
        return std::nullopt;
    return SavedAdapter{type.toInt(), device.toString(), bitrate.toInt(), configuration.decoded};
}

SetFile refused(const QString &reason)
{
    return {{}, reason};
}

} // namespace

QByteArray encodeSet(const QVector<SavedAdapter> &adapters)
{
    QJsonArray array;
    for (const SavedAdapter &adapter : adapters)
        array.append(toJson(adapter));
    const QJsonObject content{{QStringLiteral("format"), formatName()},
                              {QStringLiteral("version"), Version},
                              {QStringLiteral("checksum"), checksumOf(array)},
                              {QStringLiteral("adapters"), array}};
    return QJsonDocument(content).toJson();
}

SetFile decodeSet(const QByteArray &bytes)
{
    QJsonParseError parsed;
    const QJsonObject content = QJsonDocument::fromJson(bytes, &parsed).object();
    if (parsed.error != QJsonParseError::NoError)
        return refused(
            QStringLiteral("no set of adapters: %1 at byte %2").arg(parsed.errorString()).arg(parsed.offset));
    if (content.value(QStringLiteral("format")) != formatName())
        return refused(QStringLiteral("no set of adapters"));
    if (const int version = content.value(QStringLiteral("version")).toInt(); version != Version)
        return refused(QStringLiteral("version %1 of the format is not known here").arg(version));
    const QJsonValue array = content.value(QStringLiteral("adapters"));
    if (!array.isArray() || content.value(QStringLiteral("checksum")) != checksumOf(array.toArray()))
        return refused(QStringLiteral("damaged: the checksum is not that of the adapters"));
    SetFile file;
    const QJsonArray adapters = array.toArray();
    for (const QJsonValue &value : adapters) {
        const std::optional<SavedAdapter> adapter = fromJson(value.toObject());
        if (!adapter)
            return refused(QStringLiteral("adapter %1 is incomplete").arg(file.adapters.size() + 1));
        file.adapters.append(*adapter);
    }
    return file;
}

SetFile loadSet(const QString &path)
{
    QFile file(path);
    if (!file.exists())
        return {};
    if (!file.open(QIODevice::ReadOnly))
        return refused(file.errorString());
    if (file.size() > SizeMax)
        return refused(QStringLiteral("no set of adapters: too large"));
    return decodeSet(file.readAll());
}

QString saveSet(const QString &path, const QVector<SavedAdapter> &adapters)
{
    FileReplacement file(path);
    file.write(encodeSet(adapters));
    return file.commit();
}

} // namespace buslink
