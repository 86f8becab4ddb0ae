#include "qorvicsessionhost.h"

#include <cutils/properties.h>
#if ORVIC_HOST_VIDEO
#include "videoout/qorvicvideobinder.h"
#endif

#include <QtCore/QElapsedTimer>
#include <QtCore/QReadLocker>
#include <QtCore/QWriteLocker>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtMultimedia/QMediaMetaData>

#include <utility>

namespace {
// The watchdog wants a clock input a few times a second; positions for the
// player's notifications come from the same tick.
const int kTickIntervalMs = 100;
// Starting the service: how long it may take at most, and how long a
// "stopped" status after the start request means it cannot start at all.
const int kStartGiveUpMs = 20000;
const int kStoppedGiveUpMs = 3000;
const int kStartPollMs = 50;

bool isPlayingState(QOrvicPlayerSession::PlayerState s)
{
    return s >= QOrvicPlayerSession::Player_Play && s <= QOrvicPlayerSession::Player_Pause;
}

// Marks a stretch of the host's thread in which the engine may change
// (see livePosition()).
class BusyWindow
{
public:
    explicit BusyWindow(QAtomicInteger<quint32> &epoch) : m_epoch(epoch) { m_epoch.fetchAndAddOrdered(1); }
    ~BusyWindow() { m_epoch.fetchAndAddOrdered(1); }
    BusyWindow(const BusyWindow &) = delete;
    BusyWindow &operator=(const BusyWindow &) = delete;

private:
    QAtomicInteger<quint32> &m_epoch;
};
} // namespace

QOrvicSessionHost::QOrvicSessionHost()
#if ORVIC_HOST_VIDEO
    : m_videoBinder(new QOrvicVideoBinder(this)),
      m_audioBinder(new QOrvicVideoBinder(this))
#endif
{
    qRegisterMetaType<QOrvicCommandResult>();
    qRegisterMetaType<QList<QOrvicStreamInfo>>();
}

QOrvicSessionHost::~QOrvicSessionHost()
{
    delete m_session;
}

QByteArray QOrvicSessionHost::serviceStatus()
{
    char value[PROPERTY_VALUE_MAX] = {};
    if (property_get("init.svc.psserver", value, "") < 0)
        return QByteArray();
    return QByteArray(value);
}

bool QOrvicSessionHost::startService()
{
    // The session waits for the service without bound; a player must not
    // hang in its constructor when the service cannot run, so the service is
    // started and awaited here first, within bounds.
    property_set("ctl.start", "psserver");
    QElapsedTimer total;
    total.start();
    QElapsedTimer stopped;
    for (;;) {
        const QByteArray status = serviceStatus();
        if (status == "running")
            return true;
        if (status == "stopped" || status.isEmpty()) {
            if (!stopped.isValid())
                stopped.start();
            if (stopped.elapsed() > kStoppedGiveUpMs)
                return false;
        } else {
            stopped.invalidate();
        }
        if (total.elapsed() > kStartGiveUpMs)
            return false;
        QThread::msleep(kStartPollMs);
    }
}

void QOrvicSessionHost::start()
{
    m_serviceRunning = startService();
    if (!m_serviceRunning)
        return; // no session: calls report a missing service
    QOrvicPlayerSession *const session = new QOrvicPlayerSession(QMediaPlayer::Flags());
    {
        const QWriteLocker use(&m_sessionUse);
        m_session = session;
    }
    m_ticker = new QTimer(this);
    m_ticker->setInterval(kTickIntervalMs);
    connect(m_ticker, &QTimer::timeout, this, &QOrvicSessionHost::onTick);
    connectSession();
#if ORVIC_HOST_VIDEO
    m_videoBinder->setSession(m_session);
    m_audioBinder->setSession(m_session);
#endif
    // The watchdog's clock runs for the session's whole life: it also
    // restarts a service that died while no medium plays.
    m_ticker->start();
}

void QOrvicSessionHost::shutdown()
{
    const BusyWindow busy(m_busyEpoch);
    if (m_ticker)
        m_ticker->stop();
#if ORVIC_HOST_VIDEO
    m_videoBinder->setSession(nullptr);
    m_audioBinder->setSession(nullptr);
#endif
    if (m_session)
        m_session->stop();
    QOrvicPlayerSession *session = nullptr;
    {
        // No reader of another thread is inside the session once it is out
        // of reach.
        const QWriteLocker use(&m_sessionUse);
        std::swap(session, m_session);
    }
    delete session;
}

bool QOrvicSessionHost::livePosition(int generation, qint64 *position) const
{
    using S = QOrvicPlayerSession;
    const QReadLocker use(&m_sessionUse);
    if (!m_session)
        return false;
    const quint32 epoch = m_busyEpoch.loadAcquire();
    if ((epoch & 1) || m_generation.loadAcquire() != generation)
        return false;
    const S::PlayerState state = m_session->state();
    if (state < S::Player_Play || state > S::Player_SB)
        return false;
    const qint64 now = m_session->position();
    // Taken only when nothing on the host's thread began or ended meanwhile
    // and no engine event changed the state.
    if (m_busyEpoch.loadAcquire() != epoch || m_session->state() != state)
        return false;
    *position = now;
    return true;
}

void QOrvicSessionHost::connectSession()
{
    using S = QOrvicPlayerSession;
    // Direct connections: the session emits on this thread (commands) and on
    // the engine's threads (events); each is forwarded as a queued signal.
    const auto direct = Qt::DirectConnection;
    connect(m_session, &S::error, this, [this](int code, const QString &text) {
        if (m_inCommand && QThread::currentThread() == thread()) {
            m_current.failed = true;
            m_current.errorCode = code;
            m_current.errorText = text;
            return;
        }
        Q_EMIT asyncError(m_generation.loadAcquire(), code, text);
    }, direct);
    connect(m_session, &S::durationChanged, this, [this](qint64 d) {
        Q_EMIT durationChanged(m_generation.loadAcquire(), d);
    }, direct);
    connect(m_session, &S::seekableChanged, this, [this](bool on) {
        Q_EMIT seekableChanged(m_generation.loadAcquire(), on);
    }, direct);
    connect(m_session, &S::playbackComplete, this, [this]() {
        Q_EMIT playbackComplete(m_generation.loadAcquire());
    }, direct);
    connect(m_session, &S::audioAvailableChanged, this, [this](bool on) {
        Q_EMIT audioAvailable(m_generation.loadAcquire(), on);
    }, direct);
    connect(m_session, &S::videoAvailableChanged, this, [this](bool on) {
        Q_EMIT videoAvailable(m_generation.loadAcquire(), on);
    }, direct);
    connect(m_session, &S::mediaMessageChanged, this, [this](QMediaPlayer::MediaMessage id, const QVariant &info) {
        switch (int(id)) {
        case 0: // buffering progress, or the end of an engine stop (not ours to report)
            if (m_inCommand && m_current.command == Stop && QThread::currentThread() == thread())
                break;
            Q_EMIT bufferProgress(m_generation.loadAcquire(), info.toInt());
            break;
        case 2: // refused seek or rate; a refused rate carries the rate
            if (info.isValid() && info.canConvert<double>() && info.type() != QVariant::String)
                Q_EMIT rateRefused(m_generation.loadAcquire());
            break;
        default:
            break;
        }
    }, direct);
    connect(m_session, &S::metadataChanged, this, [this](const QVariantMap &map) {
        // The session hands out a cover with pixels of its own (copied from
        // the engine's under its lock): a second copy here would only cost
        // the time of one more on the way to the player's metadata.
        const QImage cover = m_session->getID3Pic();
        Q_EMIT metadata(m_generation.loadAcquire(), map, cover, streamInfos(map));
    }, direct);
    connect(m_session, &S::metaDataChanged, this, [this](const QString &key, const QVariant &value) {
        Q_EMIT metadataValue(m_generation.loadAcquire(), key, value);
    }, direct);
}

QList<QOrvicStreamInfo> QOrvicSessionHost::streamInfos(const QVariantMap &map)
{
    QList<QOrvicStreamInfo> streams;
    // The engine answers stream questions only on the session's thread.
    if (QThread::currentThread() != thread())
        return streams;
    const int audio = map.value(QMediaMetaData::AudioStreamCount).toInt();
    for (int i = 0; i < audio; ++i) {
        const QVariant v = m_session->metadataInvoke(QMediaPlayer::AudioStreamInvoke, i);
        QOrvicStreamInfo info;
        info.index = i;
        if (v.canConvert<QMediaPlayer::AudioStreamInfo>()) {
            const auto a = v.value<QMediaPlayer::AudioStreamInfo>();
            info.codec = a.codec;
            info.language = a.language;
        }
        streams.append(info);
    }
    const int subtitles = map.value(QMediaMetaData::SubtitleCount).toInt();
    for (int i = 0; i < subtitles; ++i) {
        const QVariant v = m_session->metadataInvoke(QMediaPlayer::SubtitleStreamInvoke, i);
        QOrvicStreamInfo info;
        info.subtitle = true;
        info.index = i;
        if (v.canConvert<QMediaPlayer::SubtitleInfo>())
            info.language = v.value<QMediaPlayer::SubtitleInfo>().language;
        streams.append(info);
    }
    return streams;
}

void QOrvicSessionHost::run(quint64 serial, int generation, int command, const QVariant &param)
{
    using S = QOrvicPlayerSession;
    const BusyWindow busy(m_busyEpoch);
    m_generation.storeRelease(generation);
    m_current = QOrvicCommandResult();
    m_current.serial = serial;
    m_current.generation = generation;
    m_current.command = command;
    if (m_session) {
        m_inCommand = true;
        switch (Command(command)) {
        case Open:
#if ORVIC_HOST_VIDEO
            // The new pipeline renders to the surface from its first frame.
            m_videoBinder->check();
            m_audioBinder->check();
#endif
            m_session->manageActList(S::Msg_SetMedia, param.toString());
            break;
        case Play: m_session->manageActList(S::Msg_Play, QVariant()); break;
        case Pause: m_session->manageActList(S::Msg_Pause, QVariant()); break;
        case Seek: m_session->manageActList(S::Msg_Position, param.toLongLong()); break;
        case Rate: m_session->manageActList(S::Msg_PlayBackRate, param.toFloat()); break;
        case Volume: m_session->manageActList(S::Msg_Volume, param.toInt()); break;
        case Mute: m_session->manageActList(S::Msg_Muted, param.toBool()); break;
        case AudioStream: m_session->manageActList(S::Msg_AudioStream, param.toInt()); break;
        case SubtitleStream: m_session->manageActList(S::Msg_SubtitleNum, param.toInt()); break;
        case SubtitleOnOff: m_session->manageActList(S::Msg_SubtitleOnOff, param.toBool()); break;
        case Stop: m_session->stop(); break;
        }
        m_inCommand = false;
        m_current.state = m_session->state();
    } else {
        m_current.failed = true;
        m_current.errorText = QStringLiteral("No player session");
    }
    Q_EMIT commandDone(m_current);
}

void QOrvicSessionHost::onTick()
{
    if (!m_session)
        return;
    const BusyWindow busy(m_busyEpoch);
    const QOrvicPlayerSession::PlayerState before = m_session->state();
    const qint64 position = m_session->position();
    // The session's service watchdog runs on this clock.
    m_session->timeUpdate(position);
#if ORVIC_HOST_VIDEO
    // After a recovery the session has a new engine: bind the surface to it.
    m_videoBinder->check();
    m_audioBinder->check();
#endif
    const QOrvicPlayerSession::PlayerState after = m_session->state();
    const int generation = m_generation.loadAcquire();
    if (after == QOrvicPlayerSession::Player_Initialized && before >= QOrvicPlayerSession::Player_Preparing) {
        // Restarted without reopening: the medium failed the service twice.
        Q_EMIT serviceGaveUp(generation);
        return;
    }
    Q_EMIT tick(generation, isPlayingState(after) ? m_session->position() : position, int(after));
}
