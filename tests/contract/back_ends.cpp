// SPDX-License-Identifier: MIT
#include "back_ends.h"

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#ifdef BUSLINKDESK_MOCK_PORTS
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/byte_hub.h"
#endif

#include <cstdio>

namespace {

class VirtualTestBus : public TestBus
{
public:
    AdapterPointer<AbstractCanAdapter> makeAdapter(int uniqueId) override
    {
        return AdapterPointer<AbstractCanAdapter>(makeVirtualAdapter(mPort, uniqueId).release());
    }
    bool open(AbstractCanAdapter *adapter) override { return openOnBus(static_cast<DemoCanAdapter *>(adapter)); }

private:
    quint16 mPort = freeUdpPort();
};

/// One of the two virtual CAN interfaces that tests of their own kernel find.
class SocketCanTestBus : public TestBus
{
public:
    SocketCanTestBus() : mInterface(usedInterfaces++) {}
    ~SocketCanTestBus() override { --usedInterfaces; }
    AdapterPointer<AbstractCanAdapter> makeAdapter(int uniqueId) override
    {
        AdapterPointer<AbstractCanAdapter> adapter(new SocketCanAdapter(QStringLiteral("vcan%1").arg(mInterface)));
        adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, uniqueId);
        return adapter;
    }
    bool open(AbstractCanAdapter *adapter) override { return openAndWait(adapter); }

private:
    static int usedInterfaces;
    int mInterface;
};

int SocketCanTestBus::usedInterfaces = 0;

#ifdef BUSLINKDESK_MOCK_PORTS
/// Ports that only this process sees; what one sends arrives at all others.
class UsbTestBus : public TestBus
{
public:
    AdapterPointer<AbstractCanAdapter> makeAdapter(int uniqueId) override
    {
        AdapterPointer<AbstractCanAdapter> adapter(new ZorbekUSBCanAdapter(mHub.addPort()));
        adapter->setCanAdapterOption(AbstractCanAdapter::option_baudrate, 115200);
        adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, uniqueId);
        return adapter;
    }
    bool open(AbstractCanAdapter *adapter) override
    {
        adapter->open();
        return waitForLoop(adapter, 20000);
    }

private:
    ByteHub mHub;
};
#endif

} // namespace

QVector<BackEnd> backEnds()
{
    // Interfaces of a machine's own kernel may be in use, so those are left alone.
    if (qEnvironmentVariableIsSet("BUSLINKDESK_GUEST"))
        return {{"socketcan", [] { return std::make_unique<SocketCanTestBus>(); }, true, true}};
#ifdef BUSLINKDESK_MOCK_PORTS
    if (qgetenv("LD_PRELOAD").contains("umockdev"))
        return {{"usb", [] { return std::make_unique<UsbTestBus>(); }, true, true}};
#endif
    std::puts("SKIP   : contract of socketcan: needs a kernel of its own, see guest.contract");
    return {{"virtual", [] { return std::make_unique<VirtualTestBus>(); }, false, true}};
}
