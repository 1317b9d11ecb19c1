// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

#include <csignal>
#include <sys/resource.h>

/// Lets no file of this process grow beyond a size, as a full disk would, while the object lives.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes) : mDisposition(std::signal(SIGXFSZ, SIG_IGN))
    {
        if (::getrlimit(RLIMIT_FSIZE, &mBefore) != 0)
            qFatal("no limit of the file size");
        set({bytes, mBefore.rlim_max});
    }
    ~FileSizeLimit()
    {
        set(mBefore);
        std::signal(SIGXFSZ, mDisposition);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

private:
    static void set(const rlimit &limit)
    {
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
            qFatal("the limit of the file size cannot be set");
    }

    void (*mDisposition)(int);
    rlimit mBefore{};
};
