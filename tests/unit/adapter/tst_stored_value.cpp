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

QByteArray nested(const QByteArray &level, int depth)
{
    return level.repeated(depth) + hex("00000002 00 00000007");
}

} // namespace

class TestStoredValue : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void valuesReadAsQtReadsThem_data();
    void valuesReadAsQtReadsThem();
    void typesOfAbsentModulesReadAsQtReadsThem_data();
    void typesOfAbsentModulesReadAsQtReadsThem();
    void nestingEndsAtItsLimit_data();
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
    for (const QMetaType::Type type : {QMetaType::QVariantMap, QMetaType::QVariantHash}) {
        QTest::addRow("%s with a damaged key", QMetaType::typeName(type))
            << saved(quint32(type)) + hex("00 00000001 00000003 00000002 00 00000007");
    }
    QTest::newRow("bool with a null flag of 2") << hex("00000001 02 01");
    QTest::newRow("text with a null flag of 2") << hex("0000000A 02 00000002 0041");
    QTest::newRow("list with a null flag of 2") << hex("00000009 02 00000001 00000002 02 00000007");
    QTest::newRow("list with a null flag of 3") << hex("00000009 03 00000001 00000002 03 00000007");
    QTest::newRow("map that ends") << hex("00000008 00 00000002 00000002 0041 00000001 00 01");
}

void TestStoredValue::typesOfAbsentModulesReadAsQtReadsThem_data()
{
    QTest::addColumn<QByteArray>("data");
    for (int type = QMetaType::FirstGuiType - 2; type <= QMetaType::LastWidgetsType + 2; ++type) {
        for (const char *flag : {"00", "01", "02"})
            QTest::addRow("type %d, null flag %s", type, flag)
                << saved(quint32(type)) + hex(flag) + hex("7FFFFFFF0000");
    }
    QTest::newRow("polygon by a number of 31 bits") << hex("40000047 00 7FFFFFFF0000");
    QTest::newRow("polygon by a number of 32 bits") << hex("80000047 00 7FFFFFFF0000");
    QTest::newRow("polygon by its name") << hex("00000400 00 00000009 51506F6C79676F6E00 7FFFFFFF0000");
    QTest::newRow("polygon in a list") << hex("00000009 00 00000001 00000047 00 7FFFFFFF0000");
}

void TestStoredValue::typesOfAbsentModulesReadAsQtReadsThem()
{
    QCOMPARE(QMetaType::sizeOf(QMetaType::QPolygon), 0);
    valuesReadAsQtReadsThem();
}

void TestStoredValue::valuesReadAsQtReadsThem()
{
    QFETCH(QByteArray, data);
    const LogRecorder log;
    const Reading wanted = byQt(data);
    const QStringList warnings = log.texts();
    const Reading actual = ours(data);
    QCOMPARE(log.texts().mid(warnings.size()), warnings);
    QCOMPARE(actual.value.userType(), wanted.value.userType());
    // A value of an absent module's type has no content, and does not even equal its copy.
    if (!wanted.value.isValid() || QMetaType::sizeOf(wanted.value.userType()) != 0)
        QCOMPARE(actual.value, wanted.value);
    QCOMPARE(actual.value.isNull(), wanted.value.isNull());
    QCOMPARE(saved(actual.value), saved(wanted.value));
    QCOMPARE(actual.status, wanted.status);
    if (wanted.status == QDataStream::Ok)
        QCOMPARE(actual.position, wanted.position);
}

void TestStoredValue::nestingEndsAtItsLimit_data()
{
    QTest::addColumn<QByteArray>("level");
    QTest::addColumn<QByteArray>("remains");
    QTest::newRow("list") << hex("00000009 00 00000001") << hex("00000009 00 00000000");
    QTest::newRow("map") << hex("00000008 00 00000001 00000002 0041") << hex("00000008 00 00000000");
    QTest::newRow("hash") << hex("0000001C 00 00000001 00000002 0041") << hex("0000001C 00 00000000");
    QTest::newRow("value in a value") << hex("00000029 00")
                                      << hex("00000029 00").repeated(buslink::StoredValueDepth + 1) + saved(QVariant());
}

void TestStoredValue::nestingEndsAtItsLimit()
{
    QFETCH(QByteArray, level);
    QFETCH(QByteArray, remains);
    const QByteArray deepest = nested(level, buslink::StoredValueDepth);
    const Reading whole = ours(deepest);
    QCOMPARE(whole.status, QDataStream::Ok);
    QCOMPARE(saved(whole.value), deepest);
    const Reading tooDeep = ours(nested(level, buslink::StoredValueDepth + 1));
    QCOMPARE(tooDeep.status, QDataStream::ReadCorruptData);
    QCOMPARE(saved(tooDeep.value), remains);
}

QTEST_APPLESS_MAIN(TestStoredValue)
#include "tst_stored_value.moc"
