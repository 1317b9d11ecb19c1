// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QFile>

/// What a file holds; the test ends where it cannot be read.
inline QByteArray contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("cannot read %s", qPrintable(path));
    return file.readAll();
}
