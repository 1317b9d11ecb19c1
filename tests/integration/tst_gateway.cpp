// SPDX-License-Identifier: MIT
// Commands and responses over real TCP.
#include "support/gateway_client.h"
#include "support/line_gateway.h"

#include <memory>

namespace {

constexpr int WaitMs = 20000;

} // namespace

class TestGateway : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<LineGateway> mGateway;
    std::unique_ptr<GatewayClient> mClient;

private Q_SLOTS:
    void init()
    {
        mGateway = std::make_unique<LineGateway>();
        mClient = std::make_unique<GatewayClient>(mGateway->serverPort());
        QCOMPARE(mClient->adapter.open(), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(mGateway->connectionCount(), 1, WaitMs);
    }

    void cleanup()
    {
        mClient.reset();
        mGateway.reset();
    }

    void commandsGoOutInNumberedLinesAndAnswersComeBack()
    {
        QCOMPARE(mClient->adapter.write(QStringLiteral("x")), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses), QStringList{QStringLiteral("[0] OK\r\n")}, WaitMs);
        QCOMPARE(mGateway->received(), QByteArray("[0] x\n"));
        QCOMPARE(mClient->adapter.write(QStringLiteral("1 start")), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses),
                                  (QStringList{QStringLiteral("[0] OK\r\n"), QStringLiteral("[1] OK\r\n")}), WaitMs);
        QCOMPARE(mGateway->received(), QByteArray("[0] x\n[1] 1 start\n"));
        QCOMPARE(textsOf(mClient->requests), (QStringList{QStringLiteral("[0] x\n"), QStringLiteral("[1] 1 start\n")}));
        QCOMPARE(mClient->errors.count(), 0);
    }

    void sequenceIsTheNumberThatTheRequestCarried()
    {
        for (int number = 0; number < 3; ++number)
            QCOMPARE(mClient->send(QStringLiteral("read")), number);
        QTRY_COMPARE_WITH_TIMEOUT(mGateway->received(), QByteArray("[0] read\n[1] read\n[2] read\n"), WaitMs);
    }

    void afterTheLargestNumberComesZero()
    {
        LineGateway gateway;
        GatewayClient client(gateway.serverPort());
        for (int burnt = 0; burnt < 32767; ++burnt)
            QCOMPARE(client.adapter.write(QStringLiteral("burnt")), CAN::RetError);
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QCOMPARE(client.send(QStringLiteral("last")), 32767);
        QCOMPARE(client.send(QStringLiteral("first")), 0);
        QCOMPARE(client.send(QStringLiteral("second")), 1);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(), QByteArray("[32767] last\n[0] first\n[1] second\n"), WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(client.responses).join(QString()),
                                  QStringLiteral("[32767] OK\r\n[0] OK\r\n[1] OK\r\n"), WaitMs);
    }

    void responseInTwoSegmentsGivesTwoSignals()
    {
        mGateway->send("[7] half a");
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses), QStringList{QStringLiteral("[7] half a")}, WaitMs);
        mGateway->send(" line\r\n");
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses),
                                  (QStringList{QStringLiteral("[7] half a"), QStringLiteral(" line\r\n")}), WaitMs);
    }

    void responsesInOneSegmentGiveOneSignal()
    {
        mGateway->send("[1] OK\r\n[2] OK\r\n[3]");
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses), QStringList{QStringLiteral("[1] OK\r\n[2] OK\r\n[3]")},
                                  WaitMs);
    }

    void responseIsCutAtAZeroByte()
    {
        mGateway->send(QByteArray("[0] O\0K\r\n", 9));
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses), QStringList{QStringLiteral("[0] O")}, WaitMs);
        mGateway->send(QByteArray("\0[1] OK\r\n", 9));
        QTRY_COMPARE_WITH_TIMEOUT(mClient->responses.count(), 2, WaitMs);
        QCOMPARE(textsOf(mClient->responses).constLast(), QString());
        mGateway->send("[2] OK\r\n");
        QTRY_COMPARE_WITH_TIMEOUT(mClient->responses.count(), 3, WaitMs);
        QCOMPARE(textsOf(mClient->responses).constLast(), QStringLiteral("[2] OK\r\n"));
    }

    void textIsUtf8InBothDirections()
    {
        mGateway->setAnswering(false);
        QCOMPARE(mClient->send(QStringLiteral(u"\u00FC \u20AC \U0001F697")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(mGateway->received(), QByteArray("[0] \xC3\xBC \xE2\x82\xAC \xF0\x9F\x9A\x97\n"),
                                  WaitMs);
        mGateway->send("[0] \xC3\xBC\r\n");
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses), QStringList{QStringLiteral(u"[0] \u00FC\r\n")}, WaitMs);
    }

    void characterInTwoSegmentsIsLost()
    {
        mGateway->send("a\xC3");
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses), QStringList{QStringLiteral(u"a\uFFFD")}, WaitMs);
        mGateway->send("\xBC"
                       "b");
        QTRY_COMPARE_WITH_TIMEOUT(mClient->responses.count(), 2, WaitMs);
        QCOMPARE(textsOf(mClient->responses).constLast(), QStringLiteral(u"\uFFFDb"));
    }

    void placeMarkersOfACommandTakePart()
    {
        LineGateway gateway;
        gateway.setAnswering(false);
        GatewayClient client(gateway.serverPort());
        QCOMPARE(client.send(QStringLiteral("burnt")), -1);
        QCOMPARE(client.adapter.open(), CAN::RetOk);
        QCOMPARE(client.send(QStringLiteral("a %1 b %2 c %1")), 1);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(), QByteArray("[1] a 1 b %2 c 1\n"), WaitMs);
        QCOMPARE(textsOf(client.requests), QStringList{QStringLiteral("[1] a 1 b %2 c 1\n")});
    }

    void twoAdaptersHaveTheirOwnConnectionsAndNumbers()
    {
        LineGateway gateway;
        GatewayClient left(gateway.serverPort());
        GatewayClient right(gateway.serverPort());
        QCOMPARE(left.adapter.open(), CAN::RetOk);
        QCOMPARE(left.send(QStringLiteral("left")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, WaitMs);
        QCOMPARE(right.adapter.open(), CAN::RetOk);
        QCOMPARE(right.send(QStringLiteral("right")), 0);
        QCOMPARE(left.send(QStringLiteral("left")), 1);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 2, WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(0), QByteArray("[0] left\n[1] left\n"), WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(1), QByteArray("[0] right\n"), WaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(right.responses), QStringList{QStringLiteral("[0] OK\r\n")}, WaitMs);
        gateway.hangUp(0);
        QTRY_COMPARE_WITH_TIMEOUT(left.errors.count(), 1, WaitMs);
        QVERIFY(right.adapter.getRunning());
        QCOMPARE(right.send(QStringLiteral("still here")), 1);
        QTRY_COMPARE_WITH_TIMEOUT(gateway.received(1), QByteArray("[0] right\n[1] still here\n"), WaitMs);
        QCOMPARE(right.errors.count(), 0);
    }

    void longCommandsAndManyCommandsArriveWhole()
    {
        const QString command(1000000, QLatin1Char('l'));
        QByteArray expected = "[0] " + command.toLatin1() + '\n';
        QByteArray answers = "[0] OK\r\n";
        QCOMPARE(mClient->send(command), 0);
        for (int number = 1; number <= 1000; ++number) {
            QCOMPARE(mClient->send(QStringLiteral("c")), number);
            expected += '[' + QByteArray::number(number) + "] c\n";
            answers += '[' + QByteArray::number(number) + "] OK\r\n";
        }
        QTRY_COMPARE_WITH_TIMEOUT(textsOf(mClient->responses).join(QString()).toUtf8(), answers, WaitMs);
        QVERIFY(mGateway->received() == expected);
        QCOMPARE(mClient->requests.count(), 1001);
    }

    void commandOfAReceiverOfTheRequestCarriesTheSameNumber()
    {
        bool once = true;
        connect(&mClient->adapter, &AbstractCanAdapter::newCiA309RequestSent, &mClient->adapter, [&] {
            if (std::exchange(once, false))
                mClient->adapter.write(QStringLiteral("inner"));
        });
        mClient->adapter.write(QStringLiteral("outer"));
        mClient->adapter.write(QStringLiteral("next"));
        QTRY_COMPARE_WITH_TIMEOUT(mGateway->received(), QByteArray("[0] outer\n[0] inner\n[2] next\n"), WaitMs);
    }

    void framesAreNeitherSentNorDelivered()
    {
        QSignalSpy frames(&mClient->adapter, &AbstractCanAdapter::newCanMessageByValue);
        QCOMPARE(mClient->adapter.write(CAN::CanMessage()), CAN::RetError);
        QCOMPARE(mClient->send(QStringLiteral("x")), 0);
        QTRY_COMPARE_WITH_TIMEOUT(mClient->responses.count(), 1, WaitMs);
        QCOMPARE(mGateway->received(), QByteArray("[0] x\n"));
        QCOMPARE(frames.count(), 0);
    }

    void everythingHappensOnTheThreadThatMadeTheAdapter()
    {
        QVector<QThread *> threads;
        const auto record = [&threads] { threads << QThread::currentThread(); };
        connect(&mClient->adapter, &AbstractCanAdapter::newCiA309Response, &mClient->adapter, record,
                Qt::DirectConnection);
        connect(&mClient->adapter, &AbstractCanAdapter::interfaceError, &mClient->adapter, record,
                Qt::DirectConnection);
        QVERIFY(mClient->adapter.getRunning());
        QVERIFY(!mClient->adapter.isRunning());
        mClient->send(QStringLiteral("x"));
        QTRY_COMPARE_WITH_TIMEOUT(mClient->responses.count(), 1, WaitMs);
        mGateway->hangUp();
        QTRY_COMPARE_WITH_TIMEOUT(mClient->errors.count(), 1, WaitMs);
        QCOMPARE(threads, (QVector<QThread *>{thread(), thread()}));
        QVERIFY(!mClient->adapter.isRunning());
    }
};

QTEST_GUILESS_MAIN(TestGateway)
#include "tst_gateway.moc"
