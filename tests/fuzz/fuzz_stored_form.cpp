// SPDX-License-Identifier: MIT
#include "fuzz_support.h"
#include "support/fake_adapter.h"

// Restores an adapter from any bytes. Whatever they were, the adapter can be stored afterwards, and its
// stored form restores it to the same stored form, except that parity shifts once.

namespace {

QByteArray restoredAgain(const QByteArray &stored)
{
    FakeAdapter adapter;
    adapter.setValuesFromByteArray(stored);
    return adapter.getValuesAsByteArray();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    FakeAdapter adapter;
    adapter.setValuesFromByteArray(inputBytes(data, size));
    // Restoring ends before option_forceEcho.
    adapter.setCanAdapterOption(AbstractCanAdapter::option_forceEcho, false);
    adapter.setCanAdapterOption(AbstractCanAdapter::option_parity, 0);
    const QByteArray stored = adapter.getValuesAsByteArray();
    require(restoredAgain(stored) == stored);
    return 0;
}
