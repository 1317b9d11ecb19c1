// SPDX-License-Identifier: MIT
#include "busdesk/desk_texts.h"

#include "busdesk/adapter_desk.h"

#include <BusLinkDesk/factory/can_adapter_factory.h>

namespace buslink {

namespace {

using A = AbstractCanAdapter;

A::CanAdapterType typeOf(const A &adapter)
{
    return A::CanAdapterType(adapter.getCanAdapterOption(A::option_adapterType).toInt());
}

} // namespace

QString busStateText(CAN::CanState state)
{
    switch (state) {
    case CAN::CanStateErrorActive:
        return QStringLiteral("error active");
    case CAN::CanStateErrorPassive:
        return QStringLiteral("error passive");
    case CAN::CanStateBusOff:
        return QStringLiteral("bus off");
    case CAN::CanStateStopped:
        return QStringLiteral("stopped");
    case CAN::CanStateNone:
        break;
    }
    return {};
}

QString statusText(const AdapterStatus &status)
{
    if (!status.problem.isEmpty())
        return status.problem;
    if (status.closing)
        return QStringLiteral("closing");
    if (!status.open)
        return QStringLiteral("closed");
    const QString bus = busStateText(status.busState);
    return bus.isEmpty() ? QStringLiteral("open") : QStringLiteral("open, ") + bus;
}

int toldRate(const A &adapter)
{
    const bool told =
        CanAdapterFactory::isBaudrateChangeable(typeOf(adapter)) && typeOf(adapter) != A::CanAdapterTypeUsb;
    return told ? adapter.getCanAdapterOption(A::option_canBitrateDesc).value<CAN::CANBitrateDesc>().bitrate : 0;
}

QString rateText(const A &adapter)
{
    const A::CanAdapterType type = typeOf(adapter);
    if (type == A::CanAdapterTypeVirtual)
        return QStringLiteral("no rate");
    if (type == A::CanAdapterTypeUsb)
        return QStringLiteral("line: %1 bit/s").arg(adapter.getCanAdapterOption(A::option_baudrate).toUInt());
    if (toldRate(adapter) > 0)
        return QStringLiteral("%1 kbit/s").arg(toldRate(adapter));
    return type == A::CanAdapterTypeSocketCan ? QStringLiteral("set by the system") : QStringLiteral("set elsewhere");
}

} // namespace buslink
