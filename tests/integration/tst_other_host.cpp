// SPDX-License-Identifier: MIT
#include "support/frame_recorder.h"
#include "support/open_adapter.h"
#include "support/two_hosts.h"

#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtNetwork/QUdpSocket>
#include <QtTest/QtTest>

// The virtual bus on a host that others can reach over a network.

namespace {

constexpr int WaitMs = 8000;
constexpr quint16 Port = 45674;

using Adapter = AdapterPointer<DemoCanAdapter>;

/// The port that an adapter on the bus sends from.
quint16 sendingPort(DemoCanAdapter *adapter)
{
    QUdpSocket listener;
    listener.bind(QHostAddress::AnyIPv4, Port, QAbstractSocket::ShareAddress | QAbstractSocket::ReuseAddressHint);
    adapter->write(makeFrame(1, "who"));
    listener.waitForReadyRead(WaitMs);
    quint16 port = 0;
    char byte = 0;
    listener.readDatagram(&byte, 1, nullptr, &port);
    return port;
}

/// Identifiers of the frames so far.
QVector<quint32> identifiers(const FrameRecorder &recorder)
{
    QVector<quint32> ids;
    for (const CAN::CanRxMessage &frame : recorder.frames())
        ids.append(frame.message.id);
    return ids;
}

/// The commands of the firewall that the page on security shows, in their order.
QStringList commandsOfThePage()
{
    QFile page(QStringLiteral(SECURITY_PAGE));
    if (!page.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(page.readAll())
        .split(QLatin1Char('\n'))
        .filter(QRegularExpression(QStringLiteral("^nft ")));
}

/// Why this machine cannot have the firewall, empty if it can: the program is missing, or the kernel has no chains.
QString missingFirewall()
{
    if (!TwoHosts::run(QStringLiteral("command -v nft")).isEmpty())
        return QStringLiteral("nft is not installed");
    const QString error = TwoHosts::run(
        QStringLiteral("nft 'add table inet probe; add chain inet probe input { type filter hook input priority 0; }; "
                       "delete table inet probe'"));
    return error.isEmpty() ? error : QStringLiteral("the kernel has no firewall: ") + error;
}

} // namespace

class TestOtherHost : public QObject
{
    Q_OBJECT

public:
    explicit TestOtherHost(const TwoHosts &hosts) : mHosts(hosts) {}

private:
    void sendFromOtherHost(quint32 id, const QHostAddress &to, quint16 from = 0)
    {
        mHosts.onOtherHost([&] {
            QUdpSocket socket;
            if (from != 0)
                QVERIFY(socket.bind(QHostAddress::AnyIPv4, from));
            const QByteArray frame = bytesOf(makeFrame(id, "stranger"));
            QCOMPARE(socket.writeDatagram(frame, to, Port), qint64(frame.size()));
        });
    }

    const TwoHosts &mHosts;

private Q_SLOTS:
    void initTestCase()
    {
        if (!mHosts.error().isEmpty())
            QSKIP(qPrintable(mHosts.error()));
    }

    void frameOfAnotherHostIsDelivered_data()
    {
        QTest::addColumn<QString>("to");
        QTest::addColumn<bool>("reachesAll");
        // The system hands a datagram for one address to one socket of the port.
        QTest::newRow("to this host") << mHosts.here().toString() << false;
        QTest::newRow("to the network") << QStringLiteral("10.88.0.255") << true;
        QTest::newRow("to every host") << QStringLiteral("255.255.255.255") << true;
        QTest::newRow("to the group of all hosts") << QStringLiteral("224.0.0.1") << true;
    }

    void frameOfAnotherHostIsDelivered()
    {
        QFETCH(const QString, to);
        QFETCH(const bool, reachesAll);
        const Adapter a = makeVirtualAdapter(Port, 1);
        const Adapter b = makeVirtualAdapter(Port, 2);
        const FrameRecorder atA(a.get());
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(a.get()));
        QVERIFY(openOnBus(b.get()));
        sendFromOtherHost(0x666, QHostAddress(to));
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
        if (reachesAll)
            QTRY_COMPARE_WITH_TIMEOUT(atA.count(), 1, WaitMs);
        const CAN::CanRxMessage frame = atB.frames().constFirst();
        QCOMPARE(bytesOf(frame.message), bytesOf(makeFrame(0x666, "stranger")));
        QCOMPARE(frame.isTx, false);
        QCOMPARE(frame.adapterId, quint16(2));
        // What follows on the bus itself tells that nothing else is on its way.
        a->write(makeFrame(2, ""));
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 2, WaitMs);
        QCOMPARE(atA.count(), reachesAll ? 1 : 0);
    }

    void otherHostThatSendsFromTheAdaptersPortNumberIsTakenForIt()
    {
        const Adapter a = makeVirtualAdapter(Port);
        const FrameRecorder atA(a.get());
        QVERIFY(openOnBus(a.get()));
        const quint16 port = sendingPort(a.get());
        QVERIFY(port != 0);
        sendFromOtherHost(0x777, mHosts.here(), port);
        sendFromOtherHost(0x778, mHosts.here());
        QTRY_COMPARE_WITH_TIMEOUT(identifiers(atA), QVector<quint32>{0x778}, WaitMs);
    }

    void framesDoNotLeaveTheHost()
    {
        std::unique_ptr<WireTap> tap;
        mHosts.onOtherHost([&] { tap = std::make_unique<WireTap>("there"); });
        const Adapter a = makeVirtualAdapter(Port);
        const Adapter b = makeVirtualAdapter(Port);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(a.get()));
        QVERIFY(openOnBus(b.get()));
        a->write(makeFrame(3, "secret"));
        QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
        QUdpSocket().writeDatagram("the next one", mHosts.there(), Port);
        QTRY_COMPARE_WITH_TIMEOUT(tap->datagrams(), (QVector<WireDatagram>{{mHosts.there(), Port, "the next one"}}),
                                  WaitMs);
    }

    void loopbackAddressFromOutsideIsDroppedByTheSystem()
    {
        const QHostAddress loopback(QStringLiteral("127.255.255.255"));
        mHosts.onOtherHost([&] {
            QCOMPARE(TwoHosts::run(QStringLiteral("ip route add 127.255.255.255 via 10.88.0.1 dev there")), QString());
        });
        WireTap tap("here");
        const Adapter a = makeVirtualAdapter(Port);
        const FrameRecorder atA(a.get());
        QVERIFY(openOnBus(a.get()));
        sendFromOtherHost(0x111, loopback);
        sendFromOtherHost(0x112, mHosts.here());
        QTRY_COMPARE_WITH_TIMEOUT(identifiers(atA), QVector<quint32>{0x112}, WaitMs);
        const auto sent = [&](quint32 id, const QHostAddress &to) {
            return WireDatagram{to, Port, bytesOf(makeFrame(id, "stranger"))};
        };
        QCOMPARE(tap.datagrams(), (QVector<WireDatagram>{sent(0x111, loopback), sent(0x112, mHosts.here())}));
    }

    void firewallKeepsOtherHostsOutAndTheBusWhole()
    {
        if (const QString reason = missingFirewall(); !reason.isEmpty())
            QSKIP(qPrintable(reason));
        const QStringList commands = commandsOfThePage();
        QCOMPARE(commands.size(), 3);
        for (const QString &command : commands)
            QCOMPARE(TwoHosts::run(command), QString());
        WireTap tap("here");
        const Adapter a = makeVirtualAdapter(Port);
        const Adapter b = makeVirtualAdapter(Port);
        const FrameRecorder atB(b.get());
        QVERIFY(openOnBus(a.get()));
        QVERIFY(openOnBus(b.get()));
        sendFromOtherHost(0x666, QHostAddress(QStringLiteral("10.88.0.255")));
        QTRY_COMPARE_WITH_TIMEOUT(tap.datagrams().size(), 1, WaitMs);
        a->write(makeFrame(4, ""));
        QTRY_COMPARE_WITH_TIMEOUT(identifiers(atB), QVector<quint32>{4}, WaitMs);
        QCOMPARE(TwoHosts::run(QStringLiteral("nft delete table inet virtual_bus")), QString());
    }

    void busInANamespaceOfItsOwnIsWholeAndAlone()
    {
        mHosts.onLoneHost([&] {
            const Adapter a = makeVirtualAdapter(Port);
            const Adapter b = makeVirtualAdapter(Port);
            const FrameRecorder atA(a.get());
            const FrameRecorder atB(b.get());
            QVERIFY(openOnBus(a.get()));
            QVERIFY(openOnBus(b.get()));
            a->write(makeFrame(5, ""));
            QTRY_COMPARE_WITH_TIMEOUT(atB.count(), 1, WaitMs);
            sendFromOtherHost(0x666, QHostAddress(QHostAddress::Broadcast));
            b->write(makeFrame(6, ""));
            QTRY_COMPARE_WITH_TIMEOUT(identifiers(atA), QVector<quint32>{6}, WaitMs);
        });
    }
};

int main(int argc, char **argv)
{
    const TwoHosts hosts;
    const QCoreApplication application(argc, argv);
    TestOtherHost test(hosts);
    return QTest::qExec(&test, argc, argv);
}
#include "tst_other_host.moc"
