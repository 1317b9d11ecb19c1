// SPDX-License-Identifier: MIT
// The USB adapter: its wire format beside a copy of the same bytes, its loop beside bare system calls on the same
// pseudo-terminal.
#include "support/mock_ports.h"
#include "support/report.h"

#include <BusLinkDesk/backends/serial/usb_message_p.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/mock_serial_port.h"
#include "support/simulated_usb_device.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDeadlineTimer>

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace {

// Far more than any line here needs for its next bytes.
constexpr int StallMs = 60'000;

CAN::CanMessage frameOf(quint32 number)
{
    CAN::CanMessage frame;
    frame.id = number & 0x7FFU;
    frame.length = 8;
    std::memcpy(frame.data, "\x80\x01\xFE\x7F\x55\xAA\x00\xFF", 8);
    return frame;
}

QByteArray streamOf(int frames)
{
    QByteArray stream;
    for (int number = 0; number < frames; ++number) {
        const buslink::UsbMessage message = buslink::encodeUsbMessage(frameOf(static_cast<quint32>(number)));
        stream.append(message.bytes.data(), message.size);
    }
    return stream;
}

/// Ends the program: without a line there is nothing to measure.
[[noreturn]] void giveUp(const char *problem)
{
    std::fprintf(stderr, "bench_usb: %s\n", problem);
    std::exit(EXIT_FAILURE);
}

void nap()
{
    std::this_thread::sleep_for(std::chrono::microseconds(50));
}

/// Waits for bytes or frames that are on their way.
template <typename Condition>
void waitUntil(Condition condition)
{
    const QDeadlineTimer deadline(StallMs);
    while (!condition()) {
        if (deadline.hasExpired())
            giveUp("the line stands still");
        nap();
    }
}

double copiesPerSecond(int frames, int messageSize)
{
    const QByteArray source(messageSize, 'x');
    QByteArray target(messageSize, '\0');
    const double seconds = secondsOf([&] {
        for (int number = 0; number < frames; ++number) {
            std::memcpy(target.data(), source.constData(), static_cast<std::size_t>(messageSize));
            asm volatile("" : : "r"(target.constData()) : "memory");
        }
    });
    return frames / seconds;
}

double encodedPerSecond(int frames)
{
    CAN::CanMessage frame = frameOf(0);
    return frames / secondsOf([&] {
               for (int number = 0; number < frames; ++number) {
                   frame.id = static_cast<quint32>(number) & 0x7FFU;
                   const buslink::UsbMessage message = buslink::encodeUsbMessage(frame);
                   asm volatile("" : : "r"(&message) : "memory");
               }
           });
}

double decodedPerSecond(int frames)
{
    // As in the loop: chunks of what a port holds, each message removed from the front.
    constexpr int framesInChunk = 256;
    const QByteArray chunk = streamOf(framesInChunk);
    CAN::CanMessage frame;
    int decoded = 0;
    const double seconds = secondsOf([&] {
        while (decoded < frames) {
            QByteArray buffer(chunk.constData(), chunk.size());
            while (!buffer.isEmpty()) {
                const buslink::UsbDecodeStep step = buslink::decodeUsbMessage(buffer, frame);
                decoded += step.outcome == buslink::UsbDecodeStep::Outcome::Frame;
                buffer.remove(0, step.remove);
            }
        }
    });
    return decoded / seconds;
}

/// An open adapter on a mocked port.
struct OpenLine
{
    OpenLine()
    {
        adapter.setCanAdapterOption(AbstractCanAdapter::option_baudrate, 115200);
        adapter.setEcho(false);
        adapter.open();
        while (!adapter.getRunning()) {
            if (!adapter.isRunning())
                giveUp("the adapter could not be opened");
            nap();
        }
    }
    ~OpenLine()
    {
        adapter.closeAdapter();
        adapter.wait();
    }
    OpenLine(const OpenLine &) = delete;
    OpenLine &operator=(const OpenLine &) = delete;

    MockSerialPort port;
    SimulatedUsbDevice device{port.farEnd()};
    ZorbekUSBCanAdapter adapter{port.name()};
};

/// A bare descriptor of a mocked port.
struct BareLine
{
    BareLine() : descriptor(::open(("/dev/" + port.name().toLatin1()).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK))
    {
        if (descriptor < 0)
            giveUp("the port could not be opened");
    }
    ~BareLine() { ::close(descriptor); }
    BareLine(const BareLine &) = delete;
    BareLine &operator=(const BareLine &) = delete;

    void waitFor(short events) const
    {
        pollfd line{descriptor, events, 0};
        if (::poll(&line, 1, StallMs) <= 0 || (line.revents & (POLLERR | POLLNVAL)) != 0)
            giveUp("the line stands still");
    }

    MockSerialPort port;
    SimulatedUsbDevice device{port.farEnd()};
    int descriptor;
};

double transmittedPerSecond(int frames)
{
    OpenLine line;
    const int bytes = streamOf(frames).size();
    return frames / secondsOf([&] {
               for (int number = 0; number < frames; ++number)
                   line.adapter.write(frameOf(static_cast<quint32>(number)));
               waitUntil([&] { return line.device.receivedCount() >= bytes; });
           });
}

double bareTransmittedPerSecond(int frames)
{
    BareLine line;
    const QByteArray stream = streamOf(frames);
    return frames / secondsOf([&] {
               for (const char *next = stream.cbegin(); next != stream.cend();) {
                   const ssize_t written =
                       ::write(line.descriptor, next, static_cast<std::size_t>(stream.cend() - next));
                   if (written > 0)
                       next += written;
                   else
                       line.waitFor(POLLOUT);
               }
               waitUntil([&] { return line.device.receivedCount() >= stream.size(); });
           });
}

double receivedPerSecond(int frames)
{
    OpenLine line;
    std::atomic<int> received = 0;
    QObject::connect(&line.adapter, &AbstractCanAdapter::newCanMessage, [&](CAN::CanRxMessage *) { ++received; });
    const QByteArray stream = streamOf(frames);
    return frames / secondsOf([&] {
               line.device.send(stream);
               waitUntil([&] { return received >= frames; });
           });
}

double bareReceivedPerSecond(int frames)
{
    BareLine line;
    const QByteArray stream = streamOf(frames);
    return frames / secondsOf([&] {
               line.device.send(stream);
               std::array<char, 4096> chunk{};
               for (qsizetype bytes = 0; bytes < stream.size();) {
                   const ssize_t got = ::read(line.descriptor, chunk.data(), chunk.size());
                   if (got > 0)
                       bytes += got;
                   else
                       line.waitFor(POLLIN);
               }
           });
}

void reportWireFormat(const Report &report)
{
    const int frames = report.quick() ? 20'000 : 2'000'000;
    const int size = streamOf(1).size();
    const int runs = report.quick() ? 1 : 7;
    const auto [encoded, decoded, copies] = mediansInTurn(
        runs, [&] { return encodedPerSecond(frames); }, [&] { return decodedPerSecond(frames); },
        [&] { return copiesPerSecond(frames, size); });
    const QString limit = QStringLiteral("memcpy of a message");
    report.compare(QStringLiteral("frames of 8 bytes encoded"), encoded, QStringLiteral("1/s"), Report::Better::More,
                   limit, copies);
    report.compare(QStringLiteral("frames of 8 bytes decoded"), decoded, QStringLiteral("1/s"), Report::Better::More,
                   limit, copies);
}

void reportThroughput(const Report &report)
{
    const int frames = report.quick() ? 2'000 : 100'000;
    const auto [out, bareOut, in, bareIn] = mediansInTurn(
        report.quick() ? 1 : 5, [&] { return transmittedPerSecond(frames); },
        [&] { return bareTransmittedPerSecond(frames); }, [&] { return receivedPerSecond(frames); },
        [&] { return bareReceivedPerSecond(frames); });
    const QString limit = QStringLiteral("bare loop");
    report.compare(QStringLiteral("frames written to the device"), out, QStringLiteral("1/s"), Report::Better::More,
                   limit, bareOut);
    report.compare(QStringLiteral("frames delivered from the device"), in, QStringLiteral("1/s"), Report::Better::More,
                   limit, bareIn);
}

} // namespace

int main(int argc, char **argv)
{
    restartWithMockPorts(argv);
    const Report report(argc, argv, QStringLiteral("USB adapter"));
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {});
    reportWireFormat(report);
    reportThroughput(report);
    return 0;
}
