#ifndef QORVICPLAYERCONTROL_H
#define QORVICPLAYERCONTROL_H

#include "qorvicsessionhost.h"

#include <QtCore/QPointer>
#include <QtMultimedia/QMediaContent>
#include <QtMultimedia/QMediaPlayerControl>

class QOrvicSessionLink;
class QOrvicStreamServer;

// Translates QMediaPlayer's model (state, media status, position, errors)
// onto the session's commands and back. Lives on the player's thread; the
// session runs on the link's thread and reports through queued signals.
class QOrvicPlayerControl : public QMediaPlayerControl
{
    Q_OBJECT
public:
    explicit QOrvicPlayerControl(QOrvicSessionLink *link, QObject *parent = nullptr);
    ~QOrvicPlayerControl() override;

    QMediaPlayer::State state() const override { return m_state; }
    QMediaPlayer::MediaStatus mediaStatus() const override { return m_status; }
    qint64 duration() const override { return m_duration; }
    qint64 position() const override;
    void setPosition(qint64 position) override;
    int volume() const override { return m_volume; }
    void setVolume(int volume) override;
    bool isMuted() const override { return m_muted; }
    void setMuted(bool muted) override;
    int bufferStatus() const override;
    bool isAudioAvailable() const override { return m_audioAvailable; }
    bool isVideoAvailable() const override { return m_videoAvailable; }
    bool isSeekable() const override { return m_seekable; }
    QMediaTimeRange availablePlaybackRanges() const override;
    qreal playbackRate() const override { return m_rate; }
    void setPlaybackRate(qreal rate) override;
    QMediaContent media() const override { return m_media; }
    const QIODevice *mediaStream() const override { return m_stream; }
    void setMedia(const QMediaContent &media, QIODevice *stream) override;
    void play() override;
    void pause() override;
    void stop() override;

Q_SIGNALS:
    // A new medium (or none) replaces the current one.
    void mediaReset();

private:
    void onCommandDone(const QOrvicCommandResult &result);
    void onTick(int generation, qint64 position, int state);
    void onDuration(int generation, qint64 duration);
    void onSeekable(int generation, bool seekable);
    void onComplete(int generation);
    void onBuffer(int generation, int percent);
    void onAsyncError(int generation, int code, const QString &text);
    void onServiceGaveUp(int generation);
    void onMetadata(int generation, const QVariantMap &map);
    void onRateRefused(int generation);
    void setAudioAvailable(bool on);
    void setVideoAvailable(bool on);

    void playOrPause(QMediaPlayer::State target);
    void ensureOpen();
    void postStop();
    void fail(QMediaPlayer::Error error, const QString &text);
    // Why a local file cannot be opened, or empty.
    QString localFileProblem(QMediaPlayer::Error *error) const;
    void failLater(QMediaPlayer::Error error, const QString &text);
    void pushState();
    void popAndNotifyState();
    // The engine's position now, while the session plays the current medium.
    bool readLive(qint64 *position) const;

    QOrvicSessionLink *m_link;
    QMediaContent m_media;
    QPointer<QIODevice> m_stream;
    QOrvicStreamServer *m_server = nullptr;
    QString m_url;
    bool m_network = false;
    bool m_playlist = false; // a playlist file, left to QMediaPlayer

    QMediaPlayer::State m_state = QMediaPlayer::StoppedState;
    QMediaPlayer::MediaStatus m_status = QMediaPlayer::NoMedia;
    int m_stackDepth = 0;
    QMediaPlayer::State m_savedState = QMediaPlayer::StoppedState;
    QMediaPlayer::MediaStatus m_savedStatus = QMediaPlayer::NoMedia;

    // An open has been handed to the session since its last stop.
    bool m_sessionHasMedium = false;
    bool m_endOfMedia = false;
    qint64 m_position = 0;        // last position reported while playing
    // The last live reading of position() since playback last started or
    // was sought, -1 for none: while no reading can be had for a moment (a
    // command runs), the position does not step back to the older tick.
    mutable qint64 m_lastLive = -1;
    qint64 m_stoppedPosition = 0; // position to start from when stopped
    qint64 m_seekTarget = -1;     // seek in flight
    quint64 m_seekSerial = 0;
    quint64 m_rateSerial = 0;
    bool m_rateRefused = false;
    qreal m_acceptedRate = 1.0;

    qint64 m_duration = 0;
    bool m_seekable = false;
    bool m_audioAvailable = false;
    bool m_videoAvailable = false;
    int m_volume = 100;
    bool m_muted = false;
    qreal m_rate = 1.0;
    int m_bufferProgress = -1;
};

#endif // QORVICPLAYERCONTROL_H
