// SPDX-License-Identifier: MIT
#include "support/option_rows.h"

#include "support/bitrate_records.h"

#include <QtCore/QDataStream>

using A = AbstractCanAdapter;

#define ROW(option, byDefault)                                                                                         \
    {                                                                                                                  \
        A::option, #option, byDefault                                                                                  \
    }
const OptionRow OptionRows[47] = {
    ROW(option_CANFD, "bool false"),
    ROW(option_adapterType, "int 0"),
    ROW(option_adapterName, "QString null"),
    ROW(option_deviceName, "QString null"),
    ROW(option_adapterFeatures, "uint 0"),
    ROW(option_ipAddress, "QString null"),
    ROW(option_portNumber, "int 45674"),
    ROW(option_toggleComPort, "invalid"),
    ROW(option_flowControl, "int 0"),
    ROW(option_baudrate, "uint 0"),
    ROW(option_parity, "int 0"),
    ROW(option_databits, "int 8"),
    ROW(option_stopbits, "int 1"),
    ROW(option_internExtern, "int 0"),
    ROW(option_reconnectTimeout, "uint 0"),
    ROW(option_connectTimeout, "uint 0"),
    ROW(option_disconnectTimeout, "uint 0"),
    ROW(option_protocol, "int 0"),
    ROW(option_disableSleep, "invalid"),
    ROW(option_toggleDTR, "invalid"),
    ROW(option_toggleRTS, "invalid"),
    ROW(option_peakAdvValues, "AbstractCanAdapter::PeakAdvValues 000000000000000000"),
    ROW(option_Reset, "bool false"),
    ROW(option_halfDuplex, "bool false"),
    ROW(option_canLowSpeed, "bool false"),
    ROW(option_isCiA309, "bool false"),
    ROW(option_autoBusOn, "bool false"),
    ROW(option_errorFrames, "bool false"),
    ROW(option_continuousTimestamp, "bool false"),
    ROW(option_systemTime, "bool false"),
    ROW(option_uniqueId, "int 0"),
    ROW(option_bitrate, "invalid"),
    ROW(option_fdbitrate, "invalid"),
    ROW(option_listenOnly, "bool false"),
    ROW(option_activeAdapter, "bool false"),
    ROW(option_primaryAdapter, "bool false"),
    ROW(option_btrExt, "uint 0"),
    ROW(option_description, "QString null"),
    ROW(option_usdoId, "int 65"),
    ROW(option_systecXm3Values,
        "AbstractCanAdapter::SystecXM3AdvValues 00000000ffffffff0000000000000000000000000000000000"),
    ROW(option_linkedAdapter, "int 0"),
    ROW(option_canClassicBusParams, "CAN::CANClassicBusParameter 0 0 0/0/0/0/0 null 0"),
    ROW(option_canFDBusParams, "CAN::CANFDBusParameter 0 null 0 0/0/0/0/0 0 0"),
    ROW(option_canfdBitrateDesc, "CAN::CANBitrateDesc null 0 0"),
    ROW(option_canBitrateDesc, "CAN::CANBitrateDesc null 0 0"),
    ROW(option_forceEcho, "bool false"),
    ROW(option_lastEnum, "invalid"),
};
#undef ROW

const char *nameOf(A::AdapterOption option)
{
    return OptionRows[option].name;
}

QString told(const QVariant &value)
{
    const int type = value.userType();
    QString content;
    if (type == QMetaType::UnknownType)
        return QStringLiteral("invalid");
    if (type == qMetaTypeId<CAN::CANBitrateDesc>())
        content = described(value.value<CAN::CANBitrateDesc>());
    else if (type == qMetaTypeId<CAN::CANClassicBusParameter>())
        content = described(value.value<CAN::CANClassicBusParameter>());
    else if (type == qMetaTypeId<CAN::CANFDBusParameter>())
        content = described(value.value<CAN::CANFDBusParameter>());
    else if (type == QMetaType::QString)
        content = described(value.toString());
    else if (type < QMetaType::User)
        content = value.toString();
    else {
        QByteArray data;
        QDataStream stream(&data, QIODevice::WriteOnly);
        if (!QMetaType::save(stream, type, value.constData()))
            return QStringLiteral("cannot be told");
        content = QString::fromLatin1(data.toHex());
    }
    return QLatin1String(QMetaType::typeName(type)) + QLatin1Char(' ') + content;
}

QStringList allOptions(const A &adapter)
{
    QStringList all;
    for (const OptionRow &row : OptionRows)
        all.append(told(adapter.getCanAdapterOption(row.option)));
    return all;
}
