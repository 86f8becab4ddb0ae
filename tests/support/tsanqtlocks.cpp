// ThreadSanitizer build only: makes Qt 5's locks visible to ThreadSanitizer.
//
// QMutex, QRecursiveMutex, QReadWriteLock, QWaitCondition and QSemaphore do
// their work inside libQt5Core (futexes, not pthread calls), which is not
// instrumented: ThreadSanitizer sees none of their hand-overs and reports
// every field that such a lock guards as a data race. This file, linked
// into each test program of the ThreadSanitizer build, defines the lock
// functions itself; the program's calls (and those of the other Qt
// libraries) reach these definitions, which call Qt's own and tell
// ThreadSanitizer of the hand-over: an acquire after a lock is taken, a
// release before it is given up. Qt's calls inside libQt5Core stay bound
// to Qt's own definitions and stay invisible.
//
// Only the happens-before order is annotated, not the locks as mutexes:
// the session's acknowledge mutex is unlocked on another thread than the
// one that locked it, which is fine for a QMutex but a bug for a mutex as
// ThreadSanitizer models it. Lock-order checking is not part of it.
#include <QtCore/QMutex>
#include <QtCore/QReadWriteLock>
#include <QtCore/QSemaphore>
#include <QtCore/QVarLengthArray>
#include <QtCore/QWaitCondition>

#include <sanitizer/tsan_interface.h>

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

namespace {

// Qt's own definition of `symbol` (the next one after this program's).
template <typename Function>
Function qtOwn(const char *symbol)
{
    void *address = dlvsym(RTLD_NEXT, symbol, "Qt_5");
    if (!address)
        address = dlsym(RTLD_NEXT, symbol);
    if (!address) {
        std::fprintf(stderr, "tsanqtlocks: %s not found in Qt\n", symbol);
        std::abort();
    }
    return reinterpret_cast<Function>(address);
}

// The member functions, called as functions taking `this` first (the
// Itanium C++ ABI passes it so).
#define QT_OWN(type, symbol) static const auto own = qtOwn<type>(symbol)

void *syncOf(const void *object)
{
    return const_cast<void *>(object);
}

void acquired(const void *object)
{
    __tsan_acquire(syncOf(object));
}

// A try that succeeded is annotated like the lock it took.
template <typename Object>
bool annotatedIf(bool taken, const Object *object, void (*annotate)(const Object *))
{
    if (taken)
        annotate(object);
    return taken;
}

} // namespace

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    QT_OWN(void (*)(QMutex *), "_ZN6QMutex4lockEv");
    own(this);
    __tsan_acquire(syncOf(this));
}

bool QMutex::tryLock(int timeout) QT_MUTEX_LOCK_NOEXCEPT
{
    QT_OWN(bool (*)(QMutex *, int), "_ZN6QMutex7tryLockEi");
    return annotatedIf<void>(own(this, timeout), this, acquired);
}

void QMutex::unlock() noexcept
{
    QT_OWN(void (*)(QMutex *), "_ZN6QMutex6unlockEv");
    __tsan_release(syncOf(this));
    own(this);
}

// Readers do not hand over to each other, only to the next writer: a read
// unlock releases to the lock's reader clock, which only a write lock
// acquires. Which kind of lock an unlock ends is kept per thread.
namespace {
void *readerSyncOf(const QReadWriteLock *lock)
{
    return static_cast<char *>(syncOf(lock)) + 1;
}

struct HeldReadWriteLock
{
    const QReadWriteLock *lock;
    bool forRead;
};
thread_local QVarLengthArray<HeldReadWriteLock, 8> heldReadWriteLocks;

void lockedForRead(const QReadWriteLock *lock)
{
    __tsan_acquire(syncOf(lock));
    heldReadWriteLocks.append({lock, true});
}

void lockedForWrite(const QReadWriteLock *lock)
{
    __tsan_acquire(syncOf(lock));
    __tsan_acquire(readerSyncOf(lock));
    heldReadWriteLocks.append({lock, false});
}

bool readWriteLockHeldForRead(const QReadWriteLock *lock)
{
    for (int i = heldReadWriteLocks.size() - 1; i >= 0; --i) {
        if (heldReadWriteLocks.at(i).lock == lock)
            return heldReadWriteLocks.at(i).forRead;
    }
    return false;
}

void unlocking(const QReadWriteLock *lock)
{
    for (int i = heldReadWriteLocks.size() - 1; i >= 0; --i) {
        if (heldReadWriteLocks.at(i).lock == lock) {
            const bool forRead = heldReadWriteLocks.at(i).forRead;
            heldReadWriteLocks.remove(i);
            __tsan_release(forRead ? readerSyncOf(lock) : syncOf(lock));
            return;
        }
    }
    // Locked where this file does not see it (inside Qt): both ways.
    __tsan_release(syncOf(lock));
    __tsan_release(readerSyncOf(lock));
}
} // namespace

void QReadWriteLock::lockForRead()
{
    QT_OWN(void (*)(QReadWriteLock *), "_ZN14QReadWriteLock11lockForReadEv");
    own(this);
    lockedForRead(this);
}

bool QReadWriteLock::tryLockForRead()
{
    QT_OWN(bool (*)(QReadWriteLock *), "_ZN14QReadWriteLock14tryLockForReadEv");
    return annotatedIf(own(this), this, lockedForRead);
}

bool QReadWriteLock::tryLockForRead(int timeout)
{
    QT_OWN(bool (*)(QReadWriteLock *, int), "_ZN14QReadWriteLock14tryLockForReadEi");
    return annotatedIf(own(this, timeout), this, lockedForRead);
}

void QReadWriteLock::lockForWrite()
{
    QT_OWN(void (*)(QReadWriteLock *), "_ZN14QReadWriteLock12lockForWriteEv");
    own(this);
    lockedForWrite(this);
}

bool QReadWriteLock::tryLockForWrite()
{
    QT_OWN(bool (*)(QReadWriteLock *), "_ZN14QReadWriteLock15tryLockForWriteEv");
    return annotatedIf(own(this), this, lockedForWrite);
}

bool QReadWriteLock::tryLockForWrite(int timeout)
{
    QT_OWN(bool (*)(QReadWriteLock *, int), "_ZN14QReadWriteLock15tryLockForWriteEi");
    return annotatedIf(own(this, timeout), this, lockedForWrite);
}

void QReadWriteLock::unlock()
{
    QT_OWN(void (*)(QReadWriteLock *), "_ZN14QReadWriteLock6unlockEv");
    unlocking(this);
    own(this);
}

// A wait gives the lock up and takes it again inside Qt; the waker's
// hand-over reaches the waiter through the condition.
namespace {
bool givingUp(QMutex *mutex)
{
    __tsan_release(syncOf(mutex));
    return false;
}

void retaken(QMutex *mutex, bool)
{
    __tsan_acquire(syncOf(mutex));
}

bool givingUp(QReadWriteLock *lock)
{
    const bool forRead = readWriteLockHeldForRead(lock);
    unlocking(lock);
    return forRead;
}

void retaken(QReadWriteLock *lock, bool forRead)
{
    if (forRead)
        lockedForRead(lock);
    else
        lockedForWrite(lock);
}

template <typename Lock, typename Limit>
bool annotatedWait(QWaitCondition *condition, Lock *lock, Limit limit,
                   bool (*own)(QWaitCondition *, Lock *, Limit))
{
    const bool forRead = givingUp(lock);
    const bool woken = own(condition, lock, limit);
    retaken(lock, forRead);
    __tsan_acquire(syncOf(condition));
    return woken;
}
} // namespace

bool QWaitCondition::wait(QMutex *lockedMutex, QDeadlineTimer deadline)
{
    QT_OWN(bool (*)(QWaitCondition *, QMutex *, QDeadlineTimer),
           "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    return annotatedWait(this, lockedMutex, deadline, own);
}

bool QWaitCondition::wait(QMutex *lockedMutex, unsigned long time)
{
    QT_OWN(bool (*)(QWaitCondition *, QMutex *, unsigned long), "_ZN14QWaitCondition4waitEP6QMutexm");
    return annotatedWait(this, lockedMutex, time, own);
}

bool QWaitCondition::wait(QReadWriteLock *lockedReadWriteLock, QDeadlineTimer deadline)
{
    QT_OWN(bool (*)(QWaitCondition *, QReadWriteLock *, QDeadlineTimer),
           "_ZN14QWaitCondition4waitEP14QReadWriteLock14QDeadlineTimer");
    return annotatedWait(this, lockedReadWriteLock, deadline, own);
}

bool QWaitCondition::wait(QReadWriteLock *lockedReadWriteLock, unsigned long time)
{
    QT_OWN(bool (*)(QWaitCondition *, QReadWriteLock *, unsigned long),
           "_ZN14QWaitCondition4waitEP14QReadWriteLockm");
    return annotatedWait(this, lockedReadWriteLock, time, own);
}

void QWaitCondition::wakeOne()
{
    QT_OWN(void (*)(QWaitCondition *), "_ZN14QWaitCondition7wakeOneEv");
    __tsan_release(syncOf(this));
    own(this);
}

void QWaitCondition::wakeAll()
{
    QT_OWN(void (*)(QWaitCondition *), "_ZN14QWaitCondition7wakeAllEv");
    __tsan_release(syncOf(this));
    own(this);
}

void QSemaphore::acquire(int n)
{
    QT_OWN(void (*)(QSemaphore *, int), "_ZN10QSemaphore7acquireEi");
    own(this, n);
    __tsan_acquire(syncOf(this));
}

bool QSemaphore::tryAcquire(int n)
{
    QT_OWN(bool (*)(QSemaphore *, int), "_ZN10QSemaphore10tryAcquireEi");
    return annotatedIf<void>(own(this, n), this, acquired);
}

bool QSemaphore::tryAcquire(int n, int timeout)
{
    QT_OWN(bool (*)(QSemaphore *, int, int), "_ZN10QSemaphore10tryAcquireEii");
    return annotatedIf<void>(own(this, n, timeout), this, acquired);
}

void QSemaphore::release(int n)
{
    QT_OWN(void (*)(QSemaphore *, int), "_ZN10QSemaphore7releaseEi");
    __tsan_release(syncOf(this));
    own(this, n);
}
