// SPDX-License-Identifier: MIT
#include "support/allocation_watch.h"

#include <atomic>

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ADDRESS_SANITIZER
#endif
#endif

namespace {

std::atomic<bool> watching{false};
std::atomic<std::size_t> largestRequest{0};

void note(std::size_t size)
{
    if (!watching.load(std::memory_order_relaxed))
        return;
    std::size_t before = largestRequest.load(std::memory_order_relaxed);
    while (before < size && !largestRequest.compare_exchange_weak(before, size, std::memory_order_relaxed)) {
    }
}

} // namespace

#ifdef UNDER_ADDRESS_SANITIZER

// Not every compiler brings the header that declares it.
extern "C" int __sanitizer_install_malloc_and_free_hooks( // NOLINT(bugprone-reserved-identifier)
    void (*onMalloc)(const volatile void *, std::size_t), void (*onFree)(const volatile void *));

namespace {
const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void *, std::size_t size) { note(size); }, [](const volatile void *) {});
}

#else

// glibc's own names of its allocator.
extern "C" {
void *__libc_malloc(std::size_t size);                    // NOLINT(bugprone-reserved-identifier)
void *__libc_calloc(std::size_t count, std::size_t size); // NOLINT(bugprone-reserved-identifier)
void *__libc_realloc(void *memory, std::size_t size);     // NOLINT(bugprone-reserved-identifier)

__attribute__((visibility("default"))) void *malloc(std::size_t size) noexcept
{
    note(size);
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void *calloc(std::size_t count, std::size_t size) noexcept
{
    std::size_t product = 0;
    note(__builtin_mul_overflow(count, size, &product) ? ~std::size_t(0) : product);
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void *realloc(void *memory, std::size_t size) noexcept
{
    note(size);
    return __libc_realloc(memory, size);
}
}

#endif

AllocationWatch::AllocationWatch()
{
#ifdef UNDER_ADDRESS_SANITIZER
    static_cast<void>(installed);
#endif
    largestRequest.store(0);
    watching.store(true);
}

AllocationWatch::~AllocationWatch()
{
    watching.store(false);
}

std::size_t AllocationWatch::largest() const
{
    return largestRequest.load();
}
