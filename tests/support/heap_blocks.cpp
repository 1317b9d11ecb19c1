// SPDX-License-Identifier: MIT
#include "support/heap_blocks.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

namespace {

constinit std::atomic<qint64> blocks = 0;

void *counted(void *memory)
{
    if (memory)
        blocks.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

} // namespace

qint64 heapBlocks()
{
    return blocks.load();
}

// glibc keeps its own functions under these names. Everything else that allocates, libraries included,
// is bound to the functions of the program.
extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier)
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t number, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void *memory);
// NOLINTEND(bugprone-reserved-identifier)

Q_DECL_EXPORT void *malloc(std::size_t size)
{
    return counted(__libc_malloc(size));
}

Q_DECL_EXPORT void *calloc(std::size_t number, std::size_t size)
{
    return counted(__libc_calloc(number, size));
}

Q_DECL_EXPORT void *realloc(void *memory, std::size_t size)
{
    void *const made = __libc_realloc(memory, size);
    if (memory && (made || size == 0))
        blocks.fetch_sub(1, std::memory_order_relaxed);
    return counted(made);
}

Q_DECL_EXPORT void *memalign(std::size_t alignment, std::size_t size)
{
    return counted(__libc_memalign(alignment, size));
}

Q_DECL_EXPORT void *aligned_alloc(std::size_t alignment, std::size_t size)
{
    return counted(__libc_memalign(alignment, size));
}

Q_DECL_EXPORT int posix_memalign(void **memory, std::size_t alignment, std::size_t size)
{
    void *const made = counted(__libc_memalign(alignment, size));
    if (!made)
        return ENOMEM;
    *memory = made;
    return 0;
}

Q_DECL_EXPORT void free(void *memory)
{
    if (memory)
        blocks.fetch_sub(1, std::memory_order_relaxed);
    __libc_free(memory);
}

} // extern "C"
