// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMetaMethod>
#include <QtCore/QStringList>

/// A class's own meta-object methods, in order.
inline QStringList methodsOf(const QMetaObject &metaObject)
{
    QStringList methods;
    for (int index = metaObject.methodOffset(); index < metaObject.methodCount(); ++index) {
        const QMetaMethod method = metaObject.method(index);
        const char *const kinds[] = {"method", "signal", "slot", "constructor"};
        const char *const accesses[] = {"private", "protected", "public"};
        methods << QStringLiteral("%1 %2 %3 (%4)")
                       .arg(QLatin1String(accesses[method.access()]), QLatin1String(kinds[method.methodType()]),
                            QString::fromLatin1(method.methodSignature()),
                            QString::fromLatin1(method.parameterNames().join(',')));
    }
    return methods;
}
