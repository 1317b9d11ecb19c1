// SPDX-License-Identifier: MIT
// That the thread sanitizer sees races, and none where Qt makes an order. Each case runs in a process of its own.
#include "support/program.h"

#include <QtCore/QMutex>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <atomic>
#include <functional>
#include <memory>

/// Has a signal: those of Qt's own classes are raised within Qt, where nothing is seen of them.
class Sender : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void raised();
};

namespace {

constexpr int Rounds = 20'000;
constexpr int LimitMs = 60'000;

using ThreadPointer = std::unique_ptr<QThread>;

ThreadPointer started(const std::function<void()> &work)
{
    ThreadPointer thread(QThread::create(work));
    thread->start();
    return thread;
}

void inTwoThreads(const std::function<void()> &work)
{
    const ThreadPointer one = started(work);
    const ThreadPointer other = started(work);
    one->wait();
    other->wait();
}

/// Calls of Qt that make the same orders as those below, by another way.
int runFurtherCase(const QString &name)
{
    int number = 0;
    if (name == QLatin1String("one lock with a limit")) {
        QMutex mutex;
        inTwoThreads([&number, &mutex] {
            for (int round = 0; round < Rounds; ++round) {
                while (!mutex.tryLock(LimitMs)) {
                }
                ++number;
                mutex.unlock();
            }
        });
    } else if (name == QLatin1String("wait for the thread with a limit")) {
        const ThreadPointer thread = started([&number] { number = 1; });
        if (!thread->wait(static_cast<unsigned long>(LimitMs)))
            return 1;
        ++number;
    } else if (name == QLatin1String("semaphore with a limit")) {
        QSemaphore semaphore;
        const ThreadPointer thread = started([&number, &semaphore] {
            number = 1;
            semaphore.release();
        });
        if (!semaphore.tryAcquire(1, LimitMs))
            return 1;
        ++number;
        thread->wait();
    } else if (name == QLatin1String("queued signal")) {
        Sender sender;
        QObject receiver;
        bool called = false;
        QObject::connect(
            &sender, &Sender::raised, &receiver, [&] { called = ++number == 2; }, Qt::QueuedConnection);
        const ThreadPointer thread = started([&] {
            number = 1;
            Q_EMIT sender.raised();
        });
        while (!called)
            QCoreApplication::processEvents();
        thread->wait();
    } else if (name == QLatin1String("connection")) {
        Sender sender;
        std::atomic<bool> called = false;
        const ThreadPointer thread = started([&] {
            while (!called)
                Q_EMIT sender.raised();
        });
        number = 1;
        QObject::connect(&sender, &Sender::raised, [&] { called.store(++number > 1, std::memory_order_relaxed); });
        thread->wait();
    } else {
        return 1;
    }
    return 0;
}

int runCase(const QString &name)
{
    int number = 0;
    if (name == QLatin1String("no lock")) {
        inTwoThreads([&number] {
            for (int round = 0; round < Rounds; ++round)
                ++number;
        });
    } else if (name == QLatin1String("another lock each")) {
        QMutex mutexes[2];
        const auto work = [&number, &mutexes](int own) {
            const QMutexLocker lock(&mutexes[own]);
            ++number;
        };
        const ThreadPointer one = started([&work] { work(0); });
        const ThreadPointer other = started([&work] { work(1); });
        one->wait();
        other->wait();
    } else if (name == QLatin1String("one lock")) {
        QMutex mutex;
        inTwoThreads([&number, &mutex] {
            for (int round = 0; round < Rounds; ++round) {
                const QMutexLocker lock(&mutex);
                ++number;
            }
        });
    } else if (name == QLatin1String("no wait for the thread")) {
        const ThreadPointer thread = started([&number] { number = 1; });
        QThread::msleep(100);
        ++number;
        thread->wait();
    } else if (name == QLatin1String("wait for the thread")) {
        started([&number] { number = 1; })->wait();
        ++number;
    } else if (name == QLatin1String("semaphore")) {
        QSemaphore semaphore;
        const ThreadPointer thread = started([&number, &semaphore] {
            number = 1;
            semaphore.release();
        });
        semaphore.acquire();
        ++number;
        thread->wait();
    } else if (name == QLatin1String("queued call")) {
        QObject receiver;
        bool called = false;
        const ThreadPointer thread = started([&] {
            number = 1;
            QMetaObject::invokeMethod(
                &receiver, [&] { called = ++number == 2; }, Qt::QueuedConnection);
        });
        while (!called)
            QCoreApplication::processEvents();
        thread->wait();
    } else {
        return runFurtherCase(name);
    }
    return 0;
}

} // namespace

class TestThreadChecker : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void racesAloneAreReported_data()
    {
        QTest::addColumn<bool>("race");
        QTest::newRow("no lock") << true;
        QTest::newRow("another lock each") << true;
        QTest::newRow("no wait for the thread") << true;
        QTest::newRow("one lock") << false;
        QTest::newRow("wait for the thread") << false;
        QTest::newRow("semaphore") << false;
        QTest::newRow("queued call") << false;
        QTest::newRow("one lock with a limit") << false;
        QTest::newRow("wait for the thread with a limit") << false;
        QTest::newRow("semaphore with a limit") << false;
        QTest::newRow("queued signal") << false;
        QTest::newRow("connection") << false;
    }

    void racesAloneAreReported()
    {
        QFETCH(bool, race);
        Program program(QCoreApplication::applicationFilePath(),
                        {QStringLiteral("case"), QString::fromLatin1(QTest::currentDataTag())});
        program.start();
        const int status = program.waitForStatus();
        const QByteArray errors = program.errors();
        QVERIFY2(errors.contains("ThreadSanitizer: data race") == race, errors.constData());
        QCOMPARE(status, race ? 66 : 0);
    }
};

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc == 3 && application.arguments().at(1) == QLatin1String("case"))
        return runCase(application.arguments().at(2));
    TestThreadChecker test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_thread_checker.moc"
