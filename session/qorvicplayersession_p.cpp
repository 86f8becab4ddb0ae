// Engine adaptor: playback service and engine lifecycle.
#include "qorvicplayersession_p.h"
#include "qorvicmetadatasession.h"
#include "qorviclogging_p.h"

#include <QtCore/QMutexLocker>
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
    // the acknowledge mutex a second time.
    mIsStopping.storeRelease(false);
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

    OPSESSION_LOG("D/OPSession %s(%d):save vol %d is mute %d", mVolume, int(mMuted));
    mCallBack = new MSPCBK_NavQueue(this);
    if (isMetaDataOnly(mFlags))
        mFilePlayer = playback::SPPlayer::create("QspmediaplayerOnlyMetadata", mCallBack);
    else
        mFilePlayer = playback::SPPlayer::create("Qspmediaplayer", mCallBack);

    // The engine's own volume wins over the one saved before a restart. An
    // engine that could not be created keeps the saved values.
    if (mFilePlayer) {
        mVolume = mFilePlayer->getVolume();
        OPSESSION_LOG("D/OPSession %s(%d):init volume %d", mVolume);
        mMuted = mVolume <= 0;
    } else {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
    }

    mSPMetaData = playback::SPMetaData::create("SpMetadata", "default");
    mCurrentState = QOrvicPlayerSession::Player_Idle;
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
    if (mMetaSession) {
        delete mMetaSession;
        mMetaSession = nullptr;
    }
    if (mSPMetaData)
        playback::SPMetaData::destroy(mSPMetaData);
    if (mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):stop start ");
        const int result = mFilePlayer->stop();
        OPSESSION_LOG("D/OPSession %s(%d):stop:%d ", result);
        playback::SPPlayer::destroy(mFilePlayer);
        OPSESSION_LOG("D/OPSession %s(%d):SPPlayer::destroy ");
    }
    if (mCallBack) {
        delete mCallBack;
        mCallBack = nullptr;
    }
    QOrvicMetaDataSession::releaseMetaData(mMetaData);
    mFilePlayer = nullptr;
    mSPMetaData = nullptr;
}

void QOrvicPlayerSessionPrivate::setState(QOrvicPlayerSession::PlayerState state)
{
    mCurrentState = state;
    OPSESSION_LOG("D/OPSession %s(%d):emit state %d", int(state));
    Q_EMIT q->stateChanged(state);
}

QImage QOrvicPlayerSessionPrivate::getID3Pic()
{
    QMutexLocker locker(&mPlayerLock);
    if (!mMetaSession) {
        OPSESSION_LOG("D/OPSession %s(%d):mMetaSession is null");
        return QImage();
    }
    // The metadata session's image reads the engine's pixels, which the next
    // open or picture request frees; the client gets pixels of its own, copied
    // while the player lock keeps an open from running.
    return mMetaSession->updateID3Pic().copy();
}
