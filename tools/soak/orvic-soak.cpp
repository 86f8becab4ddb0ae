// Fault soak of the session on the real PC platform: a session plays real
// media while psserver is killed (SIGKILL) or frozen (SIGSTOP, then killed)
// at random moments and commands arrive from several threads; corrupt and
// truncated media are opened in between. Prints the figures of the run.
//
//   orvic-soak --media DIR [--rounds N] [--seed S] [--senders N] [--sessions N] [--bystanders N]
//
// Bystanders are further sessions of the process that play but feed their
// watchdog nothing: the service they lose is restarted by another session's
// watchdog, and they must play on all the same.
// DIR holds good media (long.mp4, long.mp3) and damaged ones (damaged-*).
// The client is this process: it uses the shared library as an application
// does, with psserver started through the property service.
#include "soakprobe.h"

#include <qorvicplayersession.h>

#include <cutils/properties.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QSet>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtCore/QVector>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <functional>
#include <cstdio>
#include <memory>
#include <random>
#include <thread>
#include <vector>

using Session = QOrvicPlayerSession;

namespace {

// The client feeds the watchdog as often as this (ten unchanged positions in
// a row make a stall).
const int kTimeUpdateMs = 100;
const int kStartTimeoutMs = 15000;
const int kRecoveryTimeoutMs = 30000;

// Runs the owner thread's events until `done` holds or the time is up.
bool waitFor(const std::function<bool()> &done, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QThread::msleep(5); // a client's pace; nothing is synchronised by it
    }
    return true;
}

void waitMs(int ms)
{
    waitFor([] { return false; }, ms);
}

// One player of the client, its watchdog fed by a timer as a client does.
struct Player
{
    std::unique_ptr<Session> session;
    QTimer timeUpdates;
    std::atomic<int> initializedCount{0};
    std::atomic<int> errors{0};

    explicit Player(bool fed)
        : session(new Session(QMediaPlayer::Flags{}))
    {
        QObject::connect(session.get(), &Session::stateChanged, session.get(),
                         [this](Session::PlayerState s) {
                             if (s == Session::Player_Initialized)
                                 ++initializedCount;
                         }, Qt::DirectConnection);
        QObject::connect(session.get(), &Session::error, session.get(),
                         [this](int, const QString &) { ++errors; }, Qt::DirectConnection);
        timeUpdates.setInterval(kTimeUpdateMs);
        QObject::connect(&timeUpdates, &QTimer::timeout, session.get(),
                         [this] { session->timeUpdate(session->position()); });
        if (fed)
            timeUpdates.start();
    }
};

// Threads that give commands which leave state and position alone (volume,
// mute, subtitle switch, audio stream, video and audio outputs) while
// allowed; counted as sent.
class Senders
{
public:
    Senders(const std::vector<Player *> &players, int count, quint32 seed)
    {
        for (int i = 0; i < count; ++i)
            m_threads.emplace_back([this, players, seed, i] { run(players, seed + quint32(i)); });
    }
    ~Senders()
    {
        m_quit = true;
        for (std::thread &t : m_threads)
            t.join();
    }
    void setAllowed(bool allowed)
    {
        m_allowed = allowed;
        // Once this returns with false, no sender is inside manageActList.
        while (!allowed && m_inside.load() > 0)
            std::this_thread::yield();
    }
    long long sent() const { return m_sent.load(); }

private:
    void run(const std::vector<Player *> &players, quint32 seed)
    {
        std::mt19937 random(seed);
        while (!m_quit) {
            ++m_inside;
            if (m_allowed) {
                Player *p = players[random() % players.size()];
                give(p->session.get(), random);
            }
            --m_inside;
            std::this_thread::sleep_for(std::chrono::milliseconds(5 + random() % 40));
        }
    }

    void give(Session *s, std::mt19937 &random)
    {
        ++m_sent;
        switch (random() % 6) {
        case 0:
            s->manageActList(Session::Msg_Volume, int(random() % 101));
            break;
        case 1:
            s->manageActList(Session::Msg_Muted, bool(random() % 2));
            break;
        case 2:
            s->manageActList(Session::Msg_SubtitleOnOff, bool(random() % 2));
            break;
        case 3:
            s->manageActList(Session::Msg_AudioStream, 0);
            break;
        case 4:
            s->manageActList(Session::Msg_SetVideoOnOff, true);
            break;
        default:
            s->manageActList(Session::Msg_SetAudioOnOff, true);
            break;
        }
    }

    std::vector<std::thread> m_threads;
    std::atomic<bool> m_quit{false};
    std::atomic<bool> m_allowed{false};
    std::atomic<int> m_inside{0};
    std::atomic<long long> m_sent{0};
};

struct Figures
{
    int faults = 0;
    int kills = 0;
    int freezes = 0;
    int recoveries = 0;
    int notRecovered = 0;
    int leftStoppedByDesign = 0;
    int stoppedAfterPlayingAgain = 0; // played again, then a second restart of its medium
    int notStarted = 0;
    int damagedOpened = 0;
    int damagedErrors = 0;
    int bystanderRounds = 0;   // a bystander's medium at a fault
    int bystandersPlayingOn = 0;
    QVector<qint64> recoveryMs;
    QVector<qint64> positionErrorMs;
    long long commandsSent = 0;
    long long commandsCarriedOut = 0;
    QSet<pid_t> daemons;
};

qint64 median(QVector<qint64> v)
{
    if (v.isEmpty())
        return -1;
    std::sort(v.begin(), v.end());
    return v.at(v.size() / 2);
}

qint64 maximum(const QVector<qint64> &v)
{
    return v.isEmpty() ? -1 : *std::max_element(v.begin(), v.end());
}

// Gives a command from the owner thread, counted as sent.
void give(Figures &f, Session *s, Session::MessageId id, const QVariant &param)
{
    ++f.commandsSent;
    s->manageActList(id, param);
}

QString urlOf(const QString &file)
{
    return QUrl::fromLocalFile(file).toString();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption mediaOption("media", "Directory of the media.", "dir");
    const QCommandLineOption roundsOption("rounds", "Faults to inject.", "n", "20");
    const QCommandLineOption seedOption("seed", "Random seed.", "n", "1");
    const QCommandLineOption sendersOption("senders", "Command threads.", "n", "3");
    const QCommandLineOption sessionsOption("sessions", "Sessions playing at once.", "n", "1");
    const QCommandLineOption bystandersOption("bystanders", "Further sessions playing with no watchdog fed.", "n",
                                              "0");
    parser.addOptions({mediaOption, roundsOption, seedOption, sendersOption, sessionsOption, bystandersOption});
    parser.process(app);
    const QDir media(QDir(parser.value(mediaOption)).absolutePath());
    const int rounds = parser.value(roundsOption).toInt();
    const quint32 seed = parser.value(seedOption).toUInt();
    const QStringList good = {media.filePath("long.mp4"), media.filePath("long.mp3")};
    QStringList damaged;
    for (const QString &name : media.entryList({"damaged-*"}, QDir::Files, QDir::Name))
        damaged.append(media.filePath(name));
    if (!media.exists("long.mp4") || !media.exists("long.mp3") || rounds <= 0) {
        std::fprintf(stderr, "orvic-soak: need --media DIR with long.mp4 and long.mp3, and --rounds > 0\n");
        return 2;
    }

    soakprobe::installLogProbe();
    const soakprobe::ProcessCounts before = soakprobe::processCounts();
    // Measured at the end of the first round and of the last, at the same
    // point of a round: growth between them is a leak of the soak's faults.
    soakprobe::ProcessCounts warm{0, 0};
    soakprobe::ProcessCounts last{0, 0};
    QString warmThreads, warmDescriptors;
    int abandonedAtWarm = 0;
    std::mt19937 random(seed);
    Figures f;
    {
        std::vector<std::unique_ptr<Player>> players;
        std::vector<Player *> raw;
        std::vector<Player *> bystanders;
        std::vector<Player *> all;
        for (int i = 0; i < qMax(1, parser.value(sessionsOption).toInt()); ++i) {
            players.emplace_back(new Player(true));
            raw.push_back(players.back().get());
        }
        for (int i = 0; i < parser.value(bystandersOption).toInt(); ++i) {
            players.emplace_back(new Player(false));
            bystanders.push_back(players.back().get());
        }
        all = raw;
        all.insert(all.end(), bystanders.begin(), bystanders.end());
        Senders senders(raw, parser.value(sendersOption).toInt(), seed * 7919u);

        bool lastRecovered = false;
        for (int round = 0; round < rounds; ++round) {
            // Now and then the medium that has just been recovered fails a
            // second time: the watchdog leaves it stopped on purpose.
            const bool secondFailure = lastRecovered && random() % 6 == 0;
            lastRecovered = false;
            // Now and then, damaged media first: an error or some playing,
            // never a crash.
            if (!secondFailure && !damaged.isEmpty() && random() % 3 == 0) {
                for (Player *p : raw) {
                    const QString file = damaged.at(int(random() % damaged.size()));
                    const int errorsBefore = p->errors.load();
                    p->session->stop();
                    give(f, p->session.get(), Session::Msg_SetMedia, urlOf(file));
                    give(f, p->session.get(), Session::Msg_Play, QVariant());
                    ++f.damagedOpened;
                    waitMs(300 + int(random() % 700));
                    if (p->errors.load() > errorsBefore)
                        ++f.damagedErrors;
                }
            }
            // A good medium from the start: stop() also lets the watchdog
            // reopen it after the coming fault.
            for (Player *p : all) {
                if (secondFailure)
                    break;
                p->session->stop();
                give(f, p->session.get(), Session::Msg_SetMedia, urlOf(good.at(int(random() % good.size()))));
                give(f, p->session.get(), Session::Msg_Play, QVariant());
            }
            const bool started = waitFor([&] {
                for (Player *p : all) {
                    if (p->session->state() != Session::Player_Play || p->session->position() < 300)
                        return false;
                }
                return true;
            }, kStartTimeoutMs);
            if (!started) {
                for (size_t i = 0; i < all.size(); ++i)
                    std::printf("round %d: session %zu did not start: state %d, position %lld\n", round + 1, i,
                                int(all[i]->session->state()), all[i]->session->position());
                ++f.notStarted;
                continue;
            }
            senders.setAllowed(true);
            waitMs(200 + int(random() % 2500));

            // The fault.
            const pid_t daemon = soakprobe::daemonPid();
            if (daemon <= 0) {
                ++f.notStarted;
                senders.setAllowed(false);
                continue;
            }
            f.daemons.insert(daemon);
            QVector<qint64> positionAtFault;
            QVector<int> initsBefore;
            for (Player *p : raw) {
                positionAtFault.append(p->session->position());
                initsBefore.append(p->initializedCount.load());
            }
            const bool freeze = random() % 2;
            QElapsedTimer sinceFault;
            sinceFault.start();
            ++f.faults;
            if (freeze) {
                ++f.freezes;
                ::kill(daemon, SIGSTOP);
                // Killed later unless the watchdog has replaced it by then.
                const int killAfter = 300 + int(random() % 3000);
                QTimer::singleShot(killAfter, [daemon] {
                    if (soakprobe::daemonPid() == daemon)
                        ::kill(daemon, SIGKILL);
                });
            } else {
                ++f.kills;
                ::kill(daemon, SIGKILL);
            }
            const int blockOnceBefore = soakprobe::count(soakprobe::AlreadyBlockOnce);

            // Recovered: re-initialised, playing again, position moving.
            QVector<qint64> resumedAt(int(raw.size()), -1);
            QVector<qint64> playingAfter(int(raw.size()), -1);
            waitFor([&] {
                int waiting = 0;
                for (int i = 0; i < int(raw.size()); ++i) {
                    Session *s = raw[size_t(i)]->session.get();
                    if (playingAfter[i] < 0 && raw[size_t(i)]->initializedCount.load() > initsBefore[i]
                        && s->state() == Session::Player_Play) {
                        playingAfter[i] = sinceFault.elapsed();
                        resumedAt[i] = s->position();
                    }
                    if (playingAfter[i] < 0 || s->position() < resumedAt[i] + 200)
                        ++waiting;
                }
                // Sessions left stopped on purpose are not waited for.
                return waiting == 0
                       || (waiting <= soakprobe::count(soakprobe::AlreadyBlockOnce) - blockOnceBefore
                           && std::none_of(playingAfter.begin(), playingAfter.end(), [](qint64 v) { return v >= 0; }));
            }, kRecoveryTimeoutMs);
            const int blockedOnce = soakprobe::count(soakprobe::AlreadyBlockOnce) - blockOnceBefore;
            // The bystanders, once the service runs again: playing, and
            // moving on from where they are now.
            int playingOn = 0;
            if (!bystanders.empty()) {
                QVector<qint64> from;
                for (Player *p : bystanders)
                    from.append(p->session->position());
                waitFor([&] {
                    playingOn = 0;
                    for (int i = 0; i < int(bystanders.size()); ++i) {
                        Session *s = bystanders[size_t(i)]->session.get();
                        if (s->state() == Session::Player_Play && s->position() >= from[i] + 200)
                            ++playingOn;
                    }
                    return playingOn == int(bystanders.size());
                }, kStartTimeoutMs);
                f.bystanderRounds += int(bystanders.size());
                f.bystandersPlayingOn += playingOn;
            }
            int recoveredNow = 0;
            for (int i = 0; i < int(raw.size()); ++i) {
                // Recovered means playing on from where it resumed. A session
                // may play again and then be left stopped by the watchdog's
                // second restart of the same medium: the stall count of a
                // frozen service that was killed before the count ran out
                // carries over into the recovery (process-wide, cleared only
                // by a moving position), so a slow reopen can complete it.
                Session *s = raw[size_t(i)]->session.get();
                const bool movingOn = playingAfter[i] >= 0 && s->state() == Session::Player_Play
                                       && s->position() >= resumedAt[i] + 200;
                if (playingAfter[i] >= 0 && !movingOn)
                    ++f.stoppedAfterPlayingAgain;
                if (movingOn) {
                    ++recoveredNow;
                    ++f.recoveries;
                    lastRecovered = true;
                    f.recoveryMs.append(playingAfter[i]);
                    f.positionErrorMs.append(qAbs(resumedAt[i] - positionAtFault[i]));
                } else {
                    ++f.notRecovered;
                }
            }
            f.leftStoppedByDesign += blockedOnce;
            if (const pid_t now = soakprobe::daemonPid())
                f.daemons.insert(now);

            // Every command given must have been carried out before the
            // next stop() may throw waiting ones away.
            senders.setAllowed(false);
            const long long expected = f.commandsSent + senders.sent();
            waitFor([&] { return soakprobe::count(soakprobe::CarriedOut) >= expected; }, 20000);
            last = soakprobe::processCounts();
            if (round == 0) {
                warm = last;
                abandonedAtWarm = soakprobe::count(soakprobe::StallRestart);
                warmThreads = soakprobe::threadNames();
                warmDescriptors = soakprobe::descriptorTargets();
            }
            std::printf("round %d: %s%s, recovered %d of %zu, %lld ms%s\n", round + 1, freeze ? "freeze" : "kill",
                        secondFailure ? " (second failure of the medium)" : "",
                        recoveredNow, raw.size(), maximum(playingAfter),
                        bystanders.empty() ? ""
                                           : qPrintable(QStringLiteral(", bystanders playing on %1 of %2")
                                                                .arg(playingOn)
                                                                .arg(bystanders.size())));
            std::fflush(stdout);
        }
        senders.setAllowed(false);
        f.commandsSent += senders.sent();
        waitFor([&] { return soakprobe::count(soakprobe::CarriedOut) >= f.commandsSent; }, 20000);
        for (Player *p : all) {
            p->timeUpdates.stop();
            p->session->stop();
        }
    }
    f.commandsCarriedOut = soakprobe::count(soakprobe::CarriedOut);
    // The sessions are gone; the service is stopped as the device would at
    // shutdown, so that its client-side threads may end.
    property_set("ctl.stop", "psserver");
    waitMs(500);
    const soakprobe::ProcessCounts after = soakprobe::processCounts();

    std::printf("faults injected: %d (SIGKILL %d, SIGSTOP then SIGKILL %d)\n", f.faults, f.kills, f.freezes);
    std::printf("recoveries: %d, not recovered: %d (of which left stopped by design: %d), rounds not started: %d\n",
                f.recoveries, f.notRecovered, f.leftStoppedByDesign, f.notStarted);
    std::printf("played again, then stopped by a second restart of the same medium: %d\n", f.stoppedAfterPlayingAgain);
    std::printf("time to playing again: median %lld ms, max %lld ms\n", median(f.recoveryMs), maximum(f.recoveryMs));
    std::printf("position error after recovery: median %lld ms, max %lld ms\n", median(f.positionErrorMs),
                maximum(f.positionErrorMs));
    std::printf("commands sent: %lld, carried out: %lld\n", f.commandsSent, f.commandsCarriedOut);
    std::printf("damaged media opened: %d (error signalled for %d)\n", f.damagedOpened, f.damagedErrors);
    if (f.bystanderRounds > 0)
        std::printf("bystanders playing on after another session's recovery: %d of %d\n", f.bystandersPlayingOn,
                    f.bystanderRounds);
    std::printf("psserver restarts by the watchdog: %d (daemons seen at faults: %d)\n",
                soakprobe::count(soakprobe::WatchdogRestart), int(f.daemons.size()));
    std::printf("client descriptors: %d after the first round, %d after the last; threads: %d, %d\n",
                warm.descriptors, last.descriptors, warm.threads, last.threads);
    std::printf("client before the sessions and after them: descriptors %d, %d; threads %d, %d\n",
                before.descriptors, after.descriptors, before.threads, after.threads);
    if (last.descriptors > warm.descriptors || last.threads > warm.threads) {
        std::printf("threads after the first round: %s\n", qPrintable(warmThreads));
        std::printf("descriptors after the first round: %s\n", qPrintable(warmDescriptors));
    }
    if (after.threads > before.threads || after.descriptors > before.descriptors) {
        std::printf("threads left: %s\n", qPrintable(soakprobe::threadNames()));
        std::printf("descriptors left: %s\n", qPrintable(soakprobe::descriptorTargets()));
    }
    // A stall recovery abandons the stuck engine objects on purpose (never
    // destroyed, so that nothing calls into the stuck engine): the host player
    // keeps its two threads (socket, callbacks) and the descriptor of one.
    const int abandoned = soakprobe::count(soakprobe::StallRestart) - abandonedAtWarm;
    const int threadGrowth = last.threads - warm.threads;
    const int descriptorGrowth = last.descriptors - warm.descriptors;
    std::printf("engines abandoned by stall recoveries since the first round: %d; growth beyond them: "
                "threads %d, descriptors %d\n", abandoned, threadGrowth - 2 * abandoned,
                descriptorGrowth - abandoned);
    const bool ok = f.notRecovered == f.leftStoppedByDesign && f.notStarted == 0
                    && f.bystandersPlayingOn == f.bystanderRounds
                    && f.commandsSent == f.commandsCarriedOut && descriptorGrowth <= abandoned
                    && threadGrowth <= 2 * abandoned;
    std::printf("soak: %s\n", ok ? "PASS" : "FAIL");
    return ok ? 0 : 1;
}
