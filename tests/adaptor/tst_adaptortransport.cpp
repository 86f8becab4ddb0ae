// Transport control: pause, stop, seek, setPlaybackRate and the readers
// (play() is in tst_adaptorplay).
#include "adaptorharness.h"

#include <QtCore/QThread>
#include <QtCore/qnumeric.h>
#include <QtTest/QtTest>

#include <thread>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");
const QString kStream = QStringLiteral("http://host/live.ts");
} // namespace

class tst_AdaptorTransport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void pauseSpeedTolerance_data();
    void pauseSpeedTolerance();
    void pauseFailure();
    void pauseWithoutEngine();

    void stop_data();
    void stop();
    void stopWithoutEngine();

    void seek_data();
    void seek();
    void seekWithoutEngine();

    void setPlaybackRate_data();
    void setPlaybackRate();
    void setPlaybackRateEngineRefuses();
    void setPlaybackRateRestartsPausedStream_data();
    void setPlaybackRateRestartsPausedStream();
    void setPlaybackRateWithoutEngine();

    void readers_data();
    void readers();
    void readersWithoutEngine();
    void resumePlay();

    void transportThroughCommandQueue();

private:
    std::unique_ptr<AdaptorHarness> h;
};

void tst_AdaptorTransport::init()
{
    h.reset(new AdaptorHarness);
    h->useMedium(Medium::LocalVideo);
}

void tst_AdaptorTransport::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_AdaptorTransport::pauseSpeedTolerance_data()
{
    QTest::addColumn<double>("speed");
    QTest::addColumn<QString>("speedText");
    QTest::addColumn<bool>("pauses");
    QTest::newRow("1.0") << 1.0 << "1.000000" << true;
    QTest::newRow("1.00005") << 1.00005 << "1.000050" << true;
    QTest::newRow("0.99995") << 0.99995 << "0.999950" << true;
    QTest::newRow("1.0001 (edge)") << 1.0001 << "1.000100" << true;
    QTest::newRow("0.9999 (edge)") << 0.9999 << "0.999900" << true;
    QTest::newRow("1.00011") << 1.00011 << "1.000110" << false;
    QTest::newRow("0.99989") << 0.99989 << "0.999890" << false;
    QTest::newRow("1.5") << 1.5 << "1.500000" << false;
    QTest::newRow("-1.0") << -1.0 << "-1.000000" << false;
    QTest::newRow("NaN") << qQNaN() << "nan" << false;
}

void tst_AdaptorTransport::pauseSpeedTolerance()
{
    QFETCH(double, speed);
    QFETCH(QString, speedText);
    QFETCH(bool, pauses);
    h->start();
    h->openAndPlay(kMovie);
    h->player()->script().setDefault("getSpeed", speed);
    h->player()->script().setDefault("getPosition", 4200);
    h->clear();

    h->d->pause();

    const QString speedLine = "D/OPSession pause(#):the playbackrate: " + speedText;
    if (pauses) {
        QCOMPARE(h->engine.recorder().calls(), QStringList({"getSpeed()", "pause()", "getPosition()"}));
        QCOMPARE(h->signalTexts(), QStringList({"stateChanged(10)", "positionChanged(4200)"}));
        ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
            "V/OPSession pause(#) called",
            speedLine,
            "D/OPSession pause(#):pe play return value 0",
            "D/OPSession setState(#):emit state 10",
            "D/OPSession pause(#):pe postition 4200",
        }));
        QCOMPARE(h->session->state(), S::Player_Pause);
    } else {
        // Trick play: nothing is done and nothing reported.
        QCOMPARE(h->engine.recorder().calls(), QStringList({"getSpeed()"}));
        QCOMPARE(h->signalTexts(), QStringList());
        ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession pause(#) called", speedLine}));
        QCOMPARE(h->session->state(), S::Player_Play);
    }
}

void tst_AdaptorTransport::pauseFailure()
{
    h->start();
    h->openAndPlay(kMovie);
    h->player()->script().push("pause", -7);
    h->player()->script().setDefault("getPosition", 4200);
    h->clear();

    h->d->pause();

    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(5)", "positionChanged(4200)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession pause(#) called",
        "D/OPSession pause(#):the playbackrate: 1.000000",
        "D/OPSession pause(#):pe play return value -7",
        "E/OPSession pause(#):pe pause fail -7",
        "D/OPSession setState(#):emit state 5",
        "D/OPSession pause(#):pe postition 4200",
    }));
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorTransport::pauseWithoutEngine()
{
    h->start();
    h->d->release();
    h->clear();

    h->d->pause();

    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession pause(#) called",
                                                    "D/OPSession pause(#):mFilePlayer is null"}));
}

void tst_AdaptorTransport::stop_data()
{
    QTest::addColumn<int>("engineState");
    QTest::addColumn<bool>("stopsEngine");
    for (int s = playback::SPPlayer::STATE_IDLE; s <= playback::SPPlayer::STATE_ERROR; ++s)
        QTest::addRow("engine state %d", s) << s << (s > playback::SPPlayer::STATE_INITIALIZED);
}

void tst_AdaptorTransport::stop()
{
    QFETCH(int, engineState);
    QFETCH(bool, stopsEngine);
    h->start();
    h->openAndPlay(kMovie);
    h->d->mWatchdogUrl = kMovie;
    h->player()->script().setDefault("getState", engineState);
    h->clear();

    h->d->stop();

    QStringList calls = {"getState()"};
    QStringList signalsExpected = {"stateChanged(3)"};
    QStringList lines = {"V/OPSession stop(#) called", "D/OPSession setState(#):emit state 3",
                         QStringLiteral("D/OPSession stop(#):dCurrentState %1").arg(engineState)};
    if (stopsEngine) {
        calls << "stop()" << "reset()";
        signalsExpected << "mediaMessageChanged(0,100)";
        lines << "D/OPSession stop(#):pe stop return value 0" << "D/OPSession stop(#):pe reset return value 0";
    }
    signalsExpected << "stateChanged(2)";
    lines << "D/OPSession setState(#):emit state 2";
    QCOMPARE(h->engine.recorder().calls(), calls);
    QCOMPARE(h->signalTexts(), signalsExpected);
    ORVIC_COMPARE_LINES(h->sessionLog(), lines);
    QCOMPARE(h->session->state(), S::Player_Stop);
    QVERIFY(h->d->mWatchdogUrl.isEmpty());
    // The medium stays known, so play() can open it again.
    QCOMPARE(h->d->mCurrentUrl, kMovie);
}

void tst_AdaptorTransport::stopWithoutEngine()
{
    h->start();
    h->d->release();
    h->clear();

    h->d->stop();

    // Stuck in the transitional state announced at the start.
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)"}));
    QCOMPARE(h->session->state(), S::Player_Preparing);
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession stop(#) called",
                                                    "D/OPSession setState(#):emit state 3",
                                                    "D/OPSession stop(#):mFilePlayer is null"}));
}

void tst_AdaptorTransport::seek_data()
{
    QTest::addColumn<int>("result");
    QTest::addColumn<QStringList>("signalsExpected");
    QTest::newRow("accepted") << 0 << QStringList();
    QTest::newRow("refused") << -1 << QStringList({"mediaMessageChanged(2,<invalid>)"});
}

void tst_AdaptorTransport::seek()
{
    QFETCH(int, result);
    QFETCH(QStringList, signalsExpected);
    h->start();
    h->openAndPlay(kMovie);
    h->player()->script().push("seekTo", result);
    h->clear();

    h->d->seek(5000);

    QCOMPARE(h->engine.recorder().calls(), QStringList({"seekTo(5000)"}));
    QCOMPARE(h->signalTexts(), signalsExpected);
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession seek(#) called",
                                                    QStringLiteral("D/OPSession seek(#):seek return value %1").arg(result)}));
    QCOMPARE(h->session->state(), S::Player_Play);
}

void tst_AdaptorTransport::seekWithoutEngine()
{
    h->start();
    h->d->release();
    h->clear();

    h->d->seek(5000);

    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession seek(#) called",
                                                    "D/OPSession seek(#):mFilePlayer is null"}));
}

void tst_AdaptorTransport::setPlaybackRate_data()
{
    QTest::addColumn<double>("rate");
    QTest::addColumn<QString>("rateText");
    QTest::addColumn<QString>("branchLine");
    QTest::addColumn<QString>("engineCall");   // empty: the engine is not asked
    QTest::addColumn<int>("newState");         // -1: refused
    QTest::addColumn<QString>("factorText");

    QTest::newRow("-4 fast backward") << -4.0 << "-4.000000" << "fastbackward -4.000000" << "setSpeed(-4)"
                                      << int(S::Player_FB) << "";
    QTest::newRow("-1.5 fast backward") << -1.5 << "-1.500000" << "fastbackward -1.500000" << "setSpeed(-1.5)"
                                        << int(S::Player_FB) << "";
    QTest::newRow("-1 slow backward") << -1.0 << "-1.000000" << "slowbackward 1.000000" << "" << -1 << "1.000000";
    QTest::newRow("-0.5 slow backward") << -0.5 << "-0.500000" << "slowbackward 2.000000" << "" << -1 << "2.000000";
    QTest::newRow("-0.25 slow backward") << -0.25 << "-0.250000" << "slowbackward 4.000000" << "" << -1
                                         << "4.000000";
    QTest::newRow("0 as fast forward") << 0.0 << "0.000000" << "fastforward 0.000000" << "setSpeed(0)"
                                       << int(S::Player_FF) << "";
    QTest::newRow("NaN as fast forward") << qQNaN() << "nan" << "fastforward nan" << "setSpeed(nan)"
                                         << int(S::Player_FF) << "";
    QTest::newRow("0.5 slow forward") << 0.5 << "0.500000" << "slowforward 0.500000" << "setSpeed(0.5)"
                                      << int(S::Player_SF) << "";
    QTest::newRow("1 normal speed") << 1.0 << "1.000000" << "setspeed reset 1.000000" << "setSpeed(1)"
                                    << int(S::Player_Play) << "";
    QTest::newRow("1.5 fast forward") << 1.5 << "1.500000" << "fastforward 1.500000" << "setSpeed(1.5)"
                                      << int(S::Player_FF) << "";
    QTest::newRow("2 fast forward") << 2.0 << "2.000000" << "fastforward 2.000000" << "setSpeed(2)"
                                    << int(S::Player_FF) << "";
}

void tst_AdaptorTransport::setPlaybackRate()
{
    QFETCH(double, rate);
    QFETCH(QString, rateText);
    QFETCH(QString, branchLine);
    QFETCH(QString, engineCall);
    QFETCH(int, newState);
    QFETCH(QString, factorText);
    h->start();
    h->openAndPlay(kMovie);
    h->clear();

    h->d->setPlaybackRate(rate);

    const QString rateLine = "D/OPSession setPlaybackRate(#):rate:" + rateText;
    const QString branch = "D/OPSession setPlaybackRate(#):" + branchLine;
    if (newState >= 0) {
        QCOMPARE(h->engine.recorder().calls(), QStringList({engineCall}));
        QCOMPARE(h->signalTexts(), QStringList({QStringLiteral("stateChanged(%1)").arg(newState),
                                                "playbackRateChanged(" + QVariant(float(rate)).toString() + ")"}));
        ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
            rateLine, branch, "D/OPSession setPlaybackRate(#):return value 0.000000",
            QStringLiteral("D/OPSession setState(#):emit state %1").arg(newState),
        }));
        QCOMPARE(int(h->session->state()), newState);
        if (qIsNaN(rate))
            QVERIFY(qIsNaN(h->d->mPlaybackRate));
        else
            QCOMPARE(h->d->mPlaybackRate, float(rate));
    } else {
        // Slow backward is refused before the engine is asked.
        QCOMPARE(h->engine.recorder().calls(), QStringList());
        QCOMPARE(h->signalTexts(),
                 QStringList({"mediaMessageChanged(2," + QVariant(float(rate)).toString() + ")"}));
        ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
            rateLine, branch, "D/OPSession setPlaybackRate(#):return value -3.000000",
            "E/OPSession setPlaybackRate(#):unsupport rate " + rateText + " factor " + factorText,
        }));
        QCOMPARE(h->session->state(), S::Player_Play);
        QCOMPARE(h->d->mPlaybackRate, 1.0f);
    }
}

void tst_AdaptorTransport::setPlaybackRateEngineRefuses()
{
    h->start();
    h->openAndPlay(kMovie);
    h->player()->script().push("setSpeed", -1);
    h->clear();

    h->d->setPlaybackRate(2.0);

    QCOMPARE(h->engine.recorder().calls(), QStringList({"setSpeed(2)"}));
    QCOMPARE(h->signalTexts(), QStringList({"mediaMessageChanged(2,2)"}));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "D/OPSession setPlaybackRate(#):rate:2.000000",
        "D/OPSession setPlaybackRate(#):fastforward 2.000000",
        "D/OPSession setPlaybackRate(#):return value -1.000000",
        "E/OPSession setPlaybackRate(#):unsupport rate 2.000000 factor 2.000000",
    }));
    QCOMPARE(h->session->state(), S::Player_Play);
    QCOMPARE(h->d->mPlaybackRate, 1.0f);
}

void tst_AdaptorTransport::setPlaybackRateRestartsPausedStream_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("paused");
    QTest::addColumn<bool>("restarts");
    QTest::newRow("paused stream") << kStream << true << true;
    QTest::newRow("playing stream") << kStream << false << false;
    QTest::newRow("paused local file") << kMovie << true << false;
}

void tst_AdaptorTransport::setPlaybackRateRestartsPausedStream()
{
    QFETCH(QString, url);
    QFETCH(bool, paused);
    QFETCH(bool, restarts);
    h->start();
    h->openAndPlay(url);
    if (paused)
        h->d->pause();
    h->clear();

    h->d->setPlaybackRate(2.0);

    QStringList calls = {"setSpeed(2)"};
    if (restarts)
        calls << "play()";
    QCOMPARE(h->engine.recorder().calls(), calls);
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(6)", "playbackRateChanged(2)"}));
    QCOMPARE(h->log->count("D/OPSession setPlaybackRate(#):play return value 0"), restarts ? 1 : 0);
}

void tst_AdaptorTransport::setPlaybackRateWithoutEngine()
{
    h->start();
    h->d->release();
    h->clear();

    h->d->setPlaybackRate(2.0);

    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession setPlaybackRate(#):rate:2.000000",
                                                    "D/OPSession setPlaybackRate(#):mFilePlayer is null"}));
}

void tst_AdaptorTransport::readers_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<bool>("running");   // the engine's position and duration count
    QTest::addColumn<bool>("trickPlay"); // the engine's speed counts
    for (int s = S::Player_Idle; s <= S::Player_Pause; ++s) {
        QTest::addRow("state %d", s) << s << (s >= S::Player_Play)
                                     << (s >= S::Player_FF && s <= S::Player_SB);
    }
}

void tst_AdaptorTransport::readers()
{
    QFETCH(int, state);
    QFETCH(bool, running);
    QFETCH(bool, trickPlay);
    h->start();
    h->openIn(kMovie, S::PlayerState(state));
    Script &script = h->player()->script();
    script.setDefault("getPosition", 4200);
    script.setDefault("getDuration", 90000);
    script.setDefault("getSpeed", 2.5);
    h->clear();

    // The session's getters forward to the adaptor.
    QCOMPARE(h->session->position(), running ? qint64(4200) : qint64(0));
    QCOMPARE(h->session->duration(), running ? qint64(90000) : qint64(0));
    QCOMPARE(h->session->playbackRate(), trickPlay ? 2.5f : 1.0f);

    QStringList calls;
    if (running)
        calls << "getPosition()" << "getDuration()";
    if (trickPlay)
        calls << "getSpeed()";
    QCOMPARE(h->engine.recorder().calls(), calls);
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({trickPlay ? "D/OPSession playbackRate(#):playbackRate 2.500000"
                                                              : "D/OPSession playbackRate(#):playbackRate 1.000000"}));
    QCOMPARE(h->signalTexts(), QStringList());
}

void tst_AdaptorTransport::readersWithoutEngine()
{
    h->start();
    h->d->release();
    h->d->mCurrentState = S::Player_FF;
    h->checker.reset(new StateTransitionChecker(h->session.get(), h->log.get()));
    h->clear();

    QCOMPARE(h->session->position(), qint64(0));
    QCOMPARE(h->session->duration(), qint64(0));
    QCOMPARE(h->session->playbackRate(), 1.0f);
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"D/OPSession position(#):mFilePlayer is null",
                                                    "D/OPSession duration(#):mFilePlayer is null",
                                                    "D/OPSession playbackRate(#):mFilePlayer is null"}));
}

void tst_AdaptorTransport::resumePlay()
{
    h->start();
    h->openAndPlay(kMovie);
    h->clear();

    h->d->resumePlay(5000, 120000);

    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->log->lines(), QStringList({"V/OPSession resumePlay(#) called"}));
}

void tst_AdaptorTransport::transportThroughCommandQueue()
{
    h->start();
    h->player()->script().setDefault("getPosition", 5000);
    QOrvicPlayerSession *session = h->session.get();

    session->manageActList(S::Msg_SetMedia, kMovie);
    session->manageActList(S::Msg_Play, QVariant());
    session->manageActList(S::Msg_Position, QVariant(qlonglong(5000)));
    session->manageActList(S::Msg_PlayBackRate, QVariant(2.0));
    session->manageActList(S::Msg_PlayBackRate, QVariant(1.0));
    session->manageActList(S::Msg_Pause, QVariant());

    QCOMPARE(h->transportCalls(), media::localOpenCalls(kMovie) + QStringList({
        "getSpeed()", "play()", "getDuration()", "seekTo(5000)", "setSpeed(2)", "setSpeed(1)",
        "getSpeed()", "pause()", "getPosition()"}));
    QCOMPARE(h->signalTexts(), media::localOpenSignals() + QStringList({
        "stateChanged(5)", "stateChanged(6)", "playbackRateChanged(2)", "stateChanged(5)",
        "playbackRateChanged(1)", "stateChanged(10)", "positionChanged(5000)"}));
    QCOMPARE(session->state(), S::Player_Pause);
}

QTEST_GUILESS_MAIN(tst_AdaptorTransport)
#include "tst_adaptortransport.moc"
