// SPDX-License-Identifier: MIT
#include "soak/lines.h"

#include "support/open_adapter.h"

#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>

#ifdef BUSLINKDESK_MOCK_PORTS
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>

#include "support/byte_hub.h"
#endif

#include <QtCore/QFile>

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

/// The driver echoes to who sent, and a device has one user, so there is one receiver.
class Can4linuxLine : public BusLine
{
public:
    explicit Can4linuxLine(quint32 frames)
    {
        const QStringList devices = loopingDevices();
        add(new Can4linuxCanAdapter(devices.at(0)), QStringLiteral("can4linux, echo"), frames);
        add(new Can4linuxCanAdapter(devices.at(1)), QStringLiteral("can4linux, receiver"), frames);
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

QStringList loopingDevices()
{
    QStringList devices{QStringLiteral("/dev/can0"), QStringLiteral("/dev/can1")};
    // Those of the machine itself would have a bus behind them.
    if (qgetenv("BUSLINKDESK_GUEST") != "qemu" || !QFile::exists(devices.at(0)) || !QFile::exists(devices.at(1)))
        return {};
    return devices;
}

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
    if (!loopingDevices().isEmpty())
        add("can4linux", &std::make_unique<Can4linuxLine, quint32 &>);
#ifdef BUSLINKDESK_MOCK_PORTS
    if (qgetenv("LD_PRELOAD").contains("umockdev"))
        add("usb", &std::make_unique<UsbLine, quint32 &>);
#endif
    add("gateway", &makeGatewayLine);
    add("bridge", &makeBridgeLine);
    return lines;
}
