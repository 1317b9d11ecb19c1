// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/types/can_frames.h>

#include <QtCore/QString>

class AbstractCanAdapter;

namespace buslink {

struct AdapterStatus;

/// A bus state for people.
QString busStateText(CAN::CanState state);
/// What the table shows of an adapter's state.
QString statusText(const AdapterStatus &status);
/// The nominal rate that an adapter was told, in kbit/s; 0 if it is set elsewhere.
int toldRate(const AbstractCanAdapter &adapter);
/// The rate of an adapter, or who sets it.
QString rateText(const AbstractCanAdapter &adapter);

} // namespace buslink
