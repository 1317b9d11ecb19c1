// SPDX-License-Identifier: MIT
#include "support/allocation_count.h"

#include <cerrno>
#include <cstddef>
#include <new>

namespace {

thread_local constinit qint64 count = 0;

} // namespace

qint64 allocationsOfThisThread()
{
    return count;
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define BUSLINK_SANITIZER_ALLOCATES
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define BUSLINK_SANITIZER_ALLOCATES
#endif

#ifdef BUSLINK_SANITIZER_ALLOCATES

// The sanitizer has its own allocator and tells of each allocation.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void *, std::size_t),
                                                         void (*freed)(const volatile void *));

namespace {

[[maybe_unused]] const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void *, std::size_t) { ++count; }, [](const volatile void *) {});

} // namespace

#else

// glibc keeps its own functions under these names. Everything else that allocates, libraries included,
// is bound to the functions of the program.
extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier)
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t number, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier)

Q_DECL_EXPORT void *malloc(std::size_t size)
{
    ++count;
    return __libc_malloc(size);
}

Q_DECL_EXPORT void *calloc(std::size_t number, std::size_t size)
{
    ++count;
    return __libc_calloc(number, size);
}

Q_DECL_EXPORT void *realloc(void *memory, std::size_t size)
{
    ++count;
    return __libc_realloc(memory, size);
}

Q_DECL_EXPORT void *aligned_alloc(std::size_t alignment, std::size_t size)
{
    ++count;
    return __libc_memalign(alignment, size);
}

Q_DECL_EXPORT int posix_memalign(void **memory, std::size_t alignment, std::size_t size)
{
    ++count;
    void *const made = __libc_memalign(alignment, size);
    if (!made)
        return ENOMEM;
    *memory = made;
    return 0;
}

} // extern "C"

#endif
