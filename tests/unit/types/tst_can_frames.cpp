// SPDX-License-Identifier: MIT
#include <BusLinkDesk/types/can_frames.h>

#include <QtTest/QtTest>

#include <cstring>
#include <new>

class TestCanFrames : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void metaTypesAreKnownByNameFromTheStart()
    {
        QVERIFY(QMetaType::type("CAN::CanRxMessage") != QMetaType::UnknownType);
        QVERIFY(QMetaType::type("CanTimeStamp") != QMetaType::UnknownType);
        QVERIFY(QMetaType::type("CAN::CanState") != QMetaType::UnknownType);
        QCOMPARE(QMetaType::type("CAN::CanRxMessage"), qMetaTypeId<CAN::CanRxMessage>());
        QCOMPARE(QMetaType::type("CanTimeStamp"), qMetaTypeId<CanTimeStamp>());
        QCOMPARE(QMetaType::type("CAN::CanState"), qMetaTypeId<CAN::CanState>());
    }

    void messageHas76BytesAtTheOffsetsOfTheWire()
    {
        QCOMPARE(sizeof(CAN::CanMessage), std::size_t(76));
        QCOMPARE(offsetof(CAN::CanMessage, id), std::size_t(0));
        QCOMPARE(offsetof(CAN::CanMessage, length), std::size_t(4));
        QCOMPARE(offsetof(CAN::CanMessage, data), std::size_t(5));
        QCOMPARE(offsetof(CAN::CanMessage, isRtr), std::size_t(69));
        QCOMPARE(offsetof(CAN::CanMessage, isExtended), std::size_t(70));
        QCOMPARE(offsetof(CAN::CanMessage, isFd), std::size_t(71));
        QCOMPARE(offsetof(CAN::CanMessage, isEsi), std::size_t(72));
        QCOMPARE(offsetof(CAN::CanMessage, isBrs), std::size_t(73));
        QCOMPARE(offsetof(CAN::CanMessage, reservedFlag), std::size_t(74));
        QCOMPARE(offsetof(CAN::CanMessage, fillByte), std::size_t(75));
    }

    void rxMessageFieldsStandInTheirOrder()
    {
        QCOMPARE(sizeof(CAN::CanRxMessage), std::size_t(96));
        QCOMPARE(offsetof(CAN::CanRxMessage, timeStamp), std::size_t(0));
        QCOMPARE(offsetof(CAN::CanRxMessage, message), std::size_t(8));
        QCOMPARE(offsetof(CAN::CanRxMessage, isTx), std::size_t(84));
        QCOMPARE(offsetof(CAN::CanRxMessage, packetWord), std::size_t(88));
        QCOMPARE(offsetof(CAN::CanRxMessage, adapterId), std::size_t(92));
    }

    void constructorsLeaveNoByteUndefined()
    {
        alignas(CAN::CanRxMessage) unsigned char memory[sizeof(CAN::CanRxMessage)];
        for (const int pattern : {0x00, 0xA5, 0xFF}) {
            std::memset(memory, pattern, sizeof memory);
            new (memory) CAN::CanMessage;
            QCOMPARE(QByteArray(reinterpret_cast<const char *>(memory), 76), QByteArray(76, '\0'));
            std::memset(memory, pattern, sizeof memory);
            new (memory) CAN::CanRxMessage;
            QCOMPARE(QByteArray(reinterpret_cast<const char *>(memory), 96), QByteArray(96, '\0'));
        }
    }

    void equalRecordsAreEqualInAVariant()
    {
        QCOMPARE(QVariant::fromValue(CAN::CanRxMessage()), QVariant::fromValue(CAN::CanRxMessage()));
        CAN::CanRxMessage other;
        other.adapterId = 1;
        QVERIFY(QVariant::fromValue(CAN::CanRxMessage()) != QVariant::fromValue(other));
    }

    void defaultRxMessageCountsAsReceived()
    {
        const CAN::CanRxMessage message;
        QCOMPARE(message.isTx, false);
        QCOMPARE(message.timeStamp.seconds, 0);
        QCOMPARE(message.timeStamp.microseconds, 0);
        QCOMPARE(message.packetWord, 0U);
        QCOMPARE(message.adapterId, quint16(0));
        QCOMPARE(message.message.id, 0U);
    }

    void metaTypeConstructsDefaultsAndCopies()
    {
        const int type = QMetaType::type("CAN::CanRxMessage");
        CAN::CanRxMessage source;
        source.timeStamp.seconds = 12;
        source.message.id = 0x123;
        source.isTx = true;
        source.packetWord = 7;
        source.adapterId = 9;
        auto *made = static_cast<CAN::CanRxMessage *>(QMetaType::create(type));
        auto *copied = static_cast<CAN::CanRxMessage *>(QMetaType::create(type, &source));
        QCOMPARE(made->isTx, false);
        QCOMPARE(copied->timeStamp.seconds, 12);
        QCOMPARE(copied->message.id, 0x123U);
        QCOMPARE(copied->isTx, true);
        QCOMPARE(copied->packetWord, 7U);
        QCOMPARE(copied->adapterId, quint16(9));
        QMetaType::destroy(type, made);
        QMetaType::destroy(type, copied);
    }

    void enumerationsHaveTheirNumbersAndNames()
    {
        const QMetaEnum states = QMetaEnum::fromType<CAN::CanState>();
        QCOMPARE(states.keyCount(), 5);
        QCOMPARE(states.keyToValue("CanStateNone"), 0);
        QCOMPARE(states.keyToValue("CanStateErrorActive"), 1);
        QCOMPARE(states.keyToValue("CanStateErrorPassive"), 2);
        QCOMPARE(states.keyToValue("CanStateBusOff"), 3);
        QCOMPARE(states.keyToValue("CanStateStopped"), 4);
        const QMetaEnum results = QMetaEnum::fromType<CAN::RetType>();
        QCOMPARE(results.keyCount(), 4);
        QCOMPARE(results.keyToValue("RetOk"), 0);
        QCOMPARE(results.keyToValue("RetDriverConfigFailed"), 3);
        QCOMPARE(results.keyToValue("RetError"), 6);
        QCOMPARE(results.keyToValue("RetTxBufferFull"), 9);
        QCOMPARE(sizeof(CAN::CanState), std::size_t(4));
        QCOMPARE(sizeof(CAN::RetType), std::size_t(4));
        QCOMPARE(CAN::staticMetaObject.enumeratorCount(), 2);
    }

    void tablesHoldTheirTextsAndLengths()
    {
        const QMap<quint8, QString> texts{
            {1, QStringLiteral("Stuff error")},          {2, QStringLiteral("Form error")},
            {3, QStringLiteral("Acknowledgment error")}, {4, QStringLiteral("Bit error")},
            {5, QStringLiteral("Fast data bit error")},  {6, QStringLiteral("CRC error")},
            {7, QStringLiteral("Data length error")},    {8, QStringLiteral("unspecified error")}};
        QCOMPARE(canErrorTexts, texts);
        QCOMPARE(canFdLengths, (QList<quint8>{12, 16, 20, 24, 32, 48, 64}));
    }
};

QTEST_APPLESS_MAIN(TestCanFrames)
#include "tst_can_frames.moc"
