// SPDX-License-Identifier: MIT
// Tells the thread sanitizer which orders Qt makes between threads. Qt is not built with it and has locks and
// waits of its own, so without this every wait for a thread and every lock that had to be waited for would look like
// no order at all. Linked into a program, these functions stand before Qt's; each calls the one behind it.
#include <QtCore/QDeadlineTimer>
#include <QtCore/QEvent>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QThread>

#include <cstddef>
#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
void __tsan_acquire(void *address);
void __tsan_release(void *address);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

template <typename Function>
Function *next(const char *name)
{
    void *const found = ::dlsym(RTLD_NEXT, name);
    if (!found)
        qFatal("no function %s", name);
    return reinterpret_cast<Function *>(found);
}

/// What a queued call carries is ordered by the queue, which is not seen from here: all of them count as one.
char queuedCalls = 0;

// Which threads have not ended yet, by the argument that Qt starts them with, which is the QThread. The sanitizer must
// not see this: it would take it for an order between all threads, and races between them would go unreported.
#define UNSEEN __attribute__((no_sanitize("thread"), noinline))
constexpr std::size_t ThreadsMax = 1024;
void *unended[ThreadsMax];

UNSEEN void noteStart(void *argument)
{
    for (void *&place : unended) {
        void *empty = nullptr;
        if (__atomic_compare_exchange_n(&place, &empty, argument, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
            return;
    }
    qFatal("more threads than there is room for");
}

UNSEEN void noteEnd(void *argument)
{
    for (void *&place : unended) {
        void *expected = argument;
        if (__atomic_compare_exchange_n(&place, &expected, nullptr, false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST))
            return;
    }
}

UNSEEN bool hasEnded(void *argument)
{
    for (void *&place : unended) {
        if (__atomic_load_n(&place, __ATOMIC_SEQ_CST) == argument)
            return false;
    }
    return true;
}

/// Where a queued call arrives, before its receiver gets it.
bool takeEvent(void **receiverAndEvent)
{
    if (static_cast<QEvent *>(receiverAndEvent[1])->type() == QEvent::MetaCall)
        __tsan_acquire(&queuedCalls);
    return false;
}
[[maybe_unused]] const bool eventsAreSeen = QInternal::registerCallback(QInternal::EventNotifyCallback, takeEvent);

struct Start
{
    void *(*routine)(void *);
    void *argument;
};

void *runThread(void *argument)
{
    const Start start = *static_cast<Start *>(argument);
    delete static_cast<Start *>(argument);
    void *const result = start.routine(start.argument);
    __tsan_release(start.argument);
    noteEnd(start.argument);
    return result;
}

// Qt lets go of those who wait for a thread a little before its last instruction.
bool joined(QThread *thread, bool ended)
{
    while (ended && !hasEnded(thread))
        ::sched_yield();
    if (ended)
        __tsan_acquire(thread);
    return ended;
}

/// What a try to take a lock came to.
bool taken(void *lock, bool success)
{
    if (success)
        __tsan_acquire(lock);
    return success;
}

} // namespace

// NOLINTBEGIN(readability-identifier-naming): the names that Qt's functions have for the linker
#define QT_FUNCTION extern "C" __attribute__((visibility("default")))

QT_FUNCTION int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*routine)(void *),
                               void *argument)
{
    static auto *const real = next<decltype(pthread_create)>("pthread_create");
    noteStart(argument);
    return real(thread, attributes, runThread, new Start{routine, argument});
}

// QThread::wait(QDeadlineTimer)
QT_FUNCTION bool _ZN7QThread4waitE14QDeadlineTimer(QThread *thread, QDeadlineTimer deadline)
{
    static auto *const real = next<bool(QThread *, QDeadlineTimer)>(__func__);
    return joined(thread, real(thread, deadline));
}

// QThread::wait(unsigned long)
QT_FUNCTION bool _ZN7QThread4waitEm(QThread *thread, unsigned long milliseconds)
{
    static auto *const real = next<bool(QThread *, unsigned long)>(__func__);
    return joined(thread, real(thread, milliseconds));
}

// QBasicMutex::lockInternal(), lockInternal(int), unlockInternal()
QT_FUNCTION void _ZN11QBasicMutex12lockInternalEv(QBasicMutex *mutex)
{
    static auto *const real = next<void(QBasicMutex *)>(__func__);
    real(mutex);
    __tsan_acquire(mutex);
}

QT_FUNCTION bool _ZN11QBasicMutex12lockInternalEi(QBasicMutex *mutex, int timeout)
{
    static auto *const real = next<bool(QBasicMutex *, int)>(__func__);
    return taken(mutex, real(mutex, timeout));
}

QT_FUNCTION void _ZN11QBasicMutex14unlockInternalEv(QBasicMutex *mutex)
{
    static auto *const real = next<void(QBasicMutex *)>(__func__);
    __tsan_release(mutex);
    real(mutex);
}

// QMutex::lock(), tryLock(int), unlock()
QT_FUNCTION void _ZN6QMutex4lockEv(QMutex *mutex)
{
    static auto *const real = next<void(QMutex *)>(__func__);
    real(mutex);
    __tsan_acquire(mutex);
}

QT_FUNCTION bool _ZN6QMutex7tryLockEi(QMutex *mutex, int timeout)
{
    static auto *const real = next<bool(QMutex *, int)>(__func__);
    return taken(mutex, real(mutex, timeout));
}

QT_FUNCTION void _ZN6QMutex6unlockEv(QMutex *mutex)
{
    static auto *const real = next<void(QMutex *)>(__func__);
    __tsan_release(mutex);
    real(mutex);
}

// QSemaphore::acquire(int), tryAcquire(int), tryAcquire(int, int), release(int)
QT_FUNCTION void _ZN10QSemaphore7acquireEi(void *semaphore, int count)
{
    static auto *const real = next<void(void *, int)>(__func__);
    real(semaphore, count);
    __tsan_acquire(semaphore);
}

QT_FUNCTION bool _ZN10QSemaphore10tryAcquireEi(void *semaphore, int count)
{
    static auto *const real = next<bool(void *, int)>(__func__);
    return taken(semaphore, real(semaphore, count));
}

QT_FUNCTION bool _ZN10QSemaphore10tryAcquireEii(void *semaphore, int count, int timeout)
{
    static auto *const real = next<bool(void *, int, int)>(__func__);
    return taken(semaphore, real(semaphore, count, timeout));
}

QT_FUNCTION void _ZN10QSemaphore7releaseEi(void *semaphore, int count)
{
    static auto *const real = next<void(void *, int)>(__func__);
    __tsan_release(semaphore);
    real(semaphore, count);
}

// QMetaObject::activate(QObject *, const QMetaObject *, int, void **): what a signal does
QT_FUNCTION void _ZN11QMetaObject8activateEP7QObjectPKS_iPPv(QObject *sender, const QMetaObject *type, int signal,
                                                             void **arguments)
{
    static auto *const real = next<void(QObject *, const QMetaObject *, int, void **)>(__func__);
    __tsan_acquire(sender);
    __tsan_release(&queuedCalls);
    real(sender, type, signal, arguments);
}

// QMetaObject::invokeMethodImpl(QObject *, QtPrivate::QSlotObjectBase *, Qt::ConnectionType, void *)
QT_FUNCTION bool _ZN11QMetaObject16invokeMethodImplEP7QObjectPN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPv(
    QObject *receiver, void *slot, int type, void *result)
{
    static auto *const real = next<bool(QObject *, void *, int, void *)>(__func__);
    __tsan_release(&queuedCalls);
    return real(receiver, slot, type, result);
}

// QObject::connectImpl(): what a connection holds is there before a signal takes it
QT_FUNCTION QMetaObject::Connection
_ZN7QObject11connectImplEPKS_PPvS1_S3_PN9QtPrivate15QSlotObjectBaseEN2Qt14ConnectionTypeEPKiPK11QMetaObject(
    QObject *sender, void **signal, QObject *receiver, void **slot, void *slotObject, int type, const int *types,
    const QMetaObject *metaObject)
{
    using Connect =
        QMetaObject::Connection(QObject *, void **, QObject *, void **, void *, int, const int *, const QMetaObject *);
    static auto *const real = next<Connect>(__func__);
    __tsan_release(sender);
    return real(sender, signal, receiver, slot, slotObject, type, types, metaObject);
}
// NOLINTEND(readability-identifier-naming)
