// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/qglobal.h>

/// How often the calling thread has allocated memory so far, in whatever way. A program that asks has to
/// be linked with allocation_count.cpp itself, which puts itself between the program and the C library.
qint64 allocationsOfThisThread();
