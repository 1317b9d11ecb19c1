// SPDX-License-Identifier: MIT
#include "buscycle/cycle_sender.h"

#include <utility>

namespace buslink {

namespace {

// Tells the jobs of one receiver apart, and here is one alone.
constexpr unsigned short JobId = 0;

} // namespace

CycleSender::CycleSender(const Settings &settings)
    : mSettings(settings), mEchoes(settings.echoTimeoutMs), mGate(&mEchoes)
{
    connect(&mEchoes, &EchoCounter::arrived, this, [this] { finishWhenAllHaveLeft(); });
    connect(&mEchoes, &EchoCounter::late, this, [this] {
        fail(mEchoes.lateText());
        finish();
    });
}

// The end of the transmitter waits for its write.
CycleSender::~CycleSender()
{
    mGate.shut();
}

void CycleSender::setAdapter(AbstractCanAdapter *adapter)
{
    mEchoes.setAdapter(adapter);
    mGate.setTarget(adapter);
}

void CycleSender::start()
{
    mTransmitter = std::make_unique<CanMessageTransmitter>(JobId);
    // Queued, since both delete the transmitter.
    connect(
        mTransmitter.get(), &CanMessageTransmitter::sigFinished, this, [this] { endTransmission(); },
        Qt::QueuedConnection);
    connect(
        mTransmitter.get(), &CanMessageTransmitter::transmitError, this,
        [this] { fail(QStringLiteral("the adapter refused the frame")); }, Qt::QueuedConnection);
    mTransmitter->setCanAdapter(&mGate);
    mTransmitter->setTranmissionParameter(mSettings.frame, mSettings.intervalMs, mSettings.count);
    if (mSettings.syncMax)
        mTransmitter->setSyncValues(true, *mSettings.syncMax);
    mTransmitter->startTransmission();
}

void CycleSender::interrupt()
{
    endTransmission();
}

void CycleSender::transportFailed()
{
    endTransmission();
    finish();
}

// Once the transmitter is gone, no frame is accepted any more and the number of echoes to come is final.
void CycleSender::endTransmission()
{
    mGate.shut();
    mTransmitter.reset();
    mEnding = true;
    finishWhenAllHaveLeft();
}

void CycleSender::fail(const QString &error)
{
    if (mError.isEmpty())
        mError = error;
    endTransmission();
}

void CycleSender::finishWhenAllHaveLeft()
{
    if (mEnding && mEchoes.allHaveLeft())
        finish();
}

void CycleSender::finish()
{
    mEchoes.stop();
    if (!std::exchange(mFinished, true))
        Q_EMIT finished();
}

} // namespace buslink
