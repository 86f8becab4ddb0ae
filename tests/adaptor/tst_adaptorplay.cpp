// Transport control, play(): the states it plays from, what it refuses, the
// trick play it leaves, a stopped medium reopened, engine failures and a stop
// that overtakes it. The other transport operations are in tst_adaptortransport.
#include "adaptorharness.h"

#include <QtTest/QtTest>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");
} // namespace

class tst_AdaptorPlay : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void playFromPrepared();
    void playAllowedStates_data();
    void playAllowedStates();
    void playRefused_data();
    void playRefused();
    void playLeavesTrickPlay_data();
    void playLeavesTrickPlay();
    void playReopensStoppedMedium();
    void playReopenFails();
    void playFailure();
    void playMetadataOnly();
    void playWithoutEngine();
    void playGivesWayToStop();
    void playStoppedDuringEnginePlay();

private:
    std::unique_ptr<AdaptorHarness> h;
};

void tst_AdaptorPlay::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::LocalVideo);
}

void tst_AdaptorPlay::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_AdaptorPlay::playFromPrepared()
{
    h->start();
    h->d->setMedia(kMovie);
    h->clear();

    h->d->play();

    QCOMPARE(h->transportCalls(), QStringList({"getSpeed()", "play()", "getDuration()"}));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(5)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession play(#) called",
        "D/OPSession play(#):pe play return value 0",
        "D/OPSession setState(#):emit state 5",
    }));
    QCOMPARE(h->session->state(), S::Player_Play);
    QCOMPARE(h->session->availablePlaybackRanges(), QMediaTimeRange(0, 120000));
}

void tst_AdaptorPlay::playAllowedStates_data()
{
    QTest::addColumn<int>("state");
    QTest::newRow("Prepared") << int(S::Player_Prepared);
    QTest::newRow("FF") << int(S::Player_FF);
    QTest::newRow("FB") << int(S::Player_FB);
    QTest::newRow("SF") << int(S::Player_SF);
    QTest::newRow("SB") << int(S::Player_SB);
    QTest::newRow("Pause") << int(S::Player_Pause);
}

void tst_AdaptorPlay::playAllowedStates()
{
    QFETCH(int, state);
    h->start();
    h->openIn(kMovie, S::PlayerState(state));

    h->d->play();

    QCOMPARE(h->transportCalls(), QStringList({"getSpeed()", "play()", "getDuration()"}));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(5)"}));
}

void tst_AdaptorPlay::playRefused_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<bool>("withUrl");
    QTest::newRow("Idle") << int(S::Player_Idle) << true;
    QTest::newRow("Initialized") << int(S::Player_Initialized) << true;
    QTest::newRow("Preparing") << int(S::Player_Preparing) << true;
    QTest::newRow("Play") << int(S::Player_Play) << true;
    QTest::newRow("Stop without URL") << int(S::Player_Stop) << false;
}

void tst_AdaptorPlay::playRefused()
{
    QFETCH(int, state);
    QFETCH(bool, withUrl);
    h->start();
    h->openIn(kMovie, S::PlayerState(state));
    if (!withUrl)
        h->d->mCurrentUrl.clear();

    h->d->play();

    // The state is re-announced; the engine is not asked.
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->signalTexts(), QStringList({QStringLiteral("stateChanged(%1)").arg(state)}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession play(#) called",
        QStringLiteral("E/OPSession play(#):can't play,state error %1").arg(state),
        QStringLiteral("D/OPSession setState(#):emit state %1").arg(state),
    }));
    QCOMPARE(int(h->session->state()), state);
}

void tst_AdaptorPlay::playLeavesTrickPlay_data()
{
    QTest::addColumn<double>("rate");
    QTest::addColumn<int>("trickState");
    QTest::addColumn<QString>("speedLine");
    QTest::newRow("fast forward") << 2.0 << int(S::Player_FF) << "D/OPSession play(#):tmpSpeed 2.000000";
    QTest::newRow("fast backward") << -2.0 << int(S::Player_FB) << "D/OPSession play(#):tmpSpeed -2.000000";
    QTest::newRow("slow forward") << 0.5 << int(S::Player_SF) << "D/OPSession play(#):tmpSpeed 0.500000";
}

void tst_AdaptorPlay::playLeavesTrickPlay()
{
    QFETCH(double, rate);
    QFETCH(int, trickState);
    QFETCH(QString, speedLine);
    h->start();
    h->openAndPlay(kMovie);
    h->d->setPlaybackRate(rate);
    QCOMPARE(int(h->session->state()), trickState);
    h->player()->script().setDefault("getSpeed", rate);
    h->clear();

    h->d->play();

    // Back to speed 1.0 only: the engine keeps playing, its play() is not called.
    QCOMPARE(h->engine.recorder().calls(), QStringList({"getSpeed()", "setSpeed(1)"}));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(5)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession play(#) called",
        speedLine,
        "D/OPSession play(#):set temp speed 1.0 0",
        "D/OPSession setState(#):emit state 5",
    }));
    // The stored rate is left as the trick play set it; no rate is announced.
    QCOMPARE(h->d->mPlaybackRate, float(rate));
}

void tst_AdaptorPlay::playReopensStoppedMedium()
{
    h->start();
    h->openAndPlay(kMovie);
    h->d->stop();
    QCOMPARE(h->session->state(), S::Player_Stop);
    h->clear();

    h->d->play();

    QCOMPARE(h->transportCalls(), media::localOpenCalls(kMovie) + QStringList({"getSpeed()", "play()", "getDuration()"}));
    // The reopen lets the streams go and finds them again.
    QCOMPARE(h->signalTexts(), media::availabilityDropped() + media::localOpenSignals() + QStringList({"stateChanged(5)"}));
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorPlay::playReopenFails()
{
    h->start();
    h->openAndPlay(kMovie);
    h->d->stop();
    h->player()->script().push("setUrl", -1);
    h->clear();

    h->d->play();

    QCOMPARE(h->signalTexts(), media::availabilityDropped()
                                   + QStringList({"error(2,video format not support)", "stateChanged(2)"}));
    QVERIFY(h->log->containsInOrder({"E/OPSession setMedia(#):open file fail -1",
                                     "E/OPSession play(#):can't play,state error 2"}));
    QCOMPARE(h->engine.recorder().count("play"), 0);
}

void tst_AdaptorPlay::playFailure()
{
    h->start();
    h->d->setMedia(kMovie);
    h->player()->script().push("play", -1);
    h->clear();

    h->d->play();

    // The state is re-announced, then Player_Stop is stored silently.
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(4)", "error(1,video format not support)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession play(#) called",
        "D/OPSession play(#):pe play return value -1",
        "E/OPSession play(#):pe play fail -1",
        "D/OPSession setState(#):emit state 4",
    }));
    QCOMPARE(h->session->state(), S::Player_Stop);
    QVERIFY(h->d->mCurrentUrl.isEmpty());
    QCOMPARE(h->session->availablePlaybackRanges(), QMediaTimeRange());
}

void tst_AdaptorPlay::playMetadataOnly()
{
    h->start(QMediaPlayer::MetaDataOnly);
    h->d->setMedia(kMovie);
    h->clear();

    h->d->play();

    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->signalTexts(), QStringList({"error(1,onlymetadata flag not support play)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession play(#) called",
        "E/OPSession play(#):FLags is only metadata,not support play ",
    }));
    QCOMPARE(h->session->state(), S::Player_Prepared);
}

void tst_AdaptorPlay::playWithoutEngine()
{
    h->start();
    h->d->release();
    h->clear();

    h->d->play();

    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession play(#) called",
                                                    "D/OPSession play(#):mFilePlayer is null"}));
}

void tst_AdaptorPlay::playGivesWayToStop()
{
    h->start();
    h->openIn(kMovie, S::Player_Prepared);
    h->d->mIsStopping.storeRelease(true);

    h->d->play();
    h->d->mIsStopping.storeRelease(false);

    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession play(#) called",
                                                    "D/OPSession play(#):stop process is doing"}));
}

void tst_AdaptorPlay::playStoppedDuringEnginePlay()
{
    h->start();
    h->openIn(kMovie, S::Player_Prepared);
    ScriptedPlayer *player = h->player();
    player->script().setDefault("getState", int(playback::SPPlayer::STATE_PLAYING));
    QOrvicPlayerSessionPrivate *d = h->d;
    QOrvicPlayerSession *session = h->session.get();
    h->stopDuringEngineCall("play");

    d->play();
    h->joinStop();

    // Player_Play is not announced over the running stop.
    QVERIFY(h->log->containsInOrder({"D/OPSession play(#):pe play return value 0",
                                     "D/OPSession play(#):stop process is doing or done"}));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "mediaMessageChanged(0,100)", "stateChanged(2)"}));
    QCOMPARE(h->engine.recorder().calls(),
             QStringList({"getSpeed()", "play()", "getState()", "stop()", "reset()"}));
    QCOMPARE(session->state(), S::Player_Stop);
}

QTEST_GUILESS_MAIN(tst_AdaptorPlay)
#include "tst_adaptorplay.moc"
