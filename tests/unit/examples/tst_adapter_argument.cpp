// SPDX-License-Identifier: MIT
#include "common/adapter_argument.h"

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include <QtTest/QtTest>

using buslink::AdapterArgument;

namespace {

const QString knownForms = QStringLiteral("virtual[:port] or socketcan:interface");

} // namespace

class TestAdapterArgument : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void virtualAdaptersAreCreatedWithTheirPort_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<int>("port");
        QTest::newRow("without a port") << QStringLiteral("virtual") << 45674;
        QTest::newRow("lowest port") << QStringLiteral("virtual:1") << 1;
        QTest::newRow("a port") << QStringLiteral("virtual:47000") << 47000;
        QTest::newRow("highest port") << QStringLiteral("virtual:65535") << 65535;
    }
    void virtualAdaptersAreCreatedWithTheirPort()
    {
        QFETCH(QString, argument);
        const AdapterArgument result = buslink::createAdapter(argument);
        QCOMPARE(result.error, QString());
        QCOMPARE(result.name, std::string("virtual"));
        QVERIFY(qobject_cast<DemoCanAdapter *>(result.adapter.get()));
        QTEST(result.adapter->getCanAdapterOption(AbstractCanAdapter::option_portNumber).toInt(), "port");
        QVERIFY(!result.adapter->isRunning());
    }

    void virtualAdaptersStampOnPastMidnight()
    {
        const AdapterArgument result = buslink::createAdapter(QStringLiteral("virtual"));
        QVERIFY(result.adapter->getCanAdapterOption(AbstractCanAdapter::option_continuousTimestamp).toBool());
    }

    void socketCanAdaptersAreCreatedForTheirInterface_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<QString>("name");
        const auto row = [](const char *name, const QString &interface) {
            QTest::newRow(name) << QStringLiteral("socketcan:") + interface << interface.trimmed();
        };
        row("usual", QStringLiteral("can0"));
        row("one character", QStringLiteral("c"));
        row("15 bytes", QStringLiteral("abcdefghijklmno"));
        row("15 bytes in 14 characters", QString::fromUtf8("abcdefghijklm\u00e4"));
        row("blanks around", QStringLiteral(" can0 "));
        QTest::newRow("label") << QStringLiteral("socketcan:can1 | PEAK") << QStringLiteral("can1");
    }
    void socketCanAdaptersAreCreatedForTheirInterface()
    {
        QFETCH(QString, argument);
        QFETCH(QString, name);
        const AdapterArgument result = buslink::createAdapter(argument);
        QCOMPARE(result.error, QString());
        QCOMPARE(result.name, name.toStdString());
        QVERIFY(qobject_cast<SocketCanAdapter *>(result.adapter.get()));
        QVERIFY(result.adapter->getCanAdapterOption(AbstractCanAdapter::option_CANFD).toBool());
        QVERIFY(!result.adapter->getCanAdapterOption(AbstractCanAdapter::option_systemTime).toBool());
        QVERIFY(!result.adapter->isRunning());
    }

    void wrongArgumentsAreExplained_data()
    {
        QTest::addColumn<QString>("argument");
        QTest::addColumn<QString>("error");
        const auto unknown = [](const char *name, const QString &argument) {
            QTest::newRow(name) << argument
                                << QStringLiteral("unknown adapter '%1', expected %2").arg(argument, knownForms);
        };
        const auto port = [](const char *name, const QString &text) {
            QTest::newRow(name) << QStringLiteral("virtual:") + text
                                << QStringLiteral("'%1' is no port, which is a number from 1 to 65535").arg(text);
        };
        unknown("empty", QString());
        unknown("unknown", QStringLiteral("foo"));
        unknown("unknown with a parameter", QStringLiteral("foo:1"));
        unknown("upper case", QStringLiteral("Virtual"));
        unknown("longer word", QStringLiteral("virtual2"));
        unknown("only a colon", QStringLiteral(":"));
        port("empty port", QString());
        port("port 0", QStringLiteral("0"));
        port("port out of range", QStringLiteral("65536"));
        port("port far out of range", QStringLiteral("99999999999999999999"));
        port("negative port", QStringLiteral("-1"));
        port("signed port", QStringLiteral("+1"));
        port("port with a blank", QStringLiteral(" 1"));
        port("hexadecimal port", QStringLiteral("0x10"));
        port("port with more behind it", QStringLiteral("1:2"));
        const auto interface = [](const char *name, const QString &parameter, const QString &told) {
            QTest::newRow(name)
                << QStringLiteral("socketcan") + parameter
                << QStringLiteral("'%1' is no interface name, which has 1 to 15 bytes and no blank within").arg(told);
        };
        interface("no interface", QString(), QString());
        interface("empty interface", QStringLiteral(":"), QString());
        interface("blank interface", QStringLiteral(":  "), QString());
        interface("label alone", QStringLiteral(":| PEAK"), QString());
        interface("16 bytes", QStringLiteral(":abcdefghijklmnop"), QStringLiteral("abcdefghijklmnop"));
        interface("16 bytes in 15 characters", QString::fromUtf8(":abcdefghijklmn\u00e4"),
                  QString::fromUtf8("abcdefghijklmn\u00e4"));
        interface("blank within", QStringLiteral(":my can"), QStringLiteral("my can"));
    }
    void wrongArgumentsAreExplained()
    {
        QFETCH(QString, argument);
        const AdapterArgument result = buslink::createAdapter(argument);
        QVERIFY(!result.adapter);
        QTEST(result.error, "error");
    }

    void theOptionStandsForTheVirtualBus()
    {
        const QCommandLineOption option = buslink::adapterOption();
        QCOMPARE(option.names(), QStringList{QStringLiteral("adapter")});
        QCOMPARE(option.defaultValues(), QStringList{QStringLiteral("virtual")});
        QCOMPARE(option.description(), QStringLiteral("Adapter: %1. Default: virtual.").arg(knownForms));
    }
};

QTEST_GUILESS_MAIN(TestAdapterArgument)
#include "tst_adapter_argument.moc"
