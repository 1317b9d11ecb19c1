// SPDX-License-Identifier: MIT
#include "example_programs.h"

#include "support/line_gateway.h"

#include <csignal>

class TestBusdumpGateway : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textIsPrintedAsItComes()
    {
        LineGateway gateway;
        Program dump(busdump, {QStringLiteral("--adapter"), argumentOf(gateway)});
        dump.start();
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, PatienceMs);
        QByteArray sent;
        for (int i = 0; i < 300; ++i) {
            const QByteArray line = "0 " + QByteArray::number(i) + " \xC3\xA4 " + QByteArray(60, 'x') + "\r\n";
            gateway.send(line);
            sent += line;
        }
        QTRY_COMPARE_WITH_TIMEOUT(dump.output().size(), sent.size(), PatienceMs);
        dump.sendSignal(SIGINT);
        QCOMPARE(dump.waitForStatus(), 0);
        QCOMPARE(dump.output(), sent);
        QCOMPARE(dump.errors(), QByteArray());
    }

    void gatewayThatHangsUpIsAnError()
    {
        LineGateway gateway;
        Program dump(busdump, {QStringLiteral("--adapter"), argumentOf(gateway)});
        dump.start();
        QTRY_COMPARE_WITH_TIMEOUT(gateway.connectionCount(), 1, PatienceMs);
        gateway.send("last words\r\n");
        QTRY_COMPARE_WITH_TIMEOUT(dump.output(), QByteArray("last words\r\n"), PatienceMs);
        gateway.hangUp();
        QCOMPARE(dump.waitForStatus(), 1);
        QCOMPARE(dump.errors(),
                 "busdump: " + argumentOf(gateway).toLatin1() + ": the transport of the adapter failed\n");
    }

    void framesCannotBeChosenOrSent_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QByteArray>("error");
        const QByteArray choosing = "a gateway sends text, without frames to count or choose from\n";
        const QByteArray sending = "a gateway takes text commands and no frames\n";
        QTest::newRow("count") << busdump << QStringList{QStringLiteral("--count"), QStringLiteral("3")}
                               << "busdump: cia309:gw: " + choosing;
        QTest::newRow("identifier") << busdump << QStringList{QStringLiteral("--id"), QStringLiteral("123")}
                                    << "busdump: cia309:gw: " + choosing;
        QTest::newRow("busplay") << busplay << QStringList{QStringLiteral(VARIED_LOG)}
                                 << "busplay: cia309:gw: " + sending;
        QTest::newRow("buscycle") << buscycle << QStringList{QStringLiteral("123#")}
                                  << "buscycle: cia309:gw: " + sending;
    }

    void framesCannotBeChosenOrSent()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, arguments);
        Program run(program, QStringList{QStringLiteral("--adapter"), QStringLiteral("cia309:gw")} + arguments);
        run.start();
        QCOMPARE(run.waitForStatus(), 2);
        QTEST(run.errors(), "error");
        QCOMPARE(run.output(), QByteArray());
    }

private:
    static QString argumentOf(const LineGateway &gateway)
    {
        return QStringLiteral("cia309:127.0.0.1:%1").arg(gateway.serverPort());
    }
};

QTEST_GUILESS_MAIN(TestBusdumpGateway)
#include "tst_busdump_gateway.moc"
