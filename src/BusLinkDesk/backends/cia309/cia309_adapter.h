// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QList>
#include <QtCore/QPointer>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtNetwork/QTcpSocket>

/// The back end for CiA 309-3 gateways over TCP. It carries text and no frames: the program composes the
/// commands of the gateway's protocol, the adapter numbers them, ends the line and sends it, and hands
/// on whatever comes back as `newCiA309Response`. It neither reads an answer nor matches it to its request,
/// and it waits for none.
///
/// Options with an effect here: `option_ipAddress`, a host name or an address that has to be set, and
/// `option_portNumber`, both read by `open()`.
///
/// It never starts its thread: `isRunning()` is false even while it is connected, `getRunning()` tells
/// whether it is. A lost connection is told by `interfaceError`; nothing reconnects by itself.
///
/// A `newCiA309Response` carries what one read delivered, which may be half a line, a line or several, and
/// only what stands before a zero byte. A character whose bytes come with two reads is lost to U+FFFD.
///
/// *Thread:* everything on the thread that created the adapter, where an event loop has to run: without
/// it nothing is sent or received. A receiver of its signals may close, reopen or terminate it, and after
/// `prepareToTerminate()` delete it, but not within `newCiA309RequestSent`.
class BUSLINKDESK_EXPORT CiA309Adapter : public AbstractCanAdapter
{
    Q_OBJECT

public:
    /// Creates an adapter without a connection, which begins at number 0. `device` has no use here.
    explicit CiA309Adapter(QString device, QObject *parent = nullptr);
    /// Cuts the connection, if there is one.
    ~CiA309Adapter() override;

    using AbstractCanAdapter::setBitrate;
    using AbstractCanAdapter::write;

    /// Connects to the gateway, after cutting a connection that stands.
    /// *Blocks:* up to 5 s, whatever `option_connectTimeout` says, plus the look-up of a host name.
    /// *Fails:* `CAN::RetError` without a connection in that time and after `prepareToTerminate()`; the one
    /// from before is gone then, and there is no `interfaceError`.
    CAN::RetType open() override;
    /// Cuts the connection; requests that the event loop has not sent yet are dropped. The numbers go on
    /// where they are.
    void closeAdapter() override;
    /// Sends a command like `write(QString)` and stores the number under which it went out.
    /// *Fails:* `CAN::RetError` without a connection, and the number is used up all the same.
    /// *Kept on purpose:* where a receiver of `newCiA309RequestSent` sends a command of its own, both go out under
    /// one number, and this one is told the next.
    CAN::RetType write(QString string, short &sequence) override;
    /// *Fails:* always, with `CAN::RetError`: the rate is set by a command.
    CAN::RetType setBitrate(unsigned short bitrate) override;
    /// Does nothing.
    void resetDriver() override;
    /// Returns `CAN::CanStateNone`.
    CAN::CanState getState() override;
    /// Cuts the connection for good: `open()` and `write()` fail from here on.
    void prepareToTerminate() override;
    /// Returns true for `option_isCiA309` and false for every other option.
    QVariant getSpecificCanAdapterOption(AdapterOption option) const override;
    /// Returns the 27 options without a meaning here.
    QList<AdapterOption> getSkippedOptions() const override;

    /// Returns 0 and touches nothing; there is no view of the queues.
    int clearTxQueue();
    /// Returns 0 and touches nothing; there is no view of the queues.
    int clearRxQueue();
    /// Returns 0; there is no view of the queues.
    int getTxQueueCount();
    /// Returns 0; there is no view of the queues.
    int getRxQueueCount();
    /// Returns the line in which the next command would go out if it were `string`: "[number] string\n".
    /// *Kept on purpose:* a "%1" in `string` becomes the number too.
    QString buildString(QString string);
    /// Returns one empty name: a gateway is found by its address alone.
    static QStringList getDeviceList();

public Q_SLOTS:
    /// *Fails:* always, with `CAN::RetError`: a gateway takes commands, not frames. *Thread:* any.
    CAN::RetType write(CAN::CanMessage *pMessage) override;
    /// Sends a command in a numbered line, in UTF-8, and announces the whole line by
    /// `newCiA309RequestSent`. The bytes leave when the event loop runs.
    /// *Fails:* `CAN::RetError` without a connection, and the number is used up all the same.
    /// *Kept on purpose:* the number moves on after the announcement, so a command that a receiver of it
    /// sends directly carries the same one.
    CAN::RetType write(QString string) override;

private Q_SLOTS:
    void socketReadyRead();
    void socketError(QAbstractSocket::SocketError error);
    void socketStateChanged(QAbstractSocket::SocketState newTCPState);

private:
    Q_DECL_HIDDEN void makeSocket();
    Q_DECL_HIDDEN void releaseSocket();
    Q_DECL_HIDDEN bool socketIsEmitting() const;

    QPointer<QTcpSocket> mTcpSocket;
    short mSequenceNumber = 0;
    QAbstractSocket::SocketState mTcpState = QAbstractSocket::UnconnectedState;
};
