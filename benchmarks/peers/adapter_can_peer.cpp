// SPDX-License-Identifier: MIT
// Our side: an adapter as it comes, received frames into a directly connected slot.
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include "peer.h"

#include <QtCore/QLoggingCategory>

namespace {

int receive(const Order &order)
{
    FrameMeter meter(order.frames);
    SocketCanAdapter adapter(QString::fromLocal8Bit(order.interface));
    QObject::connect(&adapter, &AbstractCanAdapter::newCanMessage, [&meter](CAN::CanRxMessage *) { meter.count(); });
    if (adapter.open() != CAN::RetOk)
        return StatusNotHere;
    while (!meter.over())
        QThread::msleep(FrameMeter::PollMilliseconds);
    adapter.closeAdapter();
    adapter.wait();
    return meter.print();
}

int send(const Order &order)
{
    SocketCanAdapter adapter(QString::fromLocal8Bit(order.interface));
    adapter.setEcho(order.echo);
    if (adapter.open() != CAN::RetOk)
        return StatusNotHere;
    while (!adapter.getRunning())
        QThread::msleep(1);
    CAN::CanMessage message;
    message.length = 8;
    const int status = sendAll(order, [&](long number, unsigned int identifier) {
        const auto value = static_cast<quint32>(number);
        message.id = identifier;
        std::memcpy(message.data, &value, sizeof value);
        return adapter.write(&message) == CAN::RetOk;
    });
    adapter.closeAdapter();
    adapter.wait();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    const Order order = orderOf(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.info=false"));
    return order.receive ? receive(order) : send(order);
}
