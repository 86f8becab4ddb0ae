// Stress of one session on the scripted platform: commands from eight client
// threads, engine callbacks from two engine threads (also into engines the
// watchdog abandoned), time updates from a timer thread (stalls included, so
// engines get abandoned), the getters in a loop on another thread, the
// service stopped now and then, and the session destroyed by its owner at
// a random point of some rounds. Checked: nothing crashes (run it under the
// sanitizers), no mutex is destroyed locked, every command is carried out
// exactly once and each client thread's commands in its order (in rounds
// cut short by the destruction: a prefix of them), and the state announced
// last is the state stored.
//
// ORVIC_STRESS_SECONDS sets how long it runs (default 3).
#include "adaptorharness.h"
#include "sessiongetters.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QLoggingCategory>
#include <QtCore/QRandomGenerator>
#include <QtTest/QtTest>

#include <atomic>
#include <thread>
#include <vector>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");
const int kClientThreads = 8;
// Seek targets of the clients: thread t's n-th seek goes to t * kSeekBase + n;
// the watchdog's own seeks stay below kSeekBase.
const qint64 kSeekBase = 1000000;

int stressSeconds()
{
    bool ok = false;
    const int seconds = qEnvironmentVariableIntValue("ORVIC_STRESS_SECONDS", &ok);
    return ok && seconds > 0 ? seconds : 3;
}

// The scripted engine with engine threads of its own: they call the sinks of
// the players that exist, as an engine does. Destroying a player waits for a
// callback into its sink to end (a real engine joins its threads); an
// abandoned player is never destroyed, so its sink keeps being called, also
// after the session has gone.
class ThreadedEngine : public ScriptedEngine
{
public:
    ThreadedEngine()
    {
        onNewPlayer([this](ScriptedPlayer *p) {
            media::localVideo(p);
            p->script().setDefault("getVolume", 50);
            QMutexLocker locker(&m_liveLock);
            m_live.append(p);
        });
        onNewMetaData([](ScriptedMetaData *r) { media::localVideo(r); });
    }

    ~ThreadedEngine() override { stopThreads(); }

    void startThreads(int count)
    {
        m_running = true;
        for (int i = 0; i < count; ++i)
            m_threads.emplace_back([this, i] { run(i); });
    }

    void stopThreads()
    {
        m_running = false;
        for (std::thread &t : m_threads)
            t.join();
        m_threads.clear();
    }

    void destroyPlayer(playback::SPPlayer *player) override
    {
        {
            QMutexLocker locker(&m_liveLock);
            m_live.removeOne(static_cast<ScriptedPlayer *>(player));
        }
        ScriptedEngine::destroyPlayer(player);
    }

    int callbacks() const { return m_callbacks.load(); }

private:
    void run(int seed)
    {
        QRandomGenerator random(quint32(seed) + 17);
        char text[] = "line";
        char resume[4224] = {};
        while (m_running.load()) {
            QMutexLocker locker(&m_liveLock);
            if (m_live.isEmpty())
                continue;
            playback::SPPlayer::CallBack *sink = m_live.at(random.bounded(m_live.size()))->callBack();
            switch (random.bounded(9)) {
            case 0: sink->stateChanged(playback::SPPlayer::STATE_PLAYING); break;
            case 1: sink->durationChanged(120000); break;
            case 2: sink->seekableChanged(random.bounded(2) == 1); break;
            case 3: sink->bufferingProgessChanged(int(random.bounded(101))); break;
            case 4: sink->error(random.bounded(2) ? 2331 : 5); break;
            case 5: sink->speedChanged(1.0); break;
            case 6: sink->playbackFinish(); break;
            case 7: sink->subtitleChanged(text, 1, int(sizeof text - 1)); break;
            default: sink->resumeDataChanged(resume, int(sizeof resume)); break;
            }
            ++m_callbacks;
            locker.unlock();
            QThread::yieldCurrentThread();
        }
    }

    QMutex m_liveLock;
    QList<ScriptedPlayer *> m_live;
    std::vector<std::thread> m_threads;
    std::atomic<bool> m_running{false};
    std::atomic<int> m_callbacks{0};
};

// Client seeks carried out so far, per client thread, in the order carried out.
QVector<QList<int>> carriedOutSeeks(CallRecorder &recorder)
{
    QVector<QList<int>> perThread(kClientThreads);
    for (const QString &call : recorder.callsNamed(QStringLiteral("seekTo"))) {
        const qint64 target = call.section(QLatin1Char('('), 1).chopped(1).toLongLong();
        if (target < kSeekBase)
            continue;
        perThread[int(target / kSeekBase) - 1].append(int(target % kSeekBase));
    }
    return perThread;
}
} // namespace

class tst_SessionStress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void stress();

private:
    struct Totals {
        int restarts = 0;
        int abandoned = 0;
        int callbacks = 0;
        int commands = 0;
        int cutShort = 0;
    } m_totals;

    // One round; a fault fails the test (the QCOMPAREs say which).
    void round(int number, bool destroyEarly, QRandomGenerator &random);
};

void tst_SessionStress::initTestCase()
{
    // The library's debug lines would cost more than the work itself.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
}

void tst_SessionStress::cleanupTestCase()
{
    QLoggingCategory::setFilterRules(QString());
}

void tst_SessionStress::stress()
{
    const int seconds = stressSeconds();
    QRandomGenerator random(20261122);
    QElapsedTimer clock;
    clock.start();
    int rounds = 0;
    do {
        // Every third round the owner destroys the session before the
        // clients' commands are all carried out.
        round(rounds, rounds % 3 == 1, random);
        if (QTest::currentTestFailed())
            return;
        ++rounds;
    } while (rounds < 3 || clock.elapsed() < seconds * 1000);
    qInfo("%d rounds in %lld ms: %d client seeks carried out, %d client threads cut short by the destruction, "
          "%d service restarts, %d engines abandoned, %d engine callbacks",
          rounds, clock.elapsed(), m_totals.commands, m_totals.cutShort, m_totals.restarts, m_totals.abandoned,
          m_totals.callbacks);
}

void tst_SessionStress::round(int number, bool destroyEarly, QRandomGenerator &random)
{
    ScriptedPropertyService props;
    ScriptedPlatformControl control;
    InstantPolls polls;
    LogCapture log;
    ThreadedEngine engine;
    QOrvicPlayerSessionPrivate::stallCounter.storeRelaxed(0);

    auto *session = new QOrvicPlayerSession(QMediaPlayer::Flags());
    QMutex announcedLock;
    S::PlayerState announced = session->state();
    QObject::connect(session, &S::stateChanged, session, [&](S::PlayerState state) {
        QMutexLocker locker(&announcedLock);
        announced = state;
    }, Qt::DirectConnection);
    session->manageActList(S::Msg_SetMedia, QVariant(kMovie));
    session->manageActList(S::Msg_Play, QVariant());
    engine.startThreads(2);

    std::atomic<bool> running{true};
    // Time updates as a client's timer gives them: moving for a while, then
    // stuck long enough for the watchdog to abandon the engine. Now and then
    // the service goes down first; killed from this thread, so that it never
    // dies between a restart's start and its wait for "running" (a service
    // that is never started again would keep that wait going for ever).
    std::thread timer([&, seed = random.generate()] {
        QRandomGenerator own(seed);
        for (qint64 tick = 0; running.load(); ++tick) {
            if (own.bounded(500) == 0)
                props.set("ctl.stop", "psserver");
            const qint64 moving = (session->position() + tick) % (kSeekBase / 2);
            session->timeUpdate((tick / 12) % 2 ? 777 : moving);
            QThread::yieldCurrentThread();
        }
    });
    std::thread getters([&] {
        while (running.load()) {
            readAllValues(*session);
            (void)session->getID3Pic();
            QThread::yieldCurrentThread();
        }
    });
    const int perThread = 200 + int(random.bounded(200));
    QVector<int> issued(kClientThreads, 0);
    std::atomic<int> clientsDone{0};
    std::vector<std::thread> clients;
    for (int t = 0; t < kClientThreads; ++t) {
        const int count = destroyEarly ? int(random.bounded(perThread)) : perThread;
        issued[t] = count;
        clients.emplace_back([session, t, count, &clientsDone, seed = random.generate()] {
            QRandomGenerator own(seed);
            for (int n = 0; n < count; ++n) {
                // Each tracked seek between a few untracked commands.
                switch (own.bounded(8)) {
                case 0: session->manageActList(S::Msg_Pause, QVariant()); break;
                case 1: session->manageActList(S::Msg_Play, QVariant()); break;
                case 2: session->manageActList(S::Msg_PlayBackRate, QVariant(own.bounded(2) ? 2.0 : 1.0)); break;
                case 3: session->manageActList(S::Msg_Volume, QVariant(int(own.bounded(101)))); break;
                case 4: session->manageActList(S::Msg_Muted, QVariant(own.bounded(2) == 1)); break;
                case 5: session->manageActList(S::Msg_SubtitleOnOff, QVariant(own.bounded(2) == 1)); break;
                default: break;
                }
                session->manageActList(S::Msg_Position, QVariant(qlonglong((t + 1) * kSeekBase + n)));
            }
            ++clientsDone;
        });
    }

    // The owner thread carries the posted commands out while the clients run.
    const auto allDone = [&] {
        const QVector<QList<int>> done = carriedOutSeeks(engine.recorder());
        for (int t = 0; t < kClientThreads; ++t) {
            if (done[t].size() < issued[t])
                return false;
        }
        return true;
    };
    // (In rounds cut short, only now and then, so that commands pile up.)
    while (clientsDone.load() < kClientThreads) {
        if (!destroyEarly || random.bounded(8) == 0)
            QCoreApplication::processEvents();
        QThread::yieldCurrentThread();
    }
    for (std::thread &c : clients)
        c.join();
    if (!destroyEarly) {
        while (!allDone())
            QCoreApplication::processEvents();
    } else if (random.bounded(2)) {
        QCoreApplication::processEvents();
    }

    // A client stops its timer and getter threads before it destroys the session.
    running = false;
    timer.join();
    getters.join();
    engine.stopThreads();
    {
        QMutexLocker locker(&announcedLock);
        QCOMPARE(announced, session->state());
    }
    engine.startThreads(2);
    delete session;
    // Engine callbacks go on into abandoned engines after the session has gone.
    const int before = engine.callbacks();
    while (engine.callbacks() < before + 50 && !engine.livePlayers().isEmpty())
        QThread::yieldCurrentThread();
    engine.stopThreads();

    const QVector<QList<int>> done = carriedOutSeeks(engine.recorder());
    m_totals.restarts += engine.createdPlayers() - 1;
    m_totals.abandoned += engine.livePlayers().size();
    m_totals.callbacks += engine.callbacks();
    for (int t = 0; t < kClientThreads; ++t) {
        m_totals.commands += done[t].size();
        if (done[t].size() < issued[t])
            ++m_totals.cutShort;
    }
    for (int t = 0; t < kClientThreads; ++t) {
        QList<int> expected;
        const int carriedOut = destroyEarly ? done[t].size() : issued[t];
        for (int n = 0; n < carriedOut; ++n)
            expected.append(n);
        QVERIFY2(done[t] == expected, qPrintable(QStringLiteral("round %1 thread %2: %3 carried out, %4 issued")
                                                      .arg(number).arg(t).arg(done[t].size()).arg(issued[t])));
        QVERIFY(done[t].size() <= issued[t]);
    }
    QCOMPARE(log.count(QStringLiteral("QMutex: destroying locked mutex")), 0);
}

QTEST_GUILESS_MAIN(tst_SessionStress)
#include "tst_sessionstress.moc"
