// The service side: recovery after psserver is killed or frozen, many
// sessions at once, and resident sizes.
#include "benchcore.h"
#include "players.h"
#include "workers.h"

#include <qorvicplayersession.h>

#include <QtCore/QThread>
#include <QtCore/QTimer>

#include <csignal>
#include <memory>
#include <unistd.h>
#include <vector>

namespace orvicbench {

namespace {

using Session = QOrvicPlayerSession;

// A client's time updates, as the watchdog expects them.
const int kTimeUpdateMs = 100;
// Played before the fault, and how far from it playing again still counts
// as at the old position.
const qint64 kPlayBeforeFaultMs = 1000;
const qint64 kResumeToleranceMs = 1000;
// Played by every session before the service's CPU time is read.
const int kConcurrentPlayMs = 2000;
const int kMemoryPlayMs = 1500;
const int kPositionPollMs = 2;

void stampOnce(std::atomic<double> &at)
{
    double unset = -1;
    at.compare_exchange_strong(unset, nowMs());
}

// A session on a thread of its own, as an application with several players
// would have it; its stamps come from direct connections.
struct ThreadedSession
{
    QThread thread;
    QObject context;
    Session *session = nullptr;
    QTimer *poll = nullptr; // on the session's thread
    std::atomic<double> metadataAt{-1};
    std::atomic<double> settledAt{-1};
    std::atomic<double> playingAt{-1};
    std::atomic<double> errorAt{-1};

    void start()
    {
        thread.start();
        context.moveToThread(&thread);
        QMetaObject::invokeMethod(&context, [this] {
            session = new Session(QMediaPlayer::Flags{});
            QObject::connect(session, &Session::metadataChanged, [this](const QVariantMap &) { stampOnce(metadataAt); });
            QObject::connect(session, &Session::playbackRateChanged, [this](float) { stampOnce(settledAt); });
            // The position is asked for on the session's own thread, as its
            // owner would; the first one past the start stamps "playing".
            poll = new QTimer(&context);
            poll->setTimerType(Qt::PreciseTimer);
            poll->setInterval(kPositionPollMs);
            QObject::connect(poll, &QTimer::timeout, [this] {
                if (session->state() == Session::Player_Play && session->position() > 0) {
                    stampOnce(playingAt);
                    poll->stop();
                }
            });
            poll->start();
            QObject::connect(session, &Session::error, [this](int, const QString &) { stampOnce(errorAt); });
        }, Qt::BlockingQueuedConnection);
    }
    void command(Session::MessageId id, const QVariant &param)
    {
        QMetaObject::invokeMethod(&context, [this, id, param] { session->manageActList(id, param); },
                                  Qt::QueuedConnection);
    }
    void finish()
    {
        QMetaObject::invokeMethod(&context, [this] {
            poll->stop();
            session->stop();
            delete session;
            session = nullptr;
        }, Qt::BlockingQueuedConnection);
        thread.quit();
        thread.wait();
    }
};

} // namespace

int runRecovery(const WorkerArgs &args)
{
    const int sig = args.player == QLatin1String("stop") ? SIGSTOP : SIGKILL;
    int failures = 0;
    for (int rep = 0; rep < args.reps; ++rep) {
        // A fresh session each time: a medium that took the service down
        // once is not reopened by the same session.
        Session session{QMediaPlayer::Flags{}};
        std::atomic<int> initialised{0};
        QObject::connect(&session, &Session::stateChanged, [&](Session::PlayerState state) {
            if (state == Session::Player_Initialized)
                ++initialised;
        });
        if (!openSession(session, args.url)) {
            ++failures;
            continue;
        }
        QTimer updates;
        updates.setInterval(kTimeUpdateMs);
        QObject::connect(&updates, &QTimer::timeout, [&] { session.timeUpdate(session.position()); });
        updates.start();
        session.manageActList(Session::Msg_Play, QVariant());
        if (waitFor([&] { return session.position() >= kPlayBeforeFaultMs; }, 5000) < 0) {
            ++failures;
            continue;
        }
        const pid_t daemon = servicePid();
        const qint64 interruptedAt = session.position();
        const int startsBefore = initialised;
        const double faultAt = nowMs();
        ::kill(daemon, sig);
        const double resumedAt = waitFor([&] {
            return initialised > startsBefore && session.state() == Session::Player_Play
                    && qAbs(session.position() - interruptedAt) <= kResumeToleranceMs;
        }, 15000);
        updates.stop();
        session.stop();
        if (resumedAt < 0 || servicePid() == daemon) {
            emitNote(QStringLiteral("recovery %1: not playing again").arg(args.player));
            ++failures;
            continue;
        }
        emitSample(QStringLiteral("recovery_%1/ours").arg(args.player), resumedAt - faultAt);
    }
    return failures == 0 ? 0 : 1;
}

int runConcurrent(const WorkerArgs &args)
{
    const int count = args.tag.toInt();
    if (count <= 0)
        return 2;
    int failures = 0;
    for (int rep = 0; rep < args.reps; ++rep) {
        std::vector<std::unique_ptr<ThreadedSession>> sessions;
        for (int i = 0; i < count; ++i) {
            sessions.push_back(std::make_unique<ThreadedSession>());
            sessions.back()->start();
        }
        auto all = [&](auto holds) {
            for (const auto &s : sessions) {
                if (!holds(*s))
                    return false;
            }
            return true;
        };
        const pid_t daemon = servicePid();
        const double cpuBefore = cpuTimeMs(daemon);
        const double t0 = nowMs();
        for (const auto &s : sessions)
            s->command(Session::Msg_SetMedia, args.url);
        const bool opened = waitFor([&] {
            return all([](ThreadedSession &s) { return s.errorAt >= 0 || (s.settledAt >= 0 && s.metadataAt >= 0); });
        }, 60000) >= 0 && all([](ThreadedSession &s) { return s.errorAt < 0; });
        for (const auto &s : sessions)
            s->command(Session::Msg_Play, QVariant());
        const bool playing = opened && waitFor([&] {
            return all([](ThreadedSession &s) { return s.playingAt >= 0; });
        }, 30000) >= 0;
        if (playing)
            waitFor([] { return false; }, kConcurrentPlayMs, 50);
        const double cpuAfter = cpuTimeMs(daemon);
        for (const auto &s : sessions)
            s->finish();
        if (!playing || cpuBefore < 0 || cpuAfter < 0) {
            emitNote(QStringLiteral("%1 sessions: opened %2, playing %3").arg(count).arg(opened).arg(playing));
            ++failures;
            continue;
        }
        for (const auto &s : sessions)
            emitSample(QStringLiteral("concurrent_open.%1/ours").arg(count), s->metadataAt - t0);
        emitSample(QStringLiteral("concurrent_cpu.%1/ours").arg(count), (cpuAfter - cpuBefore) / count);
    }
    return failures == 0 ? 0 : 1;
}

int runMemory(const WorkerArgs &args)
{
    if (args.player == QLatin1String("ours")) {
        // A service of its own, not one grown by earlier sets.
        stopService();
    }
    std::unique_ptr<BenchPlayer> player = makePlayer(args.player, false);
    if (!player)
        return 2;
    player->open(args.url);
    if (waitFor([&] { return player->openSettled(); }, 15000) < 0 || player->errorAt >= 0)
        return 1;
    player->play();
    if (waitFor([&] { return player->position() > 0; }, 5000) < 0)
        return 1;
    waitFor([] { return false; }, kMemoryPlayMs, 50);
    double total = residentMiB(getpid());
    if (args.player == QLatin1String("ours")) {
        const double service = residentMiB(servicePid());
        if (service < 0)
            return 1;
        emitSample(QStringLiteral("memory_service/ours"), service);
        emitSample(QStringLiteral("memory_client/ours"), total);
        total += service;
    }
    if (total < 0)
        return 1;
    emitSample(QStringLiteral("memory/%1").arg(args.player), total);
    return 0;
}

} // namespace orvicbench
