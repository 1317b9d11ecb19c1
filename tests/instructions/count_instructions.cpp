// SPDX-License-Identifier: MIT
// What a frame costs in instructions, outside the kernel, on the ways that all frames take. Run it under callgrind
// by way of recorded_instructions.
#include "fake_can_interface.h"
#include "instruction_count.h"
#include "support/fake_adapter.h"
#include "support/free_port.h"
#include "support/open_adapter.h"

#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>
#include <BusLinkDesk/backends/serial/usb_message_p.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSemaphore>

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <linux/can.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int Frames = 1000;
constexpr quint32 FirstId = 0x100;

CAN::CanRxMessage record()
{
    CAN::CanRxMessage made;
    made.message.id = FirstId;
    made.message.length = 8;
    return made;
}

/// Takes the frames without looking at them.
struct Receiver : QObject
{
    int frames = 0;

    void take(CAN::CanRxMessage *) { ++frames; }
    void takeValue(const CAN::CanRxMessage &) { ++frames; }
};

void deliver(FakeAdapter &adapter)
{
    const CAN::CanRxMessage received = record();
    for (int frame = 0; frame < Frames; ++frame)
        adapter.handleNewCanMessage(received);
}

void countDelivery()
{
    FakeAdapter adapter(nullptr);
    Receiver receiver;
    countInstructions(Frames, "delivered to nobody", [&] { deliver(adapter); });
    QObject::connect(&adapter, &AbstractCanAdapter::newCanMessage, &receiver, &Receiver::take, Qt::DirectConnection);
    countInstructions(Frames, "delivered to a direct receiver", [&] { deliver(adapter); });
}

void countQueuedDelivery()
{
    FakeAdapter adapter(nullptr);
    Receiver receiver;
    QObject::connect(&adapter, &AbstractCanAdapter::newCanMessageByValue, &receiver, &Receiver::takeValue,
                     Qt::QueuedConnection);
    countInstructions(Frames, "delivered to a queued receiver, both sides", [&] {
        deliver(adapter);
        QCoreApplication::sendPostedEvents(&receiver);
    });
}

void countDispatch(int identifiers, const char *what)
{
    FakeAdapter adapter(nullptr);
    Receiver receiver;
    CanScheduler scheduler(&adapter);
    const auto last = FirstId + static_cast<quint32>(identifiers) - 1;
    for (const QPointer<CanSender> &sender : scheduler.registerCanIdRange(FirstId, last))
        QObject::connect(sender.data(), qOverload<CAN::CanRxMessage>(&CanSender::received), &receiver,
                         &Receiver::takeValue, Qt::DirectConnection);
    scheduler.connectToAdapter(true);
    countInstructions(Frames, what, [&] { deliver(adapter); });
}

void countStoredForm()
{
    constexpr int adapters = 20;
    DemoCanAdapter adapter(QStringLiteral("virtual"));
    QByteArray stored;
    countInstructions(adapters, "stored form written", [&] {
        for (int count = 0; count < adapters; ++count)
            stored = adapter.getValuesAsByteArray();
    });
    countInstructions(adapters, "stored form read", [&] {
        for (int count = 0; count < adapters; ++count)
            adapter.setValuesFromByteArray(stored);
    });
}

void countPackets()
{
    PXRDummyAdapter bridge;
    Receiver receiver;
    QObject::connect(&bridge, &AbstractCanAdapter::newCanMessage, &receiver, &Receiver::take, Qt::DirectConnection);
    PxrFdTypes::UnionPacket packet;
    packet.stcCanMsg = bridge.convertCanMessage(record().message);
    QList<PxrFdTypes::UnionPacket> packets;
    for (int frame = 0; frame < Frames; ++frame)
        packets.append(packet);
    countInstructions(Frames, "packet bridge, received", [&] { bridge.onCanMessageReceived(packets); });
}

void countUsbMessages()
{
    const CAN::CanMessage message = record().message;
    QByteArray stream;
    countInstructions(Frames, "USB, encoded", [&] {
        stream.clear();
        for (int frame = 0; frame < Frames; ++frame) {
            const buslink::UsbMessage encoded = buslink::encodeUsbMessage(message);
            stream.append(encoded.bytes.data(), encoded.size);
        }
    });
    // In pieces as a port has them, from which each message is removed.
    constexpr int pieces = 50;
    const int bytes = stream.size() / pieces;
    CAN::CanMessage decoded;
    int frames = 0;
    countInstructions(Frames, "USB, decoded", [&] {
        for (int piece = 0; piece < pieces; ++piece) {
            QByteArray buffer = stream.mid(piece * bytes, bytes);
            while (!buffer.isEmpty()) {
                const buslink::UsbDecodeStep step = buslink::decodeUsbMessage(buffer, decoded);
                frames += step.outcome == buslink::UsbDecodeStep::Outcome::Frame;
                buffer.remove(0, step.remove);
            }
        }
    });
    if (frames != Frames * (1 + CountsOfEach))
        qFatal("not all messages were decoded");
}

/// Counts the frames of an adapter's own thread. The first of a round begins the count, the last one ends it; what
/// they need themselves is left out.
class ReceivedFrames
{
public:
    ReceivedFrames(AbstractCanAdapter &adapter, const char *what, int framesOfRound,
                   std::function<void()> beforeFirst = {})
        : mCount(framesOfRound, what), mFramesOfRound(framesOfRound), mBeforeFirst(std::move(beforeFirst))
    {
        QObject::connect(&adapter, &AbstractCanAdapter::newCanMessage, [this](CAN::CanRxMessage *) { take(); });
    }
    void waitForRound()
    {
        if (!mRound.tryAcquire(1, 60000))
            qFatal("not all frames came");
    }

private:
    void take()
    {
        if (mFrames == 0) {
            if (mBeforeFirst)
                mBeforeFirst();
            mCount.begin();
        }
        if (mFrames++ != mFramesOfRound)
            return;
        mCount.end();
        mFrames = 0;
        mRound.release();
    }

    InstructionCount mCount;
    const int mFramesOfRound;
    std::function<void()> mBeforeFirst;
    int mFrames = 0;
    QSemaphore mRound;
};

/// A socket on the virtual bus.
class BusSocket
{
public:
    explicit BusSocket(quint16 port) : mDescriptor(::socket(AF_INET, SOCK_DGRAM, 0))
    {
        const int on = 1;
        ::setsockopt(mDescriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
        mBus.sin_family = AF_INET;
        mBus.sin_port = htons(port);
        mBus.sin_addr.s_addr = ::inet_addr("127.255.255.255");
    }
    ~BusSocket() { ::close(mDescriptor); }
    BusSocket(const BusSocket &) = delete;
    BusSocket &operator=(const BusSocket &) = delete;

    void send(int frames) const
    {
        const CAN::CanMessage message = record().message;
        for (int frame = 0; frame < frames; ++frame) {
            if (::sendto(mDescriptor, &message, sizeof message, 0, reinterpret_cast<const sockaddr *>(&mBus),
                         sizeof mBus)
                < 0)
                qFatal("no loopback broadcast");
        }
    }

private:
    int mDescriptor;
    sockaddr_in mBus{};
};

void countVirtualBus()
{
    const quint16 port = freeUdpPort();
    const BusSocket bus(port);
    auto adapter = makeVirtualAdapter(port);
    // Few enough for the buffer that a process without privileges gets.
    constexpr int frames = 200;
    // The rest comes while the first is delivered, so that the loop finds it at once and never sleeps meanwhile.
    ReceivedFrames received(*adapter, "virtual bus, received", frames, [&bus] { bus.send(frames); });
    if (!openOnBus(adapter.get()))
        qFatal("no virtual bus");
    for (int round = 0; round <= CountsOfEach; ++round) {
        bus.send(1);
        received.waitForRound();
    }
    adapter.reset(); // before what it delivers to
}

void countSocketCan()
{
    AdapterPointer<SocketCanAdapter> adapter(new SocketCanAdapter(QStringLiteral("can0")));
    can_frame frame{};
    frame.can_id = FirstId;
    frame.len = CAN_MAX_DLEN;
    const auto feed = [&frame](int frames) {
        while (frames-- > 0 && ::send(farEndOfCanSocket(), &frame, sizeof frame, 0) > 0) {
        }
    };
    ReceivedFrames received(*adapter, "SocketCAN, received", Frames);
    if (!openAndWait(adapter.get()))
        qFatal("no adapter");
    for (int round = 0; round <= CountsOfEach; ++round) {
        feed(Frames + 1);
        received.waitForRound();
    }
    adapter.reset(); // before what it delivers to
}

void countSocketCanWrites()
{
    // Few enough for the other end's buffer, which is emptied between the counts.
    constexpr int writes = 100;
    const AdapterPointer<SocketCanAdapter> adapter(new SocketCanAdapter(QStringLiteral("can0")));
    if (adapter->open() != CAN::RetOk)
        qFatal("no adapter");
    CAN::CanMessage message = record().message;
    const auto write = [&] {
        for (int frame = 0; frame < writes; ++frame)
            if (adapter->write(&message) != CAN::RetOk)
                qFatal("a frame did not go out");
    };
    const auto count = [&](const char *what) {
        for (int round = 0; round <= CountsOfEach; ++round) {
            const InstructionCount instructions(writes, what);
            instructions.begin();
            write();
            instructions.end();
            can_frame frame;
            while (::recv(farEndOfCanSocket(), &frame, sizeof frame, MSG_DONTWAIT) > 0) {
            }
        }
    };
    count("SocketCAN, written with echo to nobody");
    adapter->setEcho(false);
    count("SocketCAN, written without echo");
}

} // namespace

int main(int argc, char **argv)
{
    const QCoreApplication application(argc, argv);
    // What is done with a record of the log is not counted; making it is.
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        if (type == QtFatalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(text));
    });
    countDelivery();
    countQueuedDelivery();
    countDispatch(1, "dispatched, 1 identifier");
    countDispatch(1000, "dispatched, 1000 identifiers");
    countDispatch(100000, "dispatched, 100000 identifiers");
    countStoredForm();
    countPackets();
    countUsbMessages();
    countVirtualBus();
    countSocketCan();
    countSocketCanWrites();
    return EXIT_SUCCESS;
}
