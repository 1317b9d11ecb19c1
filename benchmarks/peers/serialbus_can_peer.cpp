// SPDX-License-Identifier: MIT
// Qt SerialBus with its plugins for SocketCAN and, where the bus is virtual:PORT, for its virtual bus, whose server is
// in this process.
#include "bare_socket.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>
#include <QtCore/QTimer>
#include <QtSerialBus/QCanBus>

#include <memory>

namespace {

using Device = std::unique_ptr<QCanBusDevice>;

Device makeDevice(const Order &order)
{
    const QString name = QString::fromStdString(order.interface);
    const QString prefix = QStringLiteral("virtual:");
    Device device;
    if (name.startsWith(prefix))
        device.reset(QCanBus::instance()->createDevice(
            QStringLiteral("virtualcan"), QStringLiteral("tcp://127.0.0.1:%1/can0").arg(name.mid(prefix.size()))));
    else
        device.reset(QCanBus::instance()->createDevice(QStringLiteral("socketcan"), name));
    if (!device)
        std::exit(StatusNotHere);
    device->setConfigurationParameter(QCanBusDevice::CanFdKey, order.fd);
    return device;
}

void connectDevice(const Device &device)
{
    if (!device->connectDevice())
        std::exit(StatusNotHere);
    while (device->state() == QCanBusDevice::ConnectingState)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
}

QCanBusFrame frameOf(const Order &order, long number, unsigned int identifier)
{
    const auto value = static_cast<quint32>(number);
    QByteArray payload(static_cast<int>(order.payload()), '\0');
    std::memcpy(payload.data(), &value, sizeof value);
    QCanBusFrame frame(identifier, payload);
    frame.setFlexibleDataRateFormat(order.fd);
    frame.setBitrateSwitch(order.fd);
    return frame;
}

/// Runs the event loop until the frames are there or no more come.
void runUntilOver(FrameMeter &meter)
{
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&meter] {
        if (meter.over())
            QCoreApplication::quit();
    });
    poll.start(FrameMeter::PollMilliseconds);
    QCoreApplication::exec();
}

void countFrames(const Device &device, FrameMeter &meter)
{
    QObject::connect(device.get(), &QCanBusDevice::framesReceived, [&meter, from = device.get()] {
        if (meter.count(from->readAllFrames().size()))
            QCoreApplication::quit();
    });
}

int receive(const Order &order)
{
    FrameMeter meter(order.frames);
    const Device device = makeDevice(order);
    countFrames(device, meter);
    connectDevice(device);
    runUntilOver(meter);
    return meter.print();
}

int send(const Order &order)
{
    const Device device = makeDevice(order);
    connectDevice(device);
    return sendAll(order, [&](long number, unsigned int identifier) {
        return device->writeFrame(frameOf(order, number, identifier));
    });
}

int burst(const Order &order)
{
    FrameMeter meter(order.frames);
    const Device to = makeDevice(order);
    const Device from = makeDevice(order);
    countFrames(to, meter);
    connectDevice(to);
    connectDevice(from);
    from->writeFrame(frameOf(order, LeadNumber, static_cast<unsigned int>(LeadNumber)));
    QTimer::singleShot(LeadPause, Qt::PreciseTimer, QCoreApplication::instance(), [&] {
        for (long number = 0; number < order.frames; ++number)
            from->writeFrame(frameOf(order, number, static_cast<unsigned int>(number % IdentifierCount)));
    });
    runUntilOver(meter);
    return meter.print();
}

int trips(const Order &order)
{
    TripMeter meter;
    const Device here = makeDevice(order);
    const Device there = makeDevice(order);
    QObject::connect(there.get(), &QCanBusDevice::framesReceived, [&] {
        for (const QCanBusFrame &frame : there->readAllFrames()) {
            if (frame.frameId() == QuestionId)
                there->writeFrame(frameOf(order, 0, AnswerId));
        }
    });
    QObject::connect(here.get(), &QCanBusDevice::framesReceived, [&] {
        for (const QCanBusFrame &frame : here->readAllFrames()) {
            if (frame.frameId() == AnswerId)
                meter.take();
        }
    });
    connectDevice(there);
    connectDevice(here);
    QTimer poll; // ends the wait for a frame that is lost
    poll.start(FrameMeter::PollMilliseconds);
    return meter.run(
        order.frames, [&](long number) { here->writeFrame(frameOf(order, number, QuestionId)); },
        [] { QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); });
}

int arrivals(const Order &order)
{
    TripMeter meter;
    const Device device = makeDevice(order);
    QObject::connect(device.get(), &QCanBusDevice::framesReceived, [&] {
        for (int count = device->readAllFrames().size(); count > 0; --count)
            meter.take();
    });
    connectDevice(device);
    int status = 0;
    std::thread sender([&] {
        status = sendArrivals(order, meter);
        QCoreApplication::quit();
    });
    QCoreApplication::exec();
    sender.join();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    const Order order = orderOf(argc, argv);
    const QCoreApplication application(argc, argv);
    // The plugins tell at length which functions they do without.
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    return perform(order,
                   {{"receive", receive}, {"send", send}, {"burst", burst}, {"trips", trips}, {"arrivals", arrivals}});
}
