#include "clientplayer.h"

#include <hostruntime.h>

#include <QtCore/QFileInfo>
#include <QtCore/QList>
#include <QtCore/QMutexLocker>
#include <QtCore/QWaitCondition>
#include <QtCore/QtEndian>

#include <cstring>
#include <pthread.h>
#include <thread>

namespace hostplayback {

// Hands events to the player's CallBack on a thread of its own, in order.
class EventQueue
{
public:
    using Deliver = std::function<void(quint32 event, const QVariantList &arguments)>;

    explicit EventQueue(Deliver deliver) : m_state(std::make_shared<State>())
    {
        m_state->deliver = std::move(deliver);
        m_thread = std::thread(&EventQueue::run, m_state);
    }
    ~EventQueue() { stop(); }

    void push(quint32 event, const QVariantList &arguments)
    {
        {
            QMutexLocker lock(&m_state->mutex);
            if (m_state->stopping)
                return;
            m_state->queue.append(Item{event, arguments});
        }
        // Outside the lock: woken inside, the thread would only wake to
        // wait for the lock.
        m_state->wake.wakeOne();
    }

    // Events not delivered yet are dropped.
    void discard()
    {
        QMutexLocker lock(&m_state->mutex);
        m_state->queue.clear();
    }

    // Drops what is queued and ends the thread. Called from a callback (the
    // thread itself), the thread ends once that callback returns.
    void stop()
    {
        {
            QMutexLocker lock(&m_state->mutex);
            m_state->stopping = true;
            m_state->queue.clear();
            m_state->wake.wakeAll();
        }
        if (!m_thread.joinable())
            return;
        if (m_thread.get_id() == std::this_thread::get_id())
            m_thread.detach();
        else
            m_thread.join();
    }

private:
    struct Item
    {
        quint32 event;
        QVariantList arguments;
    };
    // Shared with the thread, which may outlive the queue (see stop()).
    struct State
    {
        QMutex mutex;
        QWaitCondition wake;
        QList<Item> queue;
        bool stopping = false;
        Deliver deliver;
    };

    static void run(std::shared_ptr<State> state)
    {
        pthread_setname_np(pthread_self(), "psengine");
        for (;;) {
            Item item;
            {
                QMutexLocker lock(&state->mutex);
                while (state->queue.isEmpty() && !state->stopping)
                    state->wake.wait(&state->mutex);
                if (state->stopping)
                    return;
                item = state->queue.takeFirst();
            }
            state->deliver(item.event, item.arguments);
        }
    }

    std::shared_ptr<State> m_state;
    std::thread m_thread;
};

namespace {

// "scheme:..." with a scheme of two characters or more; anything else is a path.
bool isUri(const QString &text)
{
    const int colon = text.indexOf(QLatin1Char(':'));
    const int slash = text.indexOf(QLatin1Char('/'));
    return colon > 1 && (slash < 0 || colon < slash);
}

// The service has its own working directory: relative paths are the caller's.
QString absoluteMedium(const char *url)
{
    const QString text = QString::fromUtf8(url);
    if (text.isEmpty() || isUri(text))
        return text;
    return QFileInfo(text).absoluteFilePath();
}

} // namespace

ClientPlayer::ClientPlayer(const char *name, CallBack *callBack)
    : m_callBack(callBack),
      m_name(QString::fromUtf8(name ? name : "")),
      m_runtimeDir(hostruntime::runtimeDirectory()),
      m_events(new EventQueue([this](quint32 event, const QVariantList &arguments) {
          deliver(event, arguments);
      }))
{
    m_connection = connectToService();
}

ClientPlayer::~ClientPlayer()
{
    m_connection->close();
    m_events->stop();
}

ClientPlayer::ConnectionPtr ClientPlayer::connectToService()
{
    ConnectionPtr connection = std::make_shared<ServiceConnection>(
            [this](quint32 event, const QVariantList &arguments) { onEvent(event, arguments); },
            // Events of a service that went away are not delivered.
            [this] { m_events->discard(); });
    if (!connection->open(m_runtimeDir, kConnectTimeoutMs))
        return connection; // closed: calls fail at once
    m_servicePid = hostruntime::instanceLockHolder(m_runtimeDir);
    connection->setServiceProcess(m_servicePid);
    const ServiceConnection::Answer answer = connection->call(pswire::OpOpen, {m_name}, kCallLimitMs);
    if (answer.status == pswire::ResultOk && answer.result.toInt() >= 0) {
        QMutexLocker lock(&m_lastKnownMutex);
        m_lastKnown.volume = answer.result.toInt();
    }
    return connection;
}

ClientPlayer::ConnectionPtr ClientPlayer::connection()
{
    QMutexLocker lock(&m_connectionMutex);
    if (m_connection->isConnected())
        return m_connection;
    // Lost (or never made). Only a service other than the one it was lost to
    // is tried: the same process closed the link on purpose, and with none
    // running the call fails at once as before.
    const pid_t running = hostruntime::instanceLockHolder(m_runtimeDir);
    if (running <= 0 || running == m_servicePid)
        return m_connection;
    LastKnown before;
    {
        QMutexLocker lastKnownLock(&m_lastKnownMutex);
        before = m_lastKnown;
    }
    m_restoring.store(true);
    m_connection->close();
    m_connection = connectToService();
    if (m_connection->isConnected())
        restore(*m_connection, before);
    m_restoring.store(false);
    return m_connection;
}

int ClientPlayer::statusOf(const ServiceConnection::Answer &answer)
{
    return answer.status == pswire::ResultOk ? answer.result.toInt() : answer.status;
}

void ClientPlayer::restore(ServiceConnection &connection, const LastKnown &before)
{
    const state_e state = state_e(before.state);
    int reached = STATE_IDLE;
    if (!before.url.isEmpty() && state != STATE_IDLE) {
        if (statusOf(connection.call(pswire::OpSetUrl, {before.url}, kCallLimitMs)) == pswire::ResultOk) {
            reached = STATE_INITIALIZED;
            if (!before.subUrl.isEmpty())
                connection.call(pswire::OpSetSubUrl, {before.subUrl}, kCallLimitMs);
        }
    }
    const bool prepared = state == STATE_PREPARING || state == STATE_PREPARED || state == STATE_STOPPED
            || state == STATE_PLAYING || state == STATE_PAUSED || state == STATE_COMPLETED;
    if (reached == STATE_INITIALIZED && prepared
        && statusOf(connection.call(pswire::OpPrepare, {}, kPrepareLimitMs)) == pswire::ResultOk) {
        reached = STATE_PREPARED;
        if (state == STATE_STOPPED) {
            if (statusOf(connection.call(pswire::OpStop, {}, kCallLimitMs)) == pswire::ResultOk)
                reached = STATE_STOPPED;
        } else {
            if (before.position > 0)
                connection.call(pswire::OpSeekTo, {qint64(before.position)}, kCallLimitMs);
            if (state == STATE_PLAYING
                && statusOf(connection.call(pswire::OpPlay, {}, kCallLimitMs)) == pswire::ResultOk)
                reached = STATE_PLAYING;
            else if (state == STATE_PAUSED
                     && statusOf(connection.call(pswire::OpPause, {}, kCallLimitMs)) == pswire::ResultOk)
                reached = STATE_PAUSED;
        }
    }
    // What the engine said while it was brought back stays here; what it has
    // become is what the next questions answer.
    m_events->discard();
    QMutexLocker lock(&m_lastKnownMutex);
    m_lastKnown.state = reached;
    if (reached < STATE_INITIALIZED) {
        m_lastKnown.url.clear();
        m_lastKnown.subUrl.clear();
    }
}

ServiceConnection::Answer ClientPlayer::ask(pswire::Operation operation, const QVariantList &arguments,
                                            int limitMs)
{
    return connection()->call(operation, arguments, limitMs);
}

int ClientPlayer::command(pswire::Operation operation, const QVariantList &arguments, int limitMs)
{
    return statusOf(ask(operation, arguments, limitMs));
}

int ClientPlayer::setUrl(const char *url)
{
    if (!url)
        return pswire::ResultInvalidArgument;
    const QString medium = absoluteMedium(url);
    const int result = command(pswire::OpSetUrl, {medium});
    if (result == pswire::ResultOk) {
        QMutexLocker lock(&m_lastKnownMutex);
        m_lastKnown.url = medium;
        m_lastKnown.subUrl.clear();
    }
    return result;
}

int ClientPlayer::setSubUrl(const char *url)
{
    if (!url)
        return pswire::ResultInvalidArgument;
    const QString file = absoluteMedium(url);
    const int result = command(pswire::OpSetSubUrl, {file});
    if (result == pswire::ResultOk) {
        QMutexLocker lock(&m_lastKnownMutex);
        m_lastKnown.subUrl = file;
    }
    return result;
}

int ClientPlayer::prepare(int, int)
{
    return command(pswire::OpPrepare, {}, kPrepareLimitMs);
}

int ClientPlayer::play()
{
    return command(pswire::OpPlay);
}

int ClientPlayer::seekTo(long long positionMs)
{
    return command(pswire::OpSeekTo, {qint64(positionMs)});
}

int ClientPlayer::pause()
{
    return command(pswire::OpPause);
}

int ClientPlayer::stop()
{
    return command(pswire::OpStop);
}

int ClientPlayer::reset()
{
    const int result = command(pswire::OpReset);
    if (result == pswire::ResultOk) {
        QMutexLocker lock(&m_lastKnownMutex);
        m_lastKnown.url.clear();
        m_lastKnown.subUrl.clear();
    }
    return result;
}

int ClientPlayer::getState()
{
    const ServiceConnection::Answer answer = ask(pswire::OpGetState);
    QMutexLocker lock(&m_lastKnownMutex);
    if (answer.status == pswire::ResultOk)
        m_lastKnown.state = answer.result.toInt();
    return m_lastKnown.state;
}

long long ClientPlayer::getDuration()
{
    const ServiceConnection::Answer answer = ask(pswire::OpGetDuration);
    QMutexLocker lock(&m_lastKnownMutex);
    if (answer.status == pswire::ResultOk)
        m_lastKnown.duration = answer.result.toLongLong();
    return m_lastKnown.duration;
}

long long ClientPlayer::getPosition()
{
    const ServiceConnection::Answer answer = ask(pswire::OpGetPosition);
    QMutexLocker lock(&m_lastKnownMutex);
    if (answer.status == pswire::ResultOk)
        m_lastKnown.position = answer.result.toLongLong();
    return m_lastKnown.position;
}

int ClientPlayer::setSpeed(double speed)
{
    const int result = command(pswire::OpSetSpeed, {speed});
    if (result == pswire::ResultOk) {
        QMutexLocker lock(&m_lastKnownMutex);
        m_lastKnown.speed = speed;
    }
    return result;
}

double ClientPlayer::getSpeed()
{
    const ServiceConnection::Answer answer = ask(pswire::OpGetSpeed);
    QMutexLocker lock(&m_lastKnownMutex);
    if (answer.status == pswire::ResultOk)
        m_lastKnown.speed = answer.result.toDouble();
    return m_lastKnown.speed;
}

bool ClientPlayer::isTrickPlaySupported()
{
    const ServiceConnection::Answer answer = ask(pswire::OpIsTrickPlaySupported);
    QMutexLocker lock(&m_lastKnownMutex);
    if (answer.status == pswire::ResultOk)
        m_lastKnown.seekable = answer.result.toBool();
    return m_lastKnown.seekable;
}

int ClientPlayer::getVolume()
{
    const ServiceConnection::Answer answer = ask(pswire::OpGetVolume);
    QMutexLocker lock(&m_lastKnownMutex);
    if (answer.status == pswire::ResultOk)
        m_lastKnown.volume = answer.result.toInt();
    return m_lastKnown.volume;
}

int ClientPlayer::changeStream(int streamType, int index)
{
    return command(pswire::OpChangeStream, {streamType, index});
}

int ClientPlayer::getCurrentStream(int streamType)
{
    return command(pswire::OpGetCurrentStream, {streamType});
}

int ClientPlayer::setStreamVolume(int volume)
{
    const int result = command(pswire::OpSetStreamVolume, {volume});
    if (result == pswire::ResultOk) {
        QMutexLocker lock(&m_lastKnownMutex);
        m_lastKnown.volume = volume;
    }
    return result;
}

int ClientPlayer::setParameter(const char *target, const char *key, const void *value, int size)
{
    if (!key || !value || size <= 0)
        return pswire::ResultInvalidArgument;
    return command(pswire::OpSetParameter,
                   {QByteArray(target ? target : ""), QByteArray(key),
                    QByteArray(static_cast<const char *>(value), size)});
}

int ClientPlayer::getParameter(const char *target, const char *key, void *value, int size)
{
    if (!key || !value || size <= 0)
        return pswire::ResultInvalidArgument;
    const ServiceConnection::Answer answer =
            ask(pswire::OpGetParameter, {QByteArray(target ? target : ""), QByteArray(key), size});
    if (answer.status != pswire::ResultOk)
        return answer.status;
    const int result = answer.result.toInt();
    if (result != pswire::ResultOk || answer.output.size() != 4)
        return result;
    // An int where it fits, else a one-byte flag.
    const qint32 number = qFromLittleEndian<qint32>(answer.output.constData());
    if (size >= int(sizeof(qint32)))
        std::memcpy(value, &number, sizeof number);
    else
        *static_cast<unsigned char *>(value) = static_cast<unsigned char>(number);
    return result;
}

int ClientPlayer::getSubtitleLanguage(int index, char *language)
{
    if (!language)
        return pswire::ResultInvalidArgument;
    const ServiceConnection::Answer answer = ask(pswire::OpGetSubtitleLanguage, {index});
    if (answer.status != pswire::ResultOk)
        return answer.status;
    const int result = answer.result.toInt();
    if (result == pswire::ResultOk) {
        const QByteArray text = answer.output.left(7);
        std::memcpy(language, text.constData(), size_t(text.size()));
        language[text.size()] = '\0';
    }
    return result;
}

// Runs on the thread reading the service's socket: remember, then queue for
// the engine thread.
void ClientPlayer::onEvent(quint32 event, const QVariantList &arguments)
{
    if (m_restoring.load())
        return;
    {
        QMutexLocker lock(&m_lastKnownMutex);
        switch (event) {
        case pswire::EvStateChanged:
            m_lastKnown.state = arguments.value(0).toInt();
            break;
        case pswire::EvDurationChanged:
            m_lastKnown.duration = arguments.value(0).toLongLong();
            break;
        case pswire::EvVolumeChanged:
            m_lastKnown.volume = arguments.value(0).toInt();
            break;
        case pswire::EvSpeedChanged:
            m_lastKnown.speed = arguments.value(0).toDouble();
            break;
        case pswire::EvSeekableChanged:
            m_lastKnown.seekable = arguments.value(0).toBool();
            break;
        default:
            break;
        }
    }
    m_events->push(event, arguments);
}

void ClientPlayer::deliver(quint32 event, const QVariantList &arguments)
{
    if (!m_callBack)
        return;
    const QVariant first = arguments.value(0);
    const QVariant second = arguments.value(1);
    switch (event) {
    case pswire::EvDurationChanged:
        m_callBack->durationChanged(first.toLongLong());
        break;
    case pswire::EvPositionChanged:
        m_callBack->positionChanged(first.toLongLong());
        break;
    case pswire::EvStateChanged:
        m_callBack->stateChanged(state_e(first.toInt()));
        break;
    case pswire::EvVolumeChanged:
        m_callBack->volumeChanged(first.toInt());
        break;
    case pswire::EvBufferingProgress:
        m_callBack->bufferingProgessChanged(first.toInt());
        break;
    case pswire::EvStreamChanged:
        m_callBack->streamChanged(stream_type_e(first.toInt()), second.toInt());
        break;
    case pswire::EvSeekableChanged:
        m_callBack->seekableChanged(first.toBool());
        break;
    case pswire::EvError:
        m_callBack->error(first.toInt());
        break;
    case pswire::EvSpeedChanged:
        m_callBack->speedChanged(first.toDouble());
        break;
    case pswire::EvPrepared:
        m_callBack->prepared();
        break;
    case pswire::EvPlaybackFinish:
        m_callBack->playbackFinish();
        break;
    case pswire::EvAboutToFinish:
        m_callBack->aboutToFinish();
        break;
    case pswire::EvMediaAvailableChanged:
        m_callBack->mediaAvailableChanged(stream_type_e(first.toInt()), second.toInt());
        break;
    case pswire::EvSubtitleChanged: {
        // The receiver gets its own NUL-terminated UTF-8 copy.
        QByteArray text = first.toByteArray();
        m_callBack->subtitleChanged(text.data(), char(second.toInt()), text.size());
        break;
    }
    default:
        break;
    }
}

} // namespace hostplayback
