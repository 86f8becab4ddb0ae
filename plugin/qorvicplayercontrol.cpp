#include "qorvicplayercontrol.h"
#include "qorvicplayercontrol_p.h"

#include "qorvicsessionlink.h"
#include "qorvicstreamserver.h"

#include <QtCore/QFileInfo>
#include <QtCore/QTimer>
#include <QtMultimedia/QMediaMetaData>

using namespace QOrvicPlayerControlPrivate;
using Host = QOrvicSessionHost;
using S = QOrvicPlayerSession;

QOrvicPlayerControl::QOrvicPlayerControl(QOrvicSessionLink *link, QObject *parent)
    : QMediaPlayerControl(parent),
      m_link(link)
{
    Host *host = link->host();
    connect(host, &Host::commandDone, this, &QOrvicPlayerControl::onCommandDone);
    connect(host, &Host::tick, this, &QOrvicPlayerControl::onTick);
    connect(host, &Host::durationChanged, this, &QOrvicPlayerControl::onDuration);
    connect(host, &Host::seekableChanged, this, &QOrvicPlayerControl::onSeekable);
    connect(host, &Host::playbackComplete, this, &QOrvicPlayerControl::onComplete);
    connect(host, &Host::bufferProgress, this, &QOrvicPlayerControl::onBuffer);
    connect(host, &Host::asyncError, this, &QOrvicPlayerControl::onAsyncError);
    connect(host, &Host::serviceGaveUp, this, &QOrvicPlayerControl::onServiceGaveUp);
    connect(host, &Host::rateRefused, this, &QOrvicPlayerControl::onRateRefused);
    connect(host, &Host::metadata, this,
            [this](int generation, const QVariantMap &map) { onMetadata(generation, map); });
    connect(host, &Host::audioAvailable, this, [this](int generation, bool on) {
        if (generation == m_link->generation() && on) {
            QOrvicBusyScope busy(m_link);
            setAudioAvailable(true);
        }
    });
    connect(host, &Host::videoAvailable, this, [this](int generation, bool on) {
        if (generation == m_link->generation() && on) {
            QOrvicBusyScope busy(m_link);
            setVideoAvailable(true);
        }
    });
    // The player's volume and mute state, not whatever the engine kept.
    m_link->post(Host::Volume, m_volume);
    m_link->post(Host::Mute, m_muted);
}

QOrvicPlayerControl::~QOrvicPlayerControl()
{
    delete m_server;
}

qint64 QOrvicPlayerControl::position() const
{
    if (m_status == QMediaPlayer::NoMedia || m_status == QMediaPlayer::InvalidMedia)
        return 0;
    if (m_state == QMediaPlayer::StoppedState)
        return m_endOfMedia ? m_duration : m_stoppedPosition;
    if (m_seekTarget >= 0)
        return m_seekTarget;
    // While playing, the engine's position now, as Qt's own back ends read
    // their pipeline's; the session's last tick is up to its interval old.
    // Only once the player has been told that its play took effect: a play
    // asked for while loading must not show a running position while the
    // status still says loading.
    qint64 now = 0;
    const bool running = isStarted(m_status);
    if (m_state == QMediaPlayer::PlayingState && running && readLive(&now)) {
        m_lastLive = now;
        return now;
    }
    if (m_state == QMediaPlayer::PlayingState && m_lastLive >= 0 && m_rate > 0)
        return qMax(m_position, m_lastLive);
    return m_position;
}

bool QOrvicPlayerControl::readLive(qint64 *position) const
{
    return m_link->host()->livePosition(m_link->generation(), position);
}

int QOrvicPlayerControl::bufferStatus() const
{
    if (m_bufferProgress >= 0)
        return m_bufferProgress;
    switch (m_status) {
    case QMediaPlayer::LoadedMedia:
    case QMediaPlayer::BufferedMedia:
    case QMediaPlayer::EndOfMedia:
        return 100;
    default:
        return 0;
    }
}

QMediaTimeRange QOrvicPlayerControl::availablePlaybackRanges() const
{
    // Local media and what the engine has of a network stream: all of it
    // once loaded (the engine reports no partial ranges).
    if (m_duration > 0 && m_status != QMediaPlayer::NoMedia && m_status != QMediaPlayer::InvalidMedia
            && m_status != QMediaPlayer::LoadingMedia)
        return QMediaTimeRange(0, m_duration);
    return QMediaTimeRange();
}

void QOrvicPlayerControl::pushState()
{
    if (m_stackDepth++ == 0) {
        m_savedState = m_state;
        m_savedStatus = m_status;
    }
}

void QOrvicPlayerControl::popAndNotifyState()
{
    if (--m_stackDepth > 0)
        return;
    // Qt's own GStreamer back end announces the status before the state.
    const bool statusChanged = m_status != m_savedStatus;
    const bool stateChanged = m_state != m_savedState;
    const QMediaPlayer::MediaStatus status = m_status;
    const QMediaPlayer::State state = m_state;
    if (statusChanged)
        Q_EMIT mediaStatusChanged(status);
    if (stateChanged)
        Q_EMIT this->stateChanged(state);
}

void QOrvicPlayerControl::postStop()
{
    m_lastLive = -1;
    m_link->newGeneration();
    m_link->post(Host::Stop);
    m_sessionHasMedium = false;
    m_seekTarget = -1;
}

void QOrvicPlayerControl::ensureOpen()
{
    if (m_sessionHasMedium)
        return;
    m_link->newGeneration();
    m_link->post(Host::Open, m_url);
    m_sessionHasMedium = true;
}

void QOrvicPlayerControl::setMedia(const QMediaContent &media, QIODevice *stream)
{
    QOrvicBusyScope busy(m_link);
    pushState();
    const QMediaContent oldMedia = m_media;

    m_state = QMediaPlayer::StoppedState;
    if (m_sessionHasMedium)
        postStop();
    m_link->newGeneration();
    m_endOfMedia = false;
    m_lastLive = -1;
    m_position = 0;
    m_stoppedPosition = 0;
    m_seekTarget = -1;
    m_duration = 0;
    m_url.clear();
    m_network = false;
    m_playlist = false;
    delete m_server;
    m_server = nullptr;
    m_media = media;
    m_stream = stream;
    if (m_bufferProgress != -1) {
        m_bufferProgress = -1;
        Q_EMIT bufferStatusChanged(0);
    }
    Q_EMIT mediaReset();
    if (m_seekable) {
        m_seekable = false;
        Q_EMIT seekableChanged(false);
    }
    setAudioAvailable(false);
    setVideoAvailable(false);

    if (media.isNull() && !stream) {
        m_status = QMediaPlayer::NoMedia;
    } else if (!m_link->serviceRunning()) {
        m_status = QMediaPlayer::LoadingMedia;
        failLater(QMediaPlayer::ServiceMissingError, QLatin1String(kServiceMissing));
    } else if (stream) {
        if (!stream->isOpen() || !stream->isReadable()) {
            m_status = QMediaPlayer::InvalidMedia;
            if (oldMedia != m_media)
                Q_EMIT mediaChanged(m_media);
            Q_EMIT error(QMediaPlayer::ResourceError,
                         QStringLiteral("The stream cannot be read: it is not open for reading"));
            popAndNotifyState();
            return;
        }
        m_server = new QOrvicStreamServer(stream);
        m_url = m_server->url();
        if (m_url.isEmpty()) {
            m_status = QMediaPlayer::LoadingMedia;
            failLater(QMediaPlayer::ResourceError, QStringLiteral("The stream could not be offered to the playback service"));
        } else {
            m_status = QMediaPlayer::LoadingMedia;
            m_network = true;
            ensureOpen();
        }
    } else {
        const QUrl url = media.request().url();
        m_status = QMediaPlayer::LoadingMedia;
        if (url.isLocalFile() || url.scheme().isEmpty()) {
            m_url = url.isLocalFile() ? url.toLocalFile() : url.path();
            QMediaPlayer::Error err = QMediaPlayer::NoError;
            const QString problem = localFileProblem(&err);
            if (!problem.isEmpty())
                failLater(err, problem);
        } else {
            m_url = url.toString(QUrl::FullyEncoded);
            m_network = isNetworkUrl(m_url);
        }
        if (isPlaylistUrl(url)) {
            // QMediaPlayer opens playlists itself when told so; the session
            // gets nothing to open.
            m_sessionHasMedium = true;
            m_playlist = true;
            const int generation = m_link->generation();
            QTimer::singleShot(0, this, [this, generation]() {
                if (generation == m_link->generation()) {
                    QOrvicBusyScope busy(m_link);
                    Q_EMIT error(QMediaPlayer::MediaIsPlaylist, QStringLiteral("The medium is a playlist"));
                }
            });
        } else if (!m_url.isEmpty() && m_status == QMediaPlayer::LoadingMedia) {
            ensureOpen();
        }
    }

    if (oldMedia != m_media)
        Q_EMIT mediaChanged(m_media);
    Q_EMIT positionChanged(0);
    popAndNotifyState();
}

QString QOrvicPlayerControl::localFileProblem(QMediaPlayer::Error *err) const
{
    if (m_network || m_server || m_url.isEmpty())
        return QString();
    const QFileInfo info(m_url);
    if (!info.exists()) {
        *err = QMediaPlayer::ResourceError;
        return QStringLiteral("Resource not found.");
    }
    if (!info.isReadable() || info.isDir()) {
        *err = QMediaPlayer::AccessDeniedError;
        return QStringLiteral("The medium cannot be read: permission denied");
    }
    return QString();
}

void QOrvicPlayerControl::failLater(QMediaPlayer::Error error, const QString &text)
{
    const int generation = m_link->generation();
    m_sessionHasMedium = true; // nothing to open
    QTimer::singleShot(0, this, [this, generation, error, text]() {
        if (generation == m_link->generation())
            fail(error, text);
    });
}

void QOrvicPlayerControl::fail(QMediaPlayer::Error err, const QString &text)
{
    QOrvicBusyScope busy(m_link);
    QPointer<QOrvicPlayerControl> self(this);
    pushState();
    m_state = QMediaPlayer::StoppedState;
    m_status = QMediaPlayer::InvalidMedia;
    m_endOfMedia = false;
    m_lastLive = -1;
    m_seekTarget = -1;
    m_stoppedPosition = 0;
    // The session keeps a failed medium as stopped; start over on the next play.
    if (m_sessionHasMedium)
        postStop();
    m_link->newGeneration();
    popAndNotifyState();
    if (self)
        Q_EMIT error(int(err), text);
}

void QOrvicPlayerControl::play()
{
    playOrPause(QMediaPlayer::PlayingState);
}

void QOrvicPlayerControl::pause()
{
    playOrPause(QMediaPlayer::PausedState);
}

void QOrvicPlayerControl::playOrPause(QMediaPlayer::State target)
{
    QOrvicBusyScope busy(m_link);
    if (m_status == QMediaPlayer::NoMedia)
        return;
    if (!m_link->serviceRunning()) {
        fail(QMediaPlayer::ServiceMissingError, QLatin1String(kServiceMissing));
        return;
    }
    if (m_state == target) {
        Q_EMIT positionChanged(position());
        return;
    }
    pushState();
    // Leaving play: keep the engine's position now rather than the older
    // tick, so that the position does not step back on a pause.
    if (m_state == QMediaPlayer::PlayingState && m_seekTarget < 0)
        m_position = position();
    m_lastLive = -1;
    if (m_status == QMediaPlayer::InvalidMedia) {
        // Try the medium again, as a fresh load, unless it still cannot be read.
        QMediaPlayer::Error err = QMediaPlayer::ResourceError;
        QString problem = localFileProblem(&err);
        if (problem.isEmpty() && (m_url.isEmpty() || (m_stream && !m_server)))
            problem = QLatin1String(kOpenFailed);
        if (!problem.isEmpty()) {
            popAndNotifyState();
            QPointer<QOrvicPlayerControl> self(this);
            Q_EMIT positionChanged(0);
            if (self)
                Q_EMIT error(int(err), problem);
            return;
        }
        m_status = QMediaPlayer::LoadingMedia;
        m_sessionHasMedium = false;
    }
    const bool fromStopped = m_state == QMediaPlayer::StoppedState;
    if (fromStopped) {
        if (m_endOfMedia)
            m_stoppedPosition = 0;
        m_endOfMedia = false;
        const bool reopen = !m_sessionHasMedium;
        ensureOpen();
        if (m_stoppedPosition > 0 || (reopen && false))
            m_seekSerial = m_link->post(Host::Seek, m_stoppedPosition);
        m_position = m_stoppedPosition;
        m_stoppedPosition = 0;
    }
    if (m_playlist) {
        // Nothing for the session: QMediaPlayer is about to open the items.
    } else if (target == QMediaPlayer::PlayingState) {
        m_link->post(Host::Play);
        if (m_rate != 1.0)
            m_rateSerial = m_link->post(Host::Rate, m_rate);
    } else {
        // The session does not pause during trick play: back to normal speed first.
        if (m_state == QMediaPlayer::PlayingState && m_rate != 1.0)
            m_link->post(Host::Rate, 1.0);
        m_link->post(Host::Pause);
    }
    m_state = target;
    if (m_status == QMediaPlayer::LoadedMedia || m_status == QMediaPlayer::EndOfMedia)
        m_status = startedStatus(m_bufferProgress);
    QPointer<QOrvicPlayerControl> self(this);
    popAndNotifyState();
    if (self)
        Q_EMIT positionChanged(position());
}

void QOrvicPlayerControl::stop()
{
    QOrvicBusyScope busy(m_link);
    if (m_state == QMediaPlayer::StoppedState)
        return;
    pushState();
    const bool wasPlaying = m_state == QMediaPlayer::PlayingState;
    m_state = QMediaPlayer::StoppedState;
    m_stoppedPosition = 0;
    postStop();
    // Stopped before the medium was loaded: load it again, without playing,
    // so that loading still ends.
    if (m_status == QMediaPlayer::LoadingMedia && !m_playlist)
        ensureOpen();
    QPointer<QOrvicPlayerControl> self(this);
    if (m_status != QMediaPlayer::EndOfMedia) {
        Q_EMIT positionChanged(0);
        if (!self)
            return;
        if (isStarted(m_status) || m_status == QMediaPlayer::StalledMedia) {
            if (wasPlaying) {
                // A playing pipeline settles a moment later, as with Qt's
                // GStreamer back end; a new medium set meanwhile wins.
                const int generation = m_link->generation();
                QTimer::singleShot(0, this, [this, generation]() {
                    if (generation != m_link->generation() || m_state != QMediaPlayer::StoppedState)
                        return;
                    QOrvicBusyScope busy(m_link);
                    pushState();
                    if (isStarted(m_status) || m_status == QMediaPlayer::StalledMedia)
                        m_status = QMediaPlayer::LoadedMedia;
                    popAndNotifyState();
                });
            } else {
                m_status = QMediaPlayer::LoadedMedia;
            }
        }
    }
    popAndNotifyState();
}

void QOrvicPlayerControl::setPosition(qint64 position)
{
    QOrvicBusyScope busy(m_link);
    if (m_status == QMediaPlayer::NoMedia || m_status == QMediaPlayer::InvalidMedia)
        return;
    position = qMax<qint64>(0, position);
    if (m_duration > 0)
        position = qMin(position, m_duration);
    pushState();
    if (m_status == QMediaPlayer::EndOfMedia) {
        m_status = QMediaPlayer::LoadedMedia;
        m_endOfMedia = false;
    }
    if (m_state == QMediaPlayer::StoppedState) {
        // Applied when playback starts: a stopped session holds no pipeline.
        m_stoppedPosition = position;
        popAndNotifyState();
        Q_EMIT positionChanged(position);
        return;
    }
    m_seekTarget = position;
    m_lastLive = -1;
    m_seekSerial = m_link->post(Host::Seek, position);
    popAndNotifyState();
}

void QOrvicPlayerControl::setVolume(int volume)
{
    QOrvicBusyScope busy(m_link);
    volume = qBound(0, volume, 100);
    if (volume == m_volume)
        return;
    m_volume = volume;
    m_link->post(Host::Volume, volume);
    Q_EMIT volumeChanged(volume);
}

void QOrvicPlayerControl::setMuted(bool muted)
{
    QOrvicBusyScope busy(m_link);
    if (muted == m_muted)
        return;
    m_muted = muted;
    m_link->post(Host::Mute, muted);
    Q_EMIT mutedChanged(muted);
}

void QOrvicPlayerControl::setPlaybackRate(qreal rate)
{
    QOrvicBusyScope busy(m_link);
    if (qFuzzyCompare(rate, m_rate))
        return;
    m_rate = rate;
    if (m_state == QMediaPlayer::PlayingState) {
        m_rateRefused = false;
        m_rateSerial = m_link->post(Host::Rate, rate);
    }
    Q_EMIT playbackRateChanged(rate);
}
