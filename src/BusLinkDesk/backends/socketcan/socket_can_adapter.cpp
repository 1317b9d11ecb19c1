// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/backends/socketcan/ip_link_parser_p.h>
#include <BusLinkDesk/backends/socketcan/retired_sockets_p.h>
#include <BusLinkDesk/backends/socketcan/socket_can_socket_p.h>

#include <QtCore/QDebug>

#include <cstdio>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

using buslink::relaxedLoad;
using buslink::relaxedStore;

SocketCanAdapter::SocketCanAdapter(QString name, QObject *parent)
    : AbstractCanAdapter(parent), mDeviceName(name.size() < 2 ? QStringLiteral("can0") : std::move(name))
{
    mRunningFlag.exchange(false);
    timeval now{};
    ::gettimeofday(&now, nullptr);
    mCreationSeconds = static_cast<qint32>(now.tv_sec);
    mEcho = true;
}

SocketCanAdapter::~SocketCanAdapter()
{
    buslink::closeRetiredSockets(this);
    const int socket = relaxedLoad(mSocketFd);
    if (socket < 0)
        return;
    quit();
    relaxedStore(mSocketFd, -1);
    if (::close(socket) < 0)
        std::perror("close");
}

CAN::RetType SocketCanAdapter::open()
{
    const int fresh = ::socket(PF_CAN, SOCK_RAW, CAN_RAW);
    if (fresh < 0)
        std::perror("socket");
    else
        ::fcntl(fresh, F_SETFD, FD_CLOEXEC); // Programs that are started need no copy that keeps it open.
    takeSocket(fresh);
    if (fresh < 0 || !buslink::bindToInterface(mSocketFd, buslink::interfaceOfDevice(mDeviceName).toLocal8Bit()))
        return CAN::RetError;
    if (const std::optional<int> bytes = buslink::enlargeReceiveBuffer(mSocketFd))
        qInfo() << "virtual CAN::RetType SocketCanAdapter::open()"
                << "Line:" << 429 << "rcvbuf_size" << *bytes;
    buslink::requestErrorFrames(mSocketFd);
    start(QThread::InheritPriority);
    return CAN::RetOk;
}

void SocketCanAdapter::takeSocket(int fresh)
{
    if (!isRunning()) {
        buslink::closeRetiredSockets(this);
        buslink::replaceDescriptor(mSocketFd, fresh);
        return;
    }
    // A pass of the loop may be reading from the socket before, so closing that one is left to the loop.
    const int stale = relaxedLoad(mSocketFd);
    relaxedStore(mSocketFd, fresh);
    if (stale >= 0)
        buslink::retireSocket(this, stale);
}

void SocketCanAdapter::closeAdapter()
{
    mRunningFlag.exchange(false);
}

CAN::RetType SocketCanAdapter::setBitrate(unsigned short)
{
    return CAN::RetOk;
}

void SocketCanAdapter::resetDriver() {}

CAN::CanState SocketCanAdapter::getState()
{
    return relaxedLoad(mBusState);
}

void SocketCanAdapter::setState(CAN::CanState state)
{
    const CAN::CanState before = relaxedLoad(mBusState);
    if (state == before)
        return;
    // The record tells the state before the change, whatever its text says: logs are read that way.
    qDebug() << "newState: " << tr("%1").arg(before);
    relaxedStore(mBusState, state);
    Q_EMIT newCanState(state, CanTimeStamp());
}

void SocketCanAdapter::prepareToTerminate()
{
    if (mRunningFlag.exchange(false))
        QThread::msleep(200);
}

QList<AbstractCanAdapter::AdapterOption> SocketCanAdapter::getSkippedOptions() const
{
    return {option_ipAddress,  option_portNumber, option_toggleComPort, option_flowControl,
            option_toggleDTR,  option_toggleRTS,  option_peakAdvValues, option_Reset,
            option_halfDuplex, option_isCiA309,   option_btrExt,        option_systecXm3Values};
}

int SocketCanAdapter::clearTxQueue()
{
    return 0;
}

int SocketCanAdapter::clearRxQueue()
{
    return 0;
}

int SocketCanAdapter::getTxQueueCount()
{
    return 0;
}

int SocketCanAdapter::getRxQueueCount()
{
    return 0;
}

bool SocketCanAdapter::isBaudrateChangeable()
{
    return false;
}
