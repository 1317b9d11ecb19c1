// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

namespace buslink {

/// What stands between a transmitter and an adapter: it hands writes on and does nothing else. Opening and stopping
/// the adapter behind it is the business of that one's owner.
class WriteOnlyAdapter : public AbstractCanAdapter
{
public:
    using AbstractCanAdapter::write;

    CAN::RetType open() override { return CAN::RetError; }
    void closeAdapter() override {}
    void resetDriver() override {}
    CAN::CanState getState() override { return CAN::CanStateNone; }
    void prepareToTerminate() override {}
};

} // namespace buslink
