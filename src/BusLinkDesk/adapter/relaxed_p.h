// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <type_traits>

// Access to plain fields that a running adapter reads per frame while the application may still change
// them. The fields keep their plain types, since their layout is fixed; on x86-64 these are plain moves.
namespace buslink {

template <typename T>
T relaxedLoad(const T &field) noexcept
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    return std::atomic_ref<T>(const_cast<T &>(field)).load(std::memory_order_relaxed);
}

template <typename T>
void relaxedStore(T &field, std::type_identity_t<T> value) noexcept
{
    static_assert(std::atomic_ref<T>::is_always_lock_free);
    std::atomic_ref<T>(field).store(value, std::memory_order_relaxed);
}

} // namespace buslink
