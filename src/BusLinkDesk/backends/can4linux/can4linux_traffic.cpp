// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>

#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/backends/can4linux/can4linux_driver_p.h>
#include <BusLinkDesk/backends/common/readable_wait_p.h>

#include <QtCore/QDebug>

#include <cstdio>

using buslink::relaxedLoad;
using buslink::relaxedStore;
using buslink::WaitResult;

namespace {

constexpr int WaitMs = 1;

} // namespace

// What lasts from one pass of the loop to the next. The payload behind a frame's length, and flags that a frame does
// not tell, are those of the frame before; so is all of a frame whose reading fails.
struct Can4linuxCanAdapter::Reception
{
    buslink::canmsg_t frame;
    CAN::CanRxMessage record;
};

void Can4linuxCanAdapter::run()
{
    mRunningFlag.exchange(true);
    Reception reception;
    while (mRunningFlag.load()) {
        const WaitResult result = buslink::waitUntilReadable(device(), WaitMs);
        if (result == WaitResult::Readable) {
            receiveOne(reception);
        } else if (result == WaitResult::Failed) {
            QThread::usleep(10);
            mRunningFlag.exchange(false);
        }
    }
}

void Can4linuxCanAdapter::receiveOne(Reception &reception)
{
    const int descriptor = device();
    if (descriptor == -1)
        return; // Closed at the end of the wait or since.
    const buslink::canmsg_t &frame = reception.frame;
    if (buslink::readDriverFrame(descriptor, reception.frame) == 0) {
        mRunningFlag.exchange(false);
        return;
    }
    if (frame.id == buslink::StateReportId)
        signalState(frame.flags);
    if (relaxedLoad(mSystemTime))
        setSystemtimestampInCanMsg(reception.record);
    else
        reception.record.timeStamp = buslink::stampOf(frame);
    buslink::takeDriverFrame(frame, reception.record);
    // Closed meanwhile, perhaps by a receiver of the state just announced: nothing more is delivered then.
    if (mRunningFlag.load())
        handleNewCanMessage(reception.record);
}

// More than one of these may be told in one report.
void Can4linuxCanAdapter::signalState(quint32 flags)
{
    if ((flags & buslink::ReportTrouble) == 0)
        setState(CAN::CanStateErrorActive);
    if ((flags & buslink::ReportPassive) != 0)
        setState(CAN::CanStateErrorPassive);
    if ((flags & buslink::ReportBusOff) != 0)
        setState(CAN::CanStateBusOff);
}

void Can4linuxCanAdapter::setState(CAN::CanState state)
{
    const CAN::CanState before = relaxedLoad(mBusState);
    if (state == before)
        return;
    // The record tells the state before the change, whatever its text says: logs are read that way.
    qDebug() << "newState: " << static_cast<int>(before);
    relaxedStore(mBusState, state);
    Q_EMIT newCanState(state, CanTimeStamp());
}

CAN::RetType Can4linuxCanAdapter::write(CAN::CanMessage *message)
{
    if (buslink::writeDriverFrame(device(), buslink::driverFrameOf(*message)) != -1)
        return CAN::RetOk;
    std::perror("write");
    return CAN::RetError;
}
