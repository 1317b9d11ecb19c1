// SPDX-License-Identifier: MIT
#include "busdesk/adapter_choice.h"

#include "busdesk/adapter_desk.h"
#include "common/adapter_argument.h"

#include <algorithm>

namespace buslink {

void offerAdapters(QComboBox &box, const QList<AbstractCanAdapter *> &adapters, const QString &otherwise)
{
    const QVariant chosen = box.currentData();
    box.clear();
    if (!otherwise.isEmpty())
        box.addItem(otherwise, 0);
    for (AbstractCanAdapter *adapter : adapters)
        box.addItem(AdapterChoice::tr("adapter %1").arg(adapter->getId()), adapter->getId());
    box.setCurrentIndex(std::max(0, box.findData(chosen)));
}

AdapterChoice::AdapterChoice(AdapterDesk *desk) : mDesk(desk)
{
    connect(mDesk, &AdapterDesk::setChanged, this, &AdapterChoice::offer);
    offer();
}

void AdapterChoice::offer()
{
    QList<AbstractCanAdapter *> adapters = mDesk->adapters();
    const auto carriesNone = [](const AbstractCanAdapter *adapter) { return !carriesFrames(*adapter); };
    adapters.erase(std::remove_if(adapters.begin(), adapters.end(), carriesNone), adapters.end());
    offerAdapters(*this, adapters);
}

AbstractCanAdapter *AdapterChoice::openAdapter()
{
    AbstractCanAdapter *const adapter = mDesk->adapter(static_cast<unsigned short>(currentData().toUInt()));
    if (adapter && mDesk->status(adapter).open)
        return adapter;
    Q_EMIT refused(adapter ? tr("adapter %1 is not connected").arg(adapter->getId())
                           : tr("there is no adapter to send"));
    return nullptr;
}

} // namespace buslink
