// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include <BusLinkDesk/adapter/payload_length_p.h>
#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/backends/common/readable_wait_p.h>
#include <BusLinkDesk/backends/socketcan/retired_sockets_p.h>
#include <BusLinkDesk/backends/socketcan/socket_can_socket_p.h>

#include <sys/time.h>

using buslink::KernelFrame;
using buslink::KernelFrameKind;
using buslink::relaxedLoad;
using buslink::relaxedStore;
using buslink::WaitResult;

namespace {

constexpr int WaitMs = 100;

// How long the first frame after a transmission waits, so that listeners get its echo before it.
constexpr unsigned long EchoLeadMicroseconds = 10'000;

} // namespace

// What the two loops differ in.
struct SocketCanAdapter::FrameFormat
{
    std::size_t bytes;
    KernelFrameKind (*take)(const KernelFrame &frame, qint64 size, CAN::CanMessage &message);
};

void SocketCanAdapter::run()
{
    mRunningFlag.exchange(true);
    if (relaxedLoad(mCanFd))
        run_fd();
    else
        receive({CAN_MTU, &buslink::takeClassicFrame});
}

void SocketCanAdapter::run_fd()
{
    receive({CANFD_MTU, &buslink::takeFdOrClassicFrame});
}

void SocketCanAdapter::receive(const FrameFormat &format)
{
    CAN::CanRxMessage record;
    setState(CAN::CanStateErrorActive);
    while (mRunningFlag.load()) {
        // Between two passes no socket is in use. One that is retired from here on is not closed in this pass.
        buslink::closeRetiredSockets(this);
        const int socket = relaxedLoad(mSocketFd);
        switch (buslink::waitUntilReadable(socket, WaitMs)) {
        case WaitResult::Failed:
            QThread::usleep(10);
            mRunningFlag.exchange(false);
            break;
        case WaitResult::TimedOut:
            break;
        case WaitResult::Readable:
            receiveOne(socket, format, record);
            break;
        }
    }
}

// The record is that of the frame before: payload bytes behind the length stay in it.
void SocketCanAdapter::receiveOne(int socket, const FrameFormat &format, CAN::CanRxMessage &record)
{
    KernelFrame frame;
    const qint64 size = buslink::receiveFrame(socket, format.bytes, frame);
    switch (format.take(frame, size, record.message)) {
    case KernelFrameKind::Bad:
        Q_EMIT interfaceError();
        mRunningFlag.exchange(false);
        return;
    case KernelFrameKind::Error:
        if (const std::optional<CAN::CanState> state = buslink::stateOfErrorFrame(frame))
            setState(*state);
        return;
    case KernelFrameKind::Frame:
        break;
    }
    stamp(record);
    if (relaxedLoad(mFrameJustSent)) {
        QThread::usleep(EchoLeadMicroseconds);
        relaxedStore(mFrameJustSent, false);
    }
    handleNewCanMessage(record);
}

void SocketCanAdapter::stamp(CAN::CanRxMessage &record)
{
    if (relaxedLoad(mSystemTime)) {
        setSystemtimestampInCanMsg(record);
        return;
    }
    timeval now{};
    ::gettimeofday(&now, nullptr);
    record.timeStamp.seconds = static_cast<qint32>(now.tv_sec - mCreationSeconds);
    record.timeStamp.microseconds = static_cast<qint32>(now.tv_usec);
}

CAN::RetType SocketCanAdapter::write(CAN::CanMessage *message)
{
    if (message->isFd)
        message->length = buslink::roundUpToFdLength(message->length);
    std::optional<CAN::CanRxMessage> echo;
    if (relaxedLoad(mEcho)) {
        stamp(echo.emplace());
        echo->message = *message;
    }
    relaxedStore(mFrameJustSent, true);
    const int socket = relaxedLoad(mSocketFd);
    const CAN::RetType result = message->isFd ? buslink::sendFrame(socket, buslink::fdFrameOf(*message))
                                              : buslink::sendFrame(socket, buslink::classicFrameOf(*message));
    if (result == CAN::RetOk && echo)
        handleNewTxCanMessage(*echo);
    return result;
}
