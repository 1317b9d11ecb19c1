// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/backends/packet_bridge/pxr_fd_types.h>

#include <QtCore/QList>

/// The face of an adapter for a peer that exchanges packets. It has no device, no thread and no echo: what is
/// written leaves as `sigSendCanMessage`, and what the peer hands to `onCanMessageReceived` is
/// delivered as received frames. The program owns the transport and makes both connections.
///
/// It works from construction on; `open()` is not needed and `closeAdapter()` stops nothing. Of the
/// options only `option_uniqueId` has an effect here. The factory does not know the class.
///
/// *Thread:* each direction on the thread that calls it, with nothing shared between the two.
class BUSLINKDESK_EXPORT PXRDummyAdapter : public AbstractCanAdapter
{
    Q_OBJECT

public:
    /// Creates a bridge that is ready for use.
    explicit PXRDummyAdapter(QObject *parent = nullptr);
    /// Releases the fields.
    ~PXRDummyAdapter() override;

    using AbstractCanAdapter::setBitrate;
    using AbstractCanAdapter::write;

    /// Does nothing, and `getRunning()` stays false. Returns `CAN::RetOk`.
    CAN::RetType open() override;
    /// Does nothing: frames pass as before.
    void closeAdapter() override;
    /// Drops the rate. Returns `CAN::RetOk`.
    CAN::RetType setBitrate(unsigned short bitrate) override;
    /// Does nothing.
    void resetDriver() override;
    /// Returns `CAN::CanStateNone`.
    CAN::CanState getState() override;
    /// Does nothing.
    void prepareToTerminate() override;

    /// Returns the packet of a frame, stamped with the time of the call. `dlc` is that of the smallest frame
    /// that holds the payload, while the length stays as it is; one above 64 has `dlc` 0xFF and 64 bytes
    /// of payload. *Thread:* any.
    /// *Kept on purpose:* `isRtr` has no place in a packet, so a remote frame becomes a data frame.
    PxrFdTypes::UnionPacket::StructCanMsg convertCanMessage(CAN::CanMessage const &message);

Q_SIGNALS:
    /// A frame was written. The packet lives only as long as the call: connect directly and copy it.
    void sigSendCanMessage(PxrFdTypes::UnionPacket::StructCanMsg &stcCanMsg);

public Q_SLOTS:
    /// Converts the frame and emits `sigSendCanMessage` on the caller's thread. Returns `CAN::RetOk`, heard
    /// or not. *Thread:* any.
    CAN::RetType write(CAN::CanMessage *pMessage) override;
    /// Delivers the CAN frames among the packets, in order, on the caller's thread; packets of other types are
    /// skipped. Stamps are those of the packets, whatever `option_systemTime` says. *Thread:* any.
    /// *Kept on purpose:* every CAN FD frame has `isBrs`. The packets of one call fill the same record, so
    /// that a classic frame behind a CAN FD frame has the flags of that one. A length above 64 is
    /// delivered as it is, cut to 8 bits.
    void onCanMessageReceived(const QList<PxrFdTypes::UnionPacket> &packets);

private:
    qint64 mCreationSeconds;
};
