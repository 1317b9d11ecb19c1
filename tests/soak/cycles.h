// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>

/// Makes, opens, closes and deletes adapters of every back end that there is here, this often each, and prints what
/// of descriptors, threads and memory is left. With `only`, adapters of one back end, by the name that its line has.
/// False if anything is left, or if an adapter did not open.
bool runCycles(int cycles, const QString &only);
