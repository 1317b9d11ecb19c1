// SPDX-License-Identifier: MIT
#include <BusLinkDesk/types/can_frames.h>

#include <cstddef>
#include <type_traits>

CanTimeStamp::CanTimeStamp() : seconds(0), microseconds(0) {}

namespace CAN {

CanMessage::CanMessage()
    : id(0)
    , length(0)
    , data{}
    , isRtr(false)
    , isExtended(false)
    , isFd(false)
    , isEsi(false)
    , isBrs(false)
    , reservedFlag(0)
    , fillByte(0)
{}

CanRxMessage::CanRxMessage() : isTx(false), fillBytes{}, packetWord(0), adapterId(0), endBytes{} {}

// Other processes read these bytes, so a change of layout must not even compile.
static_assert(sizeof(CanMessage) == 76);
static_assert(offsetof(CanMessage, length) == 4);
static_assert(offsetof(CanMessage, data) == 5);
static_assert(offsetof(CanMessage, isRtr) == 69);
static_assert(offsetof(CanMessage, isExtended) == 70);
static_assert(offsetof(CanMessage, isFd) == 71);
static_assert(offsetof(CanMessage, isEsi) == 72);
static_assert(offsetof(CanMessage, isBrs) == 73);
static_assert(offsetof(CanMessage, reservedFlag) == 74);
static_assert(offsetof(CanMessage, fillByte) == 75);
static_assert(std::has_unique_object_representations_v<CanMessage>);
static_assert(std::has_unique_object_representations_v<CanRxMessage>);
static_assert(std::is_trivially_copyable_v<CanMessage>);
static_assert(std::is_trivially_copyable_v<CanRxMessage>);
static_assert(std::is_trivially_copyable_v<CanTimeStamp>);

} // namespace CAN

namespace {

// Queued signals look these types up by name, possibly before anything else has used them.
void registerFrameMetaTypes()
{
    qRegisterMetaType<CAN::CanRxMessage>("CAN::CanRxMessage");
    qRegisterMetaType<CanTimeStamp>("CanTimeStamp");
    qRegisterMetaType<CAN::CanState>("CAN::CanState");
    qRegisterMetaType<CAN::RetType>("CAN::RetType");
}

} // namespace

Q_CONSTRUCTOR_FUNCTION(registerFrameMetaTypes)
