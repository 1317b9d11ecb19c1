// SPDX-License-Identifier: MIT
#pragma once

#include "buscycle/send_gate.h"
#include "common/echo_counter.h"

#include <BusLinkDesk/traffic/can_message_transmitter.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>
#include <optional>

namespace buslink {

/// Sends one frame again and again through a transmitter, and ends only when every frame that the adapter
/// accepted has left.
class CycleSender : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        CAN::CanMessage frame;         ///< What to send.
        quint32 intervalMs = 100;      ///< Pause after each frame.
        quint32 count = 0;             ///< How many frames to send; 0: without end.
        std::optional<quint8> syncMax; ///< Largest value of a counter in byte 0; none: the byte stays.
        int echoTimeoutMs = 5000;      ///< How long to wait for the next echo while some are missing.
    };

    explicit CycleSender(const Settings &settings);
    /// Sends nothing more. *Blocks:* up to an interval.
    ~CycleSender() override;

    /// Sets where to send, and turns echo on there. The adapter is not open yet. It outlives the last write,
    /// which `finished` tells, and it is gone before the sender is, since echoes arrive on a thread of its
    /// own.
    void setAdapter(AbstractCanAdapter *adapter);
    /// Begins; the event loop does the rest.
    void start();
    /// Sends nothing more, and finishes when what was accepted has left. *Blocks:* up to an interval.
    void interrupt();
    /// Finishes without waiting for echoes, which do not come any more. *Blocks:* up to an interval.
    void transportFailed();

    /// How many frames have left.
    qint64 sentFrames() const { return mEchoes.sentFrames(); }
    /// Whether the wanted number of frames has left.
    bool isComplete() const { return mSettings.count > 0 && sentFrames() == mSettings.count; }
    /// What went wrong; empty if nothing did.
    QString error() const { return mError; }

Q_SIGNALS:
    /// The transmitter is gone and nothing is waited for. Emitted once.
    void finished();

private:
    void endTransmission();
    void finishWhenAllHaveLeft();
    void finish();
    void fail(const QString &error);

    const Settings mSettings;
    EchoCounter mEchoes;
    SendGate mGate;
    std::unique_ptr<CanMessageTransmitter> mTransmitter;
    bool mEnding = false;
    bool mFinished = false;
    QString mError;
};

} // namespace buslink
