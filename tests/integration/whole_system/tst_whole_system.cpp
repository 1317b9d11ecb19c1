// SPDX-License-Identifier: MIT
// An application with all that it can have: a set of adapters of every kind that there is here, frames handed
// out by identifier, timed transmission, links between adapters, saved, destroyed, restored and run again. The
// guest has a CAN interface as well, and a driver for the serial port. At the end nothing is left.
#include <BusLinkDesk/backends/serial/serial_port_adapter.h>
#include <BusLinkDesk/factory/can_adapter_factory.h>
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>
#include <BusLinkDesk/traffic/can_message_transmitter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "support/frame_recorder.h"
#include "support/hex.h"
#include "support/line_gateway.h"
#include "support/open_adapter.h"
#include "support/process_level.h"
#include "usb_end.h"

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include <QtSerialPort/QSerialPortInfo>
#include <QtTest/QtTest>

#include <memory>
#include <optional>
#include <vector>

#ifdef BUSLINKDESK_COUNT_HEAP_BLOCKS
#include "support/heap_blocks.h"
#endif

namespace {

using A = AbstractCanAdapter;
using Type = A::CanAdapterType;

constexpr int PatienceMs = 60'000;
constexpr quint32 CyclicId = 0x700;
constexpr unsigned int CyclicCount = 20;

struct Saved
{
    Type type;
    QString device;
    QByteArray bytes;
};

bool hasCan()
{
    return qEnvironmentVariableIsSet("BUSLINKDESK_GUEST");
}

/// The set of an application and what is built on it. Its adapters are told by their place.
class Application
{
public:
    enum Place { Virtual = 0, Usb, Gateway, Can };

    ~Application()
    {
        mTransmitter.reset();
        // The schedulers know their adapters only by a pointer that turns null.
        mSet.removeAllAdapters();
    }

    void add(Type type, const QString &device, const QList<QPair<A::AdapterOption, QVariant>> &options)
    {
        A *const adapter = CanAdapterFactory::createCanAdapter(type, device);
        adapter->setCanAdapterOption(A::option_deviceName, device);
        for (const auto &[option, value] : options)
            adapter->setCanAdapterOption(option, value);
        mSet.addNewCanAdapter(adapter);
        mSet.handleActiveChanged(mSet.getAdapterCount() - 1, true);
    }

    void restore(const std::vector<Saved> &saved)
    {
        for (const Saved &one : saved)
            mSet.addAdapterFromByteArray(one.type, one.device, one.bytes);
    }

    std::vector<Saved> save()
    {
        std::vector<Saved> saved;
        for (const QPointer<A> &adapter : qAsConst(mSet.getAdapterMap()))
            saved.push_back({Type(adapter->getCanAdapterOption(A::option_adapterType).toInt()),
                             adapter->getCanAdapterOption(A::option_deviceName).toString(),
                             adapter->getValuesAsByteArray()});
        return saved;
    }

    /// identifier, type, roles
    QStringList rows()
    {
        QStringList rows;
        const auto &map = mSet.getAdapterMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry)
            rows.append(QStringLiteral("%1 %2 %3%4")
                            .arg(entry.key())
                            .arg(entry.value()->getCanAdapterOption(A::option_adapterType).toInt())
                            .arg(entry.value()->isPrimaryAdapter() ? QStringLiteral("P") : QString(),
                                 entry.value()->isActiveAdapter() ? QStringLiteral("A") : QString()));
        return rows;
    }

    A *at(Place place) { return mSet.adapterAt(static_cast<unsigned short>(place)); }
    MultiCanAdapterHandler &set() { return mSet; }

    /// From the virtual bus to the serial line, from there to the CAN interface and from that to the virtual bus.
    void link()
    {
        at(Virtual)->setLinkedAdapter(at(Usb));
        if (hasCan()) {
            at(Usb)->setLinkedAdapter(at(Can));
            at(Can)->setLinkedAdapter(at(Virtual));
        }
    }

    /// Frames with these identifiers that an adapter received, taken from a scheduler.
    void listen(Place place, unsigned short first, unsigned short last)
    {
        mSchedulers.push_back(std::make_unique<CanScheduler>(at(place)));
        CanScheduler &scheduler = *mSchedulers.back();
        auto *const heard = mHeard.emplace_back(std::make_unique<Heard>()).get();
        for (const QPointer<CanSender> &sender : scheduler.registerCanIdRange(first, last))
            QObject::connect(
                sender, qOverload<CAN::CanRxMessage>(&CanSender::received), sender,
                [heard](const CAN::CanRxMessage &message) {
                    const QMutexLocker lock(&heard->mutex);
                    if (!message.isTx)
                        heard->ids.append(message.message.id);
                },
                Qt::DirectConnection);
        scheduler.connectToAdapter(true);
    }

    QList<quint32> heard(std::size_t listener)
    {
        const QMutexLocker lock(&mHeard.at(listener)->mutex);
        return mHeard.at(listener)->ids;
    }

    void transmitCyclically()
    {
        mTransmitter = std::make_unique<CanMessageTransmitter>(1);
        mTransmitter->setCanAdapter(at(Virtual));
        mTransmitter->setTranmissionParameter(makeFrame(CyclicId, hex("0102")), 5, CyclicCount);
        mTransmitter->startTransmission();
    }

private:
    struct Heard
    {
        QMutex mutex;
        QList<quint32> ids;
    };

    MultiCanAdapterHandler mSet;
    std::vector<std::unique_ptr<Heard>> mHeard;
    std::vector<std::unique_ptr<CanScheduler>> mSchedulers;
    std::unique_ptr<CanMessageTransmitter> mTransmitter;
};

} // namespace

class TestWholeSystem : public QObject
{
    Q_OBJECT

private:
    quint16 mPort = freeUdpPort();

private Q_SLOTS:
    // The adapters' debug records are no matter here, and keeping them would take memory.
    void init()
    {
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    }
    void cleanup() { qInstallMessageHandler(nullptr); }

    void applicationIsBuiltSavedAndRestoredAndLeavesNothing()
    {
        // What the first rounds leave once and for all: caches, the clock's start, the pool's threads.
        lifeOfAnApplication();
        lifeOfAnApplication();
        QThreadPool::globalInstance()->waitForDone();
        const int threads = threadCount();
        const int descriptors = openDescriptors();
#ifdef BUSLINKDESK_COUNT_HEAP_BLOCKS
        const qint64 blocks = heapBlocks();
#endif
        for (int round = 0; round < 3; ++round) {
            lifeOfAnApplication();
            QVERIFY(!QTest::currentTestFailed());
            QTRY_COMPARE_WITH_TIMEOUT(threadCount(), threads, PatienceMs);
            QCOMPARE(openDescriptors(), descriptors);
            QCOMPARE(udpSocketsOnPort(mPort), 0);
        }
#ifdef BUSLINKDESK_COUNT_HEAP_BLOCKS
        const qint64 kept = heapBlocks() - blocks;
        QVERIFY2(kept <= 0, qPrintable(QStringLiteral("%1 blocks are left").arg(kept)));
#endif
    }

private:
    void lifeOfAnApplication()
    {
        UsbEnd usb;
        LineGateway gateway;
        std::vector<Saved> saved;
        QStringList rows;
        {
            Application application;
            application.add(A::CanAdapterTypeVirtual, QStringLiteral("zorbek Virtual"),
                            {{A::option_portNumber, mPort}, {A::option_description, QStringLiteral("table")}});
            application.add(A::CanAdapterTypeUsb, usb.portName(), {{A::option_baudrate, 115200}});
            application.add(
                A::CanAdapterTypeCiA309, QString(),
                {{A::option_ipAddress, QStringLiteral("127.0.0.1")}, {A::option_portNumber, gateway.serverPort()}});
            if (hasCan())
                application.add(A::CanAdapterTypeSocketCan, QStringLiteral("vcan0"), {{A::option_CANFD, true}});
            application.set().setPrimaryAdapterByID(2);
            saved = application.save();
            rows = application.rows();
            QCOMPARE(rows.mid(0, 2), QStringList({QStringLiteral("1 6 A"), QStringLiteral("2 15 PA")}));
            runTraffic(application, usb);
        }
        QVERIFY(canBeOpened(usb.portName()));
        usb.device().forgetReceived();
        Application restored;
        restored.restore(saved);
        QCOMPARE(restored.rows(), rows);
        QCOMPARE(restored.at(Application::Virtual)->getCanAdapterOption(A::option_description).toString(),
                 QStringLiteral("table"));
        runTraffic(restored, usb);
    }

    void runTraffic(Application &application, UsbEnd &usb)
    {
        application.listen(Application::Virtual, 0x100, 0x1FF);
        application.listen(Application::Usb, 0x200, 0x2FF);
        application.link();
        application.set().toggleConnection(true);
        QTRY_COMPARE_WITH_TIMEOUT(udpSocketsOnPort(mPort), 1, PatienceMs);
        for (const QPointer<A> &adapter : qAsConst(application.set().getAdapterMap()))
            QTRY_VERIFY_WITH_TIMEOUT(adapter->getRunning(), PatienceMs);

        const auto peer = makeVirtualAdapter(mPort);
        QVERIFY(openOnBus(peer.get()));
        const FrameRecorder onBus(peer.get());

        // From the virtual bus to a scheduler, and over the link out of the serial line.
        peer->write(makeFrame(0x123, hex("11FF")));
        QTRY_COMPARE_WITH_TIMEOUT(application.heard(0), QList<quint32>{0x123}, PatienceMs);
        QTRY_COMPARE_WITH_TIMEOUT(usb.device().received(), hex("88 01 23 01 02 11 7F 20 67"), PatienceMs);

        // From the serial line to a scheduler, and where there is CAN, once around.
        AdapterPointer<SocketCanAdapter> other;
        if (hasCan()) {
            other.reset(new SocketCanAdapter(QStringLiteral("vcan0")));
            QCOMPARE(other->open(), CAN::RetOk);
            QTRY_VERIFY_WITH_TIMEOUT(other->getRunning(), PatienceMs);
        }
        std::optional<FrameRecorder> onInterface;
        if (other)
            onInterface.emplace(other.get());
        usb.device().send(hex("86 01 23 02 00 00 26"));
        QTRY_COMPARE_WITH_TIMEOUT(application.heard(1), QList<quint32>{0x223}, PatienceMs);
        if (other) {
            QTRY_COMPARE_WITH_TIMEOUT(countOf(*onInterface, 0x223), 1, PatienceMs);
            QCOMPARE(other->write(makeFrame(0x345, hex("05"))), CAN::RetOk);
            QTRY_COMPARE_WITH_TIMEOUT(countOf(onBus, 0x345), 1, PatienceMs);
            other.reset();
        }

        application.transmitCyclically();
        QTRY_COMPARE_WITH_TIMEOUT(countOf(onBus, CyclicId), static_cast<int>(CyclicCount), PatienceMs);

        A *const gatewayAdapter = application.at(Application::Gateway);
        QString answer;
        connect(gatewayAdapter, &A::newCiA309Response, gatewayAdapter,
                [&answer](const QString &text) { answer += text; });
        QCOMPARE(gatewayAdapter->write(QStringLiteral("1 2 start")), CAN::RetOk);
        QTRY_COMPARE_WITH_TIMEOUT(answer, QStringLiteral("[0] OK\r\n"), PatienceMs);
    }

    static int countOf(const FrameRecorder &recorder, quint32 id)
    {
        int count = 0;
        for (const CAN::CanRxMessage &frame : recorder.frames())
            count += frame.message.id == id ? 1 : 0;
        return count;
    }

    static bool canBeOpened(const QString &portName)
    {
        QSerialPort port{QSerialPortInfo(portName)};
        return port.open(QIODevice::ReadWrite);
    }
};

QTEST_GUILESS_MAIN(TestWholeSystem)
#include "tst_whole_system.moc"
