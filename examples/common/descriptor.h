// SPDX-License-Identifier: MIT
#pragma once

#include <unistd.h>
#include <utility>

namespace buslink {

/// Owns a file descriptor.
class Descriptor
{
public:
    explicit Descriptor(int descriptor = -1) : mDescriptor(descriptor) {}
    Descriptor(Descriptor &&other) noexcept : mDescriptor(std::exchange(other.mDescriptor, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept
    {
        std::swap(mDescriptor, other.mDescriptor);
        return *this;
    }
    ~Descriptor()
    {
        if (mDescriptor >= 0)
            ::close(mDescriptor);
    }

    int get() const { return mDescriptor; }

private:
    int mDescriptor;
};

} // namespace buslink
