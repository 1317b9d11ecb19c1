// SPDX-License-Identifier: MIT
#include "soak/lines.h"

#include <BusLinkDesk/backends/packet_bridge/pxr_dummy_adapter.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

/// A bridge whose packets another thread carries to a second one, many at a time.
class BridgeLine : public SoakLine
{
public:
    explicit BridgeLine(quint32 frames)
    {
        addReceiver(QStringLiteral("packet bridge"), frames).listenTo(mFar, false);
        QObject::connect(&mNear, &PXRDummyAdapter::sigSendCanMessage,
                         [this](const PxrFdTypes::UnionPacket::StructCanMsg &packet) { carry(packet); });
    }
    ~BridgeLine() override
    {
        {
            const std::lock_guard lock(mMutex);
            mStop = true;
        }
        mChanged.notify_one();
        if (mThread.joinable())
            mThread.join();
    }
    BridgeLine(const BridgeLine &) = delete;
    BridgeLine &operator=(const BridgeLine &) = delete;

    bool open() override
    {
        mThread = std::thread([this] { run(); });
        return mNear.open() == CAN::RetOk && mFar.open() == CAN::RetOk;
    }
    bool send(quint32 number) override { return mNear.write(numberedFrame(number)) == CAN::RetOk; }

private:
    void carry(const PxrFdTypes::UnionPacket::StructCanMsg &packet)
    {
        PxrFdTypes::UnionPacket carried;
        carried.stcCanMsg = packet;
        {
            const std::lock_guard lock(mMutex);
            mPackets.append(carried);
        }
        mChanged.notify_one();
    }

    void run()
    {
        std::unique_lock lock(mMutex);
        while (!mStop) {
            mChanged.wait(lock, [this] { return mStop || !mPackets.isEmpty(); });
            const QList<PxrFdTypes::UnionPacket> packets = std::exchange(mPackets, {});
            lock.unlock();
            mFar.onCanMessageReceived(packets);
            lock.lock();
        }
    }

    PXRDummyAdapter mNear;
    PXRDummyAdapter mFar;
    std::mutex mMutex;
    std::condition_variable mChanged;
    QList<PxrFdTypes::UnionPacket> mPackets;
    bool mStop = false;
    std::thread mThread;
};

} // namespace

std::unique_ptr<SoakLine> makeBridgeLine(quint32 frames)
{
    return std::make_unique<BridgeLine>(frames);
}
