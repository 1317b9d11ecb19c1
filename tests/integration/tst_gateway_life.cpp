// SPDX-License-Identifier: MIT
// How connections to a gateway begin and end.
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

#include "support/gateway_client.h"
#include "support/line_gateway.h"
#include "support/log_recorder.h"
#include "support/loopback_port.h"
#include "support/process_level.h"

#include <memory>
#include <sys/socket.h>

namespace {

constexpr int WaitMs = 20000;

using Ending = void (LineGateway::*)(int);

} // namespace

Q_DECLARE_METATYPE(Ending)

class TestGatewayLife : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void deliberateCloseIsNoErrorAndReopeningGoesOnCounting()
    {
        const LogRecorder log;
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        for (int pass = 0; pass < 3; ++pass) {
            QCOMPARE(client.adapter.open(), CAN::RetOk);
            QVERIFY(client.adapter.getRunning());
            QCOMPARE(client.send(QStringLiteral("x")), 2 * pass);
            QTRY_COMPARE_WITH_TIMEOUT(client.responses.count(), pass + 1, WaitMs);
            client.adapter.closeAdapter();
            QVERIFY(!client.adapter.getRunning());
            QCOMPARE(client.send(QStringLiteral("x")), -1);
            QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(pass), WaitMs);
        }
        QCOMPARE(gateway.received(2), QByteArray("[4] x\n"));
        QCOMPARE(client.errors.count(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void secondOpenCutsTheFirstConnectionAndMakesANewOne()
    {
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QVERIFY(client.adapter.getRunning());
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 2, WaitMs);
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(0), WaitMs);
        QCOMPARE(client.send(QStringLiteral("x")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(1), QByteArray("[0] x\n"), WaitMs);
        QCOMPARE(gateway.received(0), QByteArray());
        QVERIFY(gateway.isConnected(1));
        QCOMPARE(client.errors.count(), 0);
    }

    void lossOfTheConnectionIsReportedOnce_data()
    {
        QTest::addColumn<Ending>("ending");
        QTest::newRow("hang up") << Ending(&LineGateway::hangUp);
        QTest::newRow("reset") << Ending(&LineGateway::reset);
    }
    void lossOfTheConnectionIsReportedOnce()
    {
        QFETCH(Ending, ending);
        const LogRecorder log;
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        bool ranWhenReported = true;
        connect(&client.adapter, &AbstractCanAdapter::interfaceError, &client.adapter,
                [&] { ranWhenReported = client.adapter.getRunning(); });
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        (gateway.*ending)(0);
        QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), 1, WaitMs);
        QVERIFY(!ranWhenReported);
        QVERIFY(!client.adapter.getRunning());
        QCOMPARE(client.send(QStringLiteral("x")), -1);
        QCOMPARE(client.requests.count(), 0);
        client.adapter.closeAdapter();
        // Nothing but an open makes a connection again.
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 2, WaitMs);
        QCOMPARE(client.send(QStringLiteral("x")), 1);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(1), QByteArray("[1] x\n"), WaitMs);
        QCOMPARE(client.errors.count(), 1);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void gatewayThatDiesAndReturnsIsReachedByTheNextOpen()
    {
        auto gateway = std::make_unique<LineGateway>();
        const quint16 port = gateway->serverPort();
        GatewayClient client(port);
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway->connectionCount(), 1, WaitMs);
        gateway.reset();
        QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), 1, WaitMs);
        QVERIFY(!client.adapter.getRunning());
        QCOMPARE(client.adapter.open(), CAN::RetError);
        LineGateway returned;
        returned.close();
        QVERIFY2(returned.listen(QHostAddress(QHostAddress::LocalHost), port), qPrintable(returned.errorString()));
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QVERIFY(client.adapter.getRunning());
        QCOMPARE(client.send(QStringLiteral("back")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(client.responses).join(QString()), QStringLiteral("[0] OK\r\n"), WaitMs);
        QCOMPARE(client.errors.count(), 1);
    }

    void lastWordsOfAGatewayAreDeliveredBeforeTheError()
    {
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        QStringList events;
        connect(&client.adapter, &AbstractCanAdapter::newCiA309Response, &client.adapter,
                [&events](const QString &text) { events << text; });
        connect(&client.adapter, &AbstractCanAdapter::interfaceError, &client.adapter,
                [&events] { events << QStringLiteral("error"); });
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        gateway.send("bye");
        gateway.hangUp();
        QTRY_COMPARE_WITH_TIMEOUT(events, (QStringList{QStringLiteral("bye"), QStringLiteral("error")}), WaitMs);
    }

    void refusedConnectionFailsWithoutAnError()
    {
        const LogRecorder log;
        LoopbackPort port;
        GatewayClient client(port.number());
        QCOMPARE(client.adapter.open(), CAN::RetError);
        QVERIFY(!client.adapter.getRunning());
        QCOMPARE(client.send(QStringLiteral("x")), -1);
        QCOMPARE(client.adapter.buildString(QString()), QStringLiteral("[1] \n"));
        port.listen();
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QVERIFY(client.adapter.getRunning());
        QCOMPARE(client.requests.count() + client.errors.count(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void failedReopenEndsTheConnectionFromBefore()
    {
        LineGateway gateway;
        const LoopbackPort port;
        GatewayClient client(gateway.serverPort());
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        client.adapter.setCanAdapterOption(AbstractCanAdapter::option_portNumber, port.number());
        QCOMPARE(client.adapter.open(), CAN::RetError);
        QVERIFY(!client.adapter.getRunning());
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(0), WaitMs);
        QCOMPARE(client.errors.count(), 0);
    }

    void gatewayThatNeverAnswersTheConnectFailsAfterFiveSeconds()
    {
        const LogRecorder log;
        LoopbackPort port;
        QVERIFY(port.stopAnswering());
        GatewayClient client(port.number());
        client.adapter.setCanAdapterOption(AbstractCanAdapter::option_connectTimeout, 1);
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(client.adapter.open(), CAN::RetError);
        QVERIFY2(timer.elapsed() >= 4900, qPrintable(QString::number(timer.elapsed())));
        QVERIFY2(timer.elapsed() < 60000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!client.adapter.getRunning());
        QCOMPARE(client.send(QStringLiteral("x")), -1);
        QCOMPARE(client.errors.count(), 0);
        QCOMPARE(log.records(), QList<LogRecord>());
    }

    void adapterWithoutAnAddressDoesNotOpen()
    {
        CiA309Adapter adapter{QString()};
        QSignalSpy errors(&adapter, &AbstractCanAdapter::interfaceError);
        QCOMPARE(adapter.open(), CAN::RetError);
        QCOMPARE(errors.count(), 0);
    }

    void addressMayBeAName()
    {
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        client.adapter.setCanAdapterOption(AbstractCanAdapter::option_ipAddress, QStringLiteral("localhost"));
        QCOMPARE(client.adapter.open(), CAN::RetOk);
    }

    void requestsThatWereNotSentYetAreDroppedByAClose()
    {
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        QCOMPARE(client.send(QStringLiteral("too late")), 0);
        client.adapter.closeAdapter();
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(0), WaitMs);
        QCOMPARE(gateway.received(), QByteArray());
    }

    void terminationOfAConnectedAdapterIsNoError()
    {
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        client.adapter.prepareToTerminate();
        QVERIFY(!client.adapter.getRunning());
        QVERIFY(!client.adapter.findChild<QTcpSocket *>());
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(0), WaitMs);
        QVERIFY(client.adapter.wait(WaitMs));
        QCOMPARE(client.adapter.open(), CAN::RetError);
        QCOMPARE(client.send(QStringLiteral("x")), -1);
        QCOMPARE(client.errors.count(), 0);
    }

    void deletedAdapterTakesItsConnectionAlong()
    {
        LineGateway gateway;
        auto client = std::make_unique<GatewayClient>(gateway.serverPort());
        QCOMPARE(client->adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        client.reset();
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(0), WaitMs);
    }

    void peerThatEndsItsSideIsALossWhateverWaitsToBeSent()
    {
        LoopbackPort port;
        port.listen();
        GatewayClient client(port.number());
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        const int peer = port.accept();
        // More than the system takes while the peer reads nothing.
        QCOMPARE(client.send(QString(30000000, QLatin1Char('x'))), 0);
        QVERIFY(client.adapter.getRunning());
        QCOMPARE(::shutdown(peer, SHUT_WR), 0);
        QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), 1, WaitMs);
        QVERIFY(!client.adapter.getRunning());
        QCOMPARE(client.adapter.open(), CAN::RetOk);
    }

    void receiverMayCloseTheAdapter_data() { receivers(); }
    void receiverMayCloseTheAdapter()
    {
        QFETCH(bool, onResponse);
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        bool closed = false;
        const auto close = [&] {
            if (!std::exchange(closed, true))
                client.adapter.closeAdapter();
        };
        provoke(gateway, client.adapter, onResponse, close);
        QTRY_VERIFY_WITH_TIMEOUT(closed, WaitMs);
        QVERIFY(!client.adapter.getRunning());
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(0), WaitMs);
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 2, WaitMs);
        QCOMPARE(client.send(QStringLiteral("again")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(1), QByteArray("[0] again\n"), WaitMs);
        QCOMPARE(client.errors.count(), onResponse ? 0 : 1);
    }

    void receiverMayReopenTheAdapter_data() { receivers(); }
    void receiverMayReopenTheAdapter()
    {
        QFETCH(bool, onResponse);
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        QVector<CAN::RetType> results;
        const auto reopen = [&] {
            if (results.isEmpty())
                results << client.adapter.open();
        };
        provoke(gateway, client.adapter, onResponse, reopen);
        QTRY_COMPARE_WITH_TIMEOUT(results, QVector<CAN::RetType>{CAN::RetOk}, WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 2, WaitMs);
        QVERIFY(client.adapter.getRunning());
        QCOMPARE(client.send(QStringLiteral("again")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(1), QByteArray("[0] again\n"), WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(client.responses.count(), onResponse ? 2 : 1, WaitMs);
        gateway.hangUp(1);
        QTRY_COMPARE_WITH_TIMEOUT(client.errors.count(), onResponse ? 1 : 2, WaitMs);
    }

    void receiverMayRemoveTheAdapterFromItsSet_data() { receivers(); }
    void receiverMayRemoveTheAdapterFromItsSet()
    {
        QFETCH(bool, onResponse);
        LineGateway gateway;
        MultiCanAdapterHandler handler;
        QPointer<CiA309Adapter> adapter = new CiA309Adapter(QString());
        setGateway(*adapter, gateway.serverPort());
        QPointer<QTcpSocket> socket = adapter->findChild<QTcpSocket *>();
        const unsigned short id = handler.addNewCanAdapter(adapter.data(), false, false, false);
        provoke(gateway, *adapter, onResponse, [&handler, id] { handler.removeAdapter(id); });
        QTRY_VERIFY_WITH_TIMEOUT(adapter.isNull(), WaitMs);
        QTRY_VERIFY_WITH_TIMEOUT(socket.isNull(), WaitMs);
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(0), WaitMs);
    }

    void hundredReopensLeaveOneDescriptor()
    {
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        const int before = openDescriptors();
        for (int pass = 0; pass < 100; ++pass) {
            QCOMPARE(client.adapter.open(), CAN::RetOk);
            QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), pass + 2, WaitMs);
            QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(pass), WaitMs);
        }
        QCOMPARE(openDescriptors(), before);
        client.adapter.prepareToTerminate();
        QTRY_VERIFY_WITH_TIMEOUT(!gateway.isConnected(100), WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(openDescriptors(), before - 2, WaitMs);
    }

private:
    /// Connects and has the receiver called for a response or for a loss.
    template <typename Receiver>
    static void provoke(LineGateway &gateway, CiA309Adapter &adapter, bool onResponse, const Receiver &receiver)
    {
        if (onResponse)
            connect(&adapter, &AbstractCanAdapter::newCiA309Response, &adapter, receiver);
        else
            connect(&adapter, &AbstractCanAdapter::interfaceError, &adapter, receiver);
        QCOMPARE(adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        if (onResponse)
            gateway.send("now");
        else
            gateway.hangUp();
    }

    static void receivers()
    {
        QTest::addColumn<bool>("onResponse");
        QTest::newRow("of a response") << true;
        QTest::newRow("of the error") << false;
    }
};

QTEST_GUILESS_MAIN(TestGatewayLife)
#include "tst_gateway_life.moc"
