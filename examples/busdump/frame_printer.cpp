// SPDX-License-Identifier: MIT
#include "busdump/frame_printer.h"

#include "common/candump_log.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/traffic/can_scheduler.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace buslink {

namespace {

// Up to this size a pipe that is ready takes all at once, so that a write neither blocks nor cuts a line.
constexpr std::size_t TextSizeMax = PIPE_BUF;
// How much text of a gateway waits for a slow reader.
constexpr int GatewayTextMax = 1 << 20;
// More than any line has.
constexpr std::size_t LineSizeMax = 256;

bool isReady(int descriptor, short events, int timeoutMs)
{
    pollfd waiting{descriptor, events, 0};
    int ready = -1;
    do {
        ready = ::poll(&waiting, 1, timeoutMs);
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

} // namespace

FramePrinter::FramePrinter(int descriptor, Settings settings)
    : mDescriptor(descriptor)
    , mSettings(std::move(settings))
    , mWritable(descriptor, QSocketNotifier::Write)
    , mTrouble(descriptor, QSocketNotifier::Exception)
{
    mWritable.setEnabled(false);
    connect(&mWritable, &QSocketNotifier::activated, this, [this] { writeText(); });
    connect(&mTrouble, &QSocketNotifier::activated, this, [this] { readerMayBeGone(); });
}

void FramePrinter::setAdapter(AbstractCanAdapter *adapter)
{
    connect(
        adapter, &AbstractCanAdapter::newCanMessage, this, [this](CAN::CanRxMessage *message) { receive(*message); },
        Qt::DirectConnection);
}

// Queued calls would pile up in the event loop, where nobody counts them, while the reader is slow.
void FramePrinter::addSender(CanSender *sender)
{
    connect(sender, qOverload<CAN::CanRxMessage>(&CanSender::received), this, &FramePrinter::receive,
            Qt::DirectConnection);
}

void FramePrinter::setGateway(AbstractCanAdapter *gateway)
{
    connect(gateway, &AbstractCanAdapter::newCiA309Response, this,
            [this](const QString &response) { receiveText(response.toUtf8()); });
}

void FramePrinter::receiveText(const QByteArray &text)
{
    if (mGatewayText.size() + text.size() > GatewayTextMax) {
        const std::lock_guard lock(mMutex);
        ++mLost;
        return;
    }
    mGatewayText += text;
    mWritable.setEnabled(!mFinished);
}

qint64 FramePrinter::lostFrames() const
{
    const std::lock_guard lock(mMutex);
    return mLost;
}

// Runs on the adapter's thread.
void FramePrinter::receive(const CAN::CanRxMessage &message)
{
    if (message.isTx)
        return;
    const std::lock_guard lock(mMutex);
    if (mSettings.count > 0 && mReceived == mSettings.count)
        return;
    if (mWaiting.size() >= mSettings.waitingMax) {
        ++mLost;
        return;
    }
    ++mReceived;
    mWaiting.push_back(message);
    // While something waits the printer is at it already.
    if (mWaiting.size() == 1)
        QMetaObject::invokeMethod(
            this, [this] { mWritable.setEnabled(!mFinished); }, Qt::QueuedConnection);
}

void FramePrinter::fillText()
{
    const auto room = static_cast<int>(TextSizeMax - std::min(TextSizeMax, mText.size()));
    const QByteArray text = mGatewayText.left(room);
    mGatewayText.remove(0, text.size());
    mText += text.toStdString();

    const std::lock_guard lock(mMutex);
    while (!mWaiting.empty() && mText.size() + LineSizeMax <= TextSizeMax) {
        const CAN::CanRxMessage &received = mWaiting.front();
        const qint64 timeUs = received.timeStamp.seconds * Q_INT64_C(1000000) + received.timeStamp.microseconds;
        mText += formatLogLine({timeUs, mSettings.name, received.message});
        mText += '\n';
        mWaiting.pop_front();
        ++mWritten;
    }
}

void FramePrinter::writeText()
{
    fillText();
    const ssize_t size = mText.empty() ? 0 : ::write(mDescriptor, mText.data(), mText.size());
    if (size < 0) {
        if (errno != EINTR && errno != EAGAIN)
            writeFailed(errno);
        return;
    }
    mText.erase(0, static_cast<std::size_t>(size));
    fillText();
    mWritable.setEnabled(!mText.empty());
    if (mText.empty() && isComplete())
        finish();
}

void FramePrinter::flush(int timeoutMs)
{
    for (fillText(); !mFinished && !mText.empty(); fillText()) {
        if (isReady(mDescriptor, POLLOUT, timeoutMs)) {
            writeText();
        } else {
            mError = QStringLiteral("standard output takes no more");
            finish();
        }
    }
}

void FramePrinter::writeFailed(int error)
{
    if (error != EPIPE)
        mError = QStringLiteral("cannot write to standard output: %1").arg(qt_error_string(error));
    finish();
}

// A pipe whose reader closed it reports an error before anything is written.
void FramePrinter::readerMayBeGone()
{
    mTrouble.setEnabled(false);
    if (isReady(mDescriptor, 0, 0))
        finish();
}

void FramePrinter::finish()
{
    mWritable.setEnabled(false);
    mTrouble.setEnabled(false);
    if (!std::exchange(mFinished, true))
        Q_EMIT finished();
}

} // namespace buslink
