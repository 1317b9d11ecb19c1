// SPDX-License-Identifier: MIT
// The memory that an adapter takes, made and open, and an identifier that is registered at a scheduler, beside the
// plain objects of Qt that they are made of.
#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/cia309/cia309_adapter.h>
#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include "support/open_adapter.h"
#include "support/report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QSemaphore>

#include <malloc.h>

namespace {

double heapBytes()
{
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// The memory that this process alone has written to.
double privateBytes()
{
    QFile file(QStringLiteral("/proc/self/smaps_rollup"));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("the kernel does not tell of the memory of a process");
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith("Private_Dirty:"))
            return line.simplified().split(' ').value(1).toDouble() * 1024;
    }
    qFatal("the kernel does not tell of the private memory of a process");
}

/// Heap, each, of so many objects, and of what they own. The first of a kind is made ahead, with what all share.
template <typename Make>
double heapOfEach(int count, Make make)
{
    std::vector<decltype(make())> objects;
    objects.reserve(static_cast<std::size_t>(count));
    const auto first = make();
    const double before = heapBytes();
    for (int index = 0; index < count; ++index)
        objects.push_back(make());
    return (heapBytes() - before) / count;
}

void reportMadeAdapters(const Report &report)
{
    const int count = report.quick() ? 10 : 1000;
    const double thread = heapOfEach(count, [] { return std::make_unique<QThread>(); });
    const auto line = [&](const char *name, auto make) {
        report.compare(QStringLiteral("heap of an adapter, ") + QLatin1String(name), heapOfEach(count, make),
                       QStringLiteral("bytes"), Report::Better::Less, QStringLiteral("QThread"), thread);
    };
    line("virtual bus", [] { return std::make_unique<DemoCanAdapter>(QStringLiteral("virtual")); });
    line("SocketCAN", [] { return std::make_unique<SocketCanAdapter>(QStringLiteral("can0")); });
    line("can4linux", [] { return std::make_unique<Can4linuxCanAdapter>(QStringLiteral("can0")); });
    line("USB", [] { return std::make_unique<ZorbekUSBCanAdapter>(QStringLiteral("ttyUSB0")); });
    line("CiA 309-3", [] { return std::make_unique<CiA309Adapter>(QStringLiteral("gateway")); });
    line("packet bridge", [] { return std::make_unique<PXRDummyAdapter>(); });
}

/// Opens so many, which stay open, and tells the private memory of each. The first is opened ahead.
template <typename Open>
double privateOfEach(int count, std::vector<decltype(std::declval<Open>()())> &opened, Open open)
{
    opened.push_back(open());
    const double before = privateBytes();
    for (int index = 0; index < count; ++index)
        opened.push_back(open());
    return (privateBytes() - before) / count;
}

/// A thread that waits.
class WaitingThread
{
public:
    WaitingThread() : mThread(QThread::create([this] { wait(); }))
    {
        mThread->start();
        mStarted.acquire();
    }
    ~WaitingThread()
    {
        mEnd.release();
        mThread->wait();
    }
    WaitingThread(const WaitingThread &) = delete;
    WaitingThread &operator=(const WaitingThread &) = delete;

private:
    void wait()
    {
        mStarted.release();
        mEnd.acquire();
    }

    QSemaphore mStarted;
    QSemaphore mEnd;
    std::unique_ptr<QThread> mThread;
};

// Only the virtual adapter opens on any machine; the threads of the others have the same needs. All stay open until
// the end, since the stack of a thread that ended serves the next one.
void reportOpenAdapters(const Report &report)
{
    const int count = report.quick() ? 4 : 50;
    const quint16 port = freeUdpPort();
    std::vector<AdapterPointer<DemoCanAdapter>> adapters;
    const double open = privateOfEach(count, adapters, [port] {
        auto adapter = makeVirtualAdapter(port);
        if (!openOnBus(adapter.get()))
            qFatal("no virtual bus");
        return adapter;
    });
    std::vector<std::unique_ptr<WaitingThread>> threads;
    const double thread = privateOfEach(count, threads, [] { return std::make_unique<WaitingThread>(); });
    report.compare(QStringLiteral("memory of an open adapter with its thread's stack, virtual bus"), open / 1024,
                   QStringLiteral("KiB"), Report::Better::Less, QStringLiteral("QThread that waits"), thread / 1024);
}

void reportIdentifiers(const Report &report)
{
    const int count = report.quick() ? 1000 : 100000;
    CanScheduler scheduler(nullptr);
    const double before = heapBytes();
    scheduler.registerCanIdRange(0, static_cast<unsigned int>(count - 1));
    const double ours = (heapBytes() - before) / count;

    QHash<unsigned int, QObject *> table;
    const double bareBefore = heapBytes();
    for (unsigned int id = 0; id < static_cast<unsigned int>(count); ++id)
        table.insert(id, new QObject);
    const double bare = (heapBytes() - bareBefore) / count;
    qDeleteAll(table);
    report.compare(QStringLiteral("heap of a registered identifier, of %1").arg(count), ours, QStringLiteral("bytes"),
                   Report::Better::Less, QStringLiteral("QObject in a QHash"), bare);
}

} // namespace

int main(int argc, char **argv)
{
    const Report report(argc, argv, QStringLiteral("memory"));
    const QCoreApplication application(argc, argv);
    reportMadeAdapters(report);
    reportOpenAdapters(report);
    reportIdentifiers(report);
    return 0;
}
