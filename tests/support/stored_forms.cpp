// SPDX-License-Identifier: MIT
#include "support/stored_forms.h"

#include "support/bitrate_records.h"
#include "support/fake_adapter.h"
#include "support/hex.h"
#include "support/option_rows.h"

using A = AbstractCanAdapter;

// A value is its type number (0 invalid, 1 bool, 2 int, 3 unsigned, 10 text, 1024 a type by name), a null
// flag, for a type by name the name's length and characters with their 0, and what the type streams.
// clang-format off
#define INVALID         "00000000 01"
#define PEAK_NAME       "00000400 00 00000022 416273747261637443616E416461707465723A3A5065616B41647656616C75657300"
#define SYSTEC_NAME     "00000400 00 00000027 416273747261637443616E416461707465723A3A537973746563584D3341647656616C75657300"
#define CLASSIC_NAME    "00000400 00 0000001C 43414E3A3A43414E436C6173736963427573506172616D6574657200"
#define FD_NAME         "00000400 00 00000017 43414E3A3A43414E4644427573506172616D6574657200"
#define DESCRIPTOR_NAME "00000400 00 00000014 43414E3A3A43414E426974726174654465736300"

const char *const StoredDescriptor = DESCRIPTOR_NAME;

const StoredForm DefaultForm{{
    "00000001 00 00",                           // 0 CANFD
    "00000002 00 00000000",                     // 1 adapterType
    "0000000A 00 FFFFFFFF",                     // 2 adapterName, a null text
    "0000000A 00 FFFFFFFF",                     // 3 deviceName
    "00000003 00 00000000",                     // 4 adapterFeatures
    "0000000A 00 FFFFFFFF",                     // 5 ipAddress
    "00000002 00 0000B26A",                     // 6 portNumber 45674
    INVALID,                                    // 7 toggleComPort
    "00000002 00 00000000",                     // 8 flowControl
    "00000003 00 00000000",                     // 9 baudrate
    "00000002 00 00000000",                     // 10 parity
    "00000002 00 00000008",                     // 11 databits
    "00000002 00 00000001",                     // 12 stopbits
    "00000002 00 00000000",                     // 13 internExtern
    "00000003 00 00000000",                     // 14 reconnectTimeout
    "00000003 00 00000000",                     // 15 connectTimeout
    "00000003 00 00000000",                     // 16 disconnectTimeout
    "00000002 00 00000000",                     // 17 protocol
    INVALID,                                    // 18 disableSleep
    INVALID,                                    // 19 toggleDTR
    INVALID,                                    // 20 toggleRTS
    PEAK_NAME "00000000 00 00 00 00 00",        // 21 peakAdvValues: value, param0, param3, param1, param2, enabled
    "00000001 00 00",                           // 22 Reset
    "00000001 00 00",                           // 23 halfDuplex
    "00000001 00 00",                           // 24 canLowSpeed
    "00000001 00 00",                           // 25 isCiA309
    "00000001 00 00",                           // 26 autoBusOn
    "00000001 00 00",                           // 27 errorFrames
    "00000001 00 00",                           // 28 continuousTimestamp
    "00000001 00 00",                           // 29 systemTime
    "00000002 00 00000000",                     // 30 uniqueId
    INVALID,                                    // 31 bitrate
    INVALID,                                    // 32 fdbitrate
    "00000001 00 00",                           // 33 listenOnly
    "00000001 00 00",                           // 34 activeAdapter
    "00000001 00 00",                           // 35 primaryAdapter
    "00000003 00 00000000",                     // 36 btrExt
    "0000000A 00 FFFFFFFF",                     // 37 description
    "00000002 00 00000041",                     // 38 usdoId 65
    SYSTEC_NAME "00000000 FFFFFFFF 00"          // 39 systecXm3Values: param5, param4, flag,
                "00000000 00000000 00000000 00000000", //  param0 to param3
    "00000002 00 00000000",                     // 40 linkedAdapter
    CLASSIC_NAME "43434250 0001 00000000"       // 41 canClassicBusParams: magic, version, busValue,
                 "0000 0000 0000 FFFFFFFF 00"   //    sjw, tSeg1, tSeg2, busText, busFlag,
                 "0000000000000000 0000",       //    busRatio, prescaler
    FD_NAME "43434250 0001 00000000"            // 42 canFDBusParams: magic, version, busValue,
            "0000 0000 0000 0000 FFFFFFFF 00"   //    prescaler, sjw, tSeg1, tSeg2, busText, busFlag,
            "00 0000000000000000",              //    busOffset, busRatio
    DESCRIPTOR_NAME,                            // 43 canfdBitrateDesc
    DESCRIPTOR_NAME,                            // 44 canBitrateDesc
    "00000001 00 00",                           // 45 forceEcho
}};

const StoredForm FullForm{{
    "00000001 00 01",
    "00000002 00 0000000F",                     // 1 adapterType 15
    "0000000A 00 00000006 0055 0053 0042",      // 2 adapterName "USB"
    "0000000A 00 00000008 0074 0074 0079 0030", // 3 deviceName "tty0"
    "00000003 00 89ABCDEF",                     // 4 adapterFeatures
    "0000000A 00 00000006 003A 003A 0031",      // 5 ipAddress "::1"
    "00000002 00 00001267",                     // 6 portNumber 4711
    INVALID,
    "00000002 00 00000001",                     // 8 flowControl
    "00000003 00 0001C200",                     // 9 baudrate 115200
    "00000002 00 00000002",                     // 10 parity even, set as 1
    "00000002 00 00000007",                     // 11 databits
    "00000002 00 00000002",                     // 12 stopbits
    "00000002 00 000000C8",                     // 13 internExtern 200
    "00000003 00 01020304",                     // 14 reconnectTimeout
    "00000003 00 11121314",                     // 15 connectTimeout
    "00000003 00 21222324",                     // 16 disconnectTimeout
    "00000002 00 000000FE",                     // 17 protocol
    INVALID,
    INVALID,
    INVALID,
    PEAK_NAME "31323334 41 44 FE 43 01",        // 21 peakAdvValues: param1 is -2
    "00000001 00 01",
    "00000001 00 01",
    "00000001 00 01",
    "00000001 00 00",                           // 25 isCiA309 cannot be set
    "00000001 00 01",
    "00000001 00 01",
    "00000001 00 01",
    "00000001 00 01",
    "00000002 00 0000ABCD",                     // 30 uniqueId
    INVALID,
    INVALID,
    "00000001 00 01",
    "00000001 00 01",
    "00000001 00 01",
    "00000003 00 DEADBEEF",                     // 36 btrExt
    "0000000A 00 00000004 00C4 20AC",           // 37 description: A umlaut, euro sign
    "00000002 00 0000007F",                     // 38 usdoId
    SYSTEC_NAME "FFFFFFFA 05060708 FD"          // 39 systecXm3Values: param5 is -6, flag -3
                "51525354 61626364 71727374 01010101",
    "00000002 00 00001234",                     // 40 linkedAdapter
    CLASSIC_NAME "43434250 0001 FEDCBA98"       // 41 canClassicBusParams
                 "0004 000D 0002 00000004 0041 20AC 01"
                 "3FEC000000000000 0102",
    FD_NAME "43434250 0001 01234567"            // 42 canFDBusParams
            "0102 0004 000D 0002 00000004 0041 20AC 01"
            "FE BFF8000000000000",
    DESCRIPTOR_NAME,                            // 43 although there is a rate
    DESCRIPTOR_NAME,                            // 44 likewise
    "00000001 00 01",
}};
// clang-format on

void configureFully(AbstractCanAdapter &adapter)
{
    for (const A::AdapterOption flag :
         {A::option_CANFD, A::option_flowControl, A::option_disableSleep, A::option_Reset, A::option_halfDuplex,
          A::option_canLowSpeed, A::option_autoBusOn, A::option_errorFrames, A::option_continuousTimestamp,
          A::option_systemTime, A::option_listenOnly, A::option_activeAdapter, A::option_primaryAdapter,
          A::option_forceEcho})
        adapter.setCanAdapterOption(flag, true);
    const QList<QPair<A::AdapterOption, QVariant>> values{
        {A::option_adapterType, 15},
        {A::option_adapterName, QStringLiteral("USB")},
        {A::option_deviceName, QStringLiteral("tty0")},
        {A::option_adapterFeatures, 0x89ABCDEFU},
        {A::option_ipAddress, QStringLiteral("::1")},
        {A::option_portNumber, 4711},
        {A::option_baudrate, 115200},
        {A::option_parity, 1},
        {A::option_databits, 7},
        {A::option_stopbits, 2},
        {A::option_internExtern, 200},
        {A::option_reconnectTimeout, 0x01020304},
        {A::option_connectTimeout, 0x11121314},
        {A::option_disconnectTimeout, 0x21222324},
        {A::option_protocol, 0xFE},
        {A::option_peakAdvValues, QVariant::fromValue(A::PeakAdvValues{true, 0x31323334, 0x41, -2, 0x43, 0x44})},
        {A::option_uniqueId, 0xABCD},
        {A::option_bitrate, 500},
        {A::option_fdbitrate, 2000},
        {A::option_btrExt, 0xDEADBEEFU},
        {A::option_description, QStringLiteral("\u00C4\u20AC")},
        {A::option_usdoId, 0x7F},
        {A::option_systecXm3Values, QVariant::fromValue(A::SystecXM3AdvValues{-3, 0x51525354, 0x61626364, 0x71727374,
                                                                              0x01010101, 0x05060708, -6})},
        {A::option_linkedAdapter, 0x1234},
        {A::option_canClassicBusParams, QVariant::fromValue(classicRecord())},
        {A::option_canFDBusParams, QVariant::fromValue(fdRecord())},
    };
    for (const auto &[option, value] : values)
        adapter.setCanAdapterOption(option, value);
}

QStringList valuesOfFullForm()
{
    FakeAdapter configured;
    configureFully(configured);
    QStringList values = allOptions(configured);
    CAN::CANClassicBusParameter classic = classicRecord();
    CAN::CANFDBusParameter fd = fdRecord();
    classic.timing.valid = fd.timing.valid = false;
    values[A::option_parity] = QStringLiteral("int 3");
    values[A::option_canClassicBusParams] = told(QVariant::fromValue(classic));
    values[A::option_canFDBusParams] = told(QVariant::fromValue(fd));
    values[A::option_canfdBitrateDesc] = told(QVariant::fromValue(CAN::CANBitrateDesc()));
    return values;
}

QByteArray joined(const StoredForm &form)
{
    QByteArray data;
    for (const char *position : form)
        data += hex(position);
    return data;
}
