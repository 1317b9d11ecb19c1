// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

/// Marks what libBusFoundation.so.1 offers to programs; everything else is hidden.
#define BUSFOUNDATION_EXPORT Q_DECL_EXPORT

/// Marks what libBusLinkDesk.so.1 offers to programs; everything else is hidden.
#define BUSLINKDESK_EXPORT Q_DECL_EXPORT
