// A command's round trip and the floors it is built on: on the owner's
// thread a bare request/answer on the service's local socket; from another
// thread the same behind a bare queued signal there and back, paced like
// the command. The parts of the floors are measured alone as well.
#include "benchcore.h"
#include "players.h"
#include "workers.h"

#include <hostruntime.h>
#include <psprotocol.h>
#include <qorvicplayersession.h>

#include <QtCore/QThread>
#include <QtNetwork/QLocalSocket>

#include <functional>
#include <unistd.h>

namespace orvicbench {

namespace {

using Session = QOrvicPlayerSession;
const int kRoundTripTimeoutMs = 3000;
const int kWarmUps = 20;
// The pause before each ping of idleSocketCalls().
const unsigned long kQuietUs = 1000;

// Two signals for a ping-pong between two threads.
class Relay : public QObject
{
    Q_OBJECT
Q_SIGNALS:
    void ping();
    void pong();
};

// A thread of the client's, with an object living on it to run code there.
class ClientThread
{
public:
    ClientThread()
    {
        m_thread.start();
        m_context.moveToThread(&m_thread);
    }
    ~ClientThread()
    {
        m_thread.quit();
        m_thread.wait();
    }
    QObject *context() { return &m_context; }

private:
    QThread m_thread;
    QObject m_context;
};

// Volume commands alternate between two values over the whole set, so
// that each one changes the volume and reaches the engine.
int nextVolume()
{
    static std::atomic<int> commands{0};
    return commands++ % 2 ? 40 : 60;
}

int ownerThreadRoundTrips(Session &session, int reps)
{
    std::atomic<double> changedAt{-1};
    const QMetaObject::Connection c = QObject::connect(
            &session, &Session::volumeChanged, [&](int) { changedAt = nowMs(); });
    int failures = 0;
    for (int rep = -kWarmUps; rep < reps; ++rep) {
        changedAt = -1;
        const double t0 = nowMs();
        // On the owner's thread the command is carried out before this returns.
        session.manageActList(Session::Msg_Volume, nextVolume());
        if (changedAt < 0) {
            ++failures;
            continue;
        }
        if (rep >= 0)
            emitSample(QStringLiteral("cmd_owner/ours"), (changedAt - t0) * 1000.0);
    }
    QObject::disconnect(c);
    return failures;
}

int otherThreadRoundTrips(Session &session, int reps)
{
    ClientThread client;
    std::atomic<double> sentAt{-1}, changedAt{-1};
    // Delivered on the client's thread, queued from the owner's.
    const QMetaObject::Connection c = QObject::connect(
            &session, &Session::volumeChanged, client.context(), [&](int) { changedAt = nowMs(); });
    int failures = 0;
    for (int rep = -kWarmUps; rep < reps; ++rep) {
        changedAt = -1;
        QMetaObject::invokeMethod(client.context(), [&] {
            sentAt = nowMs();
            session.manageActList(Session::Msg_Volume, nextVolume());
        }, Qt::QueuedConnection);
        if (waitFor([&] { return changedAt >= 0; }, kRoundTripTimeoutMs) < 0) {
            ++failures;
            continue;
        }
        if (rep >= 0)
            emitSample(QStringLiteral("cmd_other/ours"), (changedAt - sentAt) * 1000.0);
    }
    QObject::disconnect(c);
    return failures;
}

// A blocking link to the service on this thread, without the client
// library: one frame out, wait for the frame that answers it.
class BareLink
{
public:
    bool connect()
    {
        // The service listens on an abstract name, which QLocalSocket of Qt 5
        // cannot address: connect here and hand the descriptor over.
        const int fd = hostruntime::connectToServiceSocket(hostruntime::runtimeDirectory(), 3000);
        if (fd < 0)
            return false;
        if (!m_socket.setSocketDescriptor(fd, QLocalSocket::ConnectedState)) {
            ::close(fd);
            return false;
        }
        return true;
    }
    // Sends `frame` and waits for its pong or reply; false on a timeout.
    bool exchange(const psprotocol::Frame &frame)
    {
        const quint32 answerKind = frame.kind == pswire::FramePing ? pswire::FramePong : pswire::FrameReply;
        m_socket.write(psprotocol::encode(frame));
        m_socket.flush();
        bool ok = true;
        while (ok && m_socket.waitForReadyRead(kRoundTripTimeoutMs)) {
            for (const psprotocol::Frame &in : m_reader.read(&m_socket, &ok)) {
                if (in.kind == answerKind && in.sequence == frame.sequence)
                    return true;
            }
        }
        return false;
    }

private:
    QLocalSocket m_socket;
    psprotocol::FrameReader m_reader;
};

// From the client's thread a bare queued signal to this (the owner's)
// thread, `work` here, and a signal back; paced and waited for exactly like
// otherThreadRoundTrips(). False from `work` counts as a failure.
int relayRoundTrips(const QString &key, int reps, const std::function<bool()> &work)
{
    ClientThread client;
    Relay relay; // lives on this (the owner's) thread
    std::atomic<double> sentAt{-1}, backAt{-1};
    std::atomic<bool> worked{true};
    QObject::connect(&relay, &Relay::ping, &relay, [&] {
        worked = work();
        Q_EMIT relay.pong();
    }, Qt::QueuedConnection);
    QObject::connect(&relay, &Relay::pong, client.context(), [&] { backAt = nowMs(); }, Qt::QueuedConnection);
    int failures = 0;
    for (int rep = -kWarmUps; rep < reps; ++rep) {
        backAt = -1;
        QMetaObject::invokeMethod(client.context(), [&] {
            sentAt = nowMs();
            Q_EMIT relay.ping();
        }, Qt::QueuedConnection);
        if (waitFor([&] { return backAt >= 0; }, kRoundTripTimeoutMs) < 0 || !worked) {
            ++failures;
            continue;
        }
        if (rep >= 0)
            emitSample(key, (backAt - sentAt) * 1000.0);
    }
    return failures;
}

// A signal from the client's thread to this one and one back.
int queuedFloor(int reps)
{
    return relayRoundTrips(QStringLiteral("floor_queued"), reps, [] { return true; });
}

// The other thread's floor: the queued signal there and back with a ping
// on a bare link of this thread between, as the command has its call.
int otherThreadFloor(int reps)
{
    BareLink link;
    if (!link.connect())
        return reps;
    quint32 sequence = 0;
    return relayRoundTrips(QStringLiteral("floor_other"), reps,
                           [&] { return link.exchange(psprotocol::ping(++sequence)); });
}

// A ping: answered by the service's socket thread itself.
int socketFloor(int reps)
{
    BareLink link;
    if (!link.connect())
        return reps;
    int failures = 0;
    for (int rep = -kWarmUps; rep < reps; ++rep) {
        const double t0 = nowMs();
        if (!link.exchange(psprotocol::ping(quint32(rep + kWarmUps + 1)))) {
            ++failures;
            continue;
        }
        if (rep >= 0)
            emitSample(QStringLiteral("floor_socket"), (nowMs() - t0) * 1000.0);
    }
    return failures;
}

// Not a floor of the table: the same ping after the link has been quiet for
// as long as between the other thread's commands (about a millisecond of
// the waiting loop's poll). A service thread woken from such a pause
// answers later than one kept busy by back-to-back pings; it tells how
// much of the other thread's round trip that costs.
int idleSocketCalls(int reps)
{
    BareLink link;
    if (!link.connect())
        return reps;
    int failures = 0;
    for (int rep = -kWarmUps; rep < reps; ++rep) {
        QThread::usleep(kQuietUs);
        const double t0 = nowMs();
        if (!link.exchange(psprotocol::ping(quint32(rep + kWarmUps + 1)))) {
            ++failures;
            continue;
        }
        if (rep >= 0)
            emitSample(QStringLiteral("floor_socket_idle"), (nowMs() - t0) * 1000.0);
    }
    return failures;
}

// Not a floor of the table: a call on a bare link of its own that only the
// service's engine thread answers (a parameter the socket thread does not
// know: the engine refuses it at once), while stored values, positions and
// stream questions are answered by its socket thread; it tells the cost of
// that hop from the client's share of a command.
int bareEngineCalls(int reps)
{
    BareLink link;
    quint32 sequence = 0;
    if (!link.connect() || !link.exchange(psprotocol::call(++sequence, pswire::OpOpen, {QStringLiteral("bench")})))
        return reps;
    int failures = 0;
    for (int rep = -kWarmUps; rep < reps; ++rep) {
        const double t0 = nowMs();
        if (!link.exchange(psprotocol::call(++sequence, pswire::OpGetParameter,
                                            {QByteArray("mPlayer"), QByteArray("engine-only"), 4}))) {
            ++failures;
            continue;
        }
        if (rep >= 0)
            emitSample(QStringLiteral("engine_call"), (nowMs() - t0) * 1000.0);
    }
    return failures;
}

} // namespace

int runCommand(const WorkerArgs &args)
{
    Session session{QMediaPlayer::Flags{}};
    if (!openSession(session, args.url)) {
        emitNote(QStringLiteral("command: the medium did not open"));
        return 1;
    }
    const struct { const char *name; int failures; } parts[] = {
        {"owner thread", ownerThreadRoundTrips(session, args.reps)},
        {"other thread", otherThreadRoundTrips(session, args.reps)},
        {"queued signal", queuedFloor(args.reps)},
        {"other thread's floor", otherThreadFloor(args.reps)},
        {"socket", socketFloor(args.reps)},
        {"engine call", bareEngineCalls(args.reps)},
        {"socket after a pause", idleSocketCalls(args.reps)},
    };
    session.stop();
    int failures = 0;
    for (const auto &part : parts) {
        if (part.failures > 0)
            emitNote(QStringLiteral("command, %1: %2 round trips without an answer").arg(part.name).arg(part.failures));
        failures += part.failures;
    }
    return failures == 0 ? 0 : 1;
}

} // namespace orvicbench

#include "worker_command.moc"
