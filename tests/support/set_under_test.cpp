// SPDX-License-Identifier: MIT
#include "support/set_under_test.h"

SetUnderTest::SetUnderTest()
{
    QObject::connect(&handler, &MultiCanAdapterHandler::adapterMapChanged, &handler,
                     [this] { journal.add(QStringLiteral("adapterMapChanged")); });
    QObject::connect(&handler, &MultiCanAdapterHandler::adapterRemoved, &handler,
                     [this](unsigned short id) { journal.add(QStringLiteral("adapterRemoved %1").arg(id)); });
    QObject::connect(&handler, &MultiCanAdapterHandler::interfaceColorsChanged, &handler,
                     [this] { journal.add(QStringLiteral("interfaceColorsChanged")); });
}

SetUnderTest::~SetUnderTest()
{
    handler.removeAllAdapters();
}

JournalAdapter *SetUnderTest::make(const char *name)
{
    return new JournalAdapter(journal, QString::fromLatin1(name));
}

JournalAdapter *SetUnderTest::add(const char *name)
{
    JournalAdapter *adapter = make(name);
    handler.addNewCanAdapter(adapter);
    return adapter;
}

JournalAdapter *SetUnderTest::addUnder(unsigned short id, const char *name)
{
    JournalAdapter *adapter = make(name);
    adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, id);
    handler.addNewCanAdapter(adapter, true);
    return adapter;
}

JournalAdapter *SetUnderTest::addDevice(const char *name, int type, const char *device)
{
    JournalAdapter *adapter = make(name);
    adapter->setCanAdapterOption(AbstractCanAdapter::option_adapterType, type);
    adapter->setCanAdapterOption(AbstractCanAdapter::option_deviceName, QString::fromLatin1(device));
    handler.addNewCanAdapter(adapter);
    return adapter;
}

void SetUnderTest::deleteFromOutside(unsigned short id)
{
    delete handler.getAdapterMap()[id];
}

QStringList SetUnderTest::rows()
{
    QStringList rows;
    const auto &map = handler.getAdapterMap();
    for (auto entry = map.constBegin(); entry != map.constEnd(); ++entry) {
        QString row = QString::number(entry.key());
        if (AbstractCanAdapter *adapter = entry.value()) {
            row += QLatin1Char(' ') + adapter->getCanAdapterOption(AbstractCanAdapter::option_adapterName).toString();
            if (adapter->isPrimaryAdapter() || adapter->isActiveAdapter())
                row += QLatin1Char(' ');
            row += QLatin1String(adapter->isPrimaryAdapter() ? "P" : "");
            row += QLatin1String(adapter->isActiveAdapter() ? "A" : "");
            if (adapter->getId() != entry.key())
                row += QStringLiteral(" own %1").arg(adapter->getId());
        } else {
            row += QStringLiteral(" gone");
        }
        rows.append(row);
    }
    return rows;
}

void setRoles(AbstractCanAdapter *adapter, bool primary, bool active)
{
    adapter->setCanAdapterOption(AbstractCanAdapter::option_primaryAdapter, primary);
    adapter->setCanAdapterOption(AbstractCanAdapter::option_activeAdapter, active);
}
