// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QByteArray>
#include <QtCore/QObject>
#include <QtCore/QSocketNotifier>
#include <QtCore/QString>

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>

class AbstractCanAdapter;
class CanSender;

namespace buslink {

/// Writes the frames that an adapter delivers to a descriptor, one line each. A frame is written at once
/// where the reader keeps up; what came in meanwhile goes out together.
class FramePrinter : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        std::string name;                   ///< The interface name in the lines.
        qint64 count = 0;                   ///< How many frames to write; 0: without end.
        std::size_t waitingMax = 1U << 18U; ///< How many frames wait for a slow reader before they are lost.
    };

    /// Writes to a descriptor that stays open.
    FramePrinter(int descriptor, Settings settings);

    /// Prints the frames that this adapter receives. The adapter is gone before the printer is, since
    /// frames arrive on a thread of its own.
    void setAdapter(AbstractCanAdapter *adapter);
    /// Prints the received frames that a scheduler hands out through this sender. The scheduler's adapter
    /// is gone before the printer is, as above.
    void addSender(CanSender *sender);
    /// Prints the text that a gateway answers, as it comes. *Thread:* the gateway's is this object's.
    void setGateway(AbstractCanAdapter *gateway);
    /// Writes what still waits. *Blocks:* while the reader takes something at least every `timeoutMs`.
    void flush(int timeoutMs);

    /// Whether the wanted number of frames was written.
    bool isComplete() const { return mSettings.count > 0 && mWritten == mSettings.count; }
    /// How many frames, or answers of a gateway, were lost because the reader was too slow.
    qint64 lostFrames() const;
    /// What went wrong; empty if nothing did. A reader that went away is nothing wrong.
    QString error() const { return mError; }

Q_SIGNALS:
    /// The wanted number of frames was written, or writing has become impossible.
    void finished();

private:
    void receive(const CAN::CanRxMessage &message);
    void receiveText(const QByteArray &text);
    void fillText();
    void writeText();
    void writeFailed(int error);
    void readerMayBeGone();
    void finish();

    const int mDescriptor;
    const Settings mSettings;
    QSocketNotifier mWritable;
    QSocketNotifier mTrouble;
    mutable std::mutex mMutex;
    std::deque<CAN::CanRxMessage> mWaiting; // by mMutex, as the two below
    qint64 mReceived = 0;
    qint64 mLost = 0;
    QByteArray mGatewayText;
    std::string mText;
    qint64 mWritten = 0;
    bool mFinished = false;
    QString mError;
};

} // namespace buslink
