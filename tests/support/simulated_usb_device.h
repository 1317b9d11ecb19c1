// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QMap>
#include <QtCore/QMutex>

#include <atomic>
#include <thread>

/// What stands on the far end of a serial port: it keeps all bytes that it gets and, as told, sends, returns
/// and answers, on a thread of its own. Everything may be called at any time. *Thread:* any.
class SimulatedUsbDevice
{
public:
    /// Begins to listen on a descriptor that does not wait, which has to outlive the device.
    explicit SimulatedUsbDevice(int descriptor);
    /// Stops; what was not sent yet is dropped.
    ~SimulatedUsbDevice();
    SimulatedUsbDevice(const SimulatedUsbDevice &) = delete;
    SimulatedUsbDevice &operator=(const SimulatedUsbDevice &) = delete;

    /// All bytes so far.
    QByteArray received() const;
    /// How many there are so far.
    int receivedCount() const;
    /// Forgets them.
    void forgetReceived();
    /// Sends bytes.
    void send(const QByteArray &bytes);
    /// Whether everything that was to be sent has gone out.
    bool hasSentAll() const;
    /// Sends every byte back that comes from now on, as a device in half-duplex operation does.
    void setReturning(bool returning);
    /// Answers each blank with a carriage return, by which text commands begin; without bytes not at all.
    void setAnswer(const QByteArray &answer);
    /// Takes nothing any more, so that the line fills up, or goes on.
    void setListening(bool listening);
    /// Sends in pieces of at most this many bytes, with a pause before each.
    void setPieces(int size, int pauseMs);
    /// Flips the lowest bit of a byte that goes out, counted from 0 from this call on.
    void damage(int position);
    /// Leaves out a byte, counted in the same way.
    void drop(int position);

private:
    void run();
    void take();
    void give();
    void enqueue(const QByteArray &bytes);
    void wake();

    const int mDescriptor;
    const int mWake;
    mutable QMutex mMutex;
    QByteArray mReceived;
    QByteArray mOutgoing;
    QByteArray mAnswer;
    char mLastByte = 0;
    bool mReturning = false;
    bool mListening = true;
    int mPieceSize = 4096;
    int mPauseMs = 0;
    int mPosition = 0;
    enum class Fault { Damage, Drop };
    QMap<int, Fault> mFaults;
    std::atomic<bool> mStop = false;
    std::thread mThread;
};
