// SPDX-License-Identifier: MIT
#include "common/adapter_argument.h"

#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include <QtCore/QCommandLineParser>
#include <QtTest/QtTest>

using buslink::AdapterArgument;

namespace {

const QString knownForms =
    QStringLiteral("virtual[:port], socketcan:interface, usb:port, can4linux:device or cia309:host[:port]");

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
        QTest::newRow("serial port with a dash")
            << QStringLiteral("usb:/dev/serial/by-id/usb-Maker_Thing-if00")
            << QStringLiteral("'/dev/serial/by-id/usb-Maker_Thing-if00' has a dash, which no name of a serial port may "
                              "have here; give the port it stands for, as ttyUSB0");
        interface("blank within", QStringLiteral(":my can"), QStringLiteral("my can"));
    }
    void wrongArgumentsAreExplained()
    {
        QFETCH(QString, argument);
        const AdapterArgument result = buslink::createAdapter(argument);
        QVERIFY(!result.adapter);
        QTEST(result.error, "error");
    }

    void serialPortsAreCreatedWithTheirRate()
    {
        const auto option = [](const AdapterArgument &made, AbstractCanAdapter::AdapterOption number) {
            return made.adapter->getCanAdapterOption(number);
        };
        AdapterArgument result = buslink::createAdapter(QStringLiteral("usb:/dev/ttyUSB7"));
        QCOMPARE(result.error, QString());
        QCOMPARE(result.name, std::string("ttyUSB7"));
        QVERIFY(qobject_cast<ZorbekUSBCanAdapter *>(result.adapter.get()));
        QCOMPARE(option(result, AbstractCanAdapter::option_baudrate), QVariant(115200U));
        QCOMPARE(option(result, AbstractCanAdapter::option_halfDuplex), QVariant(false));
        result = buslink::createAdapter(QStringLiteral("usb:ttyS9"), {9600, true, {}});
        QCOMPARE(result.name, std::string("ttyS9"));
        QCOMPARE(option(result, AbstractCanAdapter::option_baudrate), QVariant(9600U));
        QCOMPARE(option(result, AbstractCanAdapter::option_halfDuplex), QVariant(true));
        QVERIFY(buslink::carriesFrames(*result.adapter));
    }

    void devicesOfADriverAreCreated()
    {
        const AdapterArgument result = buslink::createAdapter(QStringLiteral("can4linux:/dev/can3"), {{}, false, 250});
        QCOMPARE(result.error, QString());
        QCOMPARE(result.name, std::string("can3"));
        QVERIFY(qobject_cast<Can4linuxCanAdapter *>(result.adapter.get()));
        QCOMPARE(result.adapter->getCanAdapterOption(AbstractCanAdapter::option_canBitrateDesc)
                     .value<CAN::CANBitrateDesc>()
                     .bitrate,
                 250);
    }

    void gatewaysAreCreatedAndCarryNoFrames()
    {
        const AdapterArgument plain = buslink::createAdapter(QStringLiteral("cia309:gateway"));
        QVERIFY(qobject_cast<CiA309Adapter *>(plain.adapter.get()));
        QCOMPARE(plain.name, std::string("cia309"));
        QCOMPARE(plain.adapter->getCanAdapterOption(AbstractCanAdapter::option_ipAddress).toString(),
                 QStringLiteral("gateway"));
        QCOMPARE(plain.adapter->getCanAdapterOption(AbstractCanAdapter::option_portNumber).toInt(), 45674);
        QVERIFY(!buslink::carriesFrames(*plain.adapter));
        const AdapterArgument other = buslink::createAdapter(QStringLiteral("cia309:10.0.0.1:99"));
        QCOMPARE(other.adapter->getCanAdapterOption(AbstractCanAdapter::option_ipAddress).toString(),
                 QStringLiteral("10.0.0.1"));
        QCOMPARE(other.adapter->getCanAdapterOption(AbstractCanAdapter::option_portNumber).toInt(), 99);
    }

    void hostsOfGatewaysAreTakenOrExplained_data()
    {
        QTest::addColumn<QString>("parameter");
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("error");
        const auto row = [](const char *parameter, const char *host, const QString &error = {}) {
            QTest::newRow(parameter) << QString::fromLatin1(parameter) << QString::fromLatin1(host) << error;
        };
        const QString noHost = QStringLiteral("'%1' is no host, with a port behind a colon if need be");
        const QString noPort = QStringLiteral("'%1' is no port, which is a number from 1 to 65535");
        row("gateway", "gateway");
        row("10.0.0.1:99", "10.0.0.1");
        row("[::1]", "::1");
        row("[fe80::1]:99", "fe80::1");
        row("", "", noHost.arg(QString()));
        row("::1", "", noHost.arg(QStringLiteral("::1")));
        row("a b:99", "", noHost.arg(QStringLiteral("a b:99")));
        row("[]:99", "", noHost.arg(QStringLiteral("[]:99")));
        row("host:", "", noPort.arg(QString()));
        row("host:0", "", noPort.arg(0));
        row("host:65536", "", noPort.arg(65536));
    }

    void hostsOfGatewaysAreTakenOrExplained()
    {
        QFETCH(QString, parameter);
        QFETCH(QString, error);
        const AdapterArgument result = buslink::createAdapter(QStringLiteral("cia309:") + parameter);
        QCOMPARE(result.error, error);
        if (error.isEmpty())
            QTEST(result.adapter->getCanAdapterOption(AbstractCanAdapter::option_ipAddress).toString(), "host");
    }

    void devicesWithoutANameAreRefused()
    {
        QCOMPARE(buslink::createAdapter(QStringLiteral("can4linux")).error,
                 QStringLiteral("'' is no device, as /dev/can0"));
        QCOMPARE(buslink::createAdapter(QStringLiteral("can4linux:/dev/")).error,
                 QStringLiteral("'/dev/' is no device, as /dev/can0"));
    }

    void uselessSettingsAreExplained()
    {
        const QString bus = QStringLiteral("virtual");
        QCOMPARE(buslink::createAdapter(bus, {9600, false, {}}).error,
                 QStringLiteral("--baudrate has no meaning for virtual"));
        QCOMPARE(buslink::createAdapter(bus, {{}, true, {}}).error,
                 QStringLiteral("--half-duplex has no meaning for virtual"));
        QCOMPARE(buslink::createAdapter(QStringLiteral("usb:x"), {{}, false, 500}).error,
                 QStringLiteral("--bitrate cannot be set for usb"));
    }

    void theOptionsStandForTheVirtualBus()
    {
        QVERIFY(made({}).error.isEmpty());
        QVERIFY(qobject_cast<DemoCanAdapter *>(made({}).adapter.get()));
        QCOMPARE(made({"--baudrate", "0"}).error, QStringLiteral("--baudrate takes a number from 1: '0'"));
        QCOMPARE(made({"--bitrate", "70000"}).error,
                 QStringLiteral("--bitrate takes a number from 1 to 65535: '70000'"));
        QCOMPARE(made({"--adapter", "usb:ttyUSB1", "--half-duplex"}).error, QString());
    }

    void programsThatSendFramesRefuseAGateway()
    {
        QCommandLineParser parser;
        const buslink::AdapterOptions options;
        options.addTo(parser);
        parser.process(QStringList{QStringLiteral("test"), QStringLiteral("--adapter"), QStringLiteral("cia309:gw")});
        const AdapterArgument result = options.createForFrames(parser);
        QVERIFY(!result.adapter);
        QCOMPARE(result.error, QStringLiteral("cia309:gw: a gateway takes text commands and no frames"));
        QVERIFY(options.create(parser).adapter);
    }

private:
    static AdapterArgument made(std::initializer_list<const char *> arguments)
    {
        QStringList words{QStringLiteral("test")};
        for (const char *argument : arguments)
            words.append(QString::fromLatin1(argument));
        QCommandLineParser parser;
        const buslink::AdapterOptions options;
        options.addTo(parser);
        parser.process(words);
        return options.create(parser);
    }
};

QTEST_GUILESS_MAIN(TestAdapterArgument)
#include "tst_adapter_argument.moc"
