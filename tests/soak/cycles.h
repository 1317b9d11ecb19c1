// SPDX-License-Identifier: MIT
#pragma once

/// Makes, opens, closes and deletes adapters of every back end that there is here, this often each, and prints what
/// of descriptors, threads and memory is left. False if anything is, or if an adapter did not open.
bool runCycles(int cycles);
