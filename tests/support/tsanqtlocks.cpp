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
    const bool locked = own(this, timeout);
    if (locked)
        __tsan_acquire(syncOf(this));
    return locked;
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
    const bool locked = own(this);
    if (locked)
        lockedForRead(this);
    return locked;
}

bool QReadWriteLock::tryLockForRead(int timeout)
{
    QT_OWN(bool (*)(QReadWriteLock *, int), "_ZN14QReadWriteLock14tryLockForReadEi");
    const bool locked = own(this, timeout);
    if (locked)
        lockedForRead(this);
    return locked;
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
    const bool locked = own(this);
    if (locked)
        lockedForWrite(this);
    return locked;
}

bool QReadWriteLock::tryLockForWrite(int timeout)
{
    QT_OWN(bool (*)(QReadWriteLock *, int), "_ZN14QReadWriteLock15tryLockForWriteEi");
    const bool locked = own(this, timeout);
    if (locked)
        lockedForWrite(this);
    return locked;
}

void QReadWriteLock::unlock()
{
    QT_OWN(void (*)(QReadWriteLock *), "_ZN14QReadWriteLock6unlockEv");
    unlocking(this);
    own(this);
}

// A wait gives the lock up and takes it again inside Qt; the waker's
// hand-over reaches the waiter through the condition.
bool QWaitCondition::wait(QMutex *lockedMutex, QDeadlineTimer deadline)
{
    QT_OWN(bool (*)(QWaitCondition *, QMutex *, QDeadlineTimer),
           "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_release(syncOf(lockedMutex));
    const bool woken = own(this, lockedMutex, deadline);
    __tsan_acquire(syncOf(lockedMutex));
    __tsan_acquire(syncOf(this));
    return woken;
}

bool QWaitCondition::wait(QMutex *lockedMutex, unsigned long time)
{
    QT_OWN(bool (*)(QWaitCondition *, QMutex *, unsigned long), "_ZN14QWaitCondition4waitEP6QMutexm");
    __tsan_release(syncOf(lockedMutex));
    const bool woken = own(this, lockedMutex, time);
    __tsan_acquire(syncOf(lockedMutex));
    __tsan_acquire(syncOf(this));
    return woken;
}

bool QWaitCondition::wait(QReadWriteLock *lockedReadWriteLock, QDeadlineTimer deadline)
{
    QT_OWN(bool (*)(QWaitCondition *, QReadWriteLock *, QDeadlineTimer),
           "_ZN14QWaitCondition4waitEP14QReadWriteLock14QDeadlineTimer");
    const bool forRead = readWriteLockHeldForRead(lockedReadWriteLock);
    unlocking(lockedReadWriteLock);
    const bool woken = own(this, lockedReadWriteLock, deadline);
    forRead ? lockedForRead(lockedReadWriteLock) : lockedForWrite(lockedReadWriteLock);
    __tsan_acquire(syncOf(this));
    return woken;
}

bool QWaitCondition::wait(QReadWriteLock *lockedReadWriteLock, unsigned long time)
{
    QT_OWN(bool (*)(QWaitCondition *, QReadWriteLock *, unsigned long),
           "_ZN14QWaitCondition4waitEP14QReadWriteLockm");
    const bool forRead = readWriteLockHeldForRead(lockedReadWriteLock);
    unlocking(lockedReadWriteLock);
    const bool woken = own(this, lockedReadWriteLock, time);
    forRead ? lockedForRead(lockedReadWriteLock) : lockedForWrite(lockedReadWriteLock);
    __tsan_acquire(syncOf(this));
    return woken;
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
    const bool acquired = own(this, n);
    if (acquired)
        __tsan_acquire(syncOf(this));
    return acquired;
}

bool QSemaphore::tryAcquire(int n, int timeout)
{
    QT_OWN(bool (*)(QSemaphore *, int, int), "_ZN10QSemaphore10tryAcquireEii");
    const bool acquired = own(this, n, timeout);
    if (acquired)
        __tsan_acquire(syncOf(this));
    return acquired;
}

void QSemaphore::release(int n)
{
    QT_OWN(void (*)(QSemaphore *, int), "_ZN10QSemaphore7releaseEi");
    __tsan_release(syncOf(this));
    own(this, n);
}
