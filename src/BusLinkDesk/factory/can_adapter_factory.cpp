// SPDX-License-Identifier: MIT
#include <BusLinkDesk/factory/can_adapter_factory.h>

#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>

#include <algorithm>
#include <utility>

using A = AbstractCanAdapter;
using Type = A::CanAdapterType;
using Rates = QList<CAN::CANBitrateDesc>;
using Devices = QMap<QString, unsigned int>;

QList<Type> CanAdapterFactory::allowedAdapters;

namespace {

template <typename Adapter>
AbstractCanAdapter *make(const QString &device)
{
    return new Adapter(device, nullptr);
}

AbstractCanAdapter *makeNone(const QString &)
{
    return nullptr;
}

Devices named(const QStringList &names)
{
    Devices devices;
    for (const QString &name : names)
        devices.insert(name, 0x80000000U);
    return devices;
}

Devices noDevices()
{
    return {};
}

Devices socketCanDevices()
{
    return named(SocketCanAdapter::getDeviceList(CanAdapterFactory::allowedAdapters));
}

Devices can4linuxDevices()
{
    return named(Can4linuxCanAdapter::getDeviceList());
}

Devices gatewayDevices()
{
    return named(CiA309Adapter::getDeviceList());
}

Rates noRates(bool)
{
    return {};
}

bool no()
{
    return false;
}

bool yes()
{
    return true;
}

/// What is known of a type; the order of those with a label is the one in which they are offered.
struct Row
{
    const char *label; ///< Null for a type without a back end.
    AbstractCanAdapter *(*create)(const QString &device);
    Devices (*devices)();
    Rates (*rates)(bool shortList);
    bool (*rateChangeable)();
    Type type;
    bool timingSettable;
    bool furtherSettings;
    bool fd;
};

// clang-format off
const Row rows[] = {
    {"SocketCAN", &make<SocketCanAdapter>, &socketCanDevices, &A::getSupportedBitrates,
     &SocketCanAdapter::isBaudrateChangeable, A::CanAdapterTypeSocketCan, false, false, true},
    {"can4linux", &make<Can4linuxCanAdapter>, &can4linuxDevices, &Can4linuxCanAdapter::getSupportedBitrates,
     &Can4linuxCanAdapter::isBaudrateChangeable, A::CanAdapterTypeCan4linux, false, true, true},
    {"CiA 309-3", &make<CiA309Adapter>, &gatewayDevices, &A::getSupportedBitrates,
     &yes, A::CanAdapterTypeCiA309, false, true, false},
    {"zorbek USB", &make<ZorbekUSBCanAdapter>, &ZorbekUSBCanAdapter::getAdvDeviceList, &noRates,
     &serialPortAdapter::isBaudrateChangeable, A::CanAdapterTypeUsb, false, true, false},
    {"zorbek Virtual", &make<DemoCanAdapter>, &DemoCanAdapter::getAdvDeviceList, &noRates,
     &DemoCanAdapter::isBaudrateChangeable, A::CanAdapterTypeVirtual, false, true, true},
    // Devices that programs know by number without a back end here.
    {nullptr, &makeNone, &noDevices, &noRates, &no, Type(9), true, false, false},
    {nullptr, &makeNone, &noDevices, &noRates, &no, Type(16), true, false, false},
    {nullptr, &makeNone, &noDevices, &noRates, &no, Type(17), true, false, false},
};
// clang-format on

const Row &rowOf(Type type)
{
    static const Row none{nullptr, &makeNone, &noDevices, &noRates, &no, Type(0), false, false, false};
    const Row *const row =
        std::find_if(std::begin(rows), std::end(rows), [type](const Row &one) { return one.type == type; });
    return row == std::end(rows) ? none : *row;
}

bool isAllowed(Type type)
{
    return CanAdapterFactory::allowedAdapters.isEmpty() || CanAdapterFactory::allowedAdapters.contains(type);
}

} // namespace

CanAdapterFactory::CanAdapterFactory() = default;

AbstractCanAdapter *CanAdapterFactory::createCanAdapter(Type type, QString deviceName)
{
    if (!isAllowed(type))
        return nullptr;
    AbstractCanAdapter *const adapter = rowOf(type).create(deviceName);
    if (adapter)
        adapter->setCanAdapterOption(AbstractCanAdapter::option_adapterType, static_cast<int>(type));
    return adapter;
}

void CanAdapterFactory::addAllowedAdapters(Type type)
{
    allowedAdapters.append(type);
}

QList<QPair<QString, Type>> CanAdapterFactory::getImplementedAdapters()
{
    if (!allowedAdapters.isEmpty())
        allowedAdapters.append(AbstractCanAdapter::CanAdapterTypeSocketCan);
    QList<QPair<QString, Type>> offered;
    for (const Row &row : rows) {
        if (row.label && isAllowed(row.type))
            offered.append({QString::fromLatin1(row.label), row.type});
    }
    return offered;
}

Devices CanAdapterFactory::getAdvInterfaceList(Type type)
{
    return isAllowed(type) ? rowOf(type).devices() : Devices();
}

Rates CanAdapterFactory::getSupportedBitrates(Type type, bool shortList)
{
    return rowOf(type).rates(shortList);
}

Rates CanAdapterFactory::getSupportedFDBitrates(Type type)
{
    Q_UNUSED(type)
    return {};
}

bool CanAdapterFactory::isBaudrateChangeable(Type type)
{
    return rowOf(type).rateChangeable();
}

bool CanAdapterFactory::isCANFDBaudrateSettingAvailable(Type type)
{
    return rowOf(type).timingSettable;
}

bool CanAdapterFactory::isCANClassicBaudrateSettingAvailable(Type type)
{
    return rowOf(type).timingSettable;
}

bool CanAdapterFactory::isAdditionalConfigAvailable(Type type)
{
    return rowOf(type).furtherSettings;
}

bool CanAdapterFactory::canDisableAutoBusOn(Type type, QString device)
{
    Q_UNUSED(type)
    Q_UNUSED(device)
    return false;
}

bool CanAdapterFactory::isInterfaceLowSpeed(Type type, QString device)
{
    Q_UNUSED(type)
    Q_UNUSED(device)
    return false;
}

bool CanAdapterFactory::isInterfaceFd(Type type, QString device)
{
    Q_UNUSED(device)
    return rowOf(type).fd;
}

bool CanAdapterFactory::checkDriverVersion(Type type, QString &installed, QString &required)
{
    Q_UNUSED(type)
    Q_UNUSED(installed)
    Q_UNUSED(required)
    return false;
}

AbstractCanAdapter::SocketCANProps CanAdapterFactory::getSocketCanProps(QString device)
{
    return SocketCanAdapter::getSocketCanProps(std::move(device));
}

QString CanAdapterFactory::getSocketCanBitrate(QString device)
{
    return SocketCanAdapter::getBitrateOfDevice(std::move(device));
}
