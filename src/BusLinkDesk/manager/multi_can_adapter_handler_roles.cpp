// SPDX-License-Identifier: MIT
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

#include <BusLinkDesk/manager/adapter_set_p.h>

namespace {

void setActive(AbstractCanAdapter &adapter, bool active)
{
    adapter.setCanAdapterOption(AbstractCanAdapter::option_activeAdapter, active);
}

bool isVirtual(const AbstractCanAdapter &adapter)
{
    return adapter.getCanAdapterOption(AbstractCanAdapter::option_adapterType).toInt()
           == AbstractCanAdapter::CanAdapterTypeVirtual;
}

bool sameOption(const AbstractCanAdapter &left, const AbstractCanAdapter &right,
                AbstractCanAdapter::AdapterOption option)
{
    return left.getCanAdapterOption(option) == right.getCanAdapterOption(option);
}

bool isOtherOnSameDevice(const AbstractCanAdapter &other, const AbstractCanAdapter &adapter)
{
    return &other != &adapter && sameOption(other, adapter, AbstractCanAdapter::option_adapterType)
           && sameOption(other, adapter, AbstractCanAdapter::option_deviceName);
}

} // namespace

unsigned short MultiCanAdapterHandler::getActiveAdapterCount()
{
    unsigned short count = 0;
    buslink::forEachLive(mAdapters, [&count](AbstractCanAdapter &adapter) {
        if (adapter.isActiveAdapter())
            ++count;
    });
    return count;
}

AbstractCanAdapter *MultiCanAdapterHandler::getPrimaryAdapter()
{
    return buslink::firstLive(mAdapters, [](AbstractCanAdapter &adapter) { return adapter.isPrimaryAdapter(); });
}

bool MultiCanAdapterHandler::getOnlyDemoInActiveAdapterList()
{
    return !buslink::firstLive(
        mAdapters, [](AbstractCanAdapter &adapter) { return adapter.isActiveAdapter() && !isVirtual(adapter); });
}

void MultiCanAdapterHandler::setPrimaryBitrate(unsigned short bitrate)
{
    AbstractCanAdapter *primary = getPrimaryAdapter();
    if (!primary)
        return;
    CAN::CANBitrateDesc description;
    description.label = QStringLiteral("%1 kbit/s").arg(bitrate);
    description.bitrate = bitrate;
    primary->setCanAdapterOption(AbstractCanAdapter::option_canBitrateDesc, QVariant::fromValue(description));
}

void MultiCanAdapterHandler::setPrimaryAdapterByID(unsigned short id)
{
    unsetPrimaryAdapter();
    if (AbstractCanAdapter *adapter = getAdapter(id))
        buslink::makePrimaryAndActive(*adapter);
}

void MultiCanAdapterHandler::unsetAllActiveAdapters()
{
    buslink::forEachLive(mAdapters, [](AbstractCanAdapter &adapter) { setActive(adapter, false); });
}

void MultiCanAdapterHandler::unsetActiveAtSameAdapters(AbstractCanAdapter *adapter)
{
    if (!adapter)
        return;
    buslink::forEachLive(mAdapters, [adapter](AbstractCanAdapter &other) {
        if (isOtherOnSameDevice(other, *adapter))
            setActive(other, false);
    });
}

void MultiCanAdapterHandler::toggleConnection(bool connect)
{
    buslink::forEachLive(mAdapters, [connect](AbstractCanAdapter &adapter) {
        if (!connect)
            adapter.closeAdapter();
        else if (adapter.isActiveAdapter())
            adapter.open();
    });
}

void MultiCanAdapterHandler::handleActiveChanged(int index, bool active)
{
    if (AbstractCanAdapter *adapter = adapterAt(static_cast<unsigned short>(index)))
        setActive(*adapter, active);
}

void MultiCanAdapterHandler::handlePrimaryChanged(int index, bool primary)
{
    AbstractCanAdapter *adapter = adapterAt(static_cast<unsigned short>(index));
    if (!adapter)
        return;
    if (primary) {
        unsetPrimaryAdapter();
        unsetAllActiveAdapters();
        setActive(*adapter, true);
    }
    adapter->setCanAdapterOption(AbstractCanAdapter::option_primaryAdapter, primary);
}

int MultiCanAdapterHandler::couldActiveChanged(int index)
{
    constexpr int mayChange = 0;
    constexpr int sharesItsDevice = 1;
    constexpr int isPrimary = 2;

    AbstractCanAdapter *adapter = adapterAt(static_cast<unsigned short>(index));
    if (!adapter)
        return mayChange;
    if (adapter->isPrimaryAdapter())
        return isPrimary;
    if (isVirtual(*adapter))
        return mayChange;
    const AbstractCanAdapter *rival = buslink::firstLive(mAdapters, [adapter](AbstractCanAdapter &other) {
        return other.isActiveAdapter() && isOtherOnSameDevice(other, *adapter);
    });
    return rival ? sharesItsDevice : mayChange;
}
