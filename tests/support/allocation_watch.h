// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// Watches how much memory a single request of the process asks for. A program that names it has its
/// malloc, calloc and realloc replaced; under the address sanitizer its hooks are used. One at a time.
class AllocationWatch
{
public:
    /// Begins to watch.
    AllocationWatch();
    ~AllocationWatch();
    AllocationWatch(const AllocationWatch &) = delete;
    AllocationWatch &operator=(const AllocationWatch &) = delete;

    /// The largest request so far, in bytes. *Thread:* any.
    std::size_t largest() const;
};
