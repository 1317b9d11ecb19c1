// SPDX-License-Identifier: MIT
#pragma once

#include "common/serial_line.h"

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

#include <atomic>

class AbstractCanAdapter;

namespace buslink {

/// Knows which of the frames that an adapter accepted have left: the adapter delivers an echo of each frame
/// that it sent, and these are counted. A serial adapter echoes a frame when it is queued, so the time is added there
/// that the line needs for it.
class EchoCounter : public QObject
{
    Q_OBJECT

public:
    /// How many frames should be on their way through the adapter. More would only fill its queue.
    static constexpr qint64 Window = 256;

    /// Waits that long for the next echo while some are missing.
    explicit EchoCounter(int timeoutMs);

    /// Sets where the frames go, and turns echo on there. The adapter is not open yet, and it is gone before
    /// the counter is, since echoes arrive on a thread of its own.
    void setAdapter(AbstractCanAdapter *adapter);
    /// Says that the adapter accepted a frame. *Thread:* any.
    void frameAccepted() { ++mAccepted; }
    /// Ends the watch for missing echoes and on the line.
    void stop();

    /// How many frames the adapter accepted. *Thread:* any.
    qint64 acceptedFrames() const { return mAccepted.load(); }
    /// How many frames have left, or have gone to a serial line. *Thread:* any.
    qint64 sentFrames() const { return mEchoes.load(); }
    /// Whether another frame fits into the window and is not too far ahead of a serial line. *Thread:* any.
    bool hasRoom() const { return acceptedFrames() - sentFrames() < Window && mLine.hasRoom(); }
    /// Whether every accepted frame has left.
    bool allHaveLeft() const { return acceptedFrames() == sentFrames() && mLine.isFree(); }
    /// What `late` means, for people.
    QString lateText() const;

Q_SIGNALS:
    /// There were echoes, or a serial line has come further. One signal stands for all of them until it is handled.
    void arrived();
    /// Echoes are missing, and none has come for the whole time.
    void late();

private:
    void echoArrived(const CAN::CanMessage &frame);
    void tell();
    void checkProgress();

    SerialLine mLine;
    QTimer mWatch;
    QTimer mLineWatch;
    std::atomic<qint64> mAccepted = 0;
    std::atomic<qint64> mEchoes = 0;
    std::atomic<bool> mNoticed = false;
    qint64 mAcceptedBefore = 0; // at the check before, as the one below
    qint64 mEchoesBefore = 0;
};

} // namespace buslink
