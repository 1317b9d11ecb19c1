// SPDX-License-Identifier: MIT
// Programs that are already built rely on everything that is written out here.
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>

#include "support/meta_methods.h"

#include <QtTest/QtTest>

class TestGatewayAbi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void slotsKeepTheirOrder()
    {
        QCOMPARE(methodsOf(CiA309Adapter::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public slot write(CAN::CanMessage*) (pMessage)"),
                     QStringLiteral("public slot write(QString) (string)"),
                     QStringLiteral("private slot socketReadyRead() ()"),
                     QStringLiteral("private slot socketError(QAbstractSocket::SocketError) (error)"),
                     QStringLiteral("private slot socketStateChanged(QAbstractSocket::SocketState) (newTCPState)"),
                 }));
    }

    void adapterKeepsItsSize() { QCOMPARE(sizeof(CiA309Adapter), std::size_t(456)); }
};

QTEST_APPLESS_MAIN(TestGatewayAbi)
#include "tst_gateway_abi.moc"
