// The adaptor used from several threads at once: watchdog recoveries (time
// updates from any thread) against commands on the owner thread, engine
// readers against a release, late callbacks of an abandoned engine, a stop
// during a recovery, and commands queued from slots while a command runs.
// Every interleaving is forced through engine hooks, none through timing.
#include "adaptorharness.h"
#include "sessiongetters.h"

#include <QtTest/QtTest>

#include <atomic>
#include <thread>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");

QString watchdogLine(const char *text)
{
    return QStringLiteral("D/OPSession checkServer(#):checkServer: ") + QLatin1String(text);
}

// Spins (yielding) until `done` holds; the other side is already running.
template <typename Pred>
void waitUntil(Pred done)
{
    while (!done())
        QThread::yieldCurrentThread();
}
} // namespace

class tst_AdaptorThreads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void recoveryLeavesTheEngineOfARunningCommand_data();
    void recoveryLeavesTheEngineOfARunningCommand();
    void recoveryFromASlotInsideACommandWaits();
    void recoveryLeftByABusyTickRunsBeforeTheNextCommand();
    void readerKeepsTheEngineUntilItIsDone_data();
    void readerKeepsTheEngineUntilItIsDone();
    void abandonedEngineCallsBackAfterRecovery();
    void stopDuringRecoveryIsNotUndone_data();
    void stopDuringRecoveryIsNotUndone();
    void commandFromSlotOnOwnerThreadWhileCommandRuns();
    void commandFromEngineThreadSlotWhileCommandRuns();
    void gettersOnAnotherThreadWhileCommandsRun();

private:
    void serviceDies() { h->props.set("ctl.stop", "psserver"); }
    std::unique_ptr<AdaptorHarness> h;
    std::thread m_stopper;
};

void tst_AdaptorThreads::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::LocalVideo);
}

void tst_AdaptorThreads::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_AdaptorThreads::recoveryLeavesTheEngineOfARunningCommand_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("engineCall");
    QTest::newRow("setMedia") << "setMedia" << "prepare";
    QTest::newRow("play") << "play" << "play";
    QTest::newRow("pause") << "pause" << "pause";
    QTest::newRow("stop") << "stop" << "getState";
    QTest::newRow("seek") << "seek" << "seekTo";
    QTest::newRow("rate") << "rate" << "setSpeed";
    QTest::newRow("audio stream") << "audio" << "changeStream";
    QTest::newRow("volume") << "volume" << "setStreamVolume";
}

// While a command is inside an engine call on the owner thread, a time update
// from another thread finds the service stopped: the recovery is left to a
// later tick and the engine in use stays. The next tick recovers.
void tst_AdaptorThreads::recoveryLeavesTheEngineOfARunningCommand()
{
    QFETCH(QString, command);
    QFETCH(QString, engineCall);
    // An audible engine, so that a volume change reaches it.
    h->alsoForNewPlayers([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 50); });
    h->start();
    if (command == "setMedia" || command == "audio") {
        h->d->setMedia(kMovie);
        if (command == "setMedia")
            h->d->stop();
    } else if (command == "play") {
        h->d->setMedia(kMovie);
    } else {
        h->openAndPlay(kMovie);
    }
    ScriptedPlayer *inUse = h->player();
    h->clear();

    int destroyedDuringCall = -1;
    bool sameEngineDuringCall = false;
    inUse->setHook(engineCall, [&] {
        if (destroyedDuringCall >= 0)
            return;
        serviceDies();
        runOnEngineThread([&] { h->session->timeUpdate(4321); });
        destroyedDuringCall = h->engine.destroyedPlayers();
        sameEngineDuringCall = h->d->mFilePlayer == inUse;
    });

    if (command == "setMedia")
        h->d->setMedia(kMovie);
    else if (command == "play")
        h->d->play();
    else if (command == "pause")
        h->d->pause();
    else if (command == "stop")
        h->d->stop();
    else if (command == "seek")
        h->d->seek(3000);
    else if (command == "rate")
        h->d->setPlaybackRate(2.0);
    else if (command == "audio")
        h->d->setAudioStream(1);
    else if (command == "volume")
        h->d->setVolume(33);

    QCOMPARE(destroyedDuringCall, 0);
    QVERIFY(sameEngineDuringCall);
    QCOMPARE(h->log->matching("checkServer\\("), QStringList());
    QCOMPARE(h->props.sets(), (QList<QPair<QByteArray, QByteArray>>{{"ctl.stop", "psserver"}}));

    // Nothing runs now: this tick restarts the service.
    h->session->timeUpdate(4321);
    QCOMPARE(h->engine.destroyedPlayers(), 1);
    QVERIFY(h->log->contains(watchdogLine("psserver is stopped,restart it!!! ")));
    // (The new engine may take the freed one's address: counted, not compared.)
    QCOMPARE(h->engine.createdPlayers(), 2);
}

// A slot that gives a time update from inside a command on the owner thread
// (the player lock is recursive there) does not recover under the command.
void tst_AdaptorThreads::recoveryFromASlotInsideACommandWaits()
{
    h->start();
    ScriptedPlayer *inUse = h->player();
    serviceDies();
    int destroyedInSlot = -1;
    const auto connection = QObject::connect(h->session.get(), &S::stateChanged, h->session.get(),
                                             [&](S::PlayerState state) {
        if (state != S::Player_Preparing || destroyedInSlot >= 0)
            return;
        h->session->timeUpdate(0);
        destroyedInSlot = h->engine.destroyedPlayers();
    }, Qt::DirectConnection);

    h->d->setMedia(kMovie);
    QObject::disconnect(connection);

    QCOMPARE(destroyedInSlot, 0);
    QCOMPARE(h->player(), inUse);
    QCOMPARE(h->session->state(), S::Player_Prepared);
    QCOMPARE(h->log->matching("checkServer\\("), QStringList());

    h->session->timeUpdate(0);
    QCOMPARE(h->engine.destroyedPlayers(), 1);
    QVERIFY(h->log->contains(watchdogLine("psserver is stopped,restart it!!! ")));
}

// Commands that follow each other could keep every tick from finding the
// player lock free: a stopped service that a tick had to leave is recovered
// by the command queue before its next command, on the owner thread.
void tst_AdaptorThreads::recoveryLeftByABusyTickRunsBeforeTheNextCommand()
{
    h->start();
    h->openAndPlay(kMovie);
    ScriptedPlayer *inUse = h->player();
    h->clear();
    bool ticked = false;
    inUse->setHook("seekTo", [&] {
        if (ticked)
            return;
        ticked = true;
        serviceDies();
        runOnEngineThread([&] { h->session->timeUpdate(2500); });
        h->session->manageActList(S::Msg_Position, QVariant(qlonglong(4000)));
    });

    h->session->manageActList(S::Msg_Position, QVariant(qlonglong(2000)));

    QVERIFY(ticked);
    QCOMPARE(h->engine.destroyedPlayers(), 1);
    QCOMPARE(h->engine.createdPlayers(), 2);
    const QStringList calls = h->transportCalls();
    // The first seek on the old engine; the restart (reopen, play, seek to the
    // tick's position); then the waiting command on the new engine.
    QCOMPARE(calls.first(), QStringLiteral("seekTo(2000)"));
    QCOMPARE(calls.last(), QStringLiteral("seekTo(4000)"));
    QVERIFY(calls.indexOf(QStringLiteral("SPPlayer::destroy")) < calls.indexOf(QStringLiteral("seekTo(2500)")));
    ORVIC_COMPARE_LINES(h->log->matching("checkServer\\("), QStringList({
        watchdogLine("psserver is stopped,restart it!!! "),
        watchdogLine("orignal state:5 pos:2500 "),
        watchdogLine("setMedia:/media/movie.mkv "),
        watchdogLine("play pos:2500 ")}));
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorThreads::readerKeepsTheEngineUntilItIsDone_data()
{
    QTest::addColumn<QString>("reader");
    QTest::addColumn<QString>("engineCall");
    QTest::addColumn<QVariant>("answer");
    QTest::newRow("position") << "position" << "getPosition" << QVariant(6000);
    QTest::newRow("duration") << "duration" << "getDuration" << QVariant(7000);
    // The rate is asked of the engine in trick play only.
    QTest::newRow("playbackRate") << "playbackRate" << "getSpeed" << QVariant(2.0);
}

// A reader on another thread is inside the engine when a recovery releases
// it: the engine is destroyed only after the reader has left it.
void tst_AdaptorThreads::readerKeepsTheEngineUntilItIsDone()
{
    QFETCH(QString, reader);
    QFETCH(QString, engineCall);
    QFETCH(QVariant, answer);
    h->start();
    h->openAndPlay(kMovie);
    if (reader == "playbackRate")
        h->d->setPlaybackRate(2.0);
    ScriptedPlayer *inUse = h->player();
    serviceDies();
    h->clear();

    std::atomic<bool> readerInside{false};
    std::atomic<bool> letReaderGo{false};
    inUse->setHook(engineCall, [&] {
        readerInside = true;
        waitUntil([&] { return letReaderGo.load(); });
        h->engine.recorder().record(QStringLiteral("reader leaves the engine"));
    });
    inUse->script().setDefault(engineCall, answer);

    QVariant read;
    std::thread readerThread([&] {
        if (reader == "position")
            read = h->session->position();
        else if (reader == "duration")
            read = h->session->duration();
        else
            read = double(h->session->playbackRate());
    });
    waitUntil([&] { return readerInside.load(); });

    // The recovery runs on a timer thread; it gets as far as stopping the
    // engine, then waits for the reader.
    std::thread timer([&] { h->session->timeUpdate(6000); });
    waitUntil([&] { return h->engine.recorder().count(QStringLiteral("stop")) > 0; });
    letReaderGo = true;
    readerThread.join();
    timer.join();

    QCOMPARE(read.toString(), answer.toString());
    const QStringList calls = h->engine.recorder().calls();
    const int left = calls.indexOf(QStringLiteral("reader leaves the engine"));
    const int destroyed = calls.indexOf(QStringLiteral("SPPlayer::destroy"));
    QVERIFY(left >= 0);
    QVERIFY2(destroyed > left, qPrintable(calls.join(QLatin1String(", "))));
    QCOMPARE(h->engine.destroyedPlayers(), 1);
    QCOMPARE(h->session->state(), S::Player_Play);
}

// A stuck engine is abandoned with its sink. When it wakes up later, on its
// own thread, its callbacks reach neither the session nor its stored values,
// also after the session has gone.
void tst_AdaptorThreads::abandonedEngineCallsBackAfterRecovery()
{
    h->start();
    h->openAndPlay(kMovie);
    ScriptedPlayer *stuck = h->player();
    playback::SPPlayer::CallBack *staleSink = stuck->callBack();
    // A first update saves the position, ten more without a move mean stuck.
    for (int i = 0; i < 11; ++i)
        h->session->timeUpdate(5000);
    QVERIFY(h->log->contains(watchdogLine("psserver is blocking,restart it!!! ")));
    QVERIFY(h->engine.livePlayers().contains(stuck));
    QVERIFY(h->player() != stuck);
    QCOMPARE(h->session->state(), S::Player_Play);
    h->d->setSubtitleOnOff(true);
    h->clear();
    const qint64 duration = h->d->mDuration;
    const bool seekable = h->session->isSeekable();

    char text[] = "late line";
    const auto wakeUp = [&] {
        runOnEngineThread([&] {
            staleSink->stateChanged(playback::SPPlayer::STATE_PLAYING);
            staleSink->durationChanged(99999);
            staleSink->seekableChanged(!seekable);
            staleSink->error(1032);
            staleSink->playbackFinish();
            staleSink->subtitleChanged(text, 1, int(sizeof text - 1));
            char resume[4224] = {};
            staleSink->resumeDataChanged(resume, int(sizeof resume));
        });
    };
    wakeUp();
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(qint64(h->d->mDuration), duration);
    QCOMPARE(h->session->isSeekable(), seekable);

    // The current engine's sink still works.
    runOnEngineThread([&] { h->player()->callBack()->durationChanged(4242); });
    QCOMPARE(h->signalTexts(), QStringList({"durationChanged(4242)"}));

    // And after the session is gone (under the sanitizers: no use of freed memory).
    h->recorder.reset();
    h->checker.reset();
    h->session.reset();
    wakeUp();
}

void tst_AdaptorThreads::stopDuringRecoveryIsNotUndone_data()
{
    QTest::addColumn<bool>("duringRelease");
    // The stop starts while the recovery releases the dead engine (before the
    // restart's init), or while it reopens the medium on the new engine.
    QTest::newRow("during the restart") << true;
    QTest::newRow("during the reopen") << false;
}

// A client's stop() (on another thread) that starts during a recovery wins:
// the recovery does not reopen, play or seek after it, and the session ends
// stopped.
void tst_AdaptorThreads::stopDuringRecoveryIsNotUndone()
{
    QFETCH(bool, duringRelease);
    h->start();
    h->openAndPlay(kMovie);
    h->session->timeUpdate(5000);
    serviceDies();
    if (duringRelease) {
        h->stopDuringEngineCall("stop");
    } else {
        h->alsoForNewPlayers([this](ScriptedPlayer *p) {
            QOrvicPlayerSession *target = h->session.get();
            QOrvicPlayerSessionPrivate *adaptor = h->d;
            std::thread *stopper = &m_stopper;
            p->setHook("prepare", [target, adaptor, stopper] {
                *stopper = std::thread([target] { target->stop(); });
                while (!adaptor->mIsStopping.loadAcquire())
                    QThread::yieldCurrentThread();
            });
        });
    }
    h->clear();

    h->session->timeUpdate(8000);
    h->joinStop();
    if (m_stopper.joinable())
        m_stopper.join();

    const QStringList calls = h->transportCalls();
    const int created = calls.indexOf(QStringLiteral("SPPlayer::create(Qspmediaplayer)"));
    QVERIFY(created >= 0);
    const QStringList afterRestart = calls.mid(created);
    QCOMPARE(afterRestart.count(QStringLiteral("play()")), 0);
    QCOMPARE(afterRestart.filter(QStringLiteral("seekTo(")), QStringList());
    QVERIFY(!h->log->contains(watchdogLine("play pos:8000 ")));
    QCOMPARE(h->log->contains(watchdogLine("setMedia:/media/movie.mkv ")), !duringRelease);
    QCOMPARE(h->session->state(), S::Player_Stop);
    QVERIFY(!h->d->mIsStopping.loadAcquire());
    QCOMPARE(h->recorder->texts(QStringList{"stateChanged"}).last(), QStringLiteral("stateChanged(2)"));
}

// A client slot on the owner thread queues a command while one runs: it waits
// in the list and is carried out right after, on the same thread.
void tst_AdaptorThreads::commandFromSlotOnOwnerThreadWhileCommandRuns()
{
    h->alsoForNewPlayers([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 50); });
    h->start();
    bool queued = false;
    QObject::connect(h->session.get(), &S::stateChanged, h->session.get(), [&](S::PlayerState state) {
        if (state == S::Player_Preparing && !queued) {
            queued = true;
            h->session->manageActList(S::Msg_Volume, QVariant(30));
        }
    }, Qt::DirectConnection);

    h->session->manageActList(S::Msg_SetMedia, QVariant(kMovie));

    QVERIFY(queued);
    QCOMPARE(h->transportCalls(), media::localOpenCalls(kMovie) + QStringList({"setStreamVolume(30)"}));
    QCOMPARE(h->signalTexts(), media::localOpenSignals() + QStringList({"volumeChanged(30)"}));
    QCOMPARE(h->log->count(QStringLiteral("D/OPSession manageActList(#):add list 6 ")), 1);
    QCOMPARE(h->d->mDispatchState.loadAcquire(), 0);
}

// An engine thread reports playing while a command runs; the client's slot,
// connected directly and so called on the engine thread, queues a command.
// It is carried out after the running one, on the owner thread.
void tst_AdaptorThreads::commandFromEngineThreadSlotWhileCommandRuns()
{
    h->alsoForNewPlayers([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 50); });
    h->start();
    h->d->setMedia(kMovie);
    h->clear();
    QThread *commandThread = nullptr;
    h->player()->setHook("setStreamVolume", [&] { commandThread = QThread::currentThread(); });
    QThread *slotThread = nullptr;
    QObject::connect(h->session.get(), &S::stateChanged, h->session.get(), [&](S::PlayerState state) {
        if (state == S::Player_Play && !slotThread) {
            slotThread = QThread::currentThread();
            h->session->manageActList(S::Msg_Volume, QVariant(45));
        }
    }, Qt::DirectConnection);
    h->player()->setHook("play", [&] {
        runOnEngineThread([&] { h->player()->callBack()->stateChanged(playback::SPPlayer::STATE_PLAYING); });
    });

    h->session->manageActList(S::Msg_Play, QVariant());

    QVERIFY(slotThread && slotThread != QThread::currentThread());
    QCOMPARE(commandThread, QThread::currentThread());
    QCOMPARE(h->transportCalls(), QStringList({"getSpeed()", "play()", "getDuration()", "setStreamVolume(45)"}));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(5)", "stateChanged(5)", "volumeChanged(45)"}));
    QCOMPARE(h->d->mDispatchState.loadAcquire(), 0);
}

// The getters that read stored values, on a thread of their own while
// commands on the owner thread and callbacks on an engine thread change those
// values. The reading thread takes no lock that the writers give up, so under
// ThreadSanitizer (scripts/test.sh --tsan) a value read or written without
// its atomic or its lock is reported whatever the interleaving. Everywhere:
// once the writers are done, the getters give what they left.
void tst_AdaptorThreads::gettersOnAnotherThreadWhileCommandsRun()
{
    h->alsoForNewPlayers([](ScriptedPlayer *p) { p->script().setDefault("getVolume", 50); });
    h->start();
    QOrvicPlayerSession *session = h->session.get();
    std::atomic<bool> writersDone{false};
    std::atomic<int> rounds{0};
    std::thread reader([session, &writersDone, &rounds] {
        // At least one round after the writers, so that every value is read
        // both while and after it is written.
        for (bool last = false; !last; rounds.fetch_add(1, std::memory_order_relaxed)) {
            last = writersDone.load(std::memory_order_relaxed);
            readStoredValues(*session);
        }
    });

    h->openAndPlay(kMovie);
    h->d->setVolume(33);
    h->d->setMuted(true);
    h->d->setAudioStream(1);
    runOnEngineThread([this] { h->player()->callBack()->seekableChanged(false); });
    h->d->pause();
    writersDone.store(true, std::memory_order_relaxed);
    reader.join();

    QVERIFY(rounds.load() >= 1);
    QCOMPARE(session->state(), S::Player_Pause);
    QCOMPARE(session->volume(), 33);
    QVERIFY(session->isMuted());
    QVERIFY(session->isVideoAvailable());
    QVERIFY(session->isAudioAvailable());
    QVERIFY(!session->isSeekable());
    QCOMPARE(session->availablePlaybackRanges(), QMediaTimeRange(0, session->duration()));
    QCOMPARE(session->getCurrentAudioStream(), 1);
}

QTEST_GUILESS_MAIN(tst_AdaptorThreads)
#include "tst_adaptorthreads.moc"
