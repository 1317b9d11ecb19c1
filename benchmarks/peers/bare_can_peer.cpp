// SPDX-License-Identifier: MIT
// The limit.
#include "bare_socket.h"

namespace {

int receive(const Order &order)
{
    FrameMeter meter(order.frames);
    BareSocket socket(order);
    for (;;) {
        if (!socket.wait(FrameMeter::PollMilliseconds)) {
            if (meter.over())
                break;
        } else if (socket.receive() && meter.count()) {
            break;
        }
    }
    return meter.print();
}

int send(const Order &order)
{
    BareSocket socket(order);
    return sendAll(order, [&](long number, unsigned int identifier) { return socket.send(number, identifier); });
}

int trips(const Order &order)
{
    BareSocket here(order);
    BareSocket there(order);
    std::thread answers([&] {
        for (long number = 0; number < order.frames; ++number) {
            while (!there.receive() || there.identifier() != QuestionId) {
            }
            there.send(number, AnswerId);
        }
    });
    TripMeter meter;
    const int status = meter.run(
        order.frames, [&](long number) { here.send(number, QuestionId); },
        [&] {
            if (here.wait(1000) && here.receive() && here.identifier() == AnswerId)
                meter.take();
        });
    answers.join();
    return status;
}

int arrivals(const Order &order)
{
    BareSocket socket(order);
    TripMeter meter;
    std::thread receiver([&] {
        for (long number = 0; number < order.frames; ++number) {
            if (socket.receive())
                meter.take();
        }
    });
    const int status = sendArrivals(order, meter);
    receiver.join();
    return status;
}

} // namespace

int main(int argc, char **argv)
{
    return perform(orderOf(argc, argv),
                   {{"receive", receive}, {"send", send}, {"trips", trips}, {"arrivals", arrivals}});
}
