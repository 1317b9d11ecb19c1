// SPDX-License-Identifier: MIT
#pragma once

#include "common/descriptor.h"

#include <QtCore/QObject>
#include <QtCore/QSocketNotifier>

namespace buslink {

/// Turns SIGINT and SIGTERM into a Qt signal of the event loop. Create it before any other thread starts:
/// threads inherit that the signals are blocked, and one that did not would be ended by them.
class StopSignals : public QObject
{
    Q_OBJECT

public:
    StopSignals();

Q_SIGNALS:
    /// The process was asked to end.
    void received(int signal);

private:
    void readSignals();

    Descriptor mDescriptor;
    QSocketNotifier mNotifier;
};

} // namespace buslink
