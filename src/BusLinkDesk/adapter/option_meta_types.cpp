// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/option_meta_types_p.h>

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

namespace buslink {

namespace {

bool registerAll()
{
    using A = AbstractCanAdapter;
    // The bus-parameter records have two names each: stored configurations use either.
    qRegisterMetaType<A::PeakAdvValues>("AbstractCanAdapter::PeakAdvValues");
    qRegisterMetaType<A::SystecXM3AdvValues>("AbstractCanAdapter::SystecXM3AdvValues");
    qRegisterMetaType<CAN::CANFDBusParameter>("AbstractCanAdapter::CANFDBusParameter");
    qRegisterMetaType<CAN::CANFDBusParameter>("CAN::CANFDBusParameter");
    qRegisterMetaType<CAN::CANClassicBusParameter>("CAN::CANClassicBusParameter");
    qRegisterMetaType<CAN::CANClassicBusParameter>("AbstractCanAdapter::CANClassicBusParameter");
    qRegisterMetaType<A::SocketCANProps>("AbstractCanAdapter::SocketCANProps");

    qRegisterMetaTypeStreamOperators<A::PeakAdvValues>("AbstractCanAdapter::PeakAdvValues");
    qRegisterMetaTypeStreamOperators<A::SystecXM3AdvValues>("AbstractCanAdapter::SystecXM3AdvValues");
    qRegisterMetaTypeStreamOperators<CAN::CANFDBusParameter>("AbstractCanAdapter::CANFDBusParameter");
    qRegisterMetaTypeStreamOperators<CAN::CANFDBusParameter>("CAN::CANFDBusParameter");
    qRegisterMetaTypeStreamOperators<CAN::CANClassicBusParameter>("CAN::CANClassicBusParameter");
    qRegisterMetaTypeStreamOperators<CAN::CANClassicBusParameter>("AbstractCanAdapter::CANClassicBusParameter");
    return true;
}

} // namespace

void registerOptionMetaTypes()
{
    static const bool done = registerAll();
    Q_UNUSED(done)
}

} // namespace buslink
