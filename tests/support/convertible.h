// SPDX-License-Identifier: MIT
#pragma once

#include <QtCore/QMetaType>

/// A value that a QVariant can convert to a record, or that fails to convert although it could.
template <typename Record>
struct Convertible
{
    Record record;
    bool succeeds = true;

    Record convert(bool *ok) const
    {
        *ok = succeeds;
        return record;
    }

    /// Makes the conversion known; once for each kind of record.
    static bool registerConversion()
    {
        return QMetaType::registerConverter<Convertible, Record>(&Convertible::convert);
    }
};
