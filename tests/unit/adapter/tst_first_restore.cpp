// SPDX-License-Identifier: MIT
#include "support/fake_adapter.h"
#include "support/log_recorder.h"
#include "support/option_rows.h"
#include "support/stored_forms.h"

#include <QtTest/QtTest>

using A = AbstractCanAdapter;

// A program of its own: nothing may have used the descriptor in a QVariant before.
class TestFirstRestore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstRestoreOfAProcessResetsTheDescriptorAndEndsThere()
    {
        StoredForm form;
        form.fill("00000000 01");
        form[A::option_CANFD] = "00000001 00 01";
        form[A::option_canfdBitrateDesc] = StoredDescriptor;
        form[A::option_forceEcho] = "00000001 00 01";
        FakeAdapter adapter;
        adapter.setCanAdapterOption(A::option_fdbitrate, 2000);
        QCOMPARE(QMetaType::type("CAN::CANBitrateDesc"), int(QMetaType::UnknownType));

        const LogRecorder withoutWarnings;
        adapter.setValuesFromByteArray(joined(form));

        QCOMPARE(told(adapter.getCanAdapterOption(A::option_CANFD)), QStringLiteral("bool true"));
        QCOMPARE(told(adapter.getCanAdapterOption(A::option_canfdBitrateDesc)),
                 QStringLiteral("CAN::CANBitrateDesc null 0 0"));
        QCOMPARE(told(adapter.getCanAdapterOption(A::option_forceEcho)), QStringLiteral("bool false"));
    }
};

QTEST_APPLESS_MAIN(TestFirstRestore)
#include "tst_first_restore.moc"
