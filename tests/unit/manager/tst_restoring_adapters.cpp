// SPDX-License-Identifier: MIT
#include <BusLinkDesk/factory/can_adapter_factory.h>
#include <BusLinkDesk/manager/multi_can_adapter_handler.h>

#include <QtTest/QtTest>

#include <memory>

using A = AbstractCanAdapter;
using Type = A::CanAdapterType;

namespace {

/// One line an entry: key, own identifier, type, description, P for primary, A for active.
QStringList rowsOf(MultiCanAdapterHandler &set)
{
    QStringList rows;
    const auto &map = set.getAdapterMap();
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
        A *const adapter = entry.value();
        rows.append(QStringLiteral("%1 %2 %3 %4 %5%6")
                        .arg(entry.key())
                        .arg(adapter->getId())
                        .arg(adapter->getCanAdapterOption(A::option_adapterType).toInt())
                        .arg(adapter->getCanAdapterOption(A::option_description).toString(),
                             adapter->isPrimaryAdapter() ? QStringLiteral("P") : QString(),
                             adapter->isActiveAdapter() ? QStringLiteral("A") : QString()));
    }
    return rows;
}

QByteArray bytesOf(int type, int id, const char *description, bool primary = false, bool active = false)
{
    const std::unique_ptr<A> adapter(CanAdapterFactory::createCanAdapter(Type(type), QStringLiteral("device")));
    adapter->setCanAdapterOption(A::option_uniqueId, id);
    adapter->setCanAdapterOption(A::option_description, QString::fromLatin1(description));
    adapter->setCanAdapterOption(A::option_primaryAdapter, primary);
    adapter->setCanAdapterOption(A::option_activeAdapter, active);
    return adapter->getValuesAsByteArray();
}

} // namespace

class TestRestoringAdapters : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        mSet = std::make_unique<MultiCanAdapterHandler>();
        mChanges = std::make_unique<QSignalSpy>(mSet.get(), &MultiCanAdapterHandler::adapterMapChanged);
        mRemovals = std::make_unique<QSignalSpy>(mSet.get(), &MultiCanAdapterHandler::adapterRemoved);
    }

    void cleanup()
    {
        mSet->removeAllAdapters();
        CanAdapterFactory::allowedAdapters.clear();
    }

    void savedIdentifierOrderAndRolesComeBack()
    {
        // Not in their order, since that comes with the identifiers.
        mSet->addAdapterFromByteArray(Type(20), QString(), bytesOf(20, 9, "gateway", true, true));
        mSet->addAdapterFromByteArray(Type(6), QStringLiteral("v"), bytesOf(6, 2, "virtual"));
        mSet->addAdapterFromByteArray(Type(1), QStringLiteral("can0"), bytesOf(1, 5, "kernel", false, true));
        QCOMPARE(rowsOf(*mSet), (QStringList{QStringLiteral("2 2 6 virtual "), QStringLiteral("5 5 1 kernel A"),
                                             QStringLiteral("9 9 20 gateway PA")}));
        QCOMPARE(mChanges->count(), 3);
        QCOMPARE(mRemovals->count(), 0);
    }

    void forbiddenTypeAddsNothingAndEmitsNothing()
    {
        const QByteArray bytes = bytesOf(1, 3, "kernel");
        CanAdapterFactory::addAllowedAdapters(Type(6));
        mSet->addAdapterFromByteArray(Type(1), QStringLiteral("can0"), bytes);
        QCOMPARE(rowsOf(*mSet), QStringList());
        QCOMPARE(mChanges->count(), 0);
    }

    void typeWithoutABackEndAddsNothing()
    {
        mSet->addAdapterFromByteArray(Type(9), QStringLiteral("x"), bytesOf(6, 3, "virtual"));
        QCOMPARE(rowsOf(*mSet), QStringList());
        QCOMPARE(mChanges->count(), 0);
    }

    void noBytesAddAnAdapterUnderIdentifier0()
    {
        mSet->addAdapterFromByteArray(Type(6), QStringLiteral("v"), QByteArray());
        QCOMPARE(mSet->getAdapterMap().keys(), QList<quint16>{0});
        QCOMPARE(mSet->getAdapter(0)->getId(), quint16(0));
        QCOMPARE(mChanges->count(), 1);
    }

    void cutBytesAddAnAdapterWithWhatCouldBeRestored()
    {
        const QByteArray bytes = bytesOf(6, 3, "virtual");
        // Between the identifier and the description.
        const QByteArray text = QByteArray::fromHex("0000000A00") + QByteArray::fromHex("0000000E") /* 7 letters */;
        const int description = bytes.indexOf(text);
        QVERIFY(description > 0);
        mSet->addAdapterFromByteArray(Type(6), QStringLiteral("v"), bytes.left(description));
        QCOMPARE(mSet->getAdapterMap().keys(), QList<quint16>{3});
        QCOMPARE(mChanges->count(), 1);
        A *const adapter = mSet->getAdapter(3);
        QCOMPARE(adapter->getCanAdapterOption(A::option_adapterType), QVariant(6));
        QCOMPARE(adapter->getCanAdapterOption(A::option_description).toString(), QString());
    }

    void laterOneOfTheSameIdentifierTakesThePlaceAndTheEarlierLivesOn()
    {
        mSet->addAdapterFromByteArray(Type(6), QStringLiteral("v"), bytesOf(6, 4, "earlier"));
        const QPointer<A> earlier = mSet->getAdapter(4);
        const std::unique_ptr<A> owner(earlier);
        mSet->addAdapterFromByteArray(Type(6), QStringLiteral("v"), bytesOf(6, 4, "later"));
        QCOMPARE(rowsOf(*mSet), QStringList{QStringLiteral("4 4 6 later ")});
        QVERIFY(earlier);
        QCOMPARE(earlier->getCanAdapterOption(A::option_description).toString(), QStringLiteral("earlier"));
        QCOMPARE(mRemovals->count(), 0);
    }

    void storedTypeOfAnotherAdapterIsTakenAsItStands()
    {
        // The class follows the type that was asked for, the option what the bytes say.
        mSet->addAdapterFromByteArray(Type(6), QStringLiteral("v"), bytesOf(15, 4, "serial"));
        QCOMPARE(rowsOf(*mSet), QStringList{QStringLiteral("4 4 15 serial ")});
        QCOMPARE(mSet->getAdapter(4)->metaObject()->className(), "DemoCanAdapter");
    }

private:
    std::unique_ptr<MultiCanAdapterHandler> mSet;
    std::unique_ptr<QSignalSpy> mChanges;
    std::unique_ptr<QSignalSpy> mRemovals;
};

QTEST_GUILESS_MAIN(TestRestoringAdapters)
#include "tst_restoring_adapters.moc"
