// A client's link to psserver. The socket lives on a thread of its own with
// its own event loop, so callers need none: call() may be used from any
// thread and never waits long on a service that died or stopped answering.
#ifndef HOSTPLAYBACK_SERVICECONNECTION_H
#define HOSTPLAYBACK_SERVICECONNECTION_H

#include <pswire.h>

#include <QtCore/QByteArray>
#include <QtCore/QElapsedTimer>
#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtCore/QVariant>
#include <QtCore/QWaitCondition>

#include <functional>
#include <string>
#include <sys/types.h>

class QThread;

namespace hostplayback {

class ConnectionWorker;

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

    // Both handlers run on the connection's thread.
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

    // Drops the link (no close handler runs) and ends the connection's thread.
    void close();

    bool isConnected() const;
    bool isResponsive() const;

private:
    friend class ConnectionWorker;
    enum class Link { Connecting, Connected, Closed };
    struct Pending
    {
        bool answered = false;
        QVariant result;
        QByteArray output;
    };

    qint64 now() const { return m_clock.elapsed(); }
    // Called on the connection's thread.
    void linkChanged(Link link);
    void heard();
    void answered(quint32 sequence, const QVariant &result, const QByteArray &output);
    bool needsPinging() const;

    EventHandler m_onEvent;
    CloseHandler m_onClosed;
    QThread *m_thread;
    ConnectionWorker *m_worker;

    mutable QMutex m_mutex;
    QWaitCondition m_changed;
    QElapsedTimer m_clock;
    Link m_link = Link::Connecting;
    bool m_suspect = false;
    qint64 m_lastHeardMs = 0;
    quint32 m_nextSequence = 0;
    pid_t m_servicePid = 0;
    QHash<quint32, Pending> m_pending;
};

} // namespace hostplayback

#endif // HOSTPLAYBACK_SERVICECONNECTION_H
