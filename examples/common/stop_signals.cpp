// SPDX-License-Identifier: MIT
#include "common/stop_signals.h"

#include <csignal>
#include <sys/signalfd.h>
#include <unistd.h>

namespace buslink {

namespace {

int blockedStopSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    const int descriptor = ::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    if (descriptor < 0)
        qFatal("no descriptor for signals");
    return descriptor;
}

} // namespace

StopSignals::StopSignals() : mDescriptor(blockedStopSignals()), mNotifier(mDescriptor.get(), QSocketNotifier::Read)
{
    connect(&mNotifier, &QSocketNotifier::activated, this, [this] { readSignals(); });
}

void StopSignals::readSignals()
{
    signalfd_siginfo info{};
    while (::read(mDescriptor.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        Q_EMIT received(static_cast<int>(info.ssi_signo));
}

} // namespace buslink
