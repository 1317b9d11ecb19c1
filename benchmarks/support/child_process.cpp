// SPDX-License-Identifier: MIT
#include "support/child_process.h"

#include <QtCore/QByteArrayList>

#include <csignal>
#include <ctime>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

namespace {

double secondsOf(const timespec &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

double secondsOf(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

double clockSeconds(clockid_t clock)
{
    timespec now{};
    ::clock_gettime(clock, &now);
    return secondsOf(now);
}

} // namespace

ChildProcess::ChildProcess(const QStringList &command)
{
    // A file, so that a program that prints much never waits for its reader.
    if (!mOutput.open())
        qFatal("no temporary file");
    QByteArrayList words;
    std::vector<char *> arguments;
    arguments.reserve(static_cast<std::size_t>(command.size()) + 1);
    for (const QString &word : command) {
        words.append(word.toLocal8Bit());
        arguments.push_back(words.last().data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, mOutput.handle(), 1);
    if (::posix_spawnp(&mPid, arguments.front(), &actions, nullptr, arguments.data(), environ) != 0)
        mPid = -1;
    ::posix_spawn_file_actions_destroy(&actions);
}

ChildProcess::~ChildProcess()
{
    if (mPid < 0)
        return;
    ::kill(mPid, SIGKILL);
    ::waitpid(mPid, nullptr, 0);
}

bool ChildProcess::isRunning() const
{
    siginfo_t info{};
    return mPid >= 0 && ::waitid(P_PID, static_cast<id_t>(mPid), &info, WEXITED | WNOHANG | WNOWAIT) == 0
           && info.si_pid == 0;
}

double ChildProcess::processorSeconds() const
{
    clockid_t clock = 0;
    return mPid >= 0 && ::clock_getcpuclockid(mPid, &clock) == 0 ? clockSeconds(clock) : 0.0;
}

ChildProcess::End ChildProcess::wait()
{
    if (mPid < 0)
        return {127, 0.0, 0.0, {}};
    int status = 0;
    rusage usage{};
    ::wait4(mPid, &status, 0, &usage);
    mPid = -1;
    struct stat file
    {
    };
    ::fstat(mOutput.handle(), &file);
    mOutput.seek(0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status),
            secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime), secondsOf(file.st_mtim), mOutput.readAll()};
}

double ChildProcess::secondsNow()
{
    return clockSeconds(CLOCK_REALTIME_COARSE);
}
