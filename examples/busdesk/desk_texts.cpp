// SPDX-License-Identifier: MIT
#include "busdesk/desk_texts.h"

#include "busdesk/adapter_desk.h"

#include <BusLinkDesk/factory/can_adapter_factory.h>

namespace buslink {

namespace {

using A = AbstractCanAdapter;

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

QString rateText(const A &adapter)
{
    const auto type = A::CanAdapterType(adapter.getCanAdapterOption(A::option_adapterType).toInt());
    const auto rate = adapter.getCanAdapterOption(A::option_canBitrateDesc).value<CAN::CANBitrateDesc>();
    if (type == A::CanAdapterTypeVirtual)
        return QStringLiteral("no rate");
    if (type == A::CanAdapterTypeUsb)
        return QStringLiteral("line: %1 bit/s").arg(adapter.getCanAdapterOption(A::option_baudrate).toUInt());
    if (CanAdapterFactory::isBaudrateChangeable(type) && rate.bitrate > 0)
        return QStringLiteral("%1 kbit/s").arg(rate.bitrate);
    return type == A::CanAdapterTypeSocketCan ? QStringLiteral("set by the system") : QStringLiteral("set elsewhere");
}

} // namespace buslink
