// Engine adaptor: playback service and engine lifecycle.
#include "qorvicplayersession_p.h"
#include "qorvicmetadatasession.h"
#include "qorviclogging_p.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QReadWriteLock>
#include <QtCore/QThread>

#include <cutils/properties.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
const char kServiceName[] = "psserver";
const char kStatusKeyFormat[] = "init.svc.%s";
const char kRunning[] = "running";
const char kStopped[] = "stopped";
const int kStatusBufferSize = 32;
const unsigned long kPollIntervalMs = 5;
const int kResetWarningPeriod = 1000;

QAtomicInt nextPlayerId{0};

void threadSleep(unsigned long ms)
{
    QThread::msleep(ms);
}

// Reads the service status into `value` (a zeroed 32-byte buffer); false when
// the property service reports a failure (the buffer then holds what it holds).
bool readServiceStatus(const char *key, char *value)
{
    return property_get(key, value, "") >= 0;
}

int registrationAsGiven(int index, int typeId)
{
    Q_UNUSED(index);
    return typeId;
}
} // namespace

QAtomicInt QOrvicPlayerSessionPrivate::stallCounter{0};
int (*QOrvicPlayerSessionPrivate::registrationResult)(int, int) = registrationAsGiven;
void (*QOrvicPlayerSessionPrivate::pollSleep)(unsigned long) = threadSleep;

QOrvicPlayerSessionPrivate::QOrvicPlayerSessionPrivate(QMediaPlayer::Flags flags)
    : mMetaData(),
      mFlags(flags),
      mPlayerId(nextPlayerId.fetchAndAddRelaxed(1))
{
}

QOrvicPlayerSessionPrivate::~QOrvicPlayerSessionPrivate()
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
    // Waits for a recovery or an engine question of another thread (a time
    // update, getID3Pic, metadataInvoke) to end before the engine goes.
    const PlayerLocker locker(this);
    release();
}

void QOrvicPlayerSessionPrivate::listLock(int line)
{
    OPSESSION_LOG("D/OPSession %s(%d):list lock!(%d)", line);
    mListLock.lock();
}

void QOrvicPlayerSessionPrivate::listUnlock(int line)
{
    OPSESSION_LOG("D/OPSession %s(%d):list unlock!(%d)", line);
    mListLock.unlock();
}

void QOrvicPlayerSessionPrivate::init()
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
    OPSESSION_LOG("D/OPSession %s(%d):palyer id %d", mPlayerId);
    // The command queue's dispatch state is left alone: a reset may run while
    // a command is signalled, and clearing it would let the next command lock
    // the acknowledge mutex a second time. So is the stopping flag: it starts
    // lowered, and only the stop that raised it may lower it again; a
    // watchdog restart during that stop must not.
    mIsNetwork = false;

    char key[kStatusBufferSize] = {};
    char value[kStatusBufferSize] = {};
    std::snprintf(key, sizeof key, kStatusKeyFormat, kServiceName);

    if (property_set("ctl.start", kServiceName) == 0)
        OPSESSION_LOG("D/OPSession %s(%d):property_set ctl.start error ");
    // No bound and a warning on every poll: init waits for the service as long as it takes.
    for (;;) {
        if (!readServiceStatus(key, value))
            OPSESSION_LOG("D/OPSession %s(%d):property_get error ");
        if (QString::fromUtf8(value) == QLatin1String(kRunning))
            break;
        OPSESSION_LOG("D/OPSession %s(%d):Warning: waiting psserver running over 5 sec, key:%s value:%s ",
                      key, value);
        pollSleep(kPollIntervalMs);
    }

    OPSESSION_LOG("D/OPSession %s(%d):save vol %d is mute %d", mVolume.load(), int(mMuted.load()));
    mCallBack = new MSPCBK_NavQueue(this);
    if (isMetaDataOnly(mFlags))
        mFilePlayer = playback::SPPlayer::create("QspmediaplayerOnlyMetadata", mCallBack);
    else
        mFilePlayer = playback::SPPlayer::create("Qspmediaplayer", mCallBack);

    // The engine's own volume wins over the one saved before a restart. An
    // engine that could not be created keeps the saved values.
    if (mFilePlayer) {
        mVolume = mFilePlayer->getVolume();
        OPSESSION_LOG("D/OPSession %s(%d):init volume %d", mVolume.load());
        mMuted = mVolume <= 0;
    } else {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
    }

    mSPMetaData = playback::SPMetaData::create("SpMetadata", "default");
    storeState(QOrvicPlayerSession::Player_Idle);
    mMetaSession = new QOrvicMetaDataSession(mSPMetaData, mFilePlayer, nullptr);
    mMetaData.videoAttribute = nullptr;
    mMetaData.audioAttribute = nullptr;
    mMetaData.subtitleAttribute = nullptr;
    // A fresh engine has no medium: after a restart nothing is available
    // until the medium is opened again.
    setStreamCounts(0, 0);
    setState(QOrvicPlayerSession::Player_Initialized);
    mPlaybackRate = float(playbackRate());
}

void QOrvicPlayerSessionPrivate::reset()
{
    QMutexLocker resetLocker(&mResetLock);
    char key[kStatusBufferSize] = {};
    char value[kStatusBufferSize] = {};
    std::snprintf(key, sizeof key, kStatusKeyFormat, kServiceName);

    release();
    if (property_set("ctl.stop", kServiceName) == 0)
        OPSESSION_LOG("D/OPSession %s(%d):property_set ctl.stop error ");
    for (int polls = 0;; ++polls) {
        if (!readServiceStatus(key, value))
            OPSESSION_LOG("D/OPSession %s(%d):property_get error ");
        if (QString::fromUtf8(value) == QLatin1String(kStopped))
            break;
        if (polls % kResetWarningPeriod == 0)
            OPSESSION_LOG("D/OPSession %s(%d):Warning: waiting psserver stopped over 5 sec, key:%s value:%s ",
                          key, value);
        pollSleep(kPollIntervalMs);
    }
    init();
}

void QOrvicPlayerSessionPrivate::release()
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
    // The engine goes first: until it has stopped, its threads may still
    // deliver a subtitle into the metadata session or an event into the sink.
    if (mFilePlayer) {
        playback::SPPlayer *const player = mFilePlayer;
        OPSESSION_LOG("D/OPSession %s(%d):stop start ");
        const int result = player->stop();
        OPSESSION_LOG("D/OPSession %s(%d):stop:%d ", result);
        {
            // No reader of another thread is inside the engine while it goes.
            QWriteLocker engineUse(&mEngineUseLock);
            mFilePlayer = nullptr;
        }
        playback::SPPlayer::destroy(player);
        OPSESSION_LOG("D/OPSession %s(%d):SPPlayer::destroy ");
    }
    if (mCallBack) {
        // A destroyed engine calls no more, but one of its callbacks may
        // still be on its way through the adaptor.
        mCallBack->detach();
        mCallBack->waitIdle();
        delete mCallBack;
        mCallBack = nullptr;
    }
    for (MSPCBK_NavQueue *abandoned : qAsConst(mAbandonedCallBacks))
        abandoned->waitIdle();
    mAbandonedCallBacks.clear();
    if (mMetaSession) {
        QOrvicMetaDataSession *const metaSession = mMetaSession;
        mMetaSession = nullptr;
        delete metaSession;
    }
    if (mSPMetaData)
        playback::SPMetaData::destroy(mSPMetaData);
    QOrvicMetaDataSession::releaseMetaData(mMetaData);
    mFilePlayer = nullptr;
    mSPMetaData = nullptr;
}

void QOrvicPlayerSessionPrivate::abandonEngine()
{
    // The engine and its reader are not destroyed, and the sink that the
    // engine holds is kept for good but cut off from this adaptor: should the
    // engine wake up later, its callbacks reach nothing that has gone.
    {
        QWriteLocker engineUse(&mEngineUseLock);
        mFilePlayer = nullptr;
    }
    mSPMetaData = nullptr;
    if (mCallBack) {
        mCallBack->detach();
        MSPCBK_NavQueue::keepForever(mCallBack);
        mAbandonedCallBacks.append(mCallBack);
        mCallBack = nullptr;
    }
}

void QOrvicPlayerSessionPrivate::setState(QOrvicPlayerSession::PlayerState state)
{
    QMutexLocker stateLocker(&mStateLock);
    mCurrentState.store(state);
    OPSESSION_LOG("D/OPSession %s(%d):emit state %d", int(state));
    Q_EMIT q->stateChanged(state);
}

void QOrvicPlayerSessionPrivate::storeState(QOrvicPlayerSession::PlayerState state)
{
    QMutexLocker stateLocker(&mStateLock);
    mCurrentState.store(state);
}

QMediaTimeRange QOrvicPlayerSessionPrivate::availableRanges() const
{
    QMutexLocker locker(&mRangesLock);
    return mAvailableRanges;
}

void QOrvicPlayerSessionPrivate::setAvailableRanges(const QMediaTimeRange &ranges)
{
    QMutexLocker locker(&mRangesLock);
    mAvailableRanges = ranges;
}

QOrvicPlayerSessionPrivate::PlayerLocker::PlayerLocker(QOrvicPlayerSessionPrivate *d, Mode mode)
    : m_d(d)
{
    if (mode == TryLock) {
        m_locked = m_d->mPlayerLock.tryLock();
    } else {
        m_d->mPlayerLock.lock();
        m_locked = true;
    }
    if (m_locked)
        m_outerDepth = m_d->mCommandDepth++;
}

QOrvicPlayerSessionPrivate::PlayerLocker::~PlayerLocker()
{
    if (!m_locked)
        return;
    --m_d->mCommandDepth;
    m_d->mPlayerLock.unlock();
}

QImage QOrvicPlayerSessionPrivate::getID3Pic()
{
    const PlayerLocker locker(this);
    if (!mMetaSession) {
        OPSESSION_LOG("D/OPSession %s(%d):mMetaSession is null");
        return QImage();
    }
    // The metadata session's image reads the engine's pixels, which the next
    // open or picture request frees; the client gets pixels of its own, copied
    // while the player lock keeps an open from running.
    return mMetaSession->updateID3Pic().copy();
}
