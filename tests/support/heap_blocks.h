// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

/// How many blocks of memory the process has allocated and not freed. A program that asks has to be linked
/// with heap_blocks.cpp itself, which puts itself between the program and the C library.
qint64 heapBlocks();
