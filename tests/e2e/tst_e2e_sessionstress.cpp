// One session on the real host platform under load from several threads, as
// a device application may load it: time updates with the session's own
// position every 5 ms from a timer thread, the getters in a loop on another
// thread, random commands from three threads, psserver killed with SIGKILL
// now and then; then stop() and delete. It must end cleanly, every time.
//
// ORVIC_E2E_STRESS_SECONDS sets how long the load lasts (default 6).
#include "e2esupport.h"
#include "sessiongetters.h"

#include <qorvicplayersession.h>

#include <QtCore/QDeadlineTimer>
#include <QtCore/QElapsedTimer>
#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <thread>
#include <vector>

using namespace orvice2e;
using Session = QOrvicPlayerSession;

namespace {
int loadSeconds()
{
    bool ok = false;
    const int seconds = qEnvironmentVariableIntValue("ORVIC_E2E_STRESS_SECONDS", &ok);
    return ok && seconds > 0 ? seconds : 6;
}

// How long the threads may take to notice the end of the load: a recovery
// in progress restarts the service first.
const int kWindDownMs = 30000;
// How long the owner thread may be away from its loop before the clients
// hold their next command.
const qint64 kOwnerBusyMs = 500;

// A client thread that runs `body` until the load ends or it is told to end,
// and says when it has. The end of the load is its own clock's: the owner
// thread, working off the commands, may not get back to its loop while the
// clients still give them faster than a loaded machine carries them out.
class ClientThread
{
public:
    template <typename Body>
    ClientThread(const char *name, std::atomic<bool> &running, QDeadlineTimer loadEnd, Body body)
        : m_name(name), m_thread([this, &running, loadEnd, body] {
              for (quint64 n = 0; running.load() && !loadEnd.hasExpired(); ++n)
                  body(n);
              m_done = true;
          })
    {
    }
    const char *name() const { return m_name; }
    bool done() const { return m_done.load(); }
    void join() { m_thread.join(); }
    // Left behind when it never ends: the process ends it.
    void abandon() { m_thread.detach(); }

private:
    const char *m_name;
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};
} // namespace

class tst_E2eSessionStress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void loadFromThreadsWithServiceKills();
};

void tst_E2eSessionStress::loadFromThreadsWithServiceKills()
{
    RuntimeDir runtime;
    QVERIFY(runtime.isValid());
    auto *session = new Session(QMediaPlayer::Flags{});
    std::atomic<int> errors{0};
    QObject::connect(session, &Session::error, session, [&errors] { ++errors; }, Qt::DirectConnection);
    session->manageActList(Session::Msg_SetMedia, mediaPath(QStringLiteral("av.mp4")));
    session->manageActList(Session::Msg_Play, QVariant());

    std::atomic<bool> running{true};
    std::atomic<int> kills{0};
    const QDeadlineTimer loadEnd(loadSeconds() * 1000);
    QElapsedTimer clock;
    clock.start();
    // When the owner thread last came round its loop (ms on `clock`).
    std::atomic<qint64> ownerTurn{0};
    std::vector<std::unique_ptr<ClientThread>> threads;
    threads.emplace_back(new ClientThread("timer", running, loadEnd, [session](quint64) {
        session->timeUpdate(session->position());
        QThread::msleep(5);
    }));
    threads.emplace_back(new ClientThread("getters", running, loadEnd, [session](quint64) {
        orvictest::readAllValues(*session);
        QThread::msleep(1);
    }));
    for (int c = 0; c < 3; ++c) {
        auto random = std::make_shared<QRandomGenerator>(quint32(4711 + c));
        threads.emplace_back(new ClientThread("commands", running, loadEnd, [session, random, &clock, &ownerTurn](quint64) {
            // A client waits for a player that is still busy with earlier
            // commands (a restart of the service, say), as a user would:
            // the owner thread works the queue off in one go, and a backlog
            // that grows faster than a loaded machine carries it out would
            // keep it from ever returning to its event loop.
            if (clock.elapsed() - ownerTurn.load() > kOwnerBusyMs) {
                QThread::msleep(10);
                return;
            }
            switch (random->bounded(24)) {
            case 0: session->manageActList(Session::Msg_Play, QVariant()); break;
            case 1: session->manageActList(Session::Msg_Pause, QVariant()); break;
            case 2: session->manageActList(Session::Msg_Position, qlonglong(random->bounded(5000))); break;
            case 3: session->manageActList(Session::Msg_PlayBackRate, random->bounded(2) ? 2.0 : 1.0); break;
            case 4: session->manageActList(Session::Msg_Volume, int(random->bounded(101))); break;
            case 5: session->manageActList(Session::Msg_Muted, random->bounded(2) == 1); break;
            case 6: session->manageActList(Session::Msg_SubtitleOnOff, random->bounded(2) == 1); break;
            case 7: session->manageActList(Session::Msg_AudioStream, int(random->bounded(2))); break;
            case 8: session->manageActList(Session::Msg_SetMedia, mediaPath(QStringLiteral("av.mp4"))); break;
            default: session->manageActList(Session::Msg_Position, qlonglong(random->bounded(5000))); break;
            }
            // A client's pace.
            QThread::msleep(200 + random->bounded(200));
        }));
    }

    // The owner thread carries the commands out; the service is killed now
    // and then.
    QRandomGenerator random(20261122);
    qint64 nextKill = 1000 + random.bounded(1000);
    while (clock.elapsed() < loadSeconds() * 1000) {
        QTest::qWait(10);
        ownerTurn = clock.elapsed();
        if (clock.elapsed() >= nextKill) {
            if (signalDaemon(SIGKILL))
                ++kills;
            nextKill = clock.elapsed() + 1000 + random.bounded(1000);
        }
    }

    running = false;
    QElapsedTimer windDown;
    windDown.start();
    const auto allDone = [&threads] {
        for (const auto &t : threads) {
            if (!t->done())
                return false;
        }
        return true;
    };
    while (!allDone() && windDown.elapsed() < kWindDownMs)
        QTest::qWait(10);
    if (!allDone()) {
        QStringList stuck;
        for (const auto &t : threads) {
            if (!t->done()) {
                stuck << QString::fromLatin1(t->name());
                t->abandon();
            }
        }
        // The session is left as it is: a thread is still inside it.
        QFAIL(qPrintable(QStringLiteral("threads still inside the session after %1 ms: %2; service status \"%3\"; "
                                        "daemon log:\n%4")
                             .arg(kWindDownMs).arg(stuck.join(QLatin1String(", ")))
                             .arg(QString::fromLatin1(serviceStatus()))
                             .arg(QString::fromLocal8Bit(runtime.daemonLog().right(4000)))));
    }
    for (const auto &t : threads)
        t->join();
    // Not a Qt message: the library's debug lines may have used up QtTest's
    // allowance of messages by now.
    std::printf("%lld ms of load, %d kills, %d error signals\n", clock.elapsed(), kills.load(), errors.load());

    session->stop();
    QTest::qWait(0);
    QCOMPARE(session->state(), Session::Player_Stop);
    delete session;

    QCOMPARE(stopService(), 0);
    const QByteArray log = runtime.daemonLog();
    const bool clean = !hasSanitizerReport(log);
    if (!clean)
        std::fprintf(stderr, "daemon log:\n%s\n", log.constData()); // whole, unlike a failure message
    QVERIFY2(clean, "a daemon's sanitizer report is in its log (printed above)");
    QVERIFY(kills.load() > 0);
}

QTEST_GUILESS_MAIN(tst_E2eSessionStress)
#include "tst_e2e_sessionstress.moc"
