// The host engine player against the real psserver when things go wrong:
// broken, missing and truncated media, network streams that break off, and a
// service that dies or freezes under a playing client.
#include "playerfixture.h"

#include <pswire.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtTest/QtTest>

#include <csignal>
#include <functional>

using namespace orvice2e;
using playback::SPPlayer;

class tst_E2ePlayerFaults : public PlayerTestBase
{
    Q_OBJECT

private Q_SLOTS:
    void brokenMedia_data();
    void brokenMedia();
    void missingAndUnsupported();
    void truncatedWithIndexEndsEarly();
    void networkStreamPlays();
    void networkFailureMidStream();
    void deadServiceNeverBlocks_data();
    void deadServiceNeverBlocks();
    void frozenServiceRecoversAfterContinue();
    void noServiceAtCreation();
};

void tst_E2ePlayerFaults::brokenMedia_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("engineNumber");

    QTest::newRow("zero bytes") << "empty.mp4" << 1404;       // stream: type not found
    QTest::newRow("truncated") << "truncated.mp4" << 1409;    // stream: demux
    QTest::newRow("corrupt") << "corrupt.mp4" << 1409;        // stream: demux
    QTest::newRow("wrong extension") << "notmedia.mp3" << 1405; // stream: wrong type
}

void tst_E2ePlayerFaults::brokenMedia()
{
    QFETCH(QString, file);
    QFETCH(int, engineNumber);

    m_player.reset(SPPlayer::create("Qspmediaplayer", m_events.get()));
    QCOMPARE(m_player->setUrl(local(file).constData()), 0);
    QCOMPARE(m_player->prepare(0, 0), engineNumber);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_ERROR));
    QCOMPARE(m_player->play(), int(pswire::ResultInvalidState));
    QTRY_COMPARE(m_events->events(), QStringList({"stateChanged(1)", "stateChanged(2)", "stateChanged(8)"}));

    // The player takes the next medium as if nothing happened.
    QCOMPARE(m_player->setUrl(local("sine.ogg").constData()), 0);
    QCOMPARE(m_player->prepare(0, 0), 0);
    QCOMPARE(m_player->getDuration(), 4000LL);
}

void tst_E2ePlayerFaults::missingAndUnsupported()
{
    m_player.reset(SPPlayer::create("Qspmediaplayer", m_events.get()));
    QCOMPARE(m_player->setUrl(local("no-such-file.mp4").constData()), int(pswire::ResultNotFound));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_IDLE));
    QCOMPARE(m_player->setUrl("nosuchscheme://host/a.mp4"), int(pswire::ResultUnsupported));
    QCOMPARE(m_player->prepare(0, 0), int(pswire::ResultInvalidState));
    QCOMPARE(m_player->setUrl(nullptr), int(pswire::ResultInvalidArgument));
    QVERIFY(m_events->events().isEmpty());

    // Relative paths are the caller's.
    const QString previous = QDir::currentPath();
    QVERIFY(QDir::setCurrent(QStringLiteral(ORVIC_E2E_MEDIA_DIR)));
    const int result = m_player->setUrl("sine.ogg");
    QDir::setCurrent(previous);
    QCOMPARE(result, 0);
    QCOMPARE(m_player->prepare(0, 0), 0);
}

void tst_E2ePlayerFaults::truncatedWithIndexEndsEarly()
{
    m_player = open(local("truncated-indexed.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->getDuration(), 6000LL); // the index promises all of it
    QCOMPARE(m_player->seekTo(2000), 0);
    QCOMPARE(m_player->play(), 0);
    // The data runs out half way: playback simply ends there.
    QVERIFY(m_events->waitFor("playbackFinish()", 8000));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_COMPLETED));
    QVERIFY(m_events->eventsNamed("error").isEmpty());
}

void tst_E2ePlayerFaults::networkStreamPlays()
{
    HttpFileServer server(mediaPath("av-indexed.mp4"), 400000);
    QVERIFY(!server.url().isEmpty());
    m_player = open(server.url());
    QVERIFY(m_player);
    QCOMPARE(m_player->getDuration(), 6000LL);
    QVERIFY(m_player->isTrickPlaySupported()); // the server takes ranges
    QVERIFY(m_events->eventsNamed("bufferingProgessChanged").size() >= 1);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(m_events->waitFor("bufferingProgessChanged(100)"));
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 500, 5000);
    QVERIFY(m_events->eventsNamed("error").isEmpty());
}

// The server breaks off at 60 % of the file and then answers 404: playback
// stops with the resource error, reported once.
void tst_E2ePlayerFaults::networkFailureMidStream()
{
    const QString file = mediaPath("av-indexed.mp4");
    HttpFileServer server(file, 60000, QFileInfo(file).size() * 6 / 10);
    m_player = open(server.url());
    QVERIFY(m_player);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(m_events->waitFor("error(1303)", 10000)); // resource: not found
    QTRY_COMPARE(m_player->getState(), int(SPPlayer::STATE_ERROR));
    QVERIFY(m_player->getPosition() > 0);
    QTRY_VERIFY(m_events->events().endsWith("stateChanged(8)"));
    QCOMPARE(m_events->eventsNamed("error"), QStringList({"error(1303)"}));
}

void tst_E2ePlayerFaults::deadServiceNeverBlocks_data()
{
    QTest::addColumn<int>("sig");
    QTest::addColumn<int>("failure");

    QTest::newRow("killed") << int(SIGKILL) << int(pswire::ResultServiceUnavailable);
    QTest::newRow("frozen") << int(SIGSTOP) << int(pswire::ResultServiceUnresponsive);
}

void tst_E2ePlayerFaults::deadServiceNeverBlocks()
{
    QFETCH(int, sig);
    QFETCH(int, failure);

    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 300, 3000);
    const long long lastPosition = m_player->getPosition();
    const pid_t daemon = daemonPid();
    QVERIFY(signalDaemon(sig));
    if (sig == SIGKILL)
        QTRY_VERIFY_WITH_TIMEOUT(daemonPid() == 0, 3000);

    // Every operation returns within about half a second: a failure, or the
    // last value the service reported.
    SPPlayer *p = m_player.get();
    char language[8] = {};
    int value = 0;
    bool on = true;
    const QList<QPair<const char *, std::function<long long()>>> operations = {
        {"getPosition", [&] { return p->getPosition(); }},
        {"setUrl", [&] { return p->setUrl(local("sine.ogg").constData()); }},
        {"setSubUrl", [&] { return p->setSubUrl(local("sine.ogg").constData()); }},
        {"prepare", [&] { return p->prepare(0, 0); }},
        {"play", [&] { return p->play(); }},
        {"seekTo", [&] { return p->seekTo(100); }},
        {"pause", [&] { return p->pause(); }},
        {"stop", [&] { return p->stop(); }},
        {"reset", [&] { return p->reset(); }},
        {"getState", [&] { return p->getState(); }},
        {"getDuration", [&] { return p->getDuration(); }},
        {"setSpeed", [&] { return p->setSpeed(2.0); }},
        {"getSpeed", [&] { return (long long)(p->getSpeed() * 1000); }},
        {"isTrickPlaySupported", [&] { return p->isTrickPlaySupported(); }},
        {"getVolume", [&] { return p->getVolume(); }},
        {"changeStream", [&] { return p->changeStream(1, 1); }},
        {"getCurrentStream", [&] { return p->getCurrentStream(1); }},
        {"setStreamVolume", [&] { return p->setStreamVolume(50); }},
        {"setParameter", [&] { return p->setParameter("mPlayer", "set-subtitle-onoff", &on, 1); }},
        {"getParameter", [&] { return p->getParameter("mPlayer", "get-audio-count", &value, 4); }},
        {"getSubtitleLanguage", [&] { return p->getSubtitleLanguage(0, language); }},
    };
    QHash<QString, long long> answers;
    for (const auto &operation : operations) {
        QElapsedTimer timer;
        timer.start();
        answers.insert(QLatin1String(operation.first), operation.second());
        QVERIFY2(timer.elapsed() < 600, operation.first);
    }
    QVERIFY(answers.value("getPosition") >= lastPosition);
    for (const char *command : {"setUrl", "setSubUrl", "prepare", "play", "seekTo", "pause", "stop", "reset",
                                "setSpeed", "changeStream", "getCurrentStream", "setStreamVolume",
                                "setParameter", "getParameter", "getSubtitleLanguage"})
        QCOMPARE(answers.value(command), (long long)failure);
    QCOMPARE(answers.value("getState"), (long long)SPPlayer::STATE_PLAYING);
    QCOMPARE(answers.value("getDuration"), 6000LL);
    QCOMPARE(answers.value("getSpeed"), 1000LL);
    QCOMPARE(answers.value("isTrickPlaySupported"), 1LL);
    QCOMPARE(answers.value("getVolume"), 100LL);
    QCOMPARE(QByteArray(language), QByteArray());

    // Destroying the player does not wait on the service either.
    QElapsedTimer timer;
    timer.start();
    m_player.reset();
    QVERIFY(timer.elapsed() < 600);
    if (sig == SIGSTOP)
        ::kill(daemon, SIGKILL);
}

void tst_E2ePlayerFaults::frozenServiceRecoversAfterContinue()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(signalDaemon(SIGSTOP));
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(m_player->pause(), int(pswire::ResultServiceUnresponsive));
    // A stopped process cannot answer: the call does not wait out the
    // silence limit for it.
    QVERIFY2(timer.elapsed() < 400, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(serviceStatus(), QByteArray("unresponsive"));
    QVERIFY(signalDaemon(SIGCONT));
    QTRY_COMPARE_WITH_TIMEOUT(m_player->pause(), 0, 3000);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PAUSED));
    QCOMPARE(serviceStatus(), QByteArray("running"));
}

void tst_E2ePlayerFaults::noServiceAtCreation()
{
    QCOMPARE(stopService(), 0);
    QCOMPARE(serviceStatus(), QByteArray("stopped"));
    QElapsedTimer timer;
    timer.start();
    m_player.reset(SPPlayer::create("Qspmediaplayer", m_events.get()));
    QCOMPARE(m_player->setUrl(local("sine.ogg").constData()), int(pswire::ResultServiceUnavailable));
    QCOMPARE(m_player->getVolume(), 100);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_IDLE));
    QVERIFY(timer.elapsed() < 1000);
}

QTEST_GUILESS_MAIN(tst_E2ePlayerFaults)
#include "tst_e2e_playerfaults.moc"
