#ifndef QORVICSESSIONHOST_H
#define QORVICSESSIONHOST_H

#include <qorvicplayersession.h>

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QReadWriteLock>
#include <QtCore/QVariant>
#include <QtGui/QImage>

class QTimer;
#if ORVIC_HOST_VIDEO
class QOrvicVideoBinder;
#endif

// One stream of the opened medium as the streams control lists it.
struct QOrvicStreamInfo
{
    bool subtitle = false;
    int index = 0; // index among the streams of its kind
    QString language;
    QString codec;
};
Q_DECLARE_METATYPE(QList<QOrvicStreamInfo>)

// What a command left behind, reported back to the player's thread.
struct QOrvicCommandResult
{
    quint64 serial = 0;
    int generation = 0;
    int command = 0; // QOrvicSessionHost::Command
    QOrvicPlayerSession::PlayerState state = QOrvicPlayerSession::Player_Idle;
    bool failed = false; // the session reported an error while carrying it out
    int errorCode = 0;
    QString errorText;
};
Q_DECLARE_METATYPE(QOrvicCommandResult)

// Lives on a thread of its own and owns the player's QOrvicPlayerSession
// there. The session opens and prepares media synchronously and restarts the
// playback service from its watchdog; running it on the player's (GUI)
// thread would freeze that thread for up to the service's preparation bound.
// Everything the session does happens on this thread, in the order the
// player asked for it; results travel back as queued signals.
//
// Every signal carries the generation of the medium it belongs to: the
// player bumps it for each new medium, so that late news of an earlier
// medium can be told apart and dropped.
class QOrvicSessionHost : public QObject
{
    Q_OBJECT
public:
    enum Command {
        Open,         // param: URL
        Play,
        Pause,
        Seek,         // param: position in ms
        Rate,         // param: rate
        Volume,       // param: 0..100
        Mute,         // param: bool
        AudioStream,  // param: index
        SubtitleStream, // param: index
        SubtitleOnOff,  // param: bool
        Stop          // the session's stop(): drains the queue, engine reset
    };
    Q_ENUM(Command)

    QOrvicSessionHost();
    ~QOrvicSessionHost() override;

    // Status of the playback service as the property service reports it.
    static QByteArray serviceStatus();

public Q_SLOTS:
    // On the host's thread: start the service, then create the session.
    void start();
    // On the host's thread: destroy the session.
    void shutdown();
    void run(quint64 serial, int generation, int command, const QVariant &param);

    // Read after start() has returned (it runs blocking-queued).
    bool serviceRunning() const { return m_serviceRunning; }
    // Any thread: the engine's position now, while the session plays the
    // medium of `generation` (normal speed or trick play); false when there
    // is no session, it plays no medium of that generation, or a command or
    // the watchdog's clock ran on the host's thread meanwhile (either may
    // replace the engine, and a recovery plays before it seeks). Never waits
    // for a running command; it may wait for an engine that is being
    // released, as the session's getters do.
    bool livePosition(int generation, qint64 *position) const;
#if ORVIC_HOST_VIDEO
    // Lives on the host's thread; keeps the video surface on the engine.
    QOrvicVideoBinder *videoBinder() const { return m_videoBinder; }
    // The same for the audio probes' copy of the sound.
    QOrvicVideoBinder *audioBinder() const { return m_audioBinder; }
#endif

Q_SIGNALS:
    void commandDone(const QOrvicCommandResult &result);
    // A session error that no command of ours caused (engine events).
    void asyncError(int generation, int code, const QString &text);
    void tick(int generation, qint64 position, int state);
    void durationChanged(int generation, qint64 duration);
    void seekableChanged(int generation, bool seekable);
    void playbackComplete(int generation);
    void bufferProgress(int generation, int percent);
    void rateRefused(int generation);
    void metadata(int generation, const QVariantMap &map, const QImage &cover,
                  const QList<QOrvicStreamInfo> &streams);
    void metadataValue(int generation, const QString &key, const QVariant &value);
    void audioAvailable(int generation, bool available);
    void videoAvailable(int generation, bool available);
    // The watchdog restarted the service and did not reopen the medium.
    void serviceGaveUp(int generation);

private:
    bool startService();
    void connectSession();
    void onTick();
    QList<QOrvicStreamInfo> streamInfos(const QVariantMap &map);

    QOrvicPlayerSession *m_session = nullptr;
    // Readers of other threads (livePosition()) hold it for reading while
    // they use m_session; the host's thread holds it for writing when it
    // sets m_session, so that a session is never deleted under a reader.
    mutable QReadWriteLock m_sessionUse;
#if ORVIC_HOST_VIDEO
    QOrvicVideoBinder *m_videoBinder;
    QOrvicVideoBinder *m_audioBinder;
#endif
    bool m_serviceRunning = false;
    QTimer *m_ticker = nullptr;
    // Written and read on the host's thread, except m_generation, which the
    // engine's threads read when they forward events (a stale value only
    // lets one late event through as current or old).
    QAtomicInt m_generation;
    // Odd while a command, the watchdog's clock or the shutdown runs on the
    // host's thread; counts up at the start and the end of each.
    QAtomicInteger<quint32> m_busyEpoch;
    bool m_inCommand = false;
    QOrvicCommandResult m_current;
};

#endif // QORVICSESSIONHOST_H
