// SPDX-License-Identifier: MIT
#include "busdesk/adapter_choice.h"

#include "busdesk/adapter_desk.h"
#include "common/adapter_argument.h"

#include <algorithm>

namespace buslink {

AdapterChoice::AdapterChoice(AdapterDesk *desk) : mDesk(desk)
{
    connect(mDesk, &AdapterDesk::setChanged, this, &AdapterChoice::offerAdapters);
    offerAdapters();
}

void AdapterChoice::offerAdapters()
{
    const QVariant chosen = currentData();
    clear();
    const QList<AbstractCanAdapter *> adapters = mDesk->adapters();
    for (AbstractCanAdapter *adapter : adapters) {
        if (carriesFrames(*adapter))
            addItem(tr("adapter %1").arg(adapter->getId()), adapter->getId());
    }
    setCurrentIndex(std::max(0, findData(chosen)));
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
