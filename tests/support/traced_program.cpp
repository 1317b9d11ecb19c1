// SPDX-License-Identifier: MIT
#include "support/traced_program.h"

#include <QtCore/QVector>

#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

pid_t startTraced(const QString &program, const QStringList &arguments)
{
    QVector<QByteArray> words{program.toLocal8Bit()};
    for (const QString &argument : arguments)
        words.append(argument.toLocal8Bit());
    QVector<char *> pointers;
    for (QByteArray &word : words)
        pointers.append(word.data());
    pointers.append(nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        ::execv(pointers.front(), pointers.data());
        ::_exit(127);
    }
    return child;
}

user_regs_struct registersOf(pid_t child)
{
    user_regs_struct registers{};
    ::ptrace(PTRACE_GETREGS, child, nullptr, &registers);
    return registers;
}

bool createsFile(const user_regs_struct &call)
{
    return call.orig_rax == SYS_openat && ((call.rdx & O_CREAT) != 0 || (call.rdx & O_TMPFILE) == O_TMPFILE);
}

/// True behind the call alone: before it the place of its result tells an error.
bool hasRenamedFile(const user_regs_struct &call)
{
    const bool renames = call.orig_rax == SYS_rename || call.orig_rax == SYS_renameat || call.orig_rax == SYS_renameat2;
    return renames && call.rax == 0;
}

/// Lets a stopped program run on to its end.
int letGo(pid_t child)
{
    int status = 0;
    ::ptrace(PTRACE_DETACH, child, nullptr, nullptr);
    ::waitpid(child, &status, 0);
    return status;
}

TracedEnd endOf(int status, int signal)
{
    if (WIFSIGNALED(status) && WTERMSIG(status) == signal)
        return TracedEnd::Signalled;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? TracedEnd::Finished : TracedEnd::Failed;
}

} // namespace

TracedEnd signalWhileSaving(const QString &program, const QStringList &arguments, int stop, int signal)
{
    const pid_t child = startTraced(program, arguments);
    int status = 0;
    int stopsToGo = -1;
    while (::waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
        // With this option a stop at a system call is told from one at a trap.
        ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
        const bool atCall = WSTOPSIG(status) == (SIGTRAP | 0x80);
        if (atCall) {
            const user_regs_struct call = registersOf(child);
            if (stopsToGo < 0 && createsFile(call))
                stopsToGo = stop;
            if (stopsToGo >= 0 && stopsToGo-- == 0) {
                ::kill(child, signal);
                return endOf(letGo(child), signal);
            }
            if (hasRenamedFile(call))
                return endOf(letGo(child), signal);
        }
        const long passedOn = atCall || WSTOPSIG(status) == SIGTRAP ? 0 : WSTOPSIG(status);
        ::ptrace(PTRACE_SYSCALL, child, nullptr, passedOn);
    }
    return endOf(status, signal);
}
