// Watchdog of the playback service, fed by the session's time updates.
// Service polls are instant (pollSleep) and the shared stall counter starts
// at 0 in every test (the harness resets it).
#include "adaptorharness.h"

#include <QtTest/QtTest>

using namespace orvictest;
using S = QOrvicPlayerSession;
using Counter = QOrvicPlayerSessionPrivate;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");

// Engine calls of a service restart: release of a live engine, then a new one.
const QStringList kReleaseCalls = {"stop()", "SPPlayer::destroy", "SPMetaData::destroy"};
const QStringList kCreateCalls = {"SPPlayer::create(Qspmediaplayer)", "getVolume()",
                                  "SPMetaData::create(SpMetadata,default)"};

QString line(const char *text)
{
    return QStringLiteral("D/OPSession checkServer(#):checkServer: ") + QLatin1String(text);
}
} // namespace

class tst_AdaptorWatchdog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void notPlaying_data();
    void notPlaying();
    void movingPositions();
    void stallCount_data();
    void stallCount();
    void stuckServiceRecovery();
    void stoppedServiceWhilePlaying();
    void stoppedServiceStalledOnTheTenthUpdate();
    void stoppedServiceByState_data();
    void stoppedServiceByState();
    void pausedSessionRestoredPaused();
    void secondFailureSameUrl();
    void twoSessionsShareTheCounter_data();
    void twoSessionsShareTheCounter();
    void trickPlayRecoveryResumesAtNormalSpeed();
    void propertyReadFailure();

private:
    // The service goes down behind the session's back.
    void serviceDies() { h->props.set("ctl.stop", "psserver"); }
    int restarts() const;
    std::unique_ptr<AdaptorHarness> h;
};

void tst_AdaptorWatchdog::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::LocalVideo);
    QCOMPARE(Counter::stallCounter.loadAcquire(), 0);
}

void tst_AdaptorWatchdog::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

int tst_AdaptorWatchdog::restarts() const
{
    return h->props.sets().count(qMakePair(QByteArray("ctl.stop"), QByteArray("psserver")));
}

void tst_AdaptorWatchdog::notPlaying_data()
{
    QTest::addColumn<int>("state");
    for (int s : {S::Player_Idle, S::Player_Initialized, S::Player_Stop, S::Player_Preparing,
                  S::Player_Prepared, S::Player_Pause})
        QTest::addRow("state %d", s) << s;
}

void tst_AdaptorWatchdog::notPlaying()
{
    QFETCH(int, state);
    h->start();
    h->openIn(kMovie, S::PlayerState(state));

    for (int i = 0; i < 25; ++i)
        h->session->timeUpdate(5000);

    QCOMPARE(restarts(), 0);
    QCOMPARE(Counter::stallCounter.loadAcquire(), 0);
    QCOMPARE(h->d->mSavedPosition, qint64(0));
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->sessionLog(), QStringList());
    QCOMPARE(h->props.getCount("init.svc.psserver"), 25);
}

void tst_AdaptorWatchdog::movingPositions()
{
    h->start();
    h->openAndPlay(kMovie);
    h->clear();

    for (int i = 1; i <= 30; ++i) {
        h->session->timeUpdate(1000 * i);
        QCOMPARE(Counter::stallCounter.loadAcquire(), 0);
    }

    QCOMPARE(restarts(), 0);
    QCOMPARE(h->d->mSavedPosition, qint64(30000));
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->sessionLog(), QStringList());
}

void tst_AdaptorWatchdog::stallCount_data()
{
    QTest::addColumn<QList<qint64>>("positions");
    QTest::addColumn<int>("restartAt");     // index of the update that restarts, -1 none
    QTest::addColumn<int>("counterAfter");

    auto repeat = [](qint64 p, int n) { return QList<qint64>(QVector<qint64>(n, p).toList()); };
    QTest::newRow("ten unchanged from the start") << repeat(0, 10) << 9 << 0;
    QTest::newRow("nine unchanged from the start") << repeat(0, 9) << -1 << 9;
    QTest::newRow("ten unchanged after a move") << (QList<qint64>{5000} + repeat(5000, 10)) << 10 << 0;
    QTest::newRow("nine unchanged then a change")
        << (QList<qint64>{5000} + repeat(5000, 9) + QList<qint64>{6000}) << -1 << 0;
    QTest::newRow("nine, a change, nine") << (QList<qint64>{5000} + repeat(5000, 9) + repeat(6000, 10)) << -1 << 9;
    QTest::newRow("nine, a change, ten") << (QList<qint64>{5000} + repeat(5000, 9) + repeat(6000, 11)) << 20 << 0;
    QTest::newRow("going back counts as a move") << QList<qint64>{5000, 5000, 4000, 4000, 5000} << -1 << 0;
}

void tst_AdaptorWatchdog::stallCount()
{
    QFETCH(QList<qint64>, positions);
    QFETCH(int, restartAt);
    QFETCH(int, counterAfter);
    h->start();
    h->openAndPlay(kMovie);
    h->clear();

    int restartedAt = -1;
    for (int i = 0; i < positions.size(); ++i) {
        h->session->timeUpdate(positions.at(i));
        if (restartedAt < 0 && restarts() > 0)
            restartedAt = i;
    }

    QCOMPARE(restartedAt, restartAt);
    QCOMPARE(restarts(), restartAt < 0 ? 0 : 1);
    QCOMPARE(Counter::stallCounter.loadAcquire(), counterAfter);
    QCOMPARE(h->log->count(line("psserver is blocking,restart it!!! ")), restartAt < 0 ? 0 : 1);
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorWatchdog::stuckServiceRecovery()
{
    h->start();
    h->openAndPlay(kMovie);
    ScriptedPlayer *stuck = h->player();
    h->session->timeUpdate(5000);
    for (int i = 0; i < 9; ++i)
        h->session->timeUpdate(5000);
    QCOMPARE(Counter::stallCounter.loadAcquire(), 9);
    h->clear();

    h->session->timeUpdate(5000);

    // The stuck engine is not called at all: no stop, no destroy.
    QCOMPARE(h->transportCalls(), kCreateCalls + media::localOpenCalls(kMovie)
                                      + QStringList({"getSpeed()", "play()", "getDuration()", "seekTo(5000)"}));
    QCOMPARE(h->engine.createdPlayers(), 2);
    QCOMPARE(h->engine.destroyedPlayers(), 0);
    QVERIFY(h->engine.livePlayers().contains(stuck));
    QVERIFY(h->player() != stuck);
    QCOMPARE(h->props.sets(), (QList<QPair<QByteArray, QByteArray>>{{"ctl.stop", "psserver"}, {"ctl.start", "psserver"}}));

    QCOMPARE(h->signalTexts(), media::availabilityDropped() + QStringList({"stateChanged(1)"}) + media::localOpenSignals() + QStringList({"stateChanged(5)"}));
    ORVIC_COMPARE_LINES(h->log->matching("checkServer\\("), QStringList({
        line("psserver is blocking,restart it!!! "),
        line("orignal state:5 pos:5000 "),
        line("setMedia:/media/movie.mkv "),
        line("play pos:5000 "),
    }));
    QCOMPARE(Counter::stallCounter.loadAcquire(), 0);
    QCOMPARE(h->d->mWatchdogUrl, kMovie);
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorWatchdog::stoppedServiceWhilePlaying()
{
    h->start();
    h->openAndPlay(kMovie);
    h->session->timeUpdate(5000);
    serviceDies();
    h->clear();

    h->session->timeUpdate(8000);

    // A stopped (not stuck) service: the engine is released normally.
    QCOMPARE(h->transportCalls(), kReleaseCalls + kCreateCalls + media::localOpenCalls(kMovie)
                                      + QStringList({"getSpeed()", "play()", "getDuration()", "seekTo(8000)"}));
    QCOMPARE(h->engine.destroyedPlayers(), 1);
    QCOMPARE(h->signalTexts(), media::availabilityDropped() + QStringList({"stateChanged(1)"}) + media::localOpenSignals() + QStringList({"stateChanged(5)"}));
    ORVIC_COMPARE_LINES(h->log->matching("checkServer\\("), QStringList({
        line("psserver is stopped,restart it!!! "),
        line("orignal state:5 pos:8000 "),
        line("setMedia:/media/movie.mkv "),
        line("play pos:8000 "),
    }));
    QCOMPARE(h->props.sets(), (QList<QPair<QByteArray, QByteArray>>{{"ctl.stop", "psserver"}, {"ctl.start", "psserver"}}));
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorWatchdog::stoppedServiceStalledOnTheTenthUpdate()
{
    h->start();
    h->openAndPlay(kMovie);
    ScriptedPlayer *stuck = h->player();
    h->session->timeUpdate(5000);
    for (int i = 0; i < 9; ++i)
        h->session->timeUpdate(5000);
    serviceDies();
    h->clear();

    h->session->timeUpdate(5000);

    ORVIC_COMPARE_LINES(h->log->matching("checkServer\\("), QStringList({
        line("psserver is stopped,restart it!!! "),
        line("psserver is blocking,restart it!!! "),
        line("orignal state:5 pos:5000 "),
        line("setMedia:/media/movie.mkv "),
        line("play pos:5000 "),
    }));
    QCOMPARE(h->engine.destroyedPlayers(), 0);
    QVERIFY(h->engine.livePlayers().contains(stuck));
    QCOMPARE(h->transportCalls().mid(0, 3), kCreateCalls);
    QCOMPARE(Counter::stallCounter.loadAcquire(), 0);
}

void tst_AdaptorWatchdog::stoppedServiceByState_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<bool>("opened");
    QTest::addColumn<bool>("reopens");
    QTest::addColumn<bool>("plays");
    QTest::addColumn<bool>("pauses");
    QTest::addColumn<int>("finalState");

    QTest::newRow("Initialized, nothing opened") << int(S::Player_Initialized) << false << false << false << false
                                                 << int(S::Player_Initialized);
    QTest::newRow("Stop") << int(S::Player_Stop) << true << false << false << false << int(S::Player_Initialized);
    QTest::newRow("Preparing") << int(S::Player_Preparing) << true << true << false << false << int(S::Player_Prepared);
    QTest::newRow("Prepared") << int(S::Player_Prepared) << true << true << false << false << int(S::Player_Prepared);
    QTest::newRow("Play") << int(S::Player_Play) << true << true << true << false << int(S::Player_Play);
    QTest::newRow("FF") << int(S::Player_FF) << true << true << true << false << int(S::Player_Play);
    QTest::newRow("FB") << int(S::Player_FB) << true << true << true << false << int(S::Player_Play);
    QTest::newRow("SF") << int(S::Player_SF) << true << true << true << false << int(S::Player_Play);
    QTest::newRow("SB") << int(S::Player_SB) << true << true << true << false << int(S::Player_Play);
    QTest::newRow("Pause") << int(S::Player_Pause) << true << true << true << true << int(S::Player_Pause);
}

void tst_AdaptorWatchdog::stoppedServiceByState()
{
    QFETCH(int, state);
    QFETCH(bool, opened);
    QFETCH(bool, reopens);
    QFETCH(bool, plays);
    QFETCH(bool, pauses);
    QFETCH(int, finalState);
    h->start();
    if (opened)
        h->openIn(kMovie, S::PlayerState(state));
    h->d->mSavedPosition = 3000;
    serviceDies();
    h->clear();

    h->session->timeUpdate(3000);

    QStringList calls = kReleaseCalls + kCreateCalls;
    // An opened medium's streams go with the engine.
    QStringList signalsExpected = opened ? media::availabilityDropped() : QStringList();
    signalsExpected << "stateChanged(1)";
    QStringList lines = {line("psserver is stopped,restart it!!! "),
                         line("orignal state:%1 pos:3000 ").arg(state)};
    if (!opened)
        lines << line("already block once: ");   // no URL is the same URL as no watchdog URL
    if (reopens) {
        calls += media::localOpenCalls(kMovie);
        signalsExpected += media::localOpenSignals();
        lines << line("setMedia:/media/movie.mkv ");
    }
    if (plays) {
        calls << "getSpeed()" << "play()" << "getDuration()" << "seekTo(3000)";
        signalsExpected << "stateChanged(5)";
        lines << line("play pos:3000 ");
    }
    if (pauses) {
        calls << "getSpeed()" << "pause()" << "getPosition()";
        signalsExpected << "stateChanged(10)" << "positionChanged(0)";
        lines << line("pause ");
    }
    QCOMPARE(h->transportCalls(), calls);
    QCOMPARE(h->signalTexts(), signalsExpected);
    ORVIC_COMPARE_LINES(h->log->matching("checkServer\\("), lines);
    QCOMPARE(int(h->session->state()), finalState);
    QCOMPARE(h->d->mWatchdogUrl, reopens ? kMovie : QString());
    QCOMPARE(restarts(), 1);
}

void tst_AdaptorWatchdog::pausedSessionRestoredPaused()
{
    h->start();
    h->openAndPlay(kMovie);
    h->session->timeUpdate(7000);
    h->d->pause();
    QCOMPARE(h->session->state(), S::Player_Pause);
    h->clear();

    // Paused: no stall detection however long the position stands still.
    for (int i = 0; i < 30; ++i)
        h->session->timeUpdate(7000);
    QCOMPARE(restarts(), 0);
    QCOMPARE(Counter::stallCounter.loadAcquire(), 0);

    // A stopped service is restarted and the medium paused again where it was.
    serviceDies();
    h->clear();
    h->session->timeUpdate(7000);

    QCOMPARE(h->transportCalls(), kReleaseCalls + kCreateCalls + media::localOpenCalls(kMovie)
                                      + QStringList({"getSpeed()", "play()", "getDuration()", "seekTo(7000)",
                                                     "getSpeed()", "pause()", "getPosition()"}));
    QCOMPARE(h->signalTexts(), media::availabilityDropped() + QStringList({"stateChanged(1)"}) + media::localOpenSignals()
                                   + QStringList({"stateChanged(5)", "stateChanged(10)", "positionChanged(0)"}));
    ORVIC_COMPARE_LINES(h->log->matching("checkServer\\("), QStringList({
        line("psserver is stopped,restart it!!! "),
        line("orignal state:10 pos:7000 "),
        line("setMedia:/media/movie.mkv "),
        line("play pos:7000 "),
        line("pause "),
    }));
    QCOMPARE(h->session->state(), S::Player_Pause);
}

void tst_AdaptorWatchdog::secondFailureSameUrl()
{
    h->start();
    h->openAndPlay(kMovie);
    serviceDies();
    h->session->timeUpdate(1000);
    QCOMPARE(h->session->state(), S::Player_Play);
    QCOMPARE(h->d->mWatchdogUrl, kMovie);

    // The same medium brings the service down again: restart only.
    serviceDies();
    h->clear();
    h->session->timeUpdate(2000);

    QCOMPARE(h->transportCalls(), kReleaseCalls + kCreateCalls);
    QCOMPARE(h->signalTexts(), media::availabilityDropped() + QStringList({"stateChanged(1)"}));
    ORVIC_COMPARE_LINES(h->log->matching("checkServer\\("), QStringList({
        line("psserver is stopped,restart it!!! "),
        line("orignal state:5 pos:2000 "),
        line("already block once:/media/movie.mkv "),
    }));
    QCOMPARE(h->session->state(), S::Player_Initialized);

    // A later failure with nothing reopened: still the same URL, still only a restart.
    serviceDies();
    h->clear();
    h->session->timeUpdate(2000);
    QVERIFY(h->log->contains(line("already block once:/media/movie.mkv ")));
    QCOMPARE(h->session->state(), S::Player_Initialized);

    // stop() forgets the medium that failed; the next failure reopens again.
    h->session->stop();
    QVERIFY(h->d->mWatchdogUrl.isEmpty());
    h->d->play();
    QCOMPARE(h->session->state(), S::Player_Play);
    serviceDies();
    h->clear();
    h->session->timeUpdate(3000);
    QVERIFY(!h->log->contains(line("already block once:/media/movie.mkv ")));
    QVERIFY(h->log->containsInOrder({line("setMedia:/media/movie.mkv "), line("play pos:3000 ")}));
    QCOMPARE(h->session->state(), S::Player_Play);
    QCOMPARE(h->d->mWatchdogUrl, kMovie);
}

void tst_AdaptorWatchdog::twoSessionsShareTheCounter_data()
{
    QTest::addColumn<bool>("firstMoves");
    QTest::addColumn<int>("restartAt");   // update (counted over both sessions) that restarts the second, -1 none
    QTest::newRow("both stalled") << false << 9;
    QTest::newRow("first moving") << true << -1;
}

void tst_AdaptorWatchdog::twoSessionsShareTheCounter()
{
    QFETCH(bool, firstMoves);
    QFETCH(int, restartAt);
    h->start();
    QOrvicPlayerSession *second = h->addSession();
    QOrvicPlayerSessionPrivate *d2 = QOrvicPlayerSessionPrivate::get(second);
    SessionRecorder recorder2(second);
    StateTransitionChecker checker2(second);
    h->openAndPlay(kMovie);
    d2->setMedia(QStringLiteral("/media/other.mkv"));
    d2->play();
    h->session->timeUpdate(100);
    second->timeUpdate(200);
    QCOMPARE(Counter::stallCounter.loadAcquire(), 0);
    h->clear();
    recorder2.clear();

    // Updates alternate between the sessions; each unchanged one counts on the
    // one process-wide counter, so the second session's fifth is the tenth.
    int restartedAt = -1;
    for (int i = 0; i < 40 && restartedAt < 0; ++i) {
        if (i % 2 == 0)
            h->session->timeUpdate(firstMoves ? 101 + i : 100);
        else
            second->timeUpdate(200);
        if (restarts() > 0)
            restartedAt = i;
    }

    QCOMPARE(restartedAt, restartAt);
    QCOMPARE(h->signalTexts(), QStringList());   // the first session was never restarted
    QCOMPARE(h->session->state(), S::Player_Play);
    if (restartAt >= 0) {
        QCOMPARE(recorder2.texts().mid(0, 3), media::availabilityDropped() + QStringList({"stateChanged(1)"}));
        QCOMPARE(recorder2.texts().last(), QStringLiteral("stateChanged(5)"));
        QCOMPARE(d2->mWatchdogUrl, QStringLiteral("/media/other.mkv"));
        QCOMPARE(h->log->count(line("psserver is blocking,restart it!!! ")), 1);
        QVERIFY(h->log->contains(line("orignal state:5 pos:200 ")));
    } else {
        QCOMPARE(recorder2.texts(), QStringList());
        QCOMPARE(Counter::stallCounter.loadAcquire(), 1);
    }
    QCOMPARE(second->state(), S::Player_Play);
    QCOMPARE(checker2.violations(), QStringList());
}

void tst_AdaptorWatchdog::trickPlayRecoveryResumesAtNormalSpeed()
{
    h->start();
    h->openAndPlay(kMovie);
    h->d->setPlaybackRate(2.0);
    h->player()->script().setDefault("getSpeed", 2.0);
    QCOMPARE(h->session->state(), S::Player_FF);
    QCOMPARE(h->session->playbackRate(), 2.0f);
    h->session->timeUpdate(5000);
    for (int i = 0; i < 9; ++i)
        h->session->timeUpdate(5000);
    h->clear();

    h->session->timeUpdate(5000);

    // The new engine plays at its normal speed; the trick speed is not restored.
    QCOMPARE(h->transportCalls(), kCreateCalls + media::localOpenCalls(kMovie)
                                      + QStringList({"getSpeed()", "play()", "getDuration()", "seekTo(5000)"}));
    QCOMPARE(h->engine.recorder().count("setSpeed"), 0);
    QVERIFY(h->log->contains(line("orignal state:6 pos:5000 ")));
    QCOMPARE(h->signalTexts(), media::availabilityDropped() + QStringList({"stateChanged(1)"}) + media::localOpenSignals() + QStringList({"stateChanged(5)"}));
    QCOMPARE(h->session->state(), S::Player_Play);
    QCOMPARE(h->session->playbackRate(), 1.0f);
    QCOMPARE(h->d->mPlaybackRate, 1.0f);
}

void tst_AdaptorWatchdog::propertyReadFailure()
{
    h->start();
    h->openAndPlay(kMovie);
    h->d->pause();
    h->props.scriptGet("init.svc.psserver", QList<ScriptedPropertyService::Answer>{{-1, QByteArray()}});
    h->clear();

    h->session->timeUpdate(1000);

    // An unreadable status counts as a running service.
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession checkServer(#):property_get error "}));
    QCOMPARE(restarts(), 0);
    QCOMPARE(h->signalTexts(), QStringList());
}

QTEST_GUILESS_MAIN(tst_AdaptorWatchdog)
#include "tst_adaptorwatchdog.moc"
