// Several players and sessions in one process share one psserver. When the
// service dies and something else starts it again (another session's
// watchdog), a player that was not part of that recovery finds its medium
// back on the new service at its next call, as it was: URL, position,
// playing or paused; to its callback, nothing happened.
#include "e2esupport.h"
#include "sessionrecorder.h"

#include <playback/spplayer.h>
#include <pswire.h>
#include <qorvicplayersession.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QTimer>
#include <QtTest/QtTest>

#include <algorithm>
#include <csignal>
#include <memory>

using namespace orvice2e;
using orvictest::SessionRecorder;
using playback::SPPlayer;
using Session = QOrvicPlayerSession;

namespace {

struct PlayerDeleter
{
    void operator()(SPPlayer *player) const { SPPlayer::destroy(player); }
};
using PlayerPtr = std::unique_ptr<SPPlayer, PlayerDeleter>;

const int kTimeUpdateMs = 100;

// Kills the daemon and starts another one, as a watchdog of some other
// session does; the pid of the new daemon, 0 on failure.
pid_t restartServiceElsewhere()
{
    const pid_t before = daemonPid();
    if (before <= 0 || ::kill(before, SIGKILL) != 0)
        return 0;
    if (!QTest::qWaitFor([] { return daemonPid() == 0; }, 5000))
        return 0;
    if (stopService() != 0 || !startServiceAndWait())
        return 0;
    const pid_t after = daemonPid();
    return after != before ? after : 0;
}

} // namespace

class tst_E2eServiceRestart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void playerFindsItsMediumOnRestartedService_data();
    void playerFindsItsMediumOnRestartedService();
    void playerWithoutMediumJustReconnects();
    void noServiceStillFailsAtOnce();
    void sessionPlaysOnAfterOtherSessionsRecovery_data();
    void sessionPlaysOnAfterOtherSessionsRecovery();

private:
    std::unique_ptr<RuntimeDir> m_runtime;
};

void tst_E2eServiceRestart::init()
{
    m_runtime.reset(new RuntimeDir);
    QVERIFY(m_runtime->isValid());
    QVERIFY2(startServiceAndWait(), m_runtime->daemonLog().constData());
}

void tst_E2eServiceRestart::cleanup()
{
    if (m_runtime) {
        // Stopped first: a sanitizer's report is written when the daemon exits.
        QCOMPARE(stopService(), 0);
        const QByteArray log = m_runtime->daemonLog();
        QVERIFY2(!hasSanitizerReport(log), log.constData());
    }
    m_runtime.reset();
}

void tst_E2eServiceRestart::playerFindsItsMediumOnRestartedService_data()
{
    QTest::addColumn<int>("state");
    QTest::newRow("playing") << int(SPPlayer::STATE_PLAYING);
    QTest::newRow("paused") << int(SPPlayer::STATE_PAUSED);
    QTest::newRow("prepared") << int(SPPlayer::STATE_PREPARED);
}

void tst_E2eServiceRestart::playerFindsItsMediumOnRestartedService()
{
    QFETCH(int, state);

    RecordingCallBack events;
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", &events));
    QCOMPARE(player->setUrl(mediaPath("av.mp4").toUtf8().constData()), 0);
    QCOMPARE(player->prepare(0, 0), 0);
    QVERIFY(events.waitFor("prepared()"));
    if (state != SPPlayer::STATE_PREPARED) {
        QCOMPARE(player->play(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(player->getPosition() >= 1000, 5000);
    }
    if (state == SPPlayer::STATE_PAUSED)
        QCOMPARE(player->pause(), 0);
    QCOMPARE(player->getState(), state);
    const long long before = player->getPosition();

    QVERIFY2(restartServiceElsewhere() != 0, m_runtime->daemonLog().constData());
    events.clear();

    // The first call brings the medium back, then answers.
    QCOMPARE(player->getState(), state);
    const long long after = player->getPosition();
    // The service played on a little between the last answer and the kill.
    QVERIFY2(after >= before - 50 && after <= before + 500,
             qPrintable(QStringLiteral("%1 -> %2").arg(before).arg(after)));
    QCOMPARE(player->getDuration(), 6000LL);
    if (state == SPPlayer::STATE_PLAYING) {
        QTRY_VERIFY_WITH_TIMEOUT(player->getPosition() >= after + 300, 3000);
    } else {
        QCOMPARE(player->play(), 0);
        QTRY_VERIFY_WITH_TIMEOUT(player->getPosition() >= after + 300, 3000);
    }
    // Opening the medium again was the player's own business.
    for (const char *event : {"stateChanged(1)", "stateChanged(2)", "stateChanged(3)", "prepared()"})
        QVERIFY2(!events.events().contains(QLatin1String(event)), event);
}

void tst_E2eServiceRestart::playerWithoutMediumJustReconnects()
{
    RecordingCallBack events;
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", &events));
    QCOMPARE(player->getState(), int(SPPlayer::STATE_IDLE));
    QVERIFY(restartServiceElsewhere() != 0);

    QCOMPARE(player->getState(), int(SPPlayer::STATE_IDLE));
    QCOMPARE(player->setUrl(mediaPath("sine.ogg").toUtf8().constData()), 0);
    QCOMPARE(player->prepare(0, 0), 0);
    QCOMPARE(player->getDuration(), 4000LL);
}

// With no service running again, a call fails at once as before, and once
// one is started the player is back.
void tst_E2eServiceRestart::noServiceStillFailsAtOnce()
{
    RecordingCallBack events;
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", &events));
    QCOMPARE(player->setUrl(mediaPath("sine.ogg").toUtf8().constData()), 0);
    QCOMPARE(player->prepare(0, 0), 0);
    QVERIFY(signalDaemon(SIGKILL));
    QTRY_COMPARE_WITH_TIMEOUT(daemonPid(), pid_t(0), 5000);

    QElapsedTimer timer;
    timer.start();
    QCOMPARE(player->play(), int(pswire::ResultServiceUnavailable));
    QCOMPARE(player->getState(), int(SPPlayer::STATE_PREPARED)); // the last one known
    QVERIFY(timer.elapsed() < 600);

    QCOMPARE(stopService(), 0);
    QVERIFY(startServiceAndWait());
    QCOMPARE(player->getState(), int(SPPlayer::STATE_PREPARED));
    QCOMPARE(player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(player->getPosition() >= 300, 3000);
}

void tst_E2eServiceRestart::sessionPlaysOnAfterOtherSessionsRecovery_data()
{
    QTest::addColumn<bool>("paused");
    QTest::newRow("paused") << true;
    QTest::newRow("playing, no time updates") << false;
}

// Two sessions of one process; only the second one's watchdog is fed, so it
// alone restarts the killed service. The first one plays on afterwards.
void tst_E2eServiceRestart::sessionPlaysOnAfterOtherSessionsRecovery()
{
    QFETCH(bool, paused);

    Session first(QMediaPlayer::Flags{});
    SessionRecorder firstRecorder(&first);
    first.manageActList(Session::Msg_SetMedia, mediaPath("av.mp4"));
    QTRY_VERIFY_WITH_TIMEOUT(firstRecorder.texts({"playbackRateChanged"}).contains("playbackRateChanged(1)"), 10000);
    first.manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(first.position() >= 1000, 5000);
    if (paused) {
        first.manageActList(Session::Msg_Pause, QVariant());
        QTRY_COMPARE(first.state(), Session::Player_Pause);
    }

    Session second(QMediaPlayer::Flags{});
    SessionRecorder secondRecorder(&second);
    second.manageActList(Session::Msg_SetMedia, mediaPath("sine.ogg"));
    QTRY_VERIFY_WITH_TIMEOUT(secondRecorder.texts({"playbackRateChanged"}).contains("playbackRateChanged(1)"), 10000);
    second.manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(second.position() >= 300, 5000);
    QTimer timeUpdates;
    timeUpdates.setInterval(kTimeUpdateMs);
    connect(&timeUpdates, &QTimer::timeout, &second, [&second] { second.timeUpdate(second.position()); });
    timeUpdates.start();

    const qint64 firstAt = first.position();
    const pid_t before = daemonPid();
    secondRecorder.clear();
    firstRecorder.clear();
    QVERIFY(signalDaemon(SIGKILL));
    // The second session's watchdog: a new daemon, its medium playing again.
    QTRY_VERIFY_WITH_TIMEOUT(secondRecorder.texts({"stateChanged"}).contains("stateChanged(1)")
                                     && second.state() == Session::Player_Play && daemonPid() != 0
                                     && daemonPid() != before,
                             15000);
    timeUpdates.stop();

    // The first session, untouched by that recovery, is where it was.
    if (paused) {
        QCOMPARE(first.state(), Session::Player_Pause);
        QVERIFY(qAbs(first.position() - firstAt) <= 50);
        first.manageActList(Session::Msg_Play, QVariant());
    }
    const qint64 resumedAt = first.position();
    QVERIFY2(qAbs(resumedAt - firstAt) <= 1000, qPrintable(QStringLiteral("%1 -> %2").arg(firstAt).arg(resumedAt)));
    QTRY_VERIFY_WITH_TIMEOUT(first.position() >= resumedAt + 300, 3000);
    QCOMPARE(first.state(), Session::Player_Play);
    QVERIFY(!firstRecorder.texts({"stateChanged"}).contains("stateChanged(1)"));
    const QStringList all = firstRecorder.texts();
    QVERIFY2(std::none_of(all.cbegin(), all.cend(), [](const QString &text) { return text.startsWith("error"); }),
             qPrintable(all.join(' ')));
}

QTEST_GUILESS_MAIN(tst_E2eServiceRestart)
#include "tst_e2e_servicerestart.moc"
