// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/stored_value_p.h>

#include "support/hex.h"
#include "support/log_recorder.h"
#include "support/saved.h"

#include <QtCore/QDataStream>
#include <QtCore/QRect>
#include <QtCore/QUrl>
#include <QtTest/QtTest>

namespace {

struct Reading
{
    QVariant value;
    QDataStream::Status status = QDataStream::Ok;
    qint64 position = 0;
};

template <typename Read>
Reading reading(const QByteArray &data, Read read)
{
    QDataStream stream(data);
    stream.setVersion(QDataStream::Qt_5_12);
    Reading result;
    result.value = read(stream);
    result.status = stream.status();
    result.position = stream.device()->pos();
    return result;
}

Reading ours(const QByteArray &data)
{
    return reading(data, [](QDataStream &stream) { return buslink::readStoredValue(stream); });
}

Reading byQt(const QByteArray &data)
{
    return reading(data, [](QDataStream &stream) {
        QVariant value;
        stream >> value;
        return value;
    });
}

QByteArray nested(int depth)
{
    return hex("00000009 00 00000001").repeated(depth) + hex("00000002 00 00000007");
}

} // namespace

class TestStoredValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesReadAsQtReadsThem_data();
    void valuesReadAsQtReadsThem();
    void nestingEndsAtItsLimit();
};

void TestStoredValue::valuesReadAsQtReadsThem_data()
{
    QTest::addColumn<QByteArray>("data");
    QMultiMap<QString, QVariant> twice;
    twice.insert(QStringLiteral("key"), 1);
    twice.insert(QStringLiteral("key"), QStringLiteral("two"));
    QVariantHash hash;
    hash.insert(QStringLiteral("a"), 2.5);
    const QVariant inner(true);
    const QList<QPair<const char *, QVariant>> values{
        {"invalid", QVariant()},
        {"bool", true},
        {"int", -7},
        {"text", QStringLiteral("A\u20AC")},
        {"null text", QString()},
        {"double", 0.5},
        {"byte array", QByteArray("abc")},
        {"rectangle", QRect(1, 2, 3, 4)},
        {"address", QUrl(QStringLiteral("http://localhost/"))},
        {"empty list", QVariantList()},
        {"list", QVariantList{1, QStringLiteral("b"), QVariant(), QVariantList{QStringList{QStringLiteral("c")}}}},
        {"texts", QStringList{QStringLiteral("a"), QString(), QStringLiteral("")}},
        {"byte arrays", QVariant::fromValue(QByteArrayList{"a", QByteArray(), ""})},
        {"map with a key twice", QVariantMap(twice)},
        {"hash", hash},
        {"value in a value", QVariant(QMetaType::QVariant, &inner)},
    };
    for (const auto &[name, value] : values) {
        const QByteArray data = saved(value);
        QTest::newRow(name) << data;
        QTest::newRow(qPrintable(QStringLiteral("%1, null flag set").arg(QLatin1String(name))))
            << QByteArray(data).replace(4, 1, "\1");
    }
    QTest::newRow("list by its name") << hex(
        "00000400 00 0000000D 515661726961 6E744C69737400 00000001 00000002 00 00000007");
    QTest::newRow("list by a number of 31 bits") << hex("40000009 00 00000001 00000002 00 00000007");
    QTest::newRow("int by a number of 31 bits") << hex("40000002 00 00000007");
    QTest::newRow("name behind a number of 31 bits") << hex("40000400 00 00000003 414200");
    QTest::newRow("unknown name") << hex("00000400 00 00000003 414200");
    QTest::newRow("unknown number") << hex("00000063 00");
    QTest::newRow("pointer") << hex("0000001F 00");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("half a type number") << hex("0000");
    QTest::newRow("list without null flag") << hex("00000009");
    QTest::newRow("list without count") << hex("00000009 00 0000");
    QTest::newRow("list with half an element") << hex("00000009 00 00000002 00000001 00 01 00000002 00 00");
    QTest::newRow("list with damage inside") << hex("00000009 00 00000002 00000400 00 00000003 414200 00000001 00 01");
    QTest::newRow("map that ends") << hex("00000008 00 00000002 00000002 0041 00000001 00 01");
}

void TestStoredValue::valuesReadAsQtReadsThem()
{
    QFETCH(QByteArray, data);
    const LogRecorder log;
    const Reading wanted = byQt(data);
    const QStringList warnings = log.texts();
    const Reading actual = ours(data);
    QCOMPARE(log.texts().mid(warnings.size()), warnings);
    QCOMPARE(actual.value, wanted.value);
    QCOMPARE(actual.value.userType(), wanted.value.userType());
    QCOMPARE(actual.value.isNull(), wanted.value.isNull());
    QCOMPARE(saved(actual.value), saved(wanted.value));
    QCOMPARE(actual.status, wanted.status);
    if (wanted.status == QDataStream::Ok)
        QCOMPARE(actual.position, wanted.position);
}

void TestStoredValue::nestingEndsAtItsLimit()
{
    const Reading deepest = ours(nested(buslink::StoredValueDepth));
    QCOMPARE(deepest.status, QDataStream::Ok);
    QCOMPARE(saved(deepest.value), nested(buslink::StoredValueDepth));
    const Reading tooDeep = ours(nested(buslink::StoredValueDepth + 1));
    QCOMPARE(tooDeep.status, QDataStream::ReadCorruptData);
    QCOMPARE(tooDeep.value, QVariant(QVariantList()));
}

QTEST_APPLESS_MAIN(TestStoredValue)
#include "tst_stored_value.moc"
