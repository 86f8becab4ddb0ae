// Engine adaptor: transport control.
#include "qorvicplayersession_p.h"
#include "qorviclogging_p.h"

#include <QtCore/QMutexLocker>
#include <QtCore/QReadWriteLock>
#include <QtCore/qnumeric.h>


namespace {
using State = QOrvicPlayerSession::PlayerState;

const char kFormatNotSupported[] = "video format not support";
// Speeds within this distance of 1.0 count as normal play for pause().
const double kNormalSpeedTolerance = 0.0001;
// Result of a rate that is refused before the engine is asked.
const int kRateRefused = -3;

bool isTrickPlayState(State state)
{
    return state >= QOrvicPlayerSession::Player_FF && state <= QOrvicPlayerSession::Player_SB;
}

// Play, trick play and pause: the states in which the engine has a position.
bool isRunningState(State state)
{
    return state >= QOrvicPlayerSession::Player_Play && state <= QOrvicPlayerSession::Player_Pause;
}

// States from which the engine's play() (or leaving trick play) is accepted.
bool isPlayableState(State state)
{
    return state == QOrvicPlayerSession::Player_Prepared
        || (state >= QOrvicPlayerSession::Player_FF && state <= QOrvicPlayerSession::Player_Pause);
}
} // namespace

void QOrvicPlayerSessionPrivate::play()
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (isMetaDataOnly(mFlags)) {
        OPSESSION_LOG("E/OPSession %s(%d):FLags is only metadata,not support play ");
        Q_EMIT q->error(1, QStringLiteral("onlymetadata flag not support play"));
        return;
    }
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }

    bool playable = true;
    if (mCurrentState == QOrvicPlayerSession::Player_Stop) {
        // A stopped medium is opened again; the open leaves the state to go on from.
        if (mCurrentUrl.isEmpty())
            playable = false;
        else
            setMedia(mCurrentUrl);
    }
    if (!playable || !isPlayableState(mCurrentState)) {
        OPSESSION_LOG("E/OPSession %s(%d):can't play,state error %d", int(mCurrentState));
        setState(mCurrentState);
        return;
    }

    if (mIsStopping.loadAcquire()) {
        OPSESSION_LOG("D/OPSession %s(%d):stop process is doing");
        return;
    }

    // Trick play is left by going back to speed 1.0; the engine keeps playing.
    const double speed = mFilePlayer->getSpeed();
    if (speed != 1.0) {
        OPSESSION_LOG("D/OPSession %s(%d):tmpSpeed %f", speed);
        const int result = mFilePlayer->setSpeed(1.0);
        OPSESSION_LOG("D/OPSession %s(%d):set temp speed 1.0 %d", result);
        setState(QOrvicPlayerSession::Player_Play);
        return;
    }

    const int result = mFilePlayer->play();
    OPSESSION_LOG("D/OPSession %s(%d):pe play return value %d", result);
    if (mCurrentState == QOrvicPlayerSession::Player_Stop || mIsStopping.loadAcquire()) {
        OPSESSION_LOG("D/OPSession %s(%d):stop process is doing or done");
        return;
    }
    if (result == 0) {
        setState(QOrvicPlayerSession::Player_Play);
        setAvailableRanges(QMediaTimeRange(0, q->duration()));
        return;
    }
    OPSESSION_LOG("E/OPSession %s(%d):pe play fail %d", result);
    setState(mCurrentState);
    storeState(QOrvicPlayerSession::Player_Stop);
    mCurrentUrl.clear();
    Q_EMIT q->error(1, QString::fromLatin1(kFormatNotSupported));
}

void QOrvicPlayerSessionPrivate::pause()
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    const double speed = mFilePlayer->getSpeed();
    OPSESSION_LOG("D/OPSession %s(%d):the playbackrate: %f", speed);
    // During trick play the engine cannot pause; the request is dropped.
    if (!(speed - 1.0 <= kNormalSpeedTolerance && 1.0 - speed <= kNormalSpeedTolerance))
        return;

    const int result = mFilePlayer->pause();
    OPSESSION_LOG("D/OPSession %s(%d):pe play return value %d", result);
    if (result == 0) {
        setState(QOrvicPlayerSession::Player_Pause);
    } else {
        OPSESSION_LOG("E/OPSession %s(%d):pe pause fail %d", result);
        setState(mCurrentState);
    }
    const qint64 position = mFilePlayer->getPosition();
    OPSESSION_LOG("D/OPSession %s(%d):pe postition %d", int(position));
    Q_EMIT q->positionChanged(position);
}

void QOrvicPlayerSessionPrivate::stop()
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    // A medium stopped by the client may be reopened by the watchdog again.
    mWatchdogUrl.clear();
    setState(QOrvicPlayerSession::Player_Preparing);
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    const int engineState = mFilePlayer->getState();
    OPSESSION_LOG("D/OPSession %s(%d):dCurrentState %d", engineState);
    if (engineState != playback::SPPlayer::STATE_IDLE && engineState != playback::SPPlayer::STATE_INITIALIZED) {
        const int stopped = mFilePlayer->stop();
        Q_EMIT q->mediaMessageChanged(QMediaPlayer::MediaMessage(0), QVariant(100));
        OPSESSION_LOG("D/OPSession %s(%d):pe stop return value %d", stopped);
        const int reset = mFilePlayer->reset();
        OPSESSION_LOG("D/OPSession %s(%d):pe reset return value %d", reset);
    }
    setState(QOrvicPlayerSession::Player_Stop);
}

void QOrvicPlayerSessionPrivate::seek(qint64 position)
{
    const PlayerLocker locker(this);
    OPSESSION_LOG("V/OPSession %s(%d) called");
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }
    const int result = mFilePlayer->seekTo(position);
    OPSESSION_LOG("D/OPSession %s(%d):seek return value %d", result);
    if (result != 0)
        Q_EMIT q->mediaMessageChanged(QMediaPlayer::MediaMessage(2), QVariant());
}

void QOrvicPlayerSessionPrivate::setPlaybackRate(qreal rate)
{
    const PlayerLocker locker(this);
    const float value = float(rate);
    OPSESSION_LOG("D/OPSession %s(%d):rate:%f", double(value));
    if (!mFilePlayer) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return;
    }

    // A paused stream does not resume by itself when its speed changes.
    const bool pausedStream = mCurrentState == QOrvicPlayerSession::Player_Pause && mIsNetwork;

    int result = 0;
    float factor = value;   // the speed handed to the engine
    State target = mCurrentState;
    if (value < -1.0f) {
        OPSESSION_LOG("D/OPSession %s(%d):fastbackward %f", double(value));
        result = mFilePlayer->setSpeed(value);
        target = QOrvicPlayerSession::Player_FB;
    } else if (value < 0.0f) {
        // The engine has no slow backward; the factor it would need is only logged.
        factor = -1.0f / value;
        OPSESSION_LOG("D/OPSession %s(%d):slowbackward %f", double(factor));
        result = kRateRefused;
    } else if (value == 0.0f || qIsNaN(value)) {
        // 0 is handed on as a fast-forward speed.
        OPSESSION_LOG("D/OPSession %s(%d):fastforward %f", double(value));
        result = mFilePlayer->setSpeed(value);
        target = QOrvicPlayerSession::Player_FF;
    } else if (value < 1.0f) {
        OPSESSION_LOG("D/OPSession %s(%d):slowforward %f", double(value));
        result = mFilePlayer->setSpeed(value);
        target = QOrvicPlayerSession::Player_SF;
    } else if (value == 1.0f) {
        OPSESSION_LOG("D/OPSession %s(%d):setspeed reset %f", 1.0);
        result = mFilePlayer->setSpeed(1.0);
        target = QOrvicPlayerSession::Player_Play;
    } else {
        OPSESSION_LOG("D/OPSession %s(%d):fastforward %f", double(value));
        result = mFilePlayer->setSpeed(value);
        target = QOrvicPlayerSession::Player_FF;
    }
    OPSESSION_LOG("D/OPSession %s(%d):return value %f", double(result));

    if (result != 0) {
        OPSESSION_LOG("E/OPSession %s(%d):unsupport rate %f factor %f", double(value), double(factor));
        Q_EMIT q->mediaMessageChanged(QMediaPlayer::MediaMessage(2), QVariant(value));
        return;
    }
    setState(target);
    mPlaybackRate = value;
    if (pausedStream) {
        const int played = mFilePlayer->play();
        OPSESSION_LOG("D/OPSession %s(%d):play return value %d", played);
    }
    Q_EMIT q->playbackRateChanged(value);
}

qreal QOrvicPlayerSessionPrivate::playbackRate() const
{
    // Readers may run on any thread: the engine they call is not destroyed
    // before they are done with it (see release()).
    const QReadLocker engineUse(&mEngineUseLock);
    playback::SPPlayer *const player = mFilePlayer;
    if (!player) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return 1.0;
    }
    // Outside trick play the engine runs at normal speed by definition.
    const float rate = isTrickPlayState(mCurrentState) ? float(player->getSpeed()) : 1.0f;
    OPSESSION_LOG("D/OPSession %s(%d):playbackRate %f", double(rate));
    return rate;
}

qint64 QOrvicPlayerSessionPrivate::position() const
{
    const QReadLocker engineUse(&mEngineUseLock);
    playback::SPPlayer *const player = mFilePlayer;
    if (!player) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return 0;
    }
    return isRunningState(mCurrentState) ? qint64(player->getPosition()) : 0;
}

qint64 QOrvicPlayerSessionPrivate::duration() const
{
    const QReadLocker engineUse(&mEngineUseLock);
    playback::SPPlayer *const player = mFilePlayer;
    if (!player) {
        OPSESSION_LOG("D/OPSession %s(%d):mFilePlayer is null");
        return 0;
    }
    return isRunningState(mCurrentState) ? qint64(player->getDuration()) : 0;
}

void QOrvicPlayerSessionPrivate::resumePlay(qint64 position, qint64 duration)
{
    OPSESSION_LOG("V/OPSession %s(%d) called");
    // Resuming goes through the engine's own resume data.
    Q_UNUSED(position);
    Q_UNUSED(duration);
}
