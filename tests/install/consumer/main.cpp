// SPDX-License-Identifier: MIT
// A program of a user: two adapters of the virtual bus, one frame, the stored form and a comparison.
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>
#include <BusLinkDesk/bus_link_desk.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>
#include <QtNetwork/QUdpSocket>

#include <cstdio>

namespace {

void stop(AbstractCanAdapter &adapter)
{
    adapter.prepareToTerminate();
    adapter.wait();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    BusLinkDesk library;
    Q_UNUSED(library)
    QUdpSocket probe;
    probe.bind(QHostAddress(QHostAddress::AnyIPv4));
    const quint16 port = probe.localPort();
    probe.close();

    DemoCanAdapter sender(QStringLiteral("virtual"));
    DemoCanAdapter receiver(QStringLiteral("virtual"));
    sender.setCanAdapterOption(AbstractCanAdapter::option_portNumber, port);
    receiver.setValuesFromByteArray(sender.getValuesAsByteArray());
    if (!(sender == receiver))
        return 2;

    int status = 1;
    QObject::connect(&receiver, &AbstractCanAdapter::newCanMessageByValue, &application,
                     [&](CAN::CanRxMessage received) {
                         status = received.message.id == 0x123 && received.message.length == 2 ? 0 : 3;
                         application.quit();
                     });
    CAN::CanMessage message;
    message.id = 0x123;
    message.length = 2;
    receiver.open();
    sender.open();
    // Until the receiver listens, frames are lost, as they are on a bus without a receiver.
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &application, [&] { sender.write(message); });
    timer.start(10);
    QTimer::singleShot(20000, &application, &QCoreApplication::quit);
    application.exec();
    stop(sender);
    stop(receiver);
    std::printf("consumer: %s\n", status == 0 ? "frame received" : "no frame");
    return status;
}
