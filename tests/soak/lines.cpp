// SPDX-License-Identifier: MIT
#include "soak/lines.h"

#include "support/open_adapter.h"

#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#ifdef BUSLINKDESK_MOCK_PORTS
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/byte_hub.h"
#endif

namespace {

/// Adapters with a loop of their own on one bus: the first sends and has its echoes, the others receive.
class BusLine : public SoakLine
{
public:
    bool open() override
    {
        // Receivers first: what nobody hears yet would be counted as lost.
        for (auto adapter = mAdapters.rbegin(); adapter != mAdapters.rend(); ++adapter) {
            if (!open(adapter->get()))
                return false;
        }
        return true;
    }
    bool send(quint32 number) override
    {
        return mAdapters.front()->write(numberedFrame(number)) != CAN::RetTxBufferFull;
    }

protected:
    virtual bool open(AbstractCanAdapter *adapter)
    {
        // A loaded machine may need longer than a USB adapter waits for its thread.
        adapter->open();
        return waitForLoop(adapter);
    }

    void add(AbstractCanAdapter *adapter, const QString &name, quint32 frames)
    {
        const bool sends = mAdapters.empty();
        mAdapters.emplace_back(adapter);
        adapter->setEcho(sends);
        addReceiver(name, frames).listenTo(*adapter, sends);
    }

    void close() { mAdapters.clear(); }

private:
    std::vector<AdapterPointer<AbstractCanAdapter>> mAdapters;
};

class VirtualLine : public BusLine
{
public:
    explicit VirtualLine(quint32 frames)
    {
        for (const char *name : {"virtual bus, echo", "virtual bus, receiver 1", "virtual bus, receiver 2"})
            add(makeVirtualAdapter(mPort).release(), QString::fromLatin1(name), frames);
    }

private:
    bool open(AbstractCanAdapter *adapter) override { return openOnBus(static_cast<DemoCanAdapter *>(adapter)); }

    quint16 mPort = freeUdpPort();
};

class SocketCanLine : public BusLine
{
public:
    explicit SocketCanLine(quint32 frames)
    {
        for (const char *name : {"SocketCAN, echo", "SocketCAN, receiver 1", "SocketCAN, receiver 2"})
            add(new SocketCanAdapter(QStringLiteral("vcan0")), QString::fromLatin1(name), frames);
    }
};

#ifdef BUSLINKDESK_MOCK_PORTS
class UsbLine : public BusLine
{
public:
    explicit UsbLine(quint32 frames)
    {
        for (const char *name : {"USB, echo", "USB, receiver"}) {
            auto *const adapter = new ZorbekUSBCanAdapter(mHub.addPort());
            adapter->setCanAdapterOption(AbstractCanAdapter::option_baudrate, 115200);
            add(adapter, QString::fromLatin1(name), frames);
        }
    }
    ~UsbLine() override { close(); }

private:
    ByteHub mHub;
};
#endif

} // namespace

std::vector<std::unique_ptr<SoakLine>> makeLines(quint32 frames, const QString &only)
{
    std::vector<std::unique_ptr<SoakLine>> lines;
    const auto add = [&](const char *name, const auto &make) {
        if (only.isEmpty() || only == QLatin1String(name))
            lines.push_back(make(frames));
    };
    add("virtual", &std::make_unique<VirtualLine, quint32 &>);
    if (qEnvironmentVariableIsSet("BUSLINKDESK_GUEST"))
        add("socketcan", &std::make_unique<SocketCanLine, quint32 &>);
#ifdef BUSLINKDESK_MOCK_PORTS
    if (qgetenv("LD_PRELOAD").contains("umockdev"))
        add("usb", &std::make_unique<UsbLine, quint32 &>);
#endif
    add("gateway", &makeGatewayLine);
    add("bridge", &makeBridgeLine);
    return lines;
}
