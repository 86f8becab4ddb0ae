// A client's link to psserver. call() may be used from any thread and never
// waits long on a service that died or stopped answering. A call writes its
// frame on the caller's thread and the caller reads the socket itself while
// it waits, so that an answer reaches it without a hand-over between
// threads; a monitor thread of the connection reads events while no call
// waits and pings the service while one does.
#ifndef HOSTPLAYBACK_SERVICECONNECTION_H
#define HOSTPLAYBACK_SERVICECONNECTION_H

#include <pswire.h>
#include <psprotocol.h>

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtCore/QVariant>
#include <QtCore/QWaitCondition>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <sys/types.h>

namespace hostplayback {

class ServiceConnection
{
public:
    // A service that sends nothing at all for this long while a call waits
    // (it answers pings within milliseconds when alive) counts as frozen.
    static constexpr int kSilenceLimitMs = 450;
    static constexpr int kPingIntervalMs = 100;
    // After this long without a word, a waiting call looks whether the
    // service's process is stopped (SIGSTOP): such a service cannot answer,
    // and the call fails at once instead of at the silence limit.
    static constexpr int kStoppedCheckMs = 20;

    struct Answer
    {
        int status = pswire::ResultOk; // ResultOk when the service answered
        QVariant result;
        QByteArray output;
    };

    using EventHandler = std::function<void(quint32 event, const QVariantList &arguments)>;
    using CloseHandler = std::function<void()>;

    // The handlers run on whichever thread reads the socket at the time (the
    // monitor thread or a caller waiting for its answer), one at a time and
    // in the order the service sent its frames.
    ServiceConnection(EventHandler onEvent, CloseHandler onClosed);
    ~ServiceConnection();

    // Connects to the service of runtime directory `runtimeDir`, waiting at
    // most `timeoutMs`.
    bool open(const std::string &runtimeDir, int timeoutMs);
    // Sends one call and waits for its answer: at most `limitMs` in all, and
    // at most kSilenceLimitMs of complete silence of the service. Once the
    // service is found frozen, calls fail at once until it answers a ping
    // again; once the link is lost, they fail at once for good.
    Answer call(pswire::Operation operation, const QVariantList &arguments, int limitMs);

    // The process serving this connection, for the stopped check; 0: unknown.
    void setServiceProcess(pid_t pid);

    // Drops the link (no close handler runs) and ends the monitor thread.
    void close();

    bool isConnected() const;

private:
    enum class Link { Connecting, Connected, Closed };
    struct Pending
    {
        bool answered = false;
        QVariant result;
        QByteArray output;
    };

    qint64 now() const { return m_clock.elapsed(); }
    void linkChanged(Link link);
    void heard();
    void answered(quint32 sequence, const QVariant &result, const QByteArray &output);

    // The reader's side; only the thread that took the reading turn (under
    // m_mutex) calls these. Waits at most `timeoutMs` (-1: no limit) for
    // the socket, then takes what came.
    void pollAndRead(int timeoutMs);
    // The monitor's wait for the socket, without the turn: its poll events,
    // 0 after `timeoutMs`.
    short pollSocket(int timeoutMs);
    void readAvailable();
    void lose();

    // Writes one frame whole or queues its rest for the next reader to
    // flush; false when the link is gone.
    bool send(const QByteArray &bytes);
    void flushUnsent();
    bool hasUnsent();
    void monitor();

    EventHandler m_onEvent;
    CloseHandler m_onClosed;
    std::thread m_monitor;

    mutable QMutex m_mutex;
    QWaitCondition m_changed;      // answers, the reading turn, the link
    QWaitCondition m_monitorWake;  // no call waits any more, or closing
    QElapsedTimer m_clock;
    Link m_link = Link::Connecting;
    bool m_suspect = false;
    bool m_stopping = false;
    // One thread at a time reads the socket: frames stay in order.
    bool m_reading = false;
    qint64 m_lastHeardMs = 0;
    quint32 m_nextSequence = 0;
    quint32 m_pingSequence = 0;
    qint64 m_nextPingMs = -1; // -1: nobody is pinging
    pid_t m_servicePid = 0;
    QHash<quint32, Pending> m_pending;
    // Calls between registering and giving up their entry (changed under
    // m_mutex; read by the monitor without it).
    std::atomic<int> m_callers{0};

    // The socket; open until close(), which waits for the reader and the
    // writers (and its shutdown ends the wait of whoever polls it).
    int m_fd = -1;
    QMutex m_writeMutex;
    QByteArray m_unsent;
    psprotocol::FrameReader m_reader; // the reader's
};

} // namespace hostplayback

#endif // HOSTPLAYBACK_SERVICECONNECTION_H
