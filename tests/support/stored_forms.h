// SPDX-License-Identifier: MIT
#pragma once

#include <BusLinkDesk/adapter/abstract_can_adapter.h>

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <array>

/// A stored configuration as hexadecimal digits, position by position.
using StoredForm = std::array<const char *, AbstractCanAdapter::option_lastEnum>;

/// Position 43 or 44 of every stored form: a "CAN::CANBitrateDesc" without a value.
extern const char *const StoredDescriptor;

/// What an adapter without any configuration is stored as.
extern const StoredForm DefaultForm;

/// What an adapter is stored as after `configureFully`.
extern const StoredForm FullForm;

/// Gives every option that can be set a value of its own, none of them the default.
void configureFully(AbstractCanAdapter &adapter);

/// What `told` gives for each option that the full form holds, once it is restored. Unlike the configured
/// adapter's: even parity has become odd, and the timing of the records is not valid.
QStringList valuesOfFullForm();

/// The whole array.
QByteArray joined(const StoredForm &form);
