// SPDX-License-Identifier: MIT
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

#include <BusLinkDesk/factory/can_adapter_factory.h>
#include <BusLinkDesk/manager/adapter_set_p.h>

#include <QtCore/QDeadlineTimer>

#include <iterator>
#include <limits>
#include <utility>

namespace {

constexpr unsigned long StopAgainMs = 1000;
constexpr int MaxIdentifiers = std::numeric_limits<unsigned short>::max() + 1;

void storeId(AbstractCanAdapter &adapter, unsigned short id)
{
    adapter.setCanAdapterOption(AbstractCanAdapter::option_uniqueId, id);
}

// A receive loop sets its own flag when it begins, and a stop before that is not heard. Where an open was
// only just made, the stop waits for it; bounded, since not every thread has such a flag.
void waitForTheLoopToBegin(const AbstractCanAdapter &adapter)
{
    const QDeadlineTimer deadline(1000);
    while (adapter.isRunning() && !adapter.getRunning() && !deadline.hasExpired())
        QThread::msleep(1);
}

// The adapter's virtual operations must still be there while its thread ends, so waiting cannot be left
// to a destructor. The state that it announces meanwhile may lead a receiver to remove or replace it.
void stopAndDelete(const QPointer<AbstractCanAdapter> &adapter)
{
    waitForTheLoopToBegin(*adapter);
    adapter->prepareToTerminate();
    // A loop that was slower still has set its flag again.
    while (adapter && !adapter->wait(StopAgainMs)) {
        if (adapter->getRunning())
            adapter->closeAdapter();
    }
    delete adapter.data();
}

} // namespace

MultiCanAdapterHandler::MultiCanAdapterHandler(QObject *parent) : QObject(parent) {}

MultiCanAdapterHandler::~MultiCanAdapterHandler() = default;

unsigned short MultiCanAdapterHandler::addNewCanAdapter(AbstractCanAdapter *adapter, bool keepId, bool checkDuplicate,
                                                        bool makePrimary)
{
    if (!adapter)
        return 0;
    AbstractCanAdapter *twin = nullptr;
    if (checkDuplicate)
        twin = buslink::firstLive(mAdapters, [adapter](AbstractCanAdapter &entry) { return entry == *adapter; });
    // Without a free identifier the new adapter would push out the one under 0.
    if (!twin && !keepId && mAdapters.size() == MaxIdentifiers)
        return 0;
    if (makePrimary) {
        unsetPrimaryAdapter();
        (twin ? twin : adapter)->setCanAdapterOption(AbstractCanAdapter::option_primaryAdapter, true);
    }
    if (twin)
        return 0;

    if (!keepId)
        storeId(*adapter, createUniqueIdForAdapter());
    const unsigned short id = adapter->getId();
    if (adapter->isPrimaryAdapter())
        unsetPrimaryAdapter();
    if (mAdapters.isEmpty() && !keepId)
        buslink::makePrimaryAndActive(*adapter);
    mAdapters.insert(id, adapter);
    Q_EMIT adapterMapChanged();
    return id;
}

void MultiCanAdapterHandler::addAdapterFromByteArray(AbstractCanAdapter::CanAdapterType type, QString name,
                                                     QByteArray data)
{
    AbstractCanAdapter *const adapter = CanAdapterFactory::createCanAdapter(type, std::move(name));
    if (!adapter)
        return;
    adapter->setValuesFromByteArray(std::move(data));
    addNewCanAdapter(adapter, true, false, false);
}

void MultiCanAdapterHandler::updateAdapter(unsigned short id, AbstractCanAdapter *adapter)
{
    if (!adapter)
        return;
    storeId(*adapter, id);
    AbstractCanAdapter *old = getAdapter(id);
    if (old && old != adapter) {
        mAdapters.remove(id);
        delete old;
    }
    mAdapters.insert(id, adapter);
    Q_EMIT adapterMapChanged();
}

// Not one that was put there while the old adapter was being stopped.
void MultiCanAdapterHandler::dropDeadEntry(unsigned short id)
{
    if (!getAdapter(id))
        mAdapters.remove(id);
}

void MultiCanAdapterHandler::removeAdapter(unsigned short id)
{
    AbstractCanAdapter *adapter = getAdapter(id);
    const bool wasPrimary = adapter && adapter->isPrimaryAdapter();
    if (adapter)
        stopAndDelete(QPointer<AbstractCanAdapter>(adapter));
    dropDeadEntry(id);
    if (wasPrimary) {
        AbstractCanAdapter *heir = buslink::firstLive(mAdapters, [](AbstractCanAdapter &) { return true; });
        if (heir)
            buslink::makePrimaryAndActive(*heir);
    }
    Q_EMIT adapterRemoved(id);
}

void MultiCanAdapterHandler::removeAdapterAt(unsigned short index)
{
    AbstractCanAdapter *adapter = index < mAdapters.size() ? adapterAt(index) : getAdapter(0);
    if (adapter)
        removeAdapter(adapter->getId());
    Q_EMIT adapterMapChanged();
}

void MultiCanAdapterHandler::removeAllAdapters()
{
    const QList<unsigned short> ids = mAdapters.keys();
    for (const unsigned short id : ids) {
        if (AbstractCanAdapter *adapter = getAdapter(id))
            stopAndDelete(QPointer<AbstractCanAdapter>(adapter));
        dropDeadEntry(id);
        Q_EMIT adapterRemoved(id);
    }
    Q_EMIT adapterMapChanged();
}

unsigned short MultiCanAdapterHandler::moveAdapter(AbstractCanAdapter *adapter,
                                                   MultiCanAdapterHandler::Direction direction)
{
    if (!adapter)
        return 0;
    const unsigned short oldId = adapter->getId();
    if (direction == Up && oldId < 2)
        return 0;
    const auto newId = static_cast<unsigned short>(direction == Up ? oldId - 1 : oldId + 1);
    if (newId == 0)
        return 0;
    AbstractCanAdapter *neighbour = getAdapter(newId);
    mAdapters.remove(oldId);
    if (neighbour) {
        storeId(*neighbour, oldId);
        mAdapters.insert(oldId, neighbour);
    }
    storeId(*adapter, newId);
    mAdapters.insert(newId, adapter);
    Q_EMIT adapterMapChanged();
    return newId;
}

unsigned short MultiCanAdapterHandler::createUniqueIdForAdapter()
{
    unsigned short candidate = 1;
    for (auto entry = mAdapters.constFind(1); entry != mAdapters.constEnd() && entry.key() == candidate; ++entry)
        ++candidate;
    return candidate;
}

AbstractCanAdapter *MultiCanAdapterHandler::adapterAt(unsigned short index)
{
    return index < mAdapters.size() ? std::next(mAdapters.constBegin(), index)->data() : nullptr;
}

AbstractCanAdapter *MultiCanAdapterHandler::getAdapter(unsigned short id)
{
    return mAdapters.value(id);
}

QMap<unsigned short, QPointer<AbstractCanAdapter>> &MultiCanAdapterHandler::getAdapterMap()
{
    return mAdapters;
}

unsigned short MultiCanAdapterHandler::getAdapterCount()
{
    return static_cast<unsigned short>(mAdapters.size());
}

QString MultiCanAdapterHandler::getAdapterName(unsigned short id)
{
    AbstractCanAdapter *adapter = getAdapter(id);
    if (!adapter)
        return tr("Invalid adapter id");
    QString name = adapter->getCanAdapterOption(AbstractCanAdapter::option_adapterName).toString();
    const QString description = adapter->getCanAdapterOption(AbstractCanAdapter::option_description).toString();
    if (!description.isEmpty())
        name += QStringLiteral(" (%1)").arg(description);
    return name;
}

QList<AbstractCanAdapter *> MultiCanAdapterHandler::getConnectedAdapters()
{
    QList<AbstractCanAdapter *> connected;
    buslink::forEachLive(mAdapters, [&connected](AbstractCanAdapter &adapter) {
        if (adapter.isRunning())
            connected.append(&adapter);
    });
    return connected;
}

void MultiCanAdapterHandler::informAboutChangedColors()
{
    Q_EMIT interfaceColorsChanged();
}

void MultiCanAdapterHandler::unsetPrimaryAdapter()
{
    buslink::forEachLive(mAdapters, [](AbstractCanAdapter &adapter) {
        adapter.setCanAdapterOption(AbstractCanAdapter::option_primaryAdapter, false);
    });
}
