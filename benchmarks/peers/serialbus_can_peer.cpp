// SPDX-License-Identifier: MIT
// Qt SerialBus with its plugin for SocketCAN.
#include "peer.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QLoggingCategory>
#include <QtCore/QTimer>
#include <QtSerialBus/QCanBus>

#include <memory>

namespace {

int receive(const Order &order, QCanBusDevice *device)
{
    FrameMeter meter(order.frames);
    QTimer poll;
    QObject::connect(device, &QCanBusDevice::framesReceived, [&meter, device] {
        if (meter.count(device->readAllFrames().size()))
            QCoreApplication::quit();
    });
    QObject::connect(&poll, &QTimer::timeout, [&meter] {
        if (meter.over())
            QCoreApplication::quit();
    });
    poll.start(FrameMeter::PollMilliseconds);
    if (!device->connectDevice())
        return StatusNotHere;
    QCoreApplication::exec();
    return meter.print();
}

int send(const Order &order, QCanBusDevice *device)
{
    if (!device->connectDevice())
        return StatusNotHere;
    return sendAll(order, [device](long number, unsigned int identifier) {
        const auto value = static_cast<quint32>(number);
        QByteArray payload(8, '\0');
        std::memcpy(payload.data(), &value, sizeof value);
        return device->writeFrame(QCanBusFrame(identifier, payload));
    });
}

} // namespace

int main(int argc, char **argv)
{
    const Order order = orderOf(argc, argv);
    const QCoreApplication application(argc, argv);
    // The plugin tells at length which functions it does without.
    QLoggingCategory::setFilterRules(QStringLiteral("*=false"));
    const std::unique_ptr<QCanBusDevice> device(
        QCanBus::instance()->createDevice(QStringLiteral("socketcan"), QString::fromLocal8Bit(order.interface)));
    if (!device)
        return StatusNotHere;
    return order.receive ? receive(order, device.get()) : send(order, device.get());
}
