// SPDX-License-Identifier: MIT
#include "support/stderr_recorder.h"

#include <QtCore/QtGlobal>

#include <cstdio>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

StderrRecorder::StderrRecorder()
{
    std::fflush(stderr);
    mPrevious = ::dup(STDERR_FILENO);
    mFile = ::memfd_create("stderr", MFD_CLOEXEC);
    if (mPrevious < 0 || mFile < 0 || ::dup2(mFile, STDERR_FILENO) < 0)
        qFatal("standard error cannot be kept");
}

StderrRecorder::~StderrRecorder()
{
    std::fflush(stderr);
    ::dup2(mPrevious, STDERR_FILENO);
    ::close(mPrevious);
    ::close(mFile);
}

QByteArray StderrRecorder::text() const
{
    std::fflush(stderr);
    struct stat state
    {
    };
    ::fstat(mFile, &state);
    QByteArray bytes(static_cast<int>(state.st_size), '\0');
    const ssize_t got = ::pread(mFile, bytes.data(), static_cast<std::size_t>(bytes.size()), 0);
    bytes.resize(static_cast<int>(got));
    return bytes;
}
