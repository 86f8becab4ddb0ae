// The player control's side of the session's news: command results, ticks,
// engine events and errors, turned into Qt's state, status and errors.
#include "qorvicplayercontrol.h"
#include "qorvicplayercontrol_p.h"

#include "qorvicsessionlink.h"

#include <QtMultimedia/QMediaMetaData>

using namespace QOrvicPlayerControlPrivate;
using Host = QOrvicSessionHost;
using S = QOrvicPlayerSession;

void QOrvicPlayerControl::onRateRefused(int generation)
{
    if (generation == m_link->generation())
        m_rateRefused = true;
}

void QOrvicPlayerControl::onCommandDone(const QOrvicCommandResult &r)
{
    QOrvicBusyScope busy(m_link);
    if (r.command == Host::Rate && r.serial == m_rateSerial) {
        if (m_rateRefused) {
            // The session kept its rate: so does the player.
            m_rateRefused = false;
            if (!qFuzzyCompare(m_rate, m_acceptedRate)) {
                m_rate = m_acceptedRate;
                Q_EMIT playbackRateChanged(m_rate);
            }
        } else {
            m_acceptedRate = m_rate;
        }
        return;
    }
    if (r.generation != m_link->generation())
        return;
    const S::PlayerState s = r.state;
    switch (r.command) {
    case Host::Open:
        if (r.failed || s != S::Player_Prepared) {
            fail(QMediaPlayer::ResourceError, r.errorText == QLatin1String("This format is not supported due to low memory.")
                                                      ? r.errorText : QLatin1String(kOpenFailed));
            return;
        }
        if (m_state == QMediaPlayer::StoppedState && m_status == QMediaPlayer::LoadingMedia) {
            QPointer<QOrvicPlayerControl> self(this);
            pushState();
            m_status = QMediaPlayer::LoadedMedia;
            popAndNotifyState();
            if (self)
                Q_EMIT positionChanged(position());
        }
        break;
    case Host::Play:
    case Host::Pause: {
        const bool ok = r.command == Host::Play ? (isRunning(s) || s == S::Player_Pause) : s == S::Player_Pause;
        if (r.failed || (!ok && m_state != QMediaPlayer::StoppedState && s <= S::Player_Prepared)) {
            fail(QMediaPlayer::ResourceError, r.command == Host::Play ? QLatin1String(kPlayFailed)
                                                                        : QLatin1String(kOpenFailed));
            return;
        }
        if (m_state != QMediaPlayer::StoppedState
                && (m_status == QMediaPlayer::LoadingMedia || m_status == QMediaPlayer::LoadedMedia)) {
            pushState();
            m_status = startedStatus(m_bufferProgress);
            popAndNotifyState();
        }
        break;
    }
    case Host::Seek:
        if (r.serial == m_seekSerial && m_seekTarget >= 0) {
            const qint64 target = m_seekTarget;
            m_position = target;
            m_seekTarget = -1;
            if (m_state != QMediaPlayer::StoppedState)
                Q_EMIT positionChanged(target);
        }
        break;
    default:
        break;
    }
}

void QOrvicPlayerControl::onTick(int generation, qint64 position, int state)
{
    // While the player still says it is loading, its position stays where
    // the load began (as position() does), even when the session already
    // runs the play asked for meanwhile.
    if (generation != m_link->generation() || m_seekTarget >= 0 || m_state == QMediaPlayer::StoppedState
        || m_status == QMediaPlayer::LoadingMedia)
        return;
    if (isRunning(S::PlayerState(state)) || state == S::Player_Pause)
        m_position = position;
}

void QOrvicPlayerControl::onDuration(int generation, qint64 duration)
{
    if (generation != m_link->generation() || duration < 0 || duration == m_duration)
        return;
    QOrvicBusyScope busy(m_link);
    m_duration = duration;
    Q_EMIT durationChanged(duration);
}

void QOrvicPlayerControl::onSeekable(int generation, bool seekable)
{
    if (generation != m_link->generation() || seekable == m_seekable)
        return;
    QOrvicBusyScope busy(m_link);
    m_seekable = seekable;
    Q_EMIT seekableChanged(seekable);
}

void QOrvicPlayerControl::onMetadata(int generation, const QVariantMap &map)
{
    if (generation != m_link->generation())
        return;
    QOrvicBusyScope busy(m_link);
    // The session's counts of streams show in its metadata keys.
    if (map.contains(QMediaMetaData::AudioCodec) || map.contains(QMediaMetaData::ChannelCount))
        setAudioAvailable(true);
    if (map.contains(QMediaMetaData::VideoCodec) || map.contains(QMediaMetaData::Resolution))
        setVideoAvailable(true);
}

void QOrvicPlayerControl::setAudioAvailable(bool on)
{
    if (on == m_audioAvailable)
        return;
    m_audioAvailable = on;
    Q_EMIT audioAvailableChanged(on);
}

void QOrvicPlayerControl::setVideoAvailable(bool on)
{
    if (on == m_videoAvailable)
        return;
    m_videoAvailable = on;
    Q_EMIT videoAvailableChanged(on);
}

void QOrvicPlayerControl::onComplete(int generation)
{
    if (generation != m_link->generation() || m_state == QMediaPlayer::StoppedState)
        return;
    QOrvicBusyScope busy(m_link);
    QPointer<QOrvicPlayerControl> self(this);
    pushState();
    m_endOfMedia = true;
    m_status = QMediaPlayer::EndOfMedia;
    m_state = QMediaPlayer::StoppedState;
    // The ended pipeline goes; playing again reopens the medium.
    postStop();
    Q_EMIT positionChanged(m_duration);
    if (!self)
        return;
    popAndNotifyState();
}

void QOrvicPlayerControl::onBuffer(int generation, int percent)
{
    if (generation != m_link->generation() || percent < 0 || m_status == QMediaPlayer::NoMedia
            || percent == m_bufferProgress)
        return;
    QOrvicBusyScope busy(m_link);
    QPointer<QOrvicPlayerControl> self(this);
    m_bufferProgress = qMin(percent, 100);
    pushState();
    if (m_state != QMediaPlayer::StoppedState
            && isStarted(m_status))
        m_status = startedStatus(m_bufferProgress);
    popAndNotifyState();
    if (self)
        Q_EMIT bufferStatusChanged(m_bufferProgress);
}

void QOrvicPlayerControl::onAsyncError(int generation, int code, const QString &text)
{
    if (generation != m_link->generation() || m_status == QMediaPlayer::NoMedia
            || m_status == QMediaPlayer::InvalidMedia)
        return;
    Q_UNUSED(code);
    if (text == QLatin1String("This format is not supported due to low memory.")) {
        fail(QMediaPlayer::ResourceError, text);
        return;
    }
    if (m_network && !m_server)
        fail(QMediaPlayer::NetworkError, QLatin1String(kStreamBroke));
    else
        fail(QMediaPlayer::ResourceError, QLatin1String(kDecodeFailed));
}

void QOrvicPlayerControl::onServiceGaveUp(int generation)
{
    if (generation != m_link->generation())
        return;
    fail(QMediaPlayer::ResourceError, QLatin1String(kServiceGaveUp));
}
