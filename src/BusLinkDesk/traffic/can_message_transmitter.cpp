// SPDX-License-Identifier: MIT
#include <BusLinkDesk/traffic/can_message_transmitter.h>

#include <BusLinkDesk/adapter/relaxed_p.h>

#include <sys/prctl.h>

using buslink::relaxedLoad;
using buslink::relaxedStore;

namespace {

// The system adds 50 us to each pause of an ordinary thread, to wake several threads at once. Nothing
// depends on the success of this.
void lowerTimerSlackOfThisThread()
{
    ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
}

} // namespace

CMTWorker::CMTWorker(unsigned short id, QObject *parent) : QObject(parent), mId(id) {}

CMTWorker::~CMTWorker() = default;

void CMTWorker::setCanApdater(QPointer<AbstractCanAdapter> adapter)
{
    mAdapter = adapter;
}

void CMTWorker::setTranmissionParameter(CAN::CanMessage message, unsigned int interval, unsigned int count)
{
    mMessage = message;
    relaxedStore(mInterval, interval);
    relaxedStore(mCount, count);
}

void CMTWorker::setSyncValues(bool enable, unsigned char max)
{
    relaxedStore(mSyncEnabled, enable);
    relaxedStore(mSyncMax, max);
}

void CMTWorker::setInterval(unsigned int interval)
{
    relaxedStore(mInterval, interval);
}

void CMTWorker::updateSyncMessage()
{
    auto next = static_cast<unsigned char>(mSyncCounter + 1);
    if (next > relaxedLoad(mSyncMax))
        next = 1;
    mSyncCounter = next;
    mMessage.data[0] = next;
}

void CMTWorker::stop()
{
    mRunning.exchange(false);
}

bool CMTWorker::isRunning()
{
    return mRunning.load();
}

void CMTWorker::doWork()
{
    mSyncCounter = 0;
    mRunning.exchange(true);
    const bool counted = relaxedLoad(mCount) != 0;
    // A start that the thread takes up while its transmitter goes away would undo the stop and run on
    // for ever, and the destructor would wait as long.
    if (QThread::currentThread()->isInterruptionRequested())
        stop();
    while (mRunning.load()) {
        AbstractCanAdapter *const adapter = mAdapter;
        if (!adapter) {
            stop();
            return;
        }
        if (relaxedLoad(mSyncEnabled))
            updateSyncMessage();
        if (adapter->write(&mMessage) == CAN::RetError) {
            stop();
            Q_EMIT transmitError();
            return;
        }
        if (counted)
            countFrame();
        QThread::msleep(relaxedLoad(mInterval));
    }
}

void CMTWorker::countFrame()
{
    relaxedStore(mCount, relaxedLoad(mCount) - 1);
    Q_EMIT sigMsgsLeft(mId, relaxedLoad(mCount));
    if (relaxedLoad(mCount) == 0) {
        stop();
        Q_EMIT sigFinished(mId);
    }
}

CanMessageTransmitter::CanMessageTransmitter(unsigned short id, QObject *parent)
    : QObject(parent), mWorker(new CMTWorker(id))
{
    mWorker->moveToThread(&mThread);
    connect(this, &CanMessageTransmitter::operate, mWorker.data(), &CMTWorker::doWork);
    connect(mWorker.data(), &CMTWorker::transmitError, this, &CanMessageTransmitter::transmitError);
    connect(mWorker.data(), &CMTWorker::sigFinished, this, &CanMessageTransmitter::sigFinished);
    connect(mWorker.data(), &CMTWorker::sigMsgsLeft, this, &CanMessageTransmitter::sigMsgsLeft);
    // The signal comes from the new thread itself, and without a context object the call stays there.
    connect(&mThread, &QThread::started, &lowerTimerSlackOfThisThread);
    mThread.start(QThread::TimeCriticalPriority);
}

CanMessageTransmitter::~CanMessageTransmitter()
{
    mThread.requestInterruption();
    mWorker->stop();
    mThread.quit();
    mThread.wait();
    delete mWorker.data();
}

void CanMessageTransmitter::setCanAdapter(QPointer<AbstractCanAdapter> adapter)
{
    mWorker->setCanApdater(adapter);
}

void CanMessageTransmitter::setTranmissionParameter(CAN::CanMessage message, unsigned int interval, unsigned int count)
{
    mWorker->setTranmissionParameter(message, interval, count);
}

void CanMessageTransmitter::setSyncValues(bool enable, unsigned char max)
{
    mWorker->setSyncValues(enable, max);
}

void CanMessageTransmitter::updateInterval(unsigned int interval)
{
    mWorker->setInterval(interval);
}

void CanMessageTransmitter::startTransmission()
{
    Q_EMIT operate();
}

void CanMessageTransmitter::stopTransmission()
{
    mWorker->stop();
}

bool CanMessageTransmitter::isRunning()
{
    return mWorker->isRunning();
}

void CanMessageTransmitter::transmitErrorOccured()
{
    Q_EMIT transmitError();
}
