// SPDX-License-Identifier: MIT
#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>

#include <BusLinkDesk/adapter/bit_timing_p.h>
#include <BusLinkDesk/adapter/relaxed_p.h>
#include <BusLinkDesk/backends/can4linux/can4linux_driver_p.h>

#include <cstdio>
#include <fcntl.h>
#include <sys/time.h>
#include <unistd.h>

using buslink::DriverCommand;
using buslink::DriverTarget;
using buslink::relaxedLoad;
using buslink::relaxedStore;

namespace {

// The driver takes a rate only while the controller is stopped.
CAN::RetType configureRate(int device, DriverTarget target, quint64 value)
{
    buslink::commandDriver(device, DriverCommand::Stop);
    const int result = buslink::configureDriver(device, target, value);
    buslink::commandDriver(device, DriverCommand::Start);
    if (result >= 0)
        return CAN::RetOk;
    std::perror("setBitrate()");
    return CAN::RetDriverConfigFailed;
}

} // namespace

Can4linuxCanAdapter::Can4linuxCanAdapter(QString name, QObject *parent)
    : AbstractCanAdapter(parent), mDeviceName(std::move(name))
{
    timeval now{};
    ::gettimeofday(&now, nullptr);
    mCreationSeconds = static_cast<quint32>(now.tv_sec);
    mRunningFlag.exchange(false);
    mEcho = true;
    setStackSize(60000);
}

Can4linuxCanAdapter::~Can4linuxCanAdapter()
{
    quit();
    closeDevice();
}

// Other files of the process may have got the number of a closed device; none of them must be written to, or closed.
int Can4linuxCanAdapter::device() const
{
    return relaxedLoad(mDeviceClosed) ? -1 : relaxedLoad(mDeviceFd);
}

void Can4linuxCanAdapter::closeDevice()
{
    if (relaxedLoad(mDeviceFd) == -1)
        return;
    const int descriptor = device();
    relaxedStore(mDeviceClosed, true);
    if (::close(descriptor) < 0)
        std::perror("close");
}

bool Can4linuxCanAdapter::openDevice()
{
    const int previous = device();
    const bool inUse = isRunning() && previous != -1;
    // After a loop that ended by itself the device is still open, and it may admit one user at a time.
    if (previous != -1 && !inUse) {
        relaxedStore(mDeviceClosed, true);
        ::close(previous);
    }
    const QByteArray name = mDeviceName.toLatin1();
    int descriptor = ::open(name.constData(), O_RDWR | O_NONBLOCK);
    if (descriptor < 0)
        std::perror(name.constData());
    // A loop that runs waits at the number that it knows, so that one must neither be closed nor get another file.
    if (inUse)
        descriptor = buslink::moveDescriptor(descriptor, previous);
    relaxedStore(mDeviceFd, descriptor);
    relaxedStore(mDeviceClosed, false);
    if (inUse && descriptor != previous)
        ::close(previous);
    return descriptor >= 0;
}

CAN::RetType Can4linuxCanAdapter::open()
{
    std::fputs("Open() can4linuxCanAdapter\n", stderr);
    if (!openDevice())
        return CAN::RetError;
    resetDriver();
    setBitrate(relaxedLoad(mNominalBitrate));
    setFdBitrate(relaxedLoad(mDataBitrate));
    buslink::commandDriver(device(), DriverCommand::HandFlag, relaxedLoad(mDriverConfigFlag));
    setState(CAN::CanStateErrorActive);
    start(QThread::InheritPriority);
    setEcho(true);
    return CAN::RetOk;
}

void Can4linuxCanAdapter::closeAdapter()
{
    mRunningFlag.exchange(false);
    quit();
    closeDevice();
}

CAN::RetType Can4linuxCanAdapter::setBitrate(unsigned short bitrate)
{
    relaxedStore(mNominalBitrate, bitrate);
    if (relaxedLoad(mDeviceFd) == -1)
        return CAN::RetOk;
    return configureRate(device(), DriverTarget::NominalRate, bitrate);
}

CAN::RetType Can4linuxCanAdapter::setFdBitrate(unsigned int bitrate)
{
    relaxedStore(mDataBitrate, bitrate);
    if (relaxedLoad(mDeviceFd) == -1)
        return CAN::RetOk;
    const unsigned int nominal = relaxedLoad(mNominalBitrate);
    return configureRate(device(), DriverTarget::DataRateFactor, nominal == 0 ? 0 : (bitrate / nominal) & 0xFFU);
}

void Can4linuxCanAdapter::resetDriver()
{
    buslink::commandDriver(device(), DriverCommand::Reset);
}

void Can4linuxCanAdapter::setEcho(bool echo)
{
    buslink::configureDriver(device(), DriverTarget::SelfReception, echo ? 1 : 0);
    relaxedStore(mEcho, echo);
}

CAN::CanState Can4linuxCanAdapter::getState()
{
    return relaxedLoad(mBusState);
}

void Can4linuxCanAdapter::prepareToTerminate()
{
    if (mRunningFlag.exchange(false))
        QThread::msleep(200);
}

unsigned int Can4linuxCanAdapter::getCanFeatures()
{
    return 0x98;
}

QList<AbstractCanAdapter::AdapterOption> Can4linuxCanAdapter::getSkippedOptions() const
{
    return {option_ipAddress,  option_portNumber, option_toggleComPort, option_flowControl,
            option_toggleDTR,  option_toggleRTS,  option_peakAdvValues, option_Reset,
            option_halfDuplex, option_isCiA309,   option_btrExt,        option_systecXm3Values};
}

int Can4linuxCanAdapter::clearTxQueue()
{
    return 0;
}

int Can4linuxCanAdapter::clearRxQueue()
{
    return 0;
}

int Can4linuxCanAdapter::getTxQueueCount()
{
    return 0;
}

int Can4linuxCanAdapter::getRxQueueCount()
{
    return 0;
}

bool Can4linuxCanAdapter::isBaudrateChangeable()
{
    return true;
}

QStringList Can4linuxCanAdapter::getDeviceList()
{
    return {QStringLiteral("/dev/can0"), QStringLiteral("/dev/can1"), QStringLiteral("/dev/can2"),
            QStringLiteral("/dev/can3")};
}

QList<CAN::CANBitrateDesc> Can4linuxCanAdapter::getSupportedBitrates(bool shortList)
{
    if (shortList)
        return buslink::nominalRateRows({500, 1000}, 87.5);
    return buslink::nominalRateRows({50, 62, 83, 125, 250, 500, 800, 1000}, 87.5);
}

QList<CAN::CANBitrateDesc> Can4linuxCanAdapter::getSupportedFDBitrates()
{
    return {
        buslink::bitrateRow(QStringLiteral("500 kbit/s"), 500, 75.0),
        buslink::bitrateRow(QStringLiteral("1 Mbit/s"), 1000, 80.0),
        buslink::bitrateRow(QStringLiteral("2 Mbit/s"), 2000, 75.0),
        buslink::bitrateRow(QStringLiteral("4 Mbit/s"), 4000, 70.0),
        buslink::bitrateRow(QStringLiteral("8 Mbit/s"), 8000, 60.0),
    };
}
