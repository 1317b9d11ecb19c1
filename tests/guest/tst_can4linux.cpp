// SPDX-License-Identifier: MIT
// The adapter on real character devices, whose driver loops frames from one to the other.
#include <BusLinkDesk/backends/can4linux/can4linux_can_adapter.h>

#include "support/delivered_frame.h"
#include "support/log_recorder.h"
#include "support/open_adapter.h"
#include "support/process_level.h"
#include "support/stderr_recorder.h"
#include "unit/backends/can4linux/driver_frames.h"

#include <QtTest/QtTest>

#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int WaitMs = 60000;
const QByteArray eight = QByteArray::fromHex("1122334455667788");
const QByteArray opening = "Open() can4linuxCanAdapter\n";

using Adapter = AdapterPointer<Can4linuxCanAdapter>;

QByteArray parameter(const char *name)
{
    QFile file(QStringLiteral("/sys/module/can4linux_loop/parameters/%1").arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed() : QByteArray("unreadable");
}

void setParameter(const char *name, const char *value)
{
    QFile file(QStringLiteral("/sys/module/can4linux_loop/parameters/%1").arg(QLatin1String(name)));
    if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || file.write(value) != qint64(std::strlen(value)))
        qFatal("the driver does not listen");
}

void setGone(bool gone)
{
    setParameter("gone", gone ? "1" : "0");
}

/// What the driver holds of a device: running, echo, nominal rate, data factor, flag.
QByteArray stateOf(int device)
{
    const QByteArrayList fields = parameter("state").split('\n').value(device).split(' ');
    return fields.mid(0, 5).join(' ');
}

int resetsOf(int device)
{
    return parameter("state").split('\n').value(device).split(' ').value(5).toInt();
}

/// An adapter with what it delivers.
struct Side
{
    Adapter adapter;
    FrameRecorder frames;

    explicit Side(int device)
        : adapter(new Can4linuxCanAdapter(QStringLiteral("/dev/can%1").arg(device))), frames(adapter.get())
    {
        adapter->setCanAdapterOption(AbstractCanAdapter::option_uniqueId, device + 10);
    }
    /// Ends the loop before what it delivers to goes.
    ~Side() { adapter.reset(); }
    Side(const Side &) = delete;
    Side &operator=(const Side &) = delete;
    bool open() const { return openAndWait(adapter.get(), WaitMs); }
    bool close() const
    {
        adapter->closeAdapter();
        return adapter->wait(WaitMs);
    }
    bool hasFrames(int count) const
    {
        return QTest::qWaitFor([&] { return frames.count() >= count; }, WaitMs) && frames.count() == count;
    }
};

/// The other device without the library: it sends frames with any flags.
class RawPeer
{
public:
    RawPeer() : mDevice(::open("/dev/can1", O_RDWR | O_CLOEXEC))
    {
        set(1, {0, 3, {500, 0, 0, 0}});
        set(0, {1, 0, {0, 0, 0, 0}});
    }
    ~RawPeer() { ::close(mDevice); }
    RawPeer(const RawPeer &) = delete;
    RawPeer &operator=(const RawPeer &) = delete;

    bool send(const QByteArray &frames) const
    {
        const int count = frames.size() / 104;
        return ::write(mDevice, frames.constData(), static_cast<std::size_t>(count)) == count;
    }
    QByteArray receive() const
    {
        QByteArray frame(104, '\0');
        return ::read(mDevice, frame.data(), 1) == 1 ? frame : QByteArray();
    }

private:
    struct Parameters
    {
        qint32 command;
        qint32 target;
        quint64 values[4];
    };

    void set(unsigned long request, Parameters parameters) const
    {
        if (::ioctl(mDevice, request, &parameters) != 0)
            qFatal("the driver refused a setting");
    }

    int mDevice;
};

CAN::CanRxMessage delivered(const CAN::CanMessage &message, bool isTx, int device, const CanTimeStamp &stamp)
{
    CAN::CanRxMessage record;
    record.message = message;
    record.isTx = isTx;
    record.adapterId = static_cast<quint16>(device + 10);
    record.timeStamp = stamp;
    return record;
}

} // namespace

class TestCan4linux : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<CAN::CanState>(); }
    void init() { mLog = std::make_unique<LogRecorder>(); }

    void cleanup()
    {
        setGone(false);
        mLog.reset();
        QCOMPARE(parameter("dirty"), QByteArray("0")); // Bytes without a meaning are zero.
    }

    void driverCountsBytesWithoutAMeaning()
    {
        const RawPeer peer;
        QByteArray frame = driverBytes({0, 1, 8}, eight);
        frame[4] = 1;
        QVERIFY(peer.send(frame));
        QCOMPARE(parameter("dirty"), QByteArray("1"));
        setParameter("dirty", "0");
    }

    void framesPassBothWays_data()
    {
        QTest::addColumn<CAN::CanMessage>("message");
        QTest::addColumn<int>("lengthThere");
        const auto row = [](const char *name, const CAN::CanMessage &message, int lengthThere) {
            QTest::newRow(name) << message << lengthThere;
        };
        CAN::CanMessage message = makeFrame(0x123, eight);
        row("classic", message, 8);
        row("empty", makeFrame(0, {}), 0);
        message.isExtended = true;
        message.id = 0x1ABCDEF0;
        row("extended", message, 8);
        message = makeFrame(0x7FF, {});
        message.isRtr = true;
        message.length = 5;
        row("remote", message, 5);
        message = makeFrame(0x321, QByteArray(9, 'n'));
        message.isFd = true;
        row("FD of length 9", message, 12);
        message = makeFrame(0x321, QByteArray(64, 'n'));
        message.isFd = message.isBrs = message.isExtended = true;
        row("FD of length 64 with bit-rate switch", message, 64);
    }

    void framesPassBothWays()
    {
        QFETCH(CAN::CanMessage, message);
        QFETCH(int, lengthThere);
        const StderrRecorder errors;
        const Side sides[]{Side(0), Side(1)};
        QVERIFY(sides[0].open());
        QVERIFY(sides[1].open());
        CAN::CanMessage there = message;
        there.length = static_cast<quint8>(lengthThere);
        for (const int from : {0, 1}) {
            const qint64 before = std::time(nullptr);
            QCOMPARE(sides[from].adapter->write(message), CAN::RetOk);
            QVERIFY(sides[0].hasFrames(from + 1));
            QVERIFY(sides[1].hasFrames(from + 1));
            const qint64 after = std::time(nullptr);
            for (const int at : {0, 1}) {
                const CAN::CanRxMessage record = sides[at].frames.frames().constLast();
                QCOMPARE(textOf(record), textOf(delivered(there, at == from, at, record.timeStamp)));
                QVERIFY(record.timeStamp.seconds >= before && record.timeStamp.seconds <= after);
                QVERIFY(record.timeStamp.microseconds >= 0 && record.timeStamp.microseconds < 1'000'000);
            }
        }
        QCOMPARE(errors.text(), opening + opening);
    }

    void peerWithoutTheLibraryReadsTheBytes()
    {
        const StderrRecorder errors;
        const Side side(0);
        const RawPeer peer;
        QVERIFY(side.open());
        CAN::CanMessage message = makeFrame(0x1ABCDEF0, QByteArray(64, 'n'));
        message.length = 9;
        message.isFd = message.isBrs = message.isEsi = message.isExtended = true;
        QCOMPARE(side.adapter->write(message), CAN::RetOk);
        QByteArray frame = peer.receive();
        QCOMPARE(frame.size(), 104);
        frame.replace(16, 16, QByteArray(16, '\0')); // The driver's stamp.
        QCOMPARE(frame.toHex(' '), driverBytes({0x304, 0x1ABCDEF0, 12}, QByteArray(9, 'n')).toHex(' '));
    }

    void echoFollowsItsSetting()
    {
        const StderrRecorder errors;
        const Side left(0);
        const Side right(1);
        left.adapter->setEcho(false);
        QVERIFY(left.open());
        QVERIFY(right.open());
        QCOMPARE(left.adapter->write(makeFrame(1, eight)), CAN::RetOk);
        QVERIFY(left.hasFrames(1)); // `open()` has switched it on.
        left.adapter->setEcho(false);
        QCOMPARE(left.adapter->write(makeFrame(2, eight)), CAN::RetOk);
        QVERIFY(right.hasFrames(2));
        QCOMPARE(right.adapter->write(makeFrame(3, eight)), CAN::RetOk);
        QVERIFY(left.hasFrames(2));
        QCOMPARE(left.frames.frames().constLast().message.id, 3U);
    }

    void settingsReachTheDriver()
    {
        const StderrRecorder errors;
        const Side side(0);
        const int resets = resetsOf(0);
        QCOMPARE(side.adapter->setBitrate(static_cast<unsigned short>(250)), CAN::RetOk);
        QVERIFY(side.open());
        QCOMPARE(stateOf(0), QByteArray("1 1 250 8 0"));
        QCOMPARE(resetsOf(0), resets + 1);
        QCOMPARE(side.adapter->setBitrate(static_cast<unsigned short>(1000)), CAN::RetOk);
        QCOMPARE(side.adapter->setFdBitrate(4000), CAN::RetOk);
        side.adapter->setEcho(false);
        side.adapter->resetDriver();
        QCOMPARE(stateOf(0), QByteArray("1 0 1000 4 0"));
        QCOMPARE(resetsOf(0), resets + 2);
        QCOMPARE(errors.text(), opening);
    }

    void onlyControllersOfOneRateHearEachOther()
    {
        const StderrRecorder errors;
        const Side left(0);
        const Side right(1);
        QVERIFY(left.open());
        QVERIFY(right.open());
        QCOMPARE(right.adapter->setBitrate(static_cast<unsigned short>(125)), CAN::RetOk);
        QCOMPARE(left.adapter->write(makeFrame(1, eight)), CAN::RetOk);
        QCOMPARE(left.adapter->setBitrate(static_cast<unsigned short>(125)), CAN::RetOk);
        QCOMPARE(left.adapter->write(makeFrame(2, eight)), CAN::RetOk);
        QVERIFY(right.hasFrames(1));
        QCOMPARE(right.frames.frames().constFirst().message.id, 2U);
    }

    void refusedRateIsTold()
    {
        const StderrRecorder errors;
        const Side side(0);
        QVERIFY(side.open());
        QCOMPARE(side.adapter->setBitrate(static_cast<unsigned short>(0)), CAN::RetDriverConfigFailed);
        QCOMPARE(errors.text(), opening + "setBitrate(): Invalid argument\n");
        QCOMPARE(stateOf(0), QByteArray("1 1 500 4 0"));
        QCOMPARE(side.adapter->setFdBitrate(2000), CAN::RetOk);
        QCOMPARE(stateOf(0), QByteArray("1 1 500 0 0"));
    }

    void reportsOfTheDriverChangeTheState()
    {
        const StderrRecorder errors;
        const Side side(0);
        QVector<CAN::CanState> states; // Touched by the adapter's thread until it has ended.
        connect(
            side.adapter.get(), &AbstractCanAdapter::newCanState, side.adapter.get(),
            [&](CAN::CanState state) { states.append(state); }, Qt::DirectConnection);
        const RawPeer peer;
        QVERIFY(side.open());
        QByteArray frames;
        for (const quint32 flags : {0x10U, 0x40U, 0x20U, 0U, 0x30U})
            frames += driverBytes({flags, 0xFFFFFFFF, 0});
        QVERIFY(peer.send(frames));
        QVERIFY(side.hasFrames(5));
        QVERIFY(side.close());
        QCOMPARE(states,
                 (QVector<CAN::CanState>{CAN::CanStateErrorActive, CAN::CanStateErrorPassive, CAN::CanStateBusOff,
                                         CAN::CanStateErrorActive, CAN::CanStateErrorPassive, CAN::CanStateBusOff}));
        QCOMPARE(side.frames.frames().constLast().message.id, 0xFFFFFFFFU);
    }

    void reopenedAdapterWorksAndLeavesNoDescriptor()
    {
        const StderrRecorder errors;
        const Side left(0);
        const Side right(1);
        QVERIFY(right.open());
        const int before = openDescriptors();
        for (int pass = 1; pass <= 20; ++pass) {
            QVERIFY(left.open());
            QCOMPARE(right.adapter->write(makeFrame(1, eight)), CAN::RetOk);
            QVERIFY(left.hasFrames(pass));
            QVERIFY(left.close());
            QCOMPARE(openDescriptors(), before);
            QCOMPARE(stateOf(0).left(1), QByteArray("0"));
        }
        QCOMPARE(errors.text(), opening.repeated(21));
    }

    void removedDeviceEndsTheLoopAndComesBack()
    {
        const StderrRecorder errors;
        const Side left(0);
        const Side right(1);
        QSignalSpy interfaceErrors(left.adapter.get(), &AbstractCanAdapter::interfaceError);
        QVERIFY(left.open());
        setGone(true);
        QVERIFY(left.adapter->wait(WaitMs));
        QVERIFY(!left.adapter->getRunning());
        QCOMPARE(left.adapter->write(makeFrame(1, eight)), CAN::RetError);
        QCOMPARE(left.adapter->setBitrate(static_cast<unsigned short>(500)), CAN::RetDriverConfigFailed);
        QCOMPARE(left.adapter->open(), CAN::RetError);
        QVERIFY(interfaceErrors.isEmpty());
        QCOMPARE(errors.text(), opening + "write: No such device\nsetBitrate(): No such device\n" + opening
                                    + "/dev/can0: No such device\n");
        setGone(false);
        QVERIFY(left.open());
        QVERIFY(right.open());
        QCOMPARE(right.adapter->write(makeFrame(1, eight)), CAN::RetOk);
        QVERIFY(left.hasFrames(1));
    }

    void deviceThatDoesNotExistIsTold()
    {
        const StderrRecorder errors;
        const Side side(2);
        QCOMPARE(side.adapter->open(), CAN::RetError);
        QCOMPARE(errors.text(), opening + "/dev/can2: No such file or directory\n");
    }

    void manyFramesPassBothWaysAtOnce()
    {
        constexpr quint32 count = 500;
        const StderrRecorder errors;
        const Side sides[]{Side(0), Side(1)};
        int failed[2]{};
        QVERIFY(sides[0].open());
        QVERIFY(sides[1].open());
        sides[0].adapter->setEcho(false);
        sides[1].adapter->setEcho(false);
        const auto sendAll = [&](int from) {
            for (quint32 id = 0; id < count; ++id)
                failed[from] += sides[from].adapter->write(makeFrame(id, eight)) == CAN::RetOk ? 0 : 1;
        };
        std::thread other([&] { sendAll(1); });
        sendAll(0);
        other.join();
        QCOMPARE(failed[0] + failed[1], 0);
        for (const Side &side : sides) {
            QVERIFY(side.hasFrames(int(count)));
            for (quint32 id = 0; id < count; ++id)
                QCOMPARE(side.frames.frames().at(int(id)).message.id, id);
        }
    }

private:
    std::unique_ptr<LogRecorder> mLog; // Outlives the adapters of a test.
};

QTEST_GUILESS_MAIN(TestCan4linux)
#include "tst_can4linux.moc"
