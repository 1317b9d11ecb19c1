// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QVector>
#include <QtCore/qglobal.h>

/// A TCP port of the loopback address that a test holds without Qt, to do what no well-behaved server does.
/// Until `listen()`, connections to it are refused.
class LoopbackPort
{
public:
    /// Binds a free port.
    LoopbackPort();
    ~LoopbackPort();
    LoopbackPort(const LoopbackPort &) = delete;
    LoopbackPort &operator=(const LoopbackPort &) = delete;

    quint16 number() const { return mNumber; }
    /// Lets the system take connections.
    void listen();
    /// Takes so many connections that the system leaves every further attempt without an answer.
    /// False if it goes on answering.
    bool stopAnswering();
    /// The descriptor of the connection that has waited longest; it lives as long as this object.
    int accept();

private:
    int mListener = -1;
    quint16 mNumber = 0;
    QVector<int> mOthers;
};
