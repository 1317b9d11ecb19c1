// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/stored_value_p.h>

#include <QtCore/QDataStream>
#include <QtCore/QHash>
#include <QtCore/QIODevice>
#include <QtCore/QMap>
#include <QtCore/QStringList>

// Qt's own stream operators reserve memory for as many elements as a list claims to have, and follow
// nested values down to the end of the stack. One damaged byte is enough to turn a flag into such a
// list, so everything that holds a count of elements or another value is read here.

namespace buslink {

namespace {

QVariant readValue(QDataStream &stream, int depth);

// One element that breaks off takes the whole container with it.
template <typename Container, typename ReadOne>
Container readContainer(QDataStream &stream, ReadOne readOneInto)
{
    Container container;
    quint32 count = 0;
    stream >> count;
    for (quint32 i = 0; i < count; ++i) {
        readOneInto(container);
        if (stream.status() != QDataStream::Ok)
            return {};
    }
    return container;
}

QVariantList readList(QDataStream &stream, int depth)
{
    return readContainer<QVariantList>(
        stream, [&stream, depth](QVariantList &list) { list.append(readValue(stream, depth + 1)); });
}

template <typename List>
List readLeafList(QDataStream &stream)
{
    return readContainer<List>(stream, [&stream](List &list) {
        typename List::value_type leaf;
        stream >> leaf;
        list.append(leaf);
    });
}

template <typename Map>
Map readMap(QDataStream &stream, int depth)
{
    return readContainer<Map>(stream, [&stream, depth](Map &map) {
        QString key;
        stream >> key;
        map.insert(key, readValue(stream, depth + 1));
    });
}

template <typename Content>
QVariant hold(const Content &content, bool isNull)
{
    const int type = qMetaTypeId<Content>();
    if (!isNull)
        return QVariant(type, &content);
    // Only a value made by its type alone is null.
    QVariant value(static_cast<QVariant::Type>(type));
    *static_cast<Content *>(value.data()) = content;
    return value;
}

QVariant readValue(QDataStream &stream, int depth)
{
    if (depth > StoredValueDepth) {
        stream.setStatus(QDataStream::ReadCorruptData);
        return {};
    }
    const qint64 start = stream.device()->pos();
    quint32 number = 0;
    bool isNull = false;
    stream >> number >> isNull;
    // A variant keeps 30 bits of a type number, so a list hides behind larger ones too.
    int type = static_cast<int>(number & 0x3FFFFFFF);
    if (number == QVariant::UserType) {
        QByteArray name;
        stream >> name;
        type = QMetaType::type(name.constData());
    }
    switch (type) {
    case QMetaType::QVariantList:
        return hold(readList(stream, depth), isNull);
    case QMetaType::QStringList:
        return hold(readLeafList<QStringList>(stream), isNull);
    case QMetaType::QByteArrayList:
        return hold(readLeafList<QByteArrayList>(stream), isNull);
    case QMetaType::QVariantMap:
        return hold<QVariantMap>(readMap<QMultiMap<QString, QVariant>>(stream, depth), isNull);
    case QMetaType::QVariantHash:
        return hold<QVariantHash>(readMap<QMultiHash<QString, QVariant>>(stream, depth), isNull);
    case QMetaType::QVariant:
        return hold(readValue(stream, depth + 1), isNull);
    default:
        stream.device()->seek(start);
        stream.resetStatus();
        QVariant value;
        stream >> value;
        return value;
    }
}

} // namespace

QVariant readStoredValue(QDataStream &stream)
{
    return readValue(stream, 0);
}

} // namespace buslink
