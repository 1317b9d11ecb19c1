// SPDX-License-Identifier: MIT
#include "bussets/adapter_set.h"

#include <BusLinkDesk/factory/can_adapter_factory.h>

namespace buslink {

namespace {

using A = AbstractCanAdapter;

QString text(A *adapter, A::AdapterOption option)
{
    return adapter->getCanAdapterOption(option).toString();
}

} // namespace

QString typeLabel(int type)
{
    const auto types = CanAdapterFactory::getImplementedAdapters();
    for (const auto &[label, number] : types) {
        if (number == type)
            return label;
    }
    return QString::number(type);
}

QString deviceText(AbstractCanAdapter *adapter)
{
    const QString port = text(adapter, A::option_portNumber);
    switch (adapter->getCanAdapterOption(A::option_adapterType).toInt()) {
    case A::CanAdapterTypeVirtual:
        return QStringLiteral("port ") + port;
    case A::CanAdapterTypeCiA309:
        return QStringLiteral("%1:%2").arg(text(adapter, A::option_ipAddress), port);
    default:
        return text(adapter, A::option_deviceName);
    }
}

QString noAdapter(const QString &id)
{
    return QStringLiteral("there is no adapter %1").arg(id);
}

// The handler leaves its adapters alive.
AdapterSet::~AdapterSet()
{
    mHandler.removeAllAdapters();
}

QString AdapterSet::restore(const QVector<SavedAdapter> &saved)
{
    const auto &map = mHandler.getAdapterMap();
    for (const SavedAdapter &one : saved) {
        const unsigned short last = map.isEmpty() ? 0 : map.lastKey();
        mHandler.addAdapterFromByteArray(A::CanAdapterType(one.type), one.device, one.configuration);
        // A set is saved in the order of its identifiers, and none of them is 0.
        if (map.isEmpty() || map.lastKey() <= last)
            return QStringLiteral("adapter %1 cannot be restored").arg(map.size() + 1);
        if (one.bitrate > 0)
            setBusRate(*map.last(), static_cast<unsigned short>(one.bitrate));
    }
    return {};
}

QVector<SavedAdapter> AdapterSet::saved()
{
    QVector<SavedAdapter> saved;
    for (const QPointer<A> &adapter : qAsConst(mHandler.getAdapterMap())) {
        const int type = adapter->getCanAdapterOption(A::option_adapterType).toInt();
        const auto rate = adapter->getCanAdapterOption(A::option_canBitrateDesc).value<CAN::CANBitrateDesc>();
        const bool told = CanAdapterFactory::isBaudrateChangeable(A::CanAdapterType(type));
        saved.append(
            {type, text(adapter, A::option_deviceName), told ? rate.bitrate : 0, adapter->getValuesAsByteArray()});
    }
    return saved;
}

QString AdapterSet::add(AdapterArgument argument, const QString &description)
{
    if (!argument.adapter)
        return argument.error;
    argument.adapter->setCanAdapterOption(A::option_description, description);
    // Adapters that were given a rate never count as equal, so the device is what is looked at. Several virtual
    // adapters may share a bus.
    for (const QPointer<A> &adapter : qAsConst(mHandler.getAdapterMap())) {
        const QVariant type = adapter->getCanAdapterOption(A::option_adapterType);
        if (type != int(A::CanAdapterTypeVirtual)
            && type == argument.adapter->getCanAdapterOption(A::option_adapterType)
            && deviceText(adapter) == deviceText(argument.adapter.get()))
            return QStringLiteral("adapter %1 has the same device").arg(adapter->getId());
    }
    if (mHandler.addNewCanAdapter(argument.adapter.get(), false, true, false) == 0)
        return QStringLiteral("an adapter like that is in the set");
    static_cast<void>(argument.adapter.release());
    return {};
}

QString AdapterSet::missing(unsigned short id)
{
    return mHandler.getAdapter(id) ? QString() : noAdapter(QString::number(id));
}

QString AdapterSet::remove(unsigned short id)
{
    QString error = missing(id);
    if (error.isEmpty())
        mHandler.removeAdapter(id);
    return error;
}

// The handler would let the last one move on and leave a gap behind.
QString AdapterSet::move(unsigned short id, MultiCanAdapterHandler::Direction direction)
{
    QString error = missing(id);
    if (!error.isEmpty())
        return error;
    const bool last = direction != MultiCanAdapterHandler::Up && id == mHandler.getAdapterMap().lastKey();
    if (last || mHandler.moveAdapter(mHandler.getAdapter(id), direction) == 0)
        error = QStringLiteral("adapter %1 cannot be moved further").arg(id);
    return error;
}

QString AdapterSet::makePrimary(unsigned short id)
{
    QString error = missing(id);
    if (error.isEmpty())
        mHandler.setPrimaryAdapterByID(id);
    return error;
}

QString AdapterSet::setActive(unsigned short id, bool active)
{
    QString error = missing(id);
    if (!error.isEmpty())
        return error;
    const int index = static_cast<int>(mHandler.getAdapterMap().keys().indexOf(id));
    switch (mHandler.getAdapter(id)->isActiveAdapter() == active ? 0 : mHandler.couldActiveChanged(index)) {
    case 1:
        return QStringLiteral("another adapter for the same device is active");
    case 2:
        return QStringLiteral("adapter %1 is the primary one").arg(id);
    default:
        mHandler.handleActiveChanged(index, active);
        return {};
    }
}

QStringList AdapterSet::lines()
{
    if (mHandler.getAdapterCount() == 0)
        return {QStringLiteral("no adapters")};
    QStringList lines{QStringLiteral("%1  %2  %3  %4  %5")
                          .arg(QStringLiteral("id"), 5)
                          .arg(QStringLiteral("role"), -7)
                          .arg(QStringLiteral("type"), -14)
                          .arg(QStringLiteral("device"), -20)
                          .arg(QStringLiteral("description"))};
    const auto &map = mHandler.getAdapterMap();
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
        A *const adapter = entry.value();
        const QString role = adapter->isPrimaryAdapter()  ? QStringLiteral("primary")
                             : adapter->isActiveAdapter() ? QStringLiteral("active")
                                                          : QStringLiteral("-");
        lines.append(QStringLiteral("%1  %2  %3  ")
                         .arg(entry.key(), 5)
                         .arg(role, -7)
                         .arg(typeLabel(adapter->getCanAdapterOption(A::option_adapterType).toInt()), -14)
                     + deviceText(adapter).leftJustified(20) + QStringLiteral("  ")
                     + text(adapter, A::option_description));
    }
    return lines;
}

} // namespace buslink
