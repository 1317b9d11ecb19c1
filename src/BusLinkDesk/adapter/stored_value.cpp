// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/stored_value_p.h>

#include <QtCore/QAbstractItemModel>
#include <QtCore/QDataStream>
#include <QtCore/QHash>
#include <QtCore/QIODevice>
#include <QtCore/QMap>
#include <QtCore/QStringList>

// Qt's own stream operators reserve memory for as many elements as a list claims to have, and follow
// nested values down to the end of the stack. One damaged byte is enough to turn a flag into such a
// list, so everything that holds a count of elements or another value is read here or not at all.

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
        if (stream.status() != QDataStream::Ok)
            return;
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

struct TypeHeader
{
    quint32 number = 0; // as it is stored
    int type = 0;       // what a variant makes of it
    bool isNull = false;
};

TypeHeader readTypeHeader(QDataStream &stream)
{
    TypeHeader header;
    quint8 nullFlag = 0;
    stream >> header.number >> nullFlag;
    // A variant keeps one bit of the flag.
    header.isNull = (nullFlag & 1) != 0;
    // It keeps 30 bits of a type number, so a list hides behind larger ones too.
    header.type = static_cast<int>(header.number & 0x3FFFFFFF);
    if (header.number == QVariant::UserType) {
        QByteArray name;
        stream >> name;
        header.type = QMetaType::type(name.constData());
    }
    return header;
}

// Whether QtGui or QtWidgets would read such a value: a polygon's count ends the process, and text formats
// hold values again. No option is of these types.
bool isReadByGuiModules(int type)
{
    return type >= QMetaType::FirstGuiType && type <= QMetaType::LastWidgetsType && QMetaType::sizeOf(type) != 0;
}

// What restoring comes to in a process without these modules. Their types must not be constructed either:
// some need an application object, and a colour converts to a text.
QVariant withoutGuiModules(QDataStream &stream, const TypeHeader &header)
{
    const bool hasLargerNumber = header.number > QMetaType::LastWidgetsType && header.number != QVariant::UserType;
    if (hasLargerNumber) {
        qWarning("Trying to construct an instance of an invalid type, type id: %i", header.type);
        return {};
    }
    qWarning("QVariant::load: unable to load type %d.", header.type);
    stream.setStatus(QDataStream::ReadCorruptData);
    return hold(QModelIndex(), header.isNull);
}

QVariant readByQt(QDataStream &stream, qint64 start)
{
    stream.device()->seek(start);
    stream.resetStatus();
    QVariant value;
    stream >> value;
    return value;
}

QVariant readValue(QDataStream &stream, int depth)
{
    if (stream.status() != QDataStream::Ok)
        return {};
    if (depth > StoredValueDepth) {
        stream.setStatus(QDataStream::ReadCorruptData);
        return {};
    }
    const qint64 start = stream.device()->pos();
    const TypeHeader header = readTypeHeader(stream);
    switch (header.type) {
    case QMetaType::QVariantList:
        return hold(readList(stream, depth), header.isNull);
    case QMetaType::QStringList:
        return hold(readLeafList<QStringList>(stream), header.isNull);
    case QMetaType::QByteArrayList:
        return hold(readLeafList<QByteArrayList>(stream), header.isNull);
    case QMetaType::QVariantMap:
        return hold<QVariantMap>(readMap<QMultiMap<QString, QVariant>>(stream, depth), header.isNull);
    case QMetaType::QVariantHash:
        return hold<QVariantHash>(readMap<QMultiHash<QString, QVariant>>(stream, depth), header.isNull);
    case QMetaType::QVariant:
        return hold(readValue(stream, depth + 1), header.isNull);
    default:
        return isReadByGuiModules(header.type) ? withoutGuiModules(stream, header) : readByQt(stream, start);
    }
}

} // namespace

QVariant readStoredValue(QDataStream &stream)
{
    return readValue(stream, 0);
}

} // namespace buslink
