#include "serviceconnection.h"

#include <hostruntime.h>

#include <QtCore/QMutexLocker>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
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
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

bool ServiceConnection::open(const std::string &runtimeDir, int timeoutMs)
{
    const int fd = hostruntime::connectToServiceSocket(runtimeDir, timeoutMs);
    const int wakeFd = fd >= 0 ? ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC) : -1;
    if (fd < 0 || wakeFd < 0 || ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) < 0) {
        if (fd >= 0)
            ::close(fd);
        if (wakeFd >= 0)
            ::close(wakeFd);
        linkChanged(Link::Closed);
        return false;
    }
    {
        QMutexLocker lock(&m_mutex);
        if (m_stopping) {
            ::close(fd);
            ::close(wakeFd);
            return false;
        }
        m_fd = fd;
        m_wakeFd = wakeFd;
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
        // Ends the wait of whoever reads the socket.
        if (m_fd >= 0)
            ::shutdown(m_fd, SHUT_RDWR);
    }
    wakeMonitor();
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
        const qint64 nextCheck = qMax(t, silentSince) + kStoppedCheckMs;
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
    lock.unlock();
    if (last)
        wakeMonitor(); // the socket is the monitor's to watch again
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
    if (!lost)
        return;
    wakeMonitor();
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

bool ServiceConnection::needsPinging() const
{
    return m_link == Link::Connected && (m_suspect || !m_pending.isEmpty());
}

short ServiceConnection::pollSocket(int timeoutMs, bool watchSocket)
{
    pollfd fds[2] = {{m_wakeFd, POLLIN, 0}, {m_fd, short(POLLIN | (hasUnsent() ? POLLOUT : 0)), 0}};
    if (::poll(fds, watchSocket ? 2 : 1, timeoutMs) <= 0)
        return 0; // nothing came, or a signal: the caller looks again
    if (fds[0].revents & POLLIN) {
        quint64 count = 0;
        if (::read(m_wakeFd, &count, sizeof count) < 0) {
            // Non-blocking: already drained by an earlier turn.
        }
    }
    return watchSocket ? fds[1].revents : 0;
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
            m_unsent = QByteArray(data, int(left));
            lock.unlock();
            wakeMonitor();
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

void ServiceConnection::wakeMonitor()
{
    if (m_wakeFd < 0)
        return;
    const quint64 one = 1;
    if (::write(m_wakeFd, &one, sizeof one) < 0) {
        // The counter is full: the monitor is woken already.
    }
}

// Reads the events while no call waits, and pings the service while a call
// waits or the service is thought frozen, so that a live service is always
// heard from in time.
void ServiceConnection::monitor()
{
    pthread_setname_np(pthread_self(), "psclient");
    QMutexLocker lock(&m_mutex);
    qint64 nextPing = -1;
    while (!m_stopping && m_link == Link::Connected) {
        const bool pinging = needsPinging();
        if (!pinging)
            nextPing = -1;
        else if (nextPing < 0)
            nextPing = now() + kPingIntervalMs;
        if (pinging && now() >= nextPing) {
            const quint32 sequence = ++m_pingSequence;
            lock.unlock();
            send(psprotocol::encode(psprotocol::ping(sequence)));
            lock.relock();
            nextPing = now() + kPingIntervalMs;
            continue;
        }
        const int untilPing = pinging ? int(qMax<qint64>(1, nextPing - now())) : -1;
        // While calls wait, their callers read the socket: the monitor then
        // sleeps on its wake-up alone (the last caller out rings it), so an
        // answer wakes its caller and nobody else. Otherwise it waits for the
        // socket without the reading turn, so that a call never waits for
        // the monitor to give it up, and takes the turn only to read what
        // came, without blocking.
        const bool callersRead = m_callers.load() > 0;
        lock.unlock();
        const short ready = pollSocket(untilPing, !callersRead);
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
            m_changed.wakeAll(); // the turn is free for the callers
            lock.relock();
        }
    }
}

} // namespace hostplayback
