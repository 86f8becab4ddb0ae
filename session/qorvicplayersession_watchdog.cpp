// Engine adaptor: watchdog of the playback service. Fed by the client's time
// updates, it restarts a service that died or stopped moving and brings the
// medium back to where it was.
#include "qorvicplayersession_p.h"
#include "qorviclogging_p.h"

#include <QtCore/QMutexLocker>

#include <cutils/properties.h>

#include <cstdio>

namespace {
using State = QOrvicPlayerSession::PlayerState;

const char kServiceName[] = "psserver";
const char kStatusKeyFormat[] = "init.svc.%s";
const char kStopped[] = "stopped";
const int kStatusBufferSize = 32;
// Consecutive time updates with an unchanged position that mean a stuck service.
const int kStallLimit = 10;

bool isPlayingState(State state)
{
    return state >= QOrvicPlayerSession::Player_Play && state <= QOrvicPlayerSession::Player_SB;
}
} // namespace

void QOrvicPlayerSessionPrivate::recoverIfDue()
{
    if (mRecoveryDue.fetchAndStoreAcquire(false))
        checkServer(mRecoveryPosition.loadAcquire());
}

// Counts a time update of a playing session; true once the position has not
// moved for kStallLimit updates. The counter is shared by every session.
bool QOrvicPlayerSessionPrivate::countStall(qint64 position)
{
    if (position != mSavedPosition) {
        mSavedPosition = position;
        stallCounter.storeRelease(0);
        return false;
    }
    return stallCounter.fetchAndAddOrdered(1) + 1 >= kStallLimit;
}

void QOrvicPlayerSessionPrivate::checkServer(qint64 position)
{
    bool serviceStopped = false;
    {
        QMutexLocker resetLocker(&mResetLock);
        char key[kStatusBufferSize] = {};
        char value[kStatusBufferSize] = {};
        std::snprintf(key, sizeof key, kStatusKeyFormat, kServiceName);
        if (property_get(key, value, "") < 0)
            OPSESSION_LOG("D/OPSession %s(%d):property_get error ");
        serviceStopped = QString::fromUtf8(value) == QLatin1String(kStopped);
    }

    // A recovery never replaces an engine that a command is using: with a
    // command running (on another thread, or further out on this one, when
    // the time update comes from a slot), this tick leaves the service to a
    // later one. The same lock keeps two time updates from recovering at once.
    const PlayerLocker playerLocker(this, PlayerLocker::TryLock);
    if (!playerLocker.ownsLock() || playerLocker.insideCommand() || mIsStopping.loadAcquire()) {
        // A stopped service is not left to chance, though: with commands
        // coming one after the other, a later tick might never find the lock
        // free. The command queue recovers before its next command instead.
        if (serviceStopped && !mIsStopping.loadAcquire()) {
            mRecoveryPosition.storeRelease(position);
            mRecoveryDue.storeRelease(true);
        }
        return;
    }
    mRecoveryDue.storeRelease(false);

    // The state before the restart decides how far the medium is brought back.
    const State state = mCurrentState;
    bool stuck = false;
    if (!serviceStopped) {
        if (!isPlayingState(state) || !countStall(position))
            return;
        stuck = true;
    } else {
        OPSESSION_LOG("D/OPSession %s(%d):checkServer: psserver is stopped,restart it!!! ");
        if (isPlayingState(state))
            stuck = countStall(position);
    }

    if (stuck) {
        stallCounter.storeRelease(0);
        OPSESSION_LOG("D/OPSession %s(%d):checkServer: psserver is blocking,restart it!!! ");
        abandonEngine();
    }

    OPSESSION_LOG("D/OPSession %s(%d):checkServer: orignal state:%d pos:%lld ", int(state), mSavedPosition);
    reset();

    // A medium that brought the service down once is not reopened again, so
    // that it cannot keep killing the service; stop() forgets it.
    if (mWatchdogUrl == mCurrentUrl) {
        OPSESSION_LOG("D/OPSession %s(%d):checkServer: already block once:%s ", mCurrentUrl.toUtf8().constData());
        return;
    }
    if (state < QOrvicPlayerSession::Player_Preparing)
        return;
    // A stop that started meanwhile wins: what it stops is not brought back.
    if (mIsStopping.loadAcquire())
        return;

    OPSESSION_LOG("D/OPSession %s(%d):checkServer: setMedia:%s ", mCurrentUrl.toUtf8().constData());
    mWatchdogUrl = mCurrentUrl;
    setMedia(mCurrentUrl);
    if (state <= QOrvicPlayerSession::Player_Prepared || mIsStopping.loadAcquire())
        return;

    // Trick play is not restored: playback resumes at normal speed.
    OPSESSION_LOG("D/OPSession %s(%d):checkServer: play pos:%lld ", mSavedPosition);
    play();
    if (mIsStopping.loadAcquire())
        return;
    seek(mSavedPosition);
    if (state == QOrvicPlayerSession::Player_Pause && !mIsStopping.loadAcquire()) {
        OPSESSION_LOG("D/OPSession %s(%d):checkServer: pause ");
        pause();
    }
}
