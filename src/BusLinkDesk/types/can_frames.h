// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/export.h>

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QString>

/// When a frame was seen. The epoch depends on the adapter and its options, so two stamps compare
/// only when they come from the same adapter.
struct BUSFOUNDATION_EXPORT CanTimeStamp
{
    /// Creates the stamp 0.000000.
    CanTimeStamp();

    qint32 seconds;      ///< Whole seconds since the epoch of the source.
    qint32 microseconds; ///< Microseconds within the second, 0 to 999,999.
};

/// Frames, states and return codes of the bus.
namespace CAN {
Q_NAMESPACE_EXPORT(BUSFOUNDATION_EXPORT)

/// State of the bus as an adapter reports it.
enum CanState : qint32 {
    CanStateNone = 0,         ///< The adapter keeps no bus state.
    CanStateErrorActive = 1,  ///< The bus runs and the controller is error active.
    CanStateErrorPassive = 2, ///< The controller is error passive.
    CanStateBusOff = 3,       ///< The controller is bus off.
    CanStateStopped = 4,      ///< The adapter is stopped and has no bus.
};
Q_ENUM_NS(CanState)

/// Result of an operation that can fail. The numbers between the values are not assigned.
enum RetType : qint32 {
    RetOk = 0,                 ///< Done, or accepted for transmission.
    RetDriverConfigFailed = 3, ///< The driver refused a bit-rate setting.
    RetError = 6,              ///< Failed, or not provided by this adapter.
    RetTxBufferFull = 9,       ///< The transmit buffer of the interface is full; the frame was not sent.
};
Q_ENUM_NS(RetType)

/// One CAN or CAN FD frame: 76 bytes, trivially copyable. The virtual bus sends these bytes as they
/// stand, so every one of them is a named field and has a value from construction on.
struct BUSFOUNDATION_EXPORT CanMessage
{
    /// Creates a classic data frame with identifier 0 and no payload; all 76 bytes are zero.
    CanMessage();

    quint32 id;      ///< Identifier, 11 or 29 bits, without flag bits.
    quint8 length;   ///< Payload length in bytes (no DLC): 0 to 8, CAN FD 0 to 64; requested length of a remote frame.
    quint8 data[64]; ///< Payload; the first `length` bytes count.
    bool isRtr;      ///< Remote frame.
    bool isExtended; ///< 29-bit identifier.
    bool isFd;       ///< CAN FD frame.
    bool isEsi;      ///< Error state indicator of a CAN FD frame.
    bool isBrs;      ///< Bit-rate switch of a CAN FD frame.
    quint8 reservedFlag; ///< Not used by name; travels with the record.
    quint8 fillByte;     ///< Fills the record to a multiple of four bytes; travels with the record.
};

/// One delivered frame: received from the bus, or the echo of a transmitted one. Trivially copyable, with
/// a name for every byte, so that records in a QVariant, which compares bytes, are equal when they look it.
struct BUSFOUNDATION_EXPORT CanRxMessage
{
    /// Creates a record that counts as received, with a default frame and the stamp 0.000000.
    CanRxMessage();

    CanTimeStamp timeStamp; ///< When the frame was seen.
    CanMessage message;     ///< The frame.
    bool isTx;              ///< True for the echo of a frame that this side transmitted.
    quint8 fillBytes[3];    ///< Zero.
    quint32 packetWord;     ///< Carried over from the packet of a packet bridge; 0 from all other adapters.
    quint16 adapterId;      ///< Unique id of the adapter that delivered the frame.
    quint8 endBytes[2];     ///< Zero.
};

} // namespace CAN

Q_DECLARE_METATYPE(CanTimeStamp)
Q_DECLARE_METATYPE(CAN::CanRxMessage)

/// Texts for the error codes that displays of error frames use. Each translation unit has its own copy.
static const QMap<quint8, QString> canErrorTexts{
    {1, QStringLiteral("Stuff error")},          {2, QStringLiteral("Form error")},
    {3, QStringLiteral("Acknowledgment error")}, {4, QStringLiteral("Bit error")},
    {5, QStringLiteral("Fast data bit error")},  {6, QStringLiteral("CRC error")},
    {7, QStringLiteral("Data length error")},    {8, QStringLiteral("unspecified error")},
};

/// The CAN FD payload lengths above 8 bytes, ascending. Each translation unit has its own copy.
static const QList<quint8> canFdLengths{12, 16, 20, 24, 32, 48, 64};

namespace CAN {
using ::canErrorTexts;
using ::canFdLengths;
} // namespace CAN
