// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace buslink {

/// Runs a program and returns what it printed within a second, up to a zero byte; one that runs longer is
/// killed. *Thread:* any. *Blocks:* up to 1 s, and 1 s more for a program that does not die at once.
/// *Fails:* a program that cannot be started prints nothing; its exit code and its errors are not looked at.
QString outputOfProgram(const QString &program, const QStringList &arguments);

/// The same for the program that tells about network interfaces.
QString outputOfIp(const QStringList &arguments);

} // namespace buslink
