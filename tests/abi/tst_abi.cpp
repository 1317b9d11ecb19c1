// SPDX-License-Identifier: MIT
// Programs that are already built rely on everything that is written out here. A test that fails says
// that such a program would break, not that the numbers want an update.
#include <BusLinkDesk/adapter/abstract_can_adapter.h>
#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>
#include <BusLinkDesk/backends/serial/zorbek_usb_can_adapter.h>
#include <BusLinkDesk/backends/socketcan/socket_can_adapter.h>
#include <BusLinkDesk/backends/virtual/demo_can_adapter.h>
#include <BusLinkDesk/bus_link_desk.h>

#include "support/meta_methods.h"

#include <QtTest/QtTest>

#include <cstddef>
#include <cstring>

namespace {

/// The slot of a virtual operation in the table of its class, or -1.
template <typename Method>
int slotOf(Method method)
{
    struct
    {
        std::ptrdiff_t pointer;
        std::ptrdiff_t adjustment;
    } parts;
    static_assert(sizeof parts == sizeof method);
    std::memcpy(&parts, &method, sizeof parts);
    return parts.pointer % 2 == 1 ? static_cast<int>((parts.pointer - 1) / static_cast<std::ptrdiff_t>(sizeof(void *)))
                                  : -1;
}

/// Opens the protected members of the class to the tests below.
class Probe : public AbstractCanAdapter
{
public:
    using A = AbstractCanAdapter;

    static int runSlot() { return slotOf(&Probe::run); }
    static int echoModeChangedSlot() { return slotOf(&Probe::echoModeChanged); }

    struct Field
    {
        const char *name;
        std::ptrdiff_t offset;
        std::size_t size;
    };

    template <typename T>
    Field field(const char *name, const T &member) const
    {
        return {name, reinterpret_cast<const char *>(&member) - reinterpret_cast<const char *>(this), sizeof member};
    }

#define FIELD(member) field(#member, member)
    QVector<Field> fields() const
    {
        return {FIELD(mForceEcho),
                FIELD(mEcho),
                FIELD(mListenOnly),
                FIELD(mDriverConfigFlag),
                FIELD(mCanFd),
                FIELD(mCanLowSpeed),
                FIELD(mErrorFrames),
                FIELD(mSystemTime),
                FIELD(mAutoBusOn),
                FIELD(mAllowSleep),
                FIELD(mContinuousTimestamp),
                FIELD(mPrimaryAdapter),
                FIELD(mActiveAdapter),
                FIELD(mRunningFlag),
                FIELD(mBitRate),
                FIELD(mUniqueId),
                FIELD(mBtrExt),
                FIELD(mAdapterFeatures),
                FIELD(mFdBitrateDesc),
                FIELD(mBitrateDesc),
                FIELD(mAdapterName),
                FIELD(mAdapterDeviceName),
                FIELD(mAdapterType),
                FIELD(mIpAddress),
                FIELD(mPortNumber),
                FIELD(mConnectTimeout),
                FIELD(mDisconnectTimeout),
                FIELD(mReconnectTimeout),
                FIELD(mProtocol),
                FIELD(mInternExtern),
                FIELD(mFlowControl),
                FIELD(mParity),
                FIELD(mBaudrate),
                FIELD(mDataBits),
                FIELD(mStopBits),
                FIELD(mReset),
                FIELD(mHalfDuplex),
                FIELD(mAdapterTimer),
                FIELD(mPeakAdvValues),
                FIELD(mSystecXm3Values),
                FIELD(mClassicBusParams),
                FIELD(mFdBusParams),
                FIELD(mLinkedAdapterId),
                FIELD(mLinkedAdapter),
                FIELD(mDescription),
                FIELD(mUsdoId),
                FIELD(mBitTimings),
                FIELD(mFdBitTimings),
                FIELD(mCalculatedBitrate),
                FIELD(mCalculatedFdBitrate),
                FIELD(mLastTimeStamp)};
    }
#undef FIELD

    CAN::RetType open() override
    {
        return CAN::RetError;
    }
    void closeAdapter() override {}
    void resetDriver() override {}
    CAN::CanState getState() override
    {
        return CAN::CanStateNone;
    }
    void prepareToTerminate() override {}
    CAN::RetType write(CAN::CanMessage *) override
    {
        return CAN::RetError;
    }
};

} // namespace

class TestAbi : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void virtualOperationsKeepTheirSlots()
    {
        using A = AbstractCanAdapter;
        using M = CAN::CanMessage *;
        // Slots up to run are those of QThread: meta-object (3), destructors (2), events (7), run.
        int slot = 12;
        QCOMPARE(Probe::runSlot(), slot);
        QCOMPARE(slotOf(&A::open), ++slot);
        QCOMPARE(slotOf(&A::closeAdapter), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(QString)>(&A::write)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(QString, short &)>(&A::write)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(unsigned short)>(&A::setBitrate)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(unsigned int)>(&A::setFdBitrate)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(unsigned int)>(&A::setBitrate)), ++slot);
        QCOMPARE(slotOf(static_cast<void (A::*)(bool)>(&A::setAutoBusOn)), ++slot);
        QCOMPARE(slotOf(static_cast<void (A::*)()>(&A::resetDriver)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::CanState (A::*)()>(&A::getState)), ++slot);
        QCOMPARE(slotOf(static_cast<void (A::*)()>(&A::prepareToTerminate)), ++slot);
        QCOMPARE(slotOf(static_cast<unsigned int (A::*)()>(&A::getCanFeatures)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(unsigned char, unsigned short, M)>(&A::startCyclic)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(unsigned char)>(&A::stopCyclic)), ++slot);
        QCOMPARE(slotOf(static_cast<bool (A::*)(A::AdapterOption, QVariant)>(&A::setSpecificCanAdapterOption)), ++slot);
        QCOMPARE(slotOf(static_cast<QVariant (A::*)(A::AdapterOption) const>(&A::getSpecificCanAdapterOption)), ++slot);
        QCOMPARE(slotOf(static_cast<void (A::*)(bool)>(&A::setEcho)), ++slot);
        QCOMPARE(slotOf(static_cast<unsigned short (A::*)()>(&A::getBitRate)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(bool &, unsigned short &, unsigned short &)>(
                     &A::getBitrateSettings)),
                 ++slot);
        QCOMPARE(slotOf(static_cast<QList<A::AdapterOption> (A::*)() const>(&A::getSkippedOptions)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::CANBitTimingThresholds (A::*)(bool)>(&A::getTimingThresholds)), ++slot);
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(M)>(&A::write)), ++slot);
        QCOMPARE(Probe::echoModeChangedSlot(), ++slot);
        QCOMPARE(slot, 35);
    }

    void operationsThatAreNotVirtualStaySo()
    {
        using A = AbstractCanAdapter;
        QCOMPARE(slotOf(static_cast<CAN::RetType (A::*)(CAN::CanMessage const &)>(&A::write)), -1);
        QCOMPARE(slotOf(&A::getRunning), -1);
        QCOMPARE(slotOf(&A::getId), -1);
        QCOMPARE(slotOf(&A::isActiveAdapter), -1);
        QCOMPARE(slotOf(&A::isPrimaryAdapter), -1);
        QCOMPARE(slotOf(&A::hold), -1);
        QCOMPARE(slotOf(&A::setLinkedAdapter), -1);
        QCOMPARE(slotOf(&A::relink), -1);
        QCOMPARE(slotOf(&A::setCanAdapterOption), -1);
        QCOMPARE(slotOf(&A::getCanAdapterOption), -1);
        QCOMPARE(slotOf(&A::getValuesAsByteArray), -1);
        QCOMPARE(slotOf(&A::setValuesFromByteArray), -1);
    }

    void metaObjectMethodsKeepTheirOrder()
    {
        QCOMPARE(methodsOf(AbstractCanAdapter::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public signal newCanMessage(CAN::CanRxMessage*) (message)"),
                     QStringLiteral("public signal newCanMessageByValue(CAN::CanRxMessage) (message)"),
                     QStringLiteral("public signal newCanState(CAN::CanState,CanTimeStamp) (state,ts)"),
                     QStringLiteral("public signal newCanState(CAN::CanState) (state)"),
                     QStringLiteral("public signal interfaceError() ()"),
                     QStringLiteral("public signal newCiA309Response(QString) (response)"),
                     QStringLiteral("public signal newCiA309RequestSent(QString) (request)"),
                     QStringLiteral("public signal echoChanged(bool) (echo)"),
                     QStringLiteral("public slot write(CAN::CanMessage*) (pMessage)"),
                     QStringLiteral("protected slot echoModeChanged(bool) (echoEnabled)"),
                     QStringLiteral("private slot writeLinkedMessage(CAN::CanRxMessage*) (pRxMsg)"),
                 }));
        QCOMPARE(methodsOf(DemoCanAdapter::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public slot timeout() ()"),
                     QStringLiteral("public slot write(CAN::CanMessage*) (pMessage)"),
                     QStringLiteral("private slot readPendingDatagrams() ()"),
                 }));
        QCOMPARE(methodsOf(SocketCanAdapter::staticMetaObject), QStringList());
        QCOMPARE(methodsOf(serialPortAdapter::staticMetaObject),
                 (QStringList{
                     QStringLiteral("public signal serialPortError() ()"),
                     QStringLiteral("public slot serialError(QSerialPort::SerialPortError) (error)"),
                     QStringLiteral("public slot errorSendingString() ()"),
                     QStringLiteral("public slot readResponse() ()"),
                 }));
        QCOMPARE(methodsOf(ZorbekUSBCanAdapter::staticMetaObject),
                 (QStringList{QStringLiteral("public slot resendLastMessage() ()")}));
        QCOMPARE(methodsOf(Can4linuxCanAdapter::staticMetaObject), QStringList());
    }

    void optionsKeepTheirNumbersAndNames()
    {
        const QMetaObject &metaObject = AbstractCanAdapter::staticMetaObject;
        QCOMPARE(metaObject.enumeratorCount() - metaObject.enumeratorOffset(), 1);
        const QMetaEnum options = QMetaEnum::fromType<AbstractCanAdapter::AdapterOption>();
        const QStringList names =
            QStringLiteral("CANFD adapterType adapterName deviceName adapterFeatures ipAddress portNumber "
                           "toggleComPort flowControl baudrate parity databits stopbits internExtern reconnectTimeout "
                           "connectTimeout disconnectTimeout protocol disableSleep toggleDTR toggleRTS peakAdvValues "
                           "Reset halfDuplex canLowSpeed isCiA309 autoBusOn errorFrames continuousTimestamp systemTime "
                           "uniqueId bitrate fdbitrate listenOnly activeAdapter primaryAdapter btrExt description "
                           "usdoId systecXm3Values linkedAdapter canClassicBusParams canFDBusParams canfdBitrateDesc "
                           "canBitrateDesc forceEcho lastEnum")
                .split(QLatin1Char(' '));
        QCOMPARE(options.keyCount(), 47);
        for (int number = 0; number < options.keyCount(); ++number) {
            QCOMPARE(QString::fromLatin1(options.key(number)), QStringLiteral("option_") + names.at(number));
            QCOMPARE(options.value(number), number);
        }
        QCOMPARE(sizeof(AbstractCanAdapter::AdapterOption), std::size_t(4));
        QCOMPARE(sizeof(AbstractCanAdapter::CanAdapterType), std::size_t(4));
    }

    void adapterTypesKeepTheirNumbers()
    {
        QCOMPARE(int(AbstractCanAdapter::CanAdapterTypeSocketCan), 1);
        QCOMPARE(int(AbstractCanAdapter::CanAdapterTypeCan4linux), 4);
        QCOMPARE(int(AbstractCanAdapter::CanAdapterTypeVirtual), 6);
        QCOMPARE(int(AbstractCanAdapter::CanAdapterTypeUsb), 15);
        QCOMPARE(int(AbstractCanAdapter::CanAdapterTypeCiA309), 20);
    }

    void adapterFieldsKeepTheirPlaces()
    {
        const Probe probe;
        QStringList got;
        for (const Probe::Field &field : probe.fields())
            got << QStringLiteral("%1 %2 %3").arg(field.offset).arg(field.size).arg(QLatin1String(field.name));
        QFile recorded(QFINDTESTDATA("AbstractCanAdapter.fields"));
        QVERIFY(recorded.open(QIODevice::ReadOnly));
        QStringList expected = QString::fromLatin1(recorded.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        QVERIFY2(got == expected, qPrintable(QLatin1Char('\n') + got.join(QLatin1Char('\n'))));
        for (int index = 1; index < got.size(); ++index)
            QVERIFY(probe.fields().at(index).offset > probe.fields().at(index - 1).offset);
    }

    void classesKeepTheirSizes()
    {
        QCOMPARE(sizeof(QThread), std::size_t(16));
        QCOMPARE(sizeof(AbstractCanAdapter), std::size_t(432));
        QCOMPARE(sizeof(DemoCanAdapter), std::size_t(496));
        QCOMPARE(sizeof(SocketCanAdapter), std::size_t(456));
        QCOMPARE(sizeof(serialPortAdapter), std::size_t(528));
        QCOMPARE(sizeof(ZorbekUSBCanAdapter), std::size_t(632));
        QCOMPARE(sizeof(Can4linuxCanAdapter), std::size_t(464));
        QCOMPARE(sizeof(BusLinkDesk), std::size_t(1));
        QCOMPARE(sizeof(CAN::CANBitrateDesc), std::size_t(24));
        QCOMPARE(sizeof(CAN::CANBitTimingParameter), std::size_t(10));
        QCOMPARE(sizeof(CAN::CANBitTimingThresholds), std::size_t(18));
        QCOMPARE(sizeof(CAN::CANClassicBusParameter), std::size_t(48));
        QCOMPARE(sizeof(CAN::CANFDBusParameter), std::size_t(40));
        QCOMPARE(sizeof(AbstractCanAdapter::PeakAdvValues), std::size_t(12));
        QCOMPARE(sizeof(AbstractCanAdapter::SystecXM3AdvValues), std::size_t(28));
        QCOMPARE(sizeof(AbstractCanAdapter::SocketCANProps), std::size_t(8));
    }

    void bitrateRecordsKeepTheirFields()
    {
        using D = CAN::CANBitrateDesc;
        QCOMPARE(offsetof(D, label), std::size_t(0));
        QCOMPARE(offsetof(D, bitrate), std::size_t(8));
        QCOMPARE(offsetof(D, fillBytes), std::size_t(10));
        QCOMPARE(offsetof(D, samplePoint), std::size_t(16));
        using C = CAN::CANClassicBusParameter;
        QCOMPARE(offsetof(C, busValue), std::size_t(0));
        QCOMPARE(offsetof(C, busRatio), std::size_t(8));
        QCOMPARE(offsetof(C, timing), std::size_t(16));
        QCOMPARE(offsetof(C, busText), std::size_t(32));
        QCOMPARE(offsetof(C, busFlag), std::size_t(40));
        using F = CAN::CANFDBusParameter;
        QCOMPARE(offsetof(F, busValue), std::size_t(0));
        QCOMPARE(offsetof(F, busText), std::size_t(8));
        QCOMPARE(offsetof(F, busRatio), std::size_t(16));
        QCOMPARE(offsetof(F, timing), std::size_t(24));
        QCOMPARE(offsetof(F, busOffset), std::size_t(34));
        QCOMPARE(offsetof(F, busFlag), std::size_t(35));
    }

    void libraryCanBeNamed()
    {
        const BusLinkDesk library;
        Q_UNUSED(library)
    }
};

QTEST_APPLESS_MAIN(TestAbi)
#include "tst_abi.moc"
