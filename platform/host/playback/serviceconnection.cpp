#include "serviceconnection.h"

#include <hostruntime.h>

#include <QtCore/QMutexLocker>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace hostplayback {

namespace {
// What one read takes from the socket at most; a larger backlog is read on
// the next turn.
const int kReadChunk = 16384;
} // namespace

ServiceConnection::ServiceConnection(EventHandler onEvent, CloseHandler onClosed)
    : m_onEvent(std::move(onEvent)),
      m_onClosed(std::move(onClosed))
{
    m_clock.start();
}

ServiceConnection::~ServiceConnection()
{
    close();
}

bool ServiceConnection::open(const std::string &runtimeDir, int timeoutMs)
{
    const int fd = hostruntime::connectToServiceSocket(runtimeDir, timeoutMs);
    if (fd < 0 || ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) < 0) {
        if (fd >= 0)
            ::close(fd);
        linkChanged(Link::Closed);
        return false;
    }
    {
        QMutexLocker lock(&m_mutex);
        if (m_stopping) {
            ::close(fd);
            return false;
        }
        m_fd = fd;
    }
    linkChanged(Link::Connected);
    m_monitor = std::thread(&ServiceConnection::monitor, this);
    return true;
}

void ServiceConnection::close()
{
    {
        QMutexLocker lock(&m_mutex);
        if (m_stopping)
            return;
        m_stopping = true;
        m_link = Link::Closed;
        m_changed.wakeAll();
        m_monitorWake.wakeAll();
        // Ends the wait of whoever reads the socket.
        if (m_fd >= 0)
            ::shutdown(m_fd, SHUT_RDWR);
    }
    if (m_monitor.joinable())
        m_monitor.join();
    {
        QMutexLocker lock(&m_mutex);
        while (m_reading)
            m_changed.wait(&m_mutex);
    }
    QMutexLocker writeLock(&m_writeMutex);
    if (m_fd >= 0)
        ::close(m_fd);
    m_fd = -1;
    m_unsent.clear();
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
    ++m_callers;
    const qint64 sent = now();
    // While calls wait, the service is pinged (by the callers: the monitor
    // stays away from the socket then), so that a live service is always
    // heard from in time.
    if (m_nextPingMs < 0)
        m_nextPingMs = sent + kPingIntervalMs;
    lock.unlock();
    send(psprotocol::encode(psprotocol::call(sequence, operation, arguments)));
    lock.relock();

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
        if (t >= m_nextPingMs) {
            const quint32 ping = ++m_pingSequence;
            m_nextPingMs = t + kPingIntervalMs;
            lock.unlock();
            send(psprotocol::encode(psprotocol::ping(ping)));
            lock.relock();
            continue;
        }
        const qint64 nextCheck = qMin(qMax(t, silentSince) + kStoppedCheckMs, m_nextPingMs);
        const qint64 waitMs = qMax<qint64>(1, qMin(qMin(silentUntil, limitUntil), nextCheck) - t);
        if (m_reading) {
            // Another thread reads; it hands over the answer or the turn.
            m_changed.wait(&m_mutex, ulong(waitMs));
            continue;
        }
        m_reading = true;
        lock.unlock();
        pollAndRead(int(waitMs));
        lock.relock();
        m_reading = false;
        if (m_pending.size() > 1) {
            lock.unlock();
            m_changed.wakeAll(); // the turn is free for another caller
            lock.relock();
        }
    }
    m_pending.remove(sequence);
    const bool last = --m_callers == 0;
    if (last)
        m_nextPingMs = -1; // the monitor pings on while the service is thought frozen
    lock.unlock();
    // Outside the lock: woken while it is held, the monitor would only wake
    // to wait for it.
    if (last)
        m_monitorWake.wakeAll(); // the socket is the monitor's to watch again
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
    if (!lost)
        return;
    m_monitorWake.wakeAll();
    if (m_onClosed)
        m_onClosed();
}

void ServiceConnection::heard()
{
    {
        QMutexLocker lock(&m_mutex);
        m_lastHeardMs = now();
        m_suspect = false;
    }
    m_changed.wakeAll();
}

void ServiceConnection::answered(quint32 sequence, const QVariant &result, const QByteArray &output)
{
    {
        QMutexLocker lock(&m_mutex);
        const auto it = m_pending.find(sequence);
        if (it == m_pending.end())
            return; // its caller gave up waiting
        it->answered = true;
        it->result = result;
        it->output = output;
    }
    m_changed.wakeAll();
}

short ServiceConnection::pollSocket(int timeoutMs)
{
    pollfd fd = {m_fd, short(POLLIN | (hasUnsent() ? POLLOUT : 0)), 0};
    if (::poll(&fd, 1, timeoutMs) <= 0)
        return 0; // nothing came, or a signal: the monitor looks again
    return fd.revents;
}

void ServiceConnection::pollAndRead(int timeoutMs)
{
    pollfd fd = {m_fd, short(POLLIN | (hasUnsent() ? POLLOUT : 0)), 0};
    if (::poll(&fd, 1, timeoutMs) <= 0)
        return; // nothing came, or a signal: the caller looks again
    if (fd.revents & POLLOUT)
        flushUnsent();
    if (fd.revents & (POLLIN | POLLHUP | POLLERR))
        readAvailable();
}

void ServiceConnection::readAvailable()
{
    QByteArray bytes;
    bool ended = false;
    char chunk[kReadChunk];
    for (;;) {
        const ssize_t n = ::recv(m_fd, chunk, sizeof chunk, MSG_DONTWAIT);
        if (n > 0) {
            bytes.append(chunk, int(n));
            if (n < ssize_t(sizeof chunk))
                break; // all there was
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        ended = true; // end of stream or a broken link
        break;
    }
    if (!bytes.isEmpty()) {
        bool ok = true;
        const QList<psprotocol::Frame> frames = m_reader.read(bytes, &ok);
        if (!frames.isEmpty())
            heard();
        for (const psprotocol::Frame &frame : frames) {
            if (frame.kind == pswire::FrameReply)
                answered(frame.sequence, frame.result, frame.output);
            else if (frame.kind == pswire::FrameEvent && m_onEvent)
                m_onEvent(frame.code, frame.arguments);
        }
        if (!ok) {
            // A service that breaks the framing is not trusted further.
            ::shutdown(m_fd, SHUT_RDWR);
            ended = true;
        }
    }
    if (ended)
        lose();
}

void ServiceConnection::lose()
{
    linkChanged(Link::Closed);
}

bool ServiceConnection::send(const QByteArray &bytes)
{
    QMutexLocker lock(&m_writeMutex);
    if (m_fd < 0)
        return false;
    if (!m_unsent.isEmpty()) {
        m_unsent.append(bytes); // behind what waits, in order
        return true;
    }
    const char *data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::send(m_fd, data, size_t(left), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) {
            data += n;
            left -= n;
            continue;
        }
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) {
            // The service does not take more now (it may be frozen): the
            // rest goes out when the socket has room; a waiting caller's
            // poll or the monitor's sees to it.
            // The caller's own wait watches for room; the monitor looks at
            // its next wait (a caller leaving wakes it).
            m_unsent = QByteArray(data, int(left));
            return true;
        }
        lock.unlock();
        lose();
        return false;
    }
    return true;
}

void ServiceConnection::flushUnsent()
{
    QMutexLocker lock(&m_writeMutex);
    while (m_fd >= 0 && !m_unsent.isEmpty()) {
        const ssize_t n = ::send(m_fd, m_unsent.constData(), size_t(m_unsent.size()),
                                 MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) {
            m_unsent.remove(0, int(n));
            continue;
        }
        if (errno == EINTR)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return;
        lock.unlock();
        lose();
        return;
    }
}

bool ServiceConnection::hasUnsent()
{
    QMutexLocker lock(&m_writeMutex);
    return !m_unsent.isEmpty();
}

// Reads the events while no call waits, and pings the service while a call
// waits or the service is thought frozen, so that a live service is always
// heard from in time.
void ServiceConnection::monitor()
{
    pthread_setname_np(pthread_self(), "psclient");
    QMutexLocker lock(&m_mutex);
    while (!m_stopping && m_link == Link::Connected) {
        // While calls wait, their callers read the socket and ping: the
        // monitor then sleeps away from it (the last caller out wakes it),
        // so an answer wakes its caller and nobody else.
        if (m_callers.load() > 0) {
            m_monitorWake.wait(&m_mutex);
            continue;
        }
        // A service thought frozen is pinged until it answers again.
        int untilPing = -1;
        if (m_suspect) {
            const qint64 t = now();
            if (m_nextPingMs < 0)
                m_nextPingMs = t + kPingIntervalMs;
            if (t >= m_nextPingMs) {
                const quint32 sequence = ++m_pingSequence;
                m_nextPingMs = t + kPingIntervalMs;
                lock.unlock();
                send(psprotocol::encode(psprotocol::ping(sequence)));
                lock.relock();
                continue;
            }
            untilPing = int(qMax<qint64>(1, m_nextPingMs - t));
        } else {
            m_nextPingMs = -1;
        }
        // Waits for the socket without the reading turn, so that a call
        // never waits for the monitor to give it up; the turn is taken only
        // to read what came, without blocking.
        lock.unlock();
        const short ready = pollSocket(untilPing);
        if (!ready || m_callers.load() > 0) {
            lock.relock();
            continue;
        }
        lock.relock();
        if (m_reading || !m_pending.isEmpty())
            continue;
        m_reading = true;
        lock.unlock();
        if (ready & POLLOUT)
            flushUnsent();
        if (ready & (POLLIN | POLLHUP | POLLERR))
            readAvailable();
        lock.relock();
        m_reading = false;
        if (!m_pending.isEmpty()) {
            lock.unlock();
            m_changed.wakeAll(); // the turn is free for a caller that came meanwhile
            lock.relock();
        }
    }
}

} // namespace hostplayback
