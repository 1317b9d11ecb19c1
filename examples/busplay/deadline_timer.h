// SPDX-License-Identifier: MIT
#pragma once

#include "common/descriptor.h"

#include <QtCore/QObject>
#include <QtCore/QSocketNotifier>

namespace buslink {

/// Now on the clock of `DeadlineTimer`, in µs.
qint64 monotonicUs();

/// Waits for a moment in the event loop. Finer than QTimer, whose milliseconds are several frames of a
/// loaded bus.
class DeadlineTimer : public QObject
{
    Q_OBJECT

public:
    DeadlineTimer();

    /// Emits `expired` once at a moment of `monotonicUs`; replaces the moment set before.
    void startAt(qint64 monotonicUs);
    /// Forgets the moment.
    void stop();

Q_SIGNALS:
    /// The moment has come.
    void expired();

private:
    void arm(qint64 monotonicUs);

    Descriptor mDescriptor;
    QSocketNotifier mNotifier;
};

} // namespace buslink
