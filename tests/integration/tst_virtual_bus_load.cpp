// SPDX-License-Identifier: MIT
#include "support/bus_load.h"

#include <QtTest/QtTest>

class TestVirtualBusLoad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fullClassicBusLosesNothingToFourProcesses()
    {
        // What classic CAN carries at 1 Mbit/s with 8 bytes a frame, for four seconds.
        constexpr qint64 frames = 36036;
        const PacedResult result = runPacedBus(QCoreApplication::applicationFilePath(), 4, 9009.0, frames);
        QVERIFY(result.started);
        QCOMPARE(result.sent, frames);
        QCOMPARE(result.received, QVector<qint64>(4, frames));
        QCOMPARE(result.outOfOrder, 0);
    }
};

int main(int argc, char **argv)
{
    const int status = runBusReceiver(argc, argv);
    if (status >= 0)
        return status;
    QCoreApplication application(argc, argv);
    TestVirtualBusLoad test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_virtual_bus_load.moc"
