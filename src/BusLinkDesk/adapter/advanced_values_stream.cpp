// SPDX-License-Identifier: MIT
#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QDataStream>

// Both orders differ from the orders of the fields; stored configurations hold them as they are here.

QDataStream &operator<<(QDataStream &stream, const AbstractCanAdapter::PeakAdvValues &values)
{
    return stream << values.value << values.param0 << values.param3 << values.param1 << values.param2 << values.enabled;
}

QDataStream &operator>>(QDataStream &stream, AbstractCanAdapter::PeakAdvValues &values)
{
    return stream >> values.value >> values.param0 >> values.param3 >> values.param1 >> values.param2 >> values.enabled;
}

QDataStream &operator<<(QDataStream &stream, const AbstractCanAdapter::SystecXM3AdvValues &values)
{
    return stream << values.param5 << values.param4 << values.flag << values.param0 << values.param1 << values.param2
                  << values.param3;
}

QDataStream &operator>>(QDataStream &stream, AbstractCanAdapter::SystecXM3AdvValues &values)
{
    return stream >> values.param5 >> values.param4 >> values.flag >> values.param0 >> values.param1 >> values.param2
           >> values.param3;
}
