// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMetaMethod>
#include <QtCore/QStringList>

/// Signatures and result types of a class's own meta-object methods, in order.
inline QStringList ownMethodsOf(const QMetaObject &metaObject)
{
    QStringList methods;
    for (int index = metaObject.methodOffset(); index < metaObject.methodCount(); ++index) {
        const QMetaMethod method = metaObject.method(index);
        QString line = QString::fromLatin1(method.methodType() == QMetaMethod::Signal ? "signal " : "slot ");
        methods << line.append(QString::fromLatin1(method.typeName() + QByteArray(1, ' ') + method.methodSignature()));
    }
    return methods;
}
