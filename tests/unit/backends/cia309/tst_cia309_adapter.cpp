// SPDX-License-Identifier: MIT
// The adapter without a gateway.
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>

#include "support/log_recorder.h"
#include "support/option_rows.h"

#include <QtTest/QtTest>

using A = AbstractCanAdapter;

namespace {

const QString Device = QStringLiteral("ignored");

void report(CiA309Adapter &adapter, QAbstractSocket::SocketState state)
{
    QVERIFY(QMetaObject::invokeMethod(&adapter, "socketStateChanged", Q_ARG(QAbstractSocket::SocketState, state)));
}

} // namespace

class TestCiA309Adapter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void writeOnAClosedAdapterFailsAndStillUsesUpANumber()
    {
        CiA309Adapter adapter(Device);
        QSignalSpy requests(&adapter, &A::newCiA309RequestSent);
        QCOMPARE(adapter.buildString(QStringLiteral("x")), QStringLiteral("[0] x\n"));
        QCOMPARE(adapter.write(QStringLiteral("x")), CAN::RetError);
        QCOMPARE(adapter.buildString(QStringLiteral("x")), QStringLiteral("[1] x\n"));
        short sequence = -5;
        QCOMPARE(adapter.write(QStringLiteral("x"), sequence), CAN::RetError);
        QCOMPARE(int(sequence), 1);
        QCOMPARE(adapter.buildString(QStringLiteral("%1")), QStringLiteral("[2] 2\n"));
        QCOMPARE(requests.count(), 0);
    }

    void afterTheLargestNumberComesZero()
    {
        CiA309Adapter adapter(Device);
        short sequence = -1;
        for (int expected = 0; expected <= 32767; ++expected) {
            adapter.write(QStringLiteral("x"), sequence);
            QCOMPARE(int(sequence), expected);
        }
        adapter.write(QStringLiteral("x"), sequence);
        QCOMPARE(int(sequence), 0);
        QCOMPARE(adapter.buildString(QString()), QStringLiteral("[1] \n"));
    }

    void terminatedAdapterStaysClosedForGood()
    {
        const LogRecorder log;
        CiA309Adapter adapter(Device);
        QSignalSpy errors(&adapter, &A::interfaceError);
        QVERIFY(adapter.findChild<QTcpSocket *>());
        adapter.closeAdapter();
        QVERIFY(adapter.findChild<QTcpSocket *>());
        adapter.prepareToTerminate();
        QVERIFY(!adapter.findChild<QTcpSocket *>());
        adapter.prepareToTerminate();
        adapter.closeAdapter();
        QCOMPARE(adapter.open(), CAN::RetError);
        short sequence = -1;
        QCOMPARE(adapter.write(QStringLiteral("x"), sequence), CAN::RetError);
        QCOMPARE(int(sequence), 0);
        QCOMPARE(adapter.buildString(QString()), QStringLiteral("[1] \n"));
        QVERIFY(!adapter.getRunning());
        QVERIFY(QMetaObject::invokeMethod(&adapter, "socketReadyRead"));
        QCOMPARE(errors.count(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void framesAndRatesAreRefused()
    {
        CiA309Adapter adapter(Device);
        CAN::CanMessage message;
        QCOMPARE(adapter.write(&message), CAN::RetError);
        QCOMPARE(adapter.write(message), CAN::RetError);
        QCOMPARE(adapter.setBitrate(static_cast<unsigned short>(500)), CAN::RetError);
        QCOMPARE(adapter.setBitrate(500U), CAN::RetError);
        QCOMPARE(adapter.setFdBitrate(2000U), CAN::RetError);
        QCOMPARE(adapter.buildString(QString()), QStringLiteral("[0] \n"));
    }

    void smallOperationsAnswerAsTheyAlwaysDo()
    {
        CiA309Adapter adapter(Device);
        QVERIFY(!adapter.isRunning());
        QVERIFY(!adapter.getRunning());
        QCOMPARE(adapter.getState(), CAN::CanStateNone);
        QCOMPARE(adapter.clearTxQueue(), 0);
        QCOMPARE(adapter.clearRxQueue(), 0);
        QCOMPARE(adapter.getTxQueueCount(), 0);
        QCOMPARE(adapter.getRxQueueCount(), 0);
        adapter.resetDriver();
        QCOMPARE(adapter.getCanAdapterOption(A::option_ipAddress), QVariant(QString()));
        QCOMPARE(adapter.getCanAdapterOption(A::option_portNumber), QVariant(45674));
        QCOMPARE(adapter.getCanAdapterOption(A::option_deviceName), QVariant(QString()));
    }

    void deviceListHasOneEmptyEntry()
    {
        QCOMPARE(CiA309Adapter::getDeviceList().size(), 1);
        QVERIFY(CiA309Adapter::getDeviceList().constFirst().isEmpty());
    }

    void isCiA309IsTheOneOptionThatIsTrue()
    {
        const CiA309Adapter adapter(Device);
        QCOMPARE(told(adapter.getCanAdapterOption(A::option_isCiA309)), QStringLiteral("bool true"));
        for (const OptionRow &row : OptionRows) {
            QCOMPARE(told(adapter.getSpecificCanAdapterOption(row.option)),
                     row.option == A::option_isCiA309 ? QStringLiteral("bool true") : QStringLiteral("bool false"));
        }
    }

    void skippedOptionsKeepTheirOrder()
    {
        QStringList names;
        const CiA309Adapter adapter(Device);
        for (const A::AdapterOption option : adapter.getSkippedOptions())
            names << QString::fromLatin1(nameOf(option)).remove(QStringLiteral("option_"));
        QCOMPARE(names.join(QLatin1Char(' ')),
                 QStringLiteral("CANFD toggleComPort flowControl baudrate parity databits stopbits internExtern "
                                "reconnectTimeout connectTimeout disconnectTimeout protocol toggleDTR toggleRTS "
                                "peakAdvValues Reset halfDuplex canLowSpeed isCiA309 autoBusOn errorFrames listenOnly "
                                "btrExt usdoId systecXm3Values canClassicBusParams canFDBusParams"));
    }

    void addressAndPortAreStoredAndSkippedOptionsAreNotRestored()
    {
        CiA309Adapter saved(Device);
        saved.setCanAdapterOption(A::option_ipAddress, QStringLiteral("gateway.example"));
        saved.setCanAdapterOption(A::option_portNumber, 4711);
        saved.setCanAdapterOption(A::option_baudrate, 115200);
        CiA309Adapter restored(Device);
        restored.setValuesFromByteArray(saved.getValuesAsByteArray());
        QCOMPARE(restored.getCanAdapterOption(A::option_ipAddress), QVariant(QStringLiteral("gateway.example")));
        QCOMPARE(restored.getCanAdapterOption(A::option_portNumber), QVariant(4711));
        QCOMPARE(restored.getCanAdapterOption(A::option_baudrate), QVariant(0U));
        QVERIFY(saved == restored);
    }

    void onlyClosingThenUnconnectedIsAnError_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("after");
        for (int before = QAbstractSocket::UnconnectedState; before <= QAbstractSocket::ClosingState; ++before) {
            for (int after = QAbstractSocket::UnconnectedState; after <= QAbstractSocket::ClosingState; ++after)
                QTest::addRow("%d to %d", before, after) << before << after;
        }
    }
    void onlyClosingThenUnconnectedIsAnError()
    {
        QFETCH(int, before);
        QFETCH(int, after);
        CiA309Adapter adapter(Device);
        report(adapter, QAbstractSocket::SocketState(before));
        QSignalSpy errors(&adapter, &A::interfaceError);
        report(adapter, QAbstractSocket::SocketState(after));
        QCOMPARE(errors.count(), before == QAbstractSocket::ClosingState && after == 0 ? 1 : 0);
        report(adapter, QAbstractSocket::UnconnectedState);
        const bool late = after == QAbstractSocket::ClosingState;
        QCOMPARE(errors.count(), late || (before == QAbstractSocket::ClosingState && after == 0) ? 1 : 0);
        QVERIFY(!adapter.getRunning());
    }

    void socketErrorDoesNothing()
    {
        const LogRecorder log;
        CiA309Adapter adapter(Device);
        QSignalSpy errors(&adapter, &A::interfaceError);
        QSignalSpy states(&adapter, SIGNAL(newCanState(CAN::CanState, CanTimeStamp)));
        for (int error = QAbstractSocket::UnknownSocketError; error <= QAbstractSocket::TemporaryError; ++error) {
            QVERIFY(QMetaObject::invokeMethod(
                &adapter, "socketError", Q_ARG(QAbstractSocket::SocketError, QAbstractSocket::SocketError(error))));
        }
        QCOMPARE(errors.count() + states.count(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
    }
};

QTEST_GUILESS_MAIN(TestCiA309Adapter)
#include "tst_cia309_adapter.moc"
