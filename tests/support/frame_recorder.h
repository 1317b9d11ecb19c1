// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QMetaObject>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QVector>

#include <memory>

class AbstractCanAdapter;
class QThread;

/// Keeps the frames that an adapter delivers, on whatever thread it does so.
class FrameRecorder
{
public:
    /// Connects directly to the adapter's frame signal.
    explicit FrameRecorder(AbstractCanAdapter *adapter);
    ~FrameRecorder();
    FrameRecorder(const FrameRecorder &) = delete;
    FrameRecorder &operator=(const FrameRecorder &) = delete;

    /// The frames so far. *Thread:* any.
    QVector<CAN::CanRxMessage> frames() const;
    /// How many there are so far. *Thread:* any.
    int count() const;
    /// The thread that delivered the last one, null before the first.
    QThread *lastThread() const;
    /// Forgets the frames.
    void clear();

private:
    struct Records
    {
        void take(const CAN::CanRxMessage &message);

        QMutex mutex;
        QVector<CAN::CanRxMessage> frames;
        QThread *lastThread = nullptr;
    };

    // Shared with the connection: a delivery on another thread may outlast the recorder.
    std::shared_ptr<Records> mRecords = std::make_shared<Records>();
    QMetaObject::Connection mConnection;
};

/// All bytes of a frame record, so that comparisons leave nothing out.
QByteArray bytesOf(const CAN::CanMessage &message);

/// A frame with this identifier and payload.
CAN::CanMessage makeFrame(quint32 id, const QByteArray &payload);

Q_DECLARE_METATYPE(CAN::CanMessage)

namespace QTest {
char *toString(const CAN::CanMessage &message);
}
