// SPDX-License-Identifier: MIT
#include "support/frame_recorder.h"

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <algorithm>

FrameRecorder::FrameRecorder(AbstractCanAdapter *adapter)
    : mConnection(QObject::connect(adapter, &AbstractCanAdapter::newCanMessage,
                                   [records = mRecords](CAN::CanRxMessage *message) { records->take(*message); }))
{}

void FrameRecorder::Records::take(const CAN::CanRxMessage &message)
{
    const QMutexLocker lock(&mutex);
    frames.append(message);
    lastThread = QThread::currentThread();
}

FrameRecorder::~FrameRecorder()
{
    QObject::disconnect(mConnection);
}

QVector<CAN::CanRxMessage> FrameRecorder::frames() const
{
    const QMutexLocker lock(&mRecords->mutex);
    return mRecords->frames;
}

int FrameRecorder::count() const
{
    const QMutexLocker lock(&mRecords->mutex);
    return mRecords->frames.size();
}

QThread *FrameRecorder::lastThread() const
{
    const QMutexLocker lock(&mRecords->mutex);
    return mRecords->lastThread;
}

void FrameRecorder::clear()
{
    const QMutexLocker lock(&mRecords->mutex);
    mRecords->frames.clear();
}

QByteArray bytesOf(const CAN::CanMessage &message)
{
    return QByteArray(reinterpret_cast<const char *>(&message), sizeof message);
}

CAN::CanMessage makeFrame(quint32 id, const QByteArray &payload)
{
    CAN::CanMessage message;
    message.id = id;
    message.length = static_cast<quint8>(payload.size());
    std::copy_n(payload.constData(), std::min<int>(payload.size(), sizeof message.data), message.data);
    return message;
}

char *QTest::toString(const CAN::CanMessage &message)
{
    return qstrdup(bytesOf(message).toHex(' ').constData());
}
