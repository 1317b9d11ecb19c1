// SPDX-License-Identifier: MIT
// Programs that are already built rely on everything that is written out here.
#include <BusLinkDesk/traffic/can_message_transmitter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "support/meta_methods.h"

#include <QtTest/QtTest>

class TestTrafficAbi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dispatchMethodsKeepTheirOrder()
    {
        QCOMPARE(methodsOf(CanSender::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public signal received(CAN::CanRxMessage) (message)"),
                     QStringLiteral("public signal received(ushort) (id)"),
                 }));
        QCOMPARE(methodsOf(CanScheduler::staticMetaObject),
                 (QStringList{QStringLiteral("public slot newRawCanMessage(CAN::CanRxMessage*) (pMessage)")}));
    }

    void transmissionMethodsKeepTheirOrder()
    {
        QCOMPARE(methodsOf(CanMessageTransmitter::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public signal operate() ()"),
                     QStringLiteral("public signal transmitError() ()"),
                     QStringLiteral("public signal sigFinished(ushort) (id)"),
                     QStringLiteral("public signal sigMsgsLeft(ushort,uint) (id,msgsLeft)"),
                     QStringLiteral("public slot transmitErrorOccured() ()"),
                 }));
        QCOMPARE(methodsOf(CMTWorker::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public signal transmitError() ()"),
                     QStringLiteral("public signal sigMsgsLeft(ushort,uint) (id,count)"),
                     QStringLiteral("public signal sigFinished(ushort) (id)"),
                     QStringLiteral("public slot doWork() ()"),
                 }));
    }

    void classesKeepTheirSizes()
    {
        QCOMPARE(sizeof(CanSender), std::size_t(24));
        QCOMPARE(sizeof(CanScheduler), std::size_t(40));
        QCOMPARE(sizeof(CMTWorker), std::size_t(128));
        QCOMPARE(sizeof(CanMessageTransmitter), std::size_t(48));
    }
};

QTEST_APPLESS_MAIN(TestTrafficAbi)
#include "tst_traffic_abi.moc"
