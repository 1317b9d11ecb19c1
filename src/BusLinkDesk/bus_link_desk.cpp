// SPDX-License-Identifier: MIT
#include <BusLinkDesk/bus_link_desk.h>

BusLinkDesk::BusLinkDesk() = default;
