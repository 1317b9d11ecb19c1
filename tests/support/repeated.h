// SPDX-License-Identifier: MIT
#pragma once

#include <QtTest/QtTest>

#include <type_traits>

/// Makes a call again and again until it gives a value, for up to a time, and returns what it gave last. For calls
/// whose success is not lasting: QTRY_COMPARE makes the call once more when it was right.
template <typename Call>
auto repeatedUntil(const std::invoke_result_t<Call> &expected, Call call, int timeoutMs = 60000)
{
    std::invoke_result_t<Call> result;
    static_cast<void>(QTest::qWaitFor([&] { return (result = call()) == expected; }, timeoutMs));
    return result;
}
