// SPDX-License-Identifier: MIT
// Programs that are already built rely on everything that is written out here.
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

#include "support/meta_methods.h"

#include <QtTest/QtTest>

class TestManagerAbi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalsKeepTheirOrder()
    {
        QCOMPARE(methodsOf(MultiCanAdapterHandler::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public signal adapterMapChanged() ()"),
                     QStringLiteral("public signal adapterRemoved(ushort) (id)"),
                     QStringLiteral("public signal interfaceColorsChanged() ()"),
                 }));
    }

    void directionsKeepTheirNumbers()
    {
        QCOMPARE(int(MultiCanAdapterHandler::Up), 0);
        QCOMPARE(int(MultiCanAdapterHandler::Down), 1);
        QCOMPARE(sizeof(MultiCanAdapterHandler::Direction), std::size_t(4));
    }

    void handlerKeepsItsSize() { QCOMPARE(sizeof(MultiCanAdapterHandler), std::size_t(24)); }
};

QTEST_APPLESS_MAIN(TestManagerAbi)
#include "tst_manager_abi.moc"
