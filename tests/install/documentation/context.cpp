// SPDX-License-Identifier: MIT
#include "context.h"

#include <QtNetwork/QUdpSocket>

#include <algorithm>

namespace {

// A bus that nobody else on this machine is on.
AbstractCanAdapter *newVirtualAdapter()
{
    QUdpSocket probe;
    probe.bind(QHostAddress(QHostAddress::AnyIPv4));
    auto *const made = new DemoCanAdapter(QStringLiteral("virtual"));
    made->setCanAdapterOption(AbstractCanAdapter::option_portNumber, probe.localPort());
    return made;
}

} // namespace

Context::Context()
    : adapter(newVirtualAdapter()), id(adapters.addNewCanAdapter(newVirtualAdapter())), replacement(newVirtualAdapter())
{
    adapter->open();
    while (!adapter->getRunning())
        QThread::msleep(1);
}

Context::~Context()
{
    QCoreApplication::processEvents();
    adapter->closeAdapter();
    adapter->wait();
    delete adapter;
    const auto isReplacement = [this](const QPointer<AbstractCanAdapter> &one) { return one == replacement; };
    const auto &entries = adapters.getAdapterMap();
    if (std::none_of(entries.begin(), entries.end(), isReplacement))
        delete replacement;
    adapters.removeAllAdapters();
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    runFragments();
    return 0;
}
