// SPDX-License-Identifier: MIT
// How often the USB adapter's loop pauses while there is nothing to do.
#include "usb_line.h"

#include <QtCore/QMutex>
#include <QtTest/QtTest>

#include <atomic>
#include <utility>

namespace {

/// Passes of the loop ahead of a pause, and the pause in microseconds.
using Pause = QPair<int, quint64>;

/// The pauses of one thread, whose loop handles events once in each pass.
class Pauses
{
public:
    void watch(QThread *thread) { mThread = thread; }
    void notePass()
    {
        if (QThread::currentThread() == mThread)
            ++mPasses;
    }
    void notePause(quint64 microseconds)
    {
        if (QThread::currentThread() != mThread)
            return;
        const QMutexLocker lock(&mMutex);
        mPauses.append({std::exchange(mPasses, 0), microseconds});
    }
    QVector<Pause> get()
    {
        const QMutexLocker lock(&mMutex);
        return mPauses;
    }
    void forget()
    {
        mThread = nullptr;
        mPasses = 0;
        mPauses.clear();
    }

private:
    std::atomic<QThread *> mThread = nullptr;
    int mPasses = 0; // Of that thread alone.
    QMutex mMutex;
    QVector<Pause> mPauses;
};

Pauses pauses;

} // namespace

// The linker sends the library's calls here.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

void __real__ZN7QThread6usleepEm(unsigned long microseconds);
void __real__ZN16QCoreApplication13processEventsE6QFlagsIN10QEventLoop17ProcessEventsFlagEE(int flags);

void __wrap__ZN7QThread6usleepEm(unsigned long microseconds)
{
    pauses.notePause(microseconds);
    __real__ZN7QThread6usleepEm(microseconds);
}

void __wrap__ZN16QCoreApplication13processEventsE6QFlagsIN10QEventLoop17ProcessEventsFlagEE(int flags)
{
    pauses.notePass();
    __real__ZN16QCoreApplication13processEventsE6QFlagsIN10QEventLoop17ProcessEventsFlagEE(flags);
}

} // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

class TestUsbIdling : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loopPausesInPassesWithoutWork_data()
    {
        QTest::addColumn<bool>("disableSleep");
        QTest::addColumn<int>("first");
        QTest::addColumn<int>("later");
        // A pause comes ahead of the events of its pass, and the count of passes begins with 1.
        QTest::newRow("sleep allowed") << false << 0 << 1;
        QTest::newRow("sleep disabled") << true << 253 << 255;
    }

    void loopPausesInPassesWithoutWork()
    {
        QFETCH(bool, disableSleep);
        QFETCH(int, first);
        QFETCH(int, later);
        const UsbLine line;
        line.adapter->setCanAdapterOption(AbstractCanAdapter::option_disableSleep, disableSleep);
        pauses.forget();
        pauses.watch(line.adapter.get());
        QVERIFY(line.open());
        QTRY_VERIFY_WITH_TIMEOUT(pauses.get().size() >= 4, WaitMs);
        line.adapter->closeAdapter();
        QVERIFY(line.adapter->wait(WaitMs));
        QCOMPARE(pauses.get().mid(0, 4), (QVector<Pause>{{first, 5}, {later, 5}, {later, 5}, {later, 5}}));
    }
};

QTEST_GUILESS_MAIN(TestUsbIdling)
#include "tst_usb_idling.moc"
