// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QtGlobal>

#include <algorithm>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

/// Takes all descriptors below a number, so that the next one to be opened is at least that.
class TakenDescriptors
{
public:
    explicit TakenDescriptors(int below)
    {
        ::getrlimit(RLIMIT_NOFILE, &mLimit);
        rlimit raised = mLimit;
        raised.rlim_cur =
            std::max(mLimit.rlim_cur, std::min<rlim_t>(mLimit.rlim_max, static_cast<rlim_t>(below) + 100));
        ::setrlimit(RLIMIT_NOFILE, &raised);
        int descriptor = 0;
        while (descriptor >= 0 && descriptor < below - 1) {
            descriptor = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (descriptor >= 0)
                mTaken.push_back(descriptor);
        }
        mAll = descriptor >= 0;
    }
    ~TakenDescriptors()
    {
        for (const int one : mTaken)
            ::close(one);
        ::setrlimit(RLIMIT_NOFILE, &mLimit);
    }
    Q_DISABLE_COPY_MOVE(TakenDescriptors)

    /// Whether the machine allowed so many.
    bool all() const { return mAll; }

private:
    rlimit mLimit{};
    std::vector<int> mTaken;
    bool mAll = false;
};
