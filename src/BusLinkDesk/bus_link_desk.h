// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/export.h>

/// The library by name: an object that a program creates to depend on the library and nothing more.
class BUSLINKDESK_EXPORT BusLinkDesk
{
public:
    /// Creates the object; it holds no state and starts nothing.
    BusLinkDesk();
};
