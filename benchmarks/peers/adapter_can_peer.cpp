// SPDX-License-Identifier: MIT
// Our side: an adapter as it comes, received frames into a directly connected slot.
#include "bare_socket.h"

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include <QtCore/QLoggingCategory>

namespace {

/// An adapter that runs as long as this lives, once it was opened.
class OpenAdapter
{
public:
    explicit OpenAdapter(const Order &order) : mAdapter(QString::fromStdString(order.interface))
    {
        mAdapter.setCanAdapterOption(AbstractCanAdapter::option_CANFD, order.fd);
        mMessage.isFd = mMessage.isBrs = order.fd;
        mMessage.length = static_cast<quint8>(order.payload());
    }
    ~OpenAdapter()
    {
        mAdapter.closeAdapter();
        mAdapter.wait();
    }
    OpenAdapter(const OpenAdapter &) = delete;
    OpenAdapter &operator=(const OpenAdapter &) = delete;

    void open()
    {
        if (mAdapter.open() != CAN::RetOk)
            std::exit(StatusNotHere);
        while (!mAdapter.getRunning())
            QThread::msleep(1);
    }
    /// Sends a frame; whether it is on its way.
    bool send(long number, unsigned int identifier)
    {
        const auto value = static_cast<quint32>(number);
        mMessage.id = identifier;
        std::memcpy(mMessage.data, &value, sizeof value);
        return mAdapter.write(&mMessage) == CAN::RetOk;
    }
    SocketCanAdapter *operator->() { return &mAdapter; }

    template <typename Take>
    void onFrame(Take take)
    {
        QObject::connect(&mAdapter, &AbstractCanAdapter::newCanMessage, take);
    }

private:
    SocketCanAdapter mAdapter;
    CAN::CanMessage mMessage;
};

int receive(const Order &order)
{
    FrameMeter meter(order.frames);
    OpenAdapter adapter(order);
    adapter.onFrame([&meter](CAN::CanRxMessage *) { meter.count(); });
    adapter.open();
    while (!meter.over())
        QThread::msleep(FrameMeter::PollMilliseconds);
    return meter.print();
}

int send(const Order &order)
{
    OpenAdapter adapter(order);
    adapter->setEcho(order.verb == "send");
    adapter.open();
    return sendAll(order, [&](long number, unsigned int identifier) { return adapter.send(number, identifier); });
}

int trips(const Order &order)
{
    TripMeter meter;
    OpenAdapter here(order);
    OpenAdapter there(order);
    here->setEcho(false);
    there->setEcho(false);
    here.onFrame([&](CAN::CanRxMessage *) { meter.take(); });
    there.onFrame([&](CAN::CanRxMessage *) { there.send(0, AnswerId); });
    there.open();
    here.open();
    return meter.run(
        order.frames, [&](long number) { here.send(number, QuestionId); }, TripMeter::nap);
}

int arrivals(const Order &order)
{
    TripMeter meter;
    OpenAdapter adapter(order);
    adapter.onFrame([&](CAN::CanRxMessage *) { meter.take(); });
    adapter.open();
    return sendArrivals(order, meter);
}

} // namespace

int main(int argc, char **argv)
{
    const Order order = orderOf(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.info=false"));
    return perform(
        order,
        {{"receive", receive}, {"send", send}, {"send-without-echo", send}, {"trips", trips}, {"arrivals", arrivals}});
}
