#include "serviceconnection.h"

#include <hostruntime.h>
#include <psprotocol.h>

#include <QtCore/QMutexLocker>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtNetwork/QLocalSocket>

#include <unistd.h>

namespace hostplayback {

// The socket side; lives on the connection's thread.
class ConnectionWorker : public QObject
{
public:
    explicit ConnectionWorker(ServiceConnection *owner) : m_owner(owner) {}

    void start(const std::string &runtimeDir, int timeoutMs)
    {
        m_socket = new QLocalSocket(this);
        m_pingTimer = new QTimer(this);
        m_pingTimer->setInterval(ServiceConnection::kPingIntervalMs);
        connect(m_pingTimer, &QTimer::timeout, this, &ConnectionWorker::ping);
        connect(m_socket, &QLocalSocket::disconnected, this, &ConnectionWorker::lost);
        connect(m_socket, &QLocalSocket::errorOccurred, this, [this] {
            if (m_socket->state() == QLocalSocket::UnconnectedState)
                lost();
        });
        connect(m_socket, &QLocalSocket::readyRead, this, &ConnectionWorker::read);
        // The service's socket name is abstract, which QLocalSocket of Qt 5
        // cannot address: the socket is connected here and handed over.
        const int fd = hostruntime::connectToServiceSocket(runtimeDir, timeoutMs);
        if (fd < 0 || !m_socket->setSocketDescriptor(fd, QLocalSocket::ConnectedState)) {
            if (fd >= 0)
                ::close(fd);
            lost();
            return;
        }
        m_owner->linkChanged(ServiceConnection::Link::Connected);
    }

    void send(const QByteArray &bytes)
    {
        if (!m_socket || m_socket->state() != QLocalSocket::ConnectedState)
            return;
        m_socket->write(bytes);
        if (!m_pingTimer->isActive())
            m_pingTimer->start();
    }

    void shutdown()
    {
        if (!m_socket)
            return;
        disconnect(m_socket, nullptr, this, nullptr);
        m_socket->abort();
        m_pingTimer->stop();
        delete m_socket;
        m_socket = nullptr;
    }

private:
    // While a call waits (or the service is thought frozen) the service is
    // pinged, so that a live service is always heard from in time.
    void ping()
    {
        if (!m_owner->needsPinging()) {
            m_pingTimer->stop();
            return;
        }
        if (m_socket && m_socket->state() == QLocalSocket::ConnectedState)
            m_socket->write(psprotocol::encode(psprotocol::ping(++m_pingSequence)));
    }

    void read()
    {
        bool ok = true;
        const QList<psprotocol::Frame> frames = m_reader.read(m_socket, &ok);
        if (!frames.isEmpty())
            m_owner->heard();
        for (const psprotocol::Frame &frame : frames) {
            if (frame.kind == pswire::FrameReply)
                m_owner->answered(frame.sequence, frame.result, frame.output);
            else if (frame.kind == pswire::FrameEvent && m_owner->m_onEvent)
                m_owner->m_onEvent(frame.code, frame.arguments);
        }
        if (!ok)
            m_socket->abort(); // a service that breaks the framing is not trusted further
    }

    void lost()
    {
        m_pingTimer->stop();
        m_owner->linkChanged(ServiceConnection::Link::Closed);
    }

    ServiceConnection *m_owner;
    QLocalSocket *m_socket = nullptr;
    QTimer *m_pingTimer = nullptr;
    psprotocol::FrameReader m_reader;
    quint32 m_pingSequence = 0;
};

ServiceConnection::ServiceConnection(EventHandler onEvent, CloseHandler onClosed)
    : m_onEvent(std::move(onEvent)),
      m_onClosed(std::move(onClosed)),
      m_thread(new QThread),
      m_worker(new ConnectionWorker(this))
{
    m_clock.start();
    m_thread->setObjectName(QStringLiteral("psclient"));
    m_worker->moveToThread(m_thread);
    m_thread->start();
}

ServiceConnection::~ServiceConnection()
{
    close();
    delete m_worker;
    delete m_thread;
}

void ServiceConnection::close()
{
    if (m_thread->isFinished())
        return;
    {
        QMutexLocker lock(&m_mutex);
        m_link = Link::Closed;
        m_changed.wakeAll();
    }
    ConnectionWorker *worker = m_worker;
    QMetaObject::invokeMethod(worker, [worker] {
        worker->shutdown();
        QThread::currentThread()->quit();
    }, Qt::QueuedConnection);
    m_thread->wait();
}

bool ServiceConnection::open(const std::string &runtimeDir, int timeoutMs)
{
    ConnectionWorker *worker = m_worker;
    QMetaObject::invokeMethod(worker, [worker, runtimeDir, timeoutMs] { worker->start(runtimeDir, timeoutMs); },
                              Qt::QueuedConnection);
    QMutexLocker lock(&m_mutex);
    const qint64 deadline = now() + timeoutMs;
    while (m_link == Link::Connecting && now() < deadline)
        m_changed.wait(&m_mutex, ulong(deadline - now()));
    if (m_link == Link::Connecting)
        m_link = Link::Closed; // too late: a connection that comes after this is not used
    return m_link == Link::Connected;
}

ServiceConnection::Answer ServiceConnection::call(pswire::Operation operation,
                                                  const QVariantList &arguments, int limitMs)
{
    Answer answer;
    QMutexLocker lock(&m_mutex);
    if (m_link != Link::Connected) {
        answer.status = pswire::ResultServiceUnavailable;
        return answer;
    }
    if (m_suspect) {
        answer.status = pswire::ResultServiceUnresponsive;
        return answer;
    }
    if (++m_nextSequence == 0)
        ++m_nextSequence;
    const quint32 sequence = m_nextSequence;
    m_pending.insert(sequence, Pending());
    const qint64 sent = now();
    const QByteArray bytes = psprotocol::encode(psprotocol::call(sequence, operation, arguments));
    ConnectionWorker *worker = m_worker;
    QMetaObject::invokeMethod(worker, [worker, bytes] { worker->send(bytes); }, Qt::QueuedConnection);

    for (;;) {
        const Pending &pending = m_pending[sequence];
        if (pending.answered) {
            answer.result = pending.result;
            answer.output = pending.output;
            break;
        }
        if (m_link != Link::Connected) {
            answer.status = pswire::ResultServiceUnavailable;
            break;
        }
        if (m_suspect) {
            answer.status = pswire::ResultServiceUnresponsive;
            break;
        }
        const qint64 t = now();
        const qint64 silentUntil = qMax(m_lastHeardMs, sent) + kSilenceLimitMs;
        const qint64 limitUntil = sent + limitMs;
        if (t >= silentUntil) {
            m_suspect = true;
            m_changed.wakeAll();
            answer.status = pswire::ResultServiceUnresponsive;
            break;
        }
        if (t >= limitUntil) {
            answer.status = pswire::ResultTimedOut;
            break;
        }
        const qint64 silentSince = qMax(m_lastHeardMs, sent);
        if (t - silentSince >= kStoppedCheckMs && m_servicePid > 0) {
            const pid_t pid = m_servicePid;
            lock.unlock();
            const bool stopped = hostruntime::isProcessStopped(pid);
            lock.relock();
            if (stopped && !m_pending[sequence].answered) {
                m_suspect = true;
                m_changed.wakeAll();
                answer.status = pswire::ResultServiceUnresponsive;
                break;
            }
            if (stopped)
                continue; // answered meanwhile
        }
        const qint64 nextCheck = qMax(t, silentSince) + kStoppedCheckMs;
        m_changed.wait(&m_mutex, ulong(qMax<qint64>(1, qMin(qMin(silentUntil, limitUntil), nextCheck) - t)));
    }
    m_pending.remove(sequence);
    return answer;
}

void ServiceConnection::setServiceProcess(pid_t pid)
{
    QMutexLocker lock(&m_mutex);
    m_servicePid = pid;
}

bool ServiceConnection::isConnected() const
{
    QMutexLocker lock(&m_mutex);
    return m_link == Link::Connected;
}

bool ServiceConnection::isResponsive() const
{
    QMutexLocker lock(&m_mutex);
    return m_link == Link::Connected && !m_suspect;
}

void ServiceConnection::linkChanged(Link link)
{
    bool lost = false;
    {
        QMutexLocker lock(&m_mutex);
        if (m_link == Link::Closed)
            return; // given up on, or closed: stays so
        if (link == Link::Connected && m_link != Link::Connecting)
            return;
        lost = link == Link::Closed;
        m_link = link;
        m_lastHeardMs = now();
        m_changed.wakeAll();
    }
    if (lost && m_onClosed)
        m_onClosed();
}

void ServiceConnection::heard()
{
    QMutexLocker lock(&m_mutex);
    m_lastHeardMs = now();
    m_suspect = false;
    m_changed.wakeAll();
}

void ServiceConnection::answered(quint32 sequence, const QVariant &result, const QByteArray &output)
{
    QMutexLocker lock(&m_mutex);
    const auto it = m_pending.find(sequence);
    if (it == m_pending.end())
        return; // its caller gave up waiting
    it->answered = true;
    it->result = result;
    it->output = output;
    m_changed.wakeAll();
}

bool ServiceConnection::needsPinging() const
{
    QMutexLocker lock(&m_mutex);
    return m_link == Link::Connected && (m_suspect || !m_pending.isEmpty());
}

} // namespace hostplayback
