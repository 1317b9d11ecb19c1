// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>

#include <BusLinkDesk/backends/cia309/gateway_line_p.h>

#include <utility>

namespace {

constexpr int ConnectTimeoutMs = 5000;

/// The connection, which knows whether it is within one of its signals. It has work to finish on itself then,
/// and must neither be deleted nor connected again by who receives what the adapter makes of that signal.
struct GatewaySocket : QTcpSocket
{
    using QTcpSocket::QTcpSocket;

    int signalsAtWork = 0;
};

GatewaySocket *gatewaySocket(QTcpSocket *socket)
{
    return static_cast<GatewaySocket *>(socket);
}

/// Marks a socket as within a signal; it may be gone at the end.
class SignalAtWork
{
public:
    explicit SignalAtWork(QTcpSocket *socket) : mSocket(gatewaySocket(socket))
    {
        if (mSocket)
            ++mSocket->signalsAtWork;
    }
    ~SignalAtWork()
    {
        if (mSocket)
            --mSocket->signalsAtWork;
    }
    Q_DISABLE_COPY_MOVE(SignalAtWork)

private:
    QPointer<GatewaySocket> mSocket;
};

} // namespace

CiA309Adapter::CiA309Adapter(QString, QObject *parent) : AbstractCanAdapter(parent)
{
    makeSocket();
}

CiA309Adapter::~CiA309Adapter() = default;

void CiA309Adapter::makeSocket()
{
    mTcpSocket = new GatewaySocket(this);
    connect(mTcpSocket, &QTcpSocket::readyRead, this, &CiA309Adapter::socketReadyRead);
    connect(mTcpSocket, &QTcpSocket::errorOccurred, this, &CiA309Adapter::socketError);
    connect(mTcpSocket, &QTcpSocket::stateChanged, this, &CiA309Adapter::socketStateChanged);
}

bool CiA309Adapter::socketIsEmitting() const
{
    return mTcpSocket && gatewaySocket(mTcpSocket)->signalsAtWork > 0;
}

// Leaves the socket to end by itself: it may have to outlive this adapter.
void CiA309Adapter::releaseSocket()
{
    mTcpSocket->disconnect(this);
    mTcpSocket->setParent(nullptr);
    mTcpSocket->deleteLater();
    mTcpSocket.clear();
}

CAN::RetType CiA309Adapter::open()
{
    if (!mTcpSocket)
        return CAN::RetError;
    mTcpSocket->abort();
    // A receiver of what that leads to may have ended the adapter.
    if (!mTcpSocket)
        return CAN::RetError;
    if (socketIsEmitting()) {
        releaseSocket();
        makeSocket();
    }
    mTcpSocket->connectToHost(mIpAddress, mPortNumber, QIODevice::ReadWrite, QAbstractSocket::AnyIPProtocol);
    mTcpSocket->waitForConnected(ConnectTimeoutMs);
    const bool connected = mTcpState == QAbstractSocket::ConnectedState;
    mRunningFlag.exchange(connected);
    return connected ? CAN::RetOk : CAN::RetError;
}

void CiA309Adapter::closeAdapter()
{
    if (!mTcpSocket)
        return;
    mTcpSocket->abort();
    if (mTcpSocket)
        mTcpSocket->close();
}

CAN::RetType CiA309Adapter::write(QString string, short &sequence)
{
    CAN::RetType result = CAN::RetError;
    if (mTcpSocket && mTcpSocket->isOpen()) {
        const QString line = buildString(std::move(string));
        if (mTcpSocket->write(line.toUtf8()) != -1) {
            Q_EMIT newCiA309RequestSent(line);
            result = CAN::RetOk;
        }
    }
    sequence = mSequenceNumber;
    mSequenceNumber = buslink::nextGatewayNumber(mSequenceNumber);
    return result;
}

CAN::RetType CiA309Adapter::setBitrate(unsigned short)
{
    return CAN::RetError;
}

void CiA309Adapter::resetDriver() {}

CAN::CanState CiA309Adapter::getState()
{
    return CAN::CanStateNone;
}

void CiA309Adapter::prepareToTerminate()
{
    CiA309Adapter::closeAdapter();
    if (socketIsEmitting())
        releaseSocket();
    else
        delete mTcpSocket.data();
}

QVariant CiA309Adapter::getSpecificCanAdapterOption(AdapterOption option) const
{
    return option == option_isCiA309;
}

QList<AbstractCanAdapter::AdapterOption> CiA309Adapter::getSkippedOptions() const
{
    return {option_CANFD,
            option_toggleComPort,
            option_flowControl,
            option_baudrate,
            option_parity,
            option_databits,
            option_stopbits,
            option_internExtern,
            option_reconnectTimeout,
            option_connectTimeout,
            option_disconnectTimeout,
            option_protocol,
            option_toggleDTR,
            option_toggleRTS,
            option_peakAdvValues,
            option_Reset,
            option_halfDuplex,
            option_canLowSpeed,
            option_isCiA309,
            option_autoBusOn,
            option_errorFrames,
            option_listenOnly,
            option_btrExt,
            option_usdoId,
            option_systecXm3Values,
            option_canClassicBusParams,
            option_canFDBusParams};
}

int CiA309Adapter::clearTxQueue()
{
    return 0;
}

int CiA309Adapter::clearRxQueue()
{
    return 0;
}

int CiA309Adapter::getTxQueueCount()
{
    return 0;
}

int CiA309Adapter::getRxQueueCount()
{
    return 0;
}

QString CiA309Adapter::buildString(QString string)
{
    return buslink::gatewayLine(mSequenceNumber, string);
}

QStringList CiA309Adapter::getDeviceList()
{
    return {QString()};
}

CAN::RetType CiA309Adapter::write(CAN::CanMessage *)
{
    return CAN::RetError;
}

CAN::RetType CiA309Adapter::write(QString string)
{
    short unused = 0;
    return write(std::move(string), unused);
}

void CiA309Adapter::socketReadyRead()
{
    // As a slot it can be called by name on an adapter without a socket.
    if (!mTcpSocket)
        return;
    const SignalAtWork atWork(mTcpSocket);
    Q_EMIT newCiA309Response(buslink::gatewayText(mTcpSocket->readAll()));
}

// A failure shows in the result of an operation or as a change of state.
void CiA309Adapter::socketError(QAbstractSocket::SocketError) {}

void CiA309Adapter::socketStateChanged(QAbstractSocket::SocketState newTCPState)
{
    const QAbstractSocket::SocketState before = std::exchange(mTcpState, newTCPState);
    if (newTCPState != QAbstractSocket::UnconnectedState)
        return;
    mRunningFlag.exchange(false);
    // Only the end of a connection by the peer passes through this state; our own cut and a failed attempt
    // do not. Last, since a receiver may reopen or delete the adapter.
    if (before == QAbstractSocket::ClosingState) {
        const SignalAtWork atWork(mTcpSocket);
        Q_EMIT interfaceError();
    }
}
