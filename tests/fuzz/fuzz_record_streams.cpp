// SPDX-License-Identifier: MIT
#include "fuzz_support.h"
#include "support/fake_adapter.h"
#include "support/saved.h"

#include <QtCore/QDataStream>

// The first byte of the input chooses a record and the byte order, the rest is its stream. What was
// read is written and read once more: the bytes of both writings are the same.

namespace {

template <typename Record>
void readWriteRead(const QByteArray &input, QDataStream::ByteOrder byteOrder)
{
    QDataStream stream(input);
    stream.setByteOrder(byteOrder);
    Record record;
    stream >> record;
    const QByteArray data = saved(record);
    QDataStream back(data);
    Record again;
    back >> again;
    require(back.status() == QDataStream::Ok);
    require(back.atEnd());
    require(saved(again) == data);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    if (size == 0)
        return 0;
    const QByteArray input = inputBytes(data + 1, size - 1);
    const auto byteOrder = (data[0] & 4) ? QDataStream::LittleEndian : QDataStream::BigEndian;
    switch (data[0] & 3) {
    case 0:
        readWriteRead<CAN::CANClassicBusParameter>(input, byteOrder);
        break;
    case 1:
        readWriteRead<CAN::CANFDBusParameter>(input, byteOrder);
        break;
    case 2:
        readWriteRead<AbstractCanAdapter::PeakAdvValues>(input, byteOrder);
        break;
    default:
        readWriteRead<AbstractCanAdapter::SystecXM3AdvValues>(input, byteOrder);
        break;
    }
    return 0;
}
