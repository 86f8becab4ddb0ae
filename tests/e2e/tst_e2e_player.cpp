// The host engine player against the real psserver: every operation of the
// player interface on generated media, the callbacks and their timing, broken
// media, and a service that dies or freezes under a playing client.
#include "e2esupport.h"

#include <playback/spplayer.h>
#include <pswire.h>

#include <QtCore/QDir>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFileInfo>
#include <QtCore/QUrl>
#include <QtTest/QtTest>

#include <csignal>
#include <cstring>
#include <memory>
#include <thread>

using namespace orvice2e;
using playback::SPPlayer;

namespace {

struct PlayerDeleter
{
    void operator()(SPPlayer *player) const { SPPlayer::destroy(player); }
};
using PlayerPtr = std::unique_ptr<SPPlayer, PlayerDeleter>;

QByteArray local(const QString &name)
{
    return mediaPath(name).toUtf8();
}

int intParameter(SPPlayer *player, const char *key)
{
    int value = -12345;
    const int result = player->getParameter("mPlayer", key, &value, int(sizeof value));
    return result == 0 ? value : result;
}

int setFlag(SPPlayer *player, const char *target, const char *key, bool on)
{
    return player->setParameter(target, key, &on, 1);
}

} // namespace

class tst_E2ePlayer : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void openDescribes_data();
    void openDescribes();
    void streamCountsAndLanguage();
    void playAdvancesAndFinishes();
    void seekWhilePaused();
    void rateTwoAndBack();
    void reverseRate_data();
    void reverseRate();
    void audioStreamSwitch();
    void subtitlesFollowPosition();
    void subtitlesOffStaySilent();
    void externalSubtitleFile();
    void pauseStopAndReset();
    void volume();
    void decoderSwitches();
    void brokenMedia_data();
    void brokenMedia();
    void missingAndUnsupported();
    void truncatedWithIndexEndsEarly();
    void networkStreamPlays();
    void networkFailureMidStream();
    void callsFromThreadWithoutEventLoop();
    void twoPlayersAreIndependent();
    void deadServiceNeverBlocks_data();
    void deadServiceNeverBlocks();
    void frozenServiceRecoversAfterContinue();
    void noServiceAtCreation();
    void configuredSinks();

private:
    PlayerPtr open(const QByteArray &url);
    void verifyDaemonLogClean();

    std::unique_ptr<RuntimeDir> m_runtime;
    std::unique_ptr<RecordingCallBack> m_events;
    PlayerPtr m_player;
};

void tst_E2ePlayer::init()
{
    m_runtime.reset(new RuntimeDir);
    QVERIFY(m_runtime->isValid());
    QVERIFY2(startServiceAndWait(), m_runtime->daemonLog().constData());
    m_events.reset(new RecordingCallBack);
}

void tst_E2ePlayer::cleanup()
{
    m_player.reset();
    if (m_events)
        QVERIFY(!m_events->calledOnCreatingThread()); // callbacks come on the engine thread
    verifyDaemonLogClean();
    m_events.reset();
    m_runtime.reset();
}

// A sanitizer finding inside the service would otherwise go unnoticed.
void tst_E2ePlayer::verifyDaemonLogClean()
{
    if (!m_runtime)
        return;
    // Stopped first: a leak report is written when the daemon exits.
    QCOMPARE(stopService(), 0);
    const QByteArray log = m_runtime->daemonLog();
    QVERIFY2(!hasSanitizerReport(log), log.constData());
}

PlayerPtr tst_E2ePlayer::open(const QByteArray &url)
{
    PlayerPtr player(SPPlayer::create("Qspmediaplayer", m_events.get()));
    if (player->setUrl(url.constData()) != 0 || player->prepare(0, 0) != 0)
        return PlayerPtr();
    // Callbacks come on their own thread, possibly after prepare() returned.
    if (!m_events->waitFor("prepared()"))
        return PlayerPtr();
    return player;
}

void tst_E2ePlayer::openDescribes_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<qint64>("duration");
    QTest::addColumn<int>("audio");
    QTest::addColumn<int>("subtitles");

    QTest::newRow("mp4 by path") << local("av.mp4") << qint64(6000) << 2 << 1;
    QTest::newRow("mp4 by file uri")
            << QUrl::fromLocalFile(mediaPath("av.mp4")).toEncoded() << qint64(6000) << 2 << 1;
    QTest::newRow("mp3") << local("sine.mp3") << qint64(4048) << 1 << 0;
    QTest::newRow("ogg") << local("sine.ogg") << qint64(4000) << 1 << 0;
    QTest::newRow("mp3 named mp4") << local("mp3named.mp4") << qint64(4048) << 1 << 0;
}

void tst_E2ePlayer::openDescribes()
{
    QFETCH(QByteArray, url);
    QFETCH(qint64, duration);
    QFETCH(int, audio);
    QFETCH(int, subtitles);

    m_player.reset(SPPlayer::create("Qspmediaplayer", m_events.get()));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_IDLE));
    QCOMPARE(m_player->setUrl(url.constData()), 0);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_INITIALIZED));
    QCOMPARE(m_player->setSubUrl(url.constData()), 0); // embedded subtitles: accepted, nothing added
    QCOMPARE(m_player->prepare(0, 0), 0);

    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PREPARED));
    QCOMPARE(m_player->getDuration(), duration);
    QCOMPARE(m_player->getPosition(), 0LL);
    QVERIFY(m_player->isTrickPlaySupported());
    QCOMPARE(m_player->getSpeed(), 1.0);
    QCOMPARE(intParameter(m_player.get(), "get-audio-count"), audio);
    QCOMPARE(intParameter(m_player.get(), "get-subtitle-count"), subtitles);
    QTRY_COMPARE(m_events->events(), QStringList({
        "stateChanged(1)", "stateChanged(2)", "stateChanged(3)",
        QStringLiteral("durationChanged(%1)").arg(duration), "seekableChanged(1)", "prepared()"}));
}

void tst_E2ePlayer::streamCountsAndLanguage()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_AUDIO), 0);
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_SUBTITLE), 0);
    QCOMPARE(m_player->getCurrentStream(5), int(pswire::ResultInvalidArgument));

    char language[8];
    std::memset(language, 'x', sizeof language);
    QCOMPARE(m_player->getSubtitleLanguage(0, language), 0);
    QCOMPARE(QByteArray(language), QByteArray("en"));
    QCOMPARE(m_player->getSubtitleLanguage(1, language), int(pswire::ResultInvalidArgument));

    // A one-byte buffer gets the flag, an int buffer the number.
    unsigned char flag = 0xff;
    QCOMPARE(m_player->getParameter("mPlayer", "get-subtitle-onoff", &flag, 1), 0);
    QCOMPARE(int(flag), 0);
    QCOMPARE(intParameter(m_player.get(), "get-no-such-thing"), int(pswire::ResultInvalidArgument));
}

void tst_E2ePlayer::playAdvancesAndFinishes()
{
    m_player = open(local("sine.ogg"));
    QVERIFY(m_player);
    m_events->clear();
    QCOMPARE(m_player->play(), 0);
    QVERIFY(m_events->waitFor("stateChanged(5)"));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 300, 3000);

    QCOMPARE(m_player->seekTo(3500), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 3500, 3000);
    QVERIFY(m_events->waitFor("playbackFinish()"));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_COMPLETED));
    QCOMPARE(m_events->eventsNamed("stateChanged"), QStringList({"stateChanged(5)", "stateChanged(7)"}));

    // Play after the end starts over.
    QCOMPARE(m_player->play(), 0);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() > 0 && m_player->getPosition() < 2000, 3000);
}

void tst_E2ePlayer::seekWhilePaused()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->seekTo(4000), 0);
    QTRY_COMPARE_WITH_TIMEOUT(m_player->getPosition(), 4000LL, 3000); // seeks are exact
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PREPARED));
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() > 4200, 3000);
    // Beyond the end: clamped to the duration.
    QCOMPARE(m_player->seekTo(999999), 0);
    QVERIFY(m_events->waitFor("playbackFinish()"));
}

void tst_E2ePlayer::rateTwoAndBack()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 200, 3000);

    const auto advanceRatio = [this] {
        QElapsedTimer wall;
        const long long from = m_player->getPosition();
        wall.start();
        QTest::qWait(600); // the window in which the rate is observed
        return double(m_player->getPosition() - from) / double(wall.elapsed());
    };

    QCOMPARE(m_player->setSpeed(2.0), 0);
    QVERIFY(m_events->waitFor("speedChanged(2)"));
    QCOMPARE(m_player->getSpeed(), 2.0);
    const double fast = advanceRatio();
    QVERIFY2(fast > 1.5 && fast < 2.6, qPrintable(QString::number(fast)));

    QCOMPARE(m_player->setSpeed(1.0), 0);
    QVERIFY(m_events->waitFor("speedChanged(1)"));
    QCOMPARE(m_player->getSpeed(), 1.0);
    const double normal = advanceRatio();
    QVERIFY2(normal > 0.6 && normal < 1.4, qPrintable(QString::number(normal)));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));

    // Setting the rate in use changes nothing and says nothing.
    m_events->clear();
    QCOMPARE(m_player->setSpeed(1.0), 0);
    QCOMPARE(m_player->setSpeed(0.0), int(pswire::ResultUnsupported));
    QCOMPARE(m_player->getSpeed(), 1.0);
    QVERIFY(m_events->eventsNamed("speedChanged").isEmpty());
}

void tst_E2ePlayer::reverseRate_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<int>("result");

    QTest::newRow("mp4 plays backwards") << local("av.mp4") << 0;
    QTest::newRow("mp3 plays backwards") << local("sine.mp3") << 0;
    QTest::newRow("mpeg-ts cannot") << local("av.ts") << int(pswire::ResultUnsupported);
}

void tst_E2ePlayer::reverseRate()
{
    QFETCH(QByteArray, url);
    QFETCH(int, result);

    m_player = open(url);
    QVERIFY(m_player);
    QCOMPARE(m_player->seekTo(3000), 0);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 3100, 3000);
    QCOMPARE(m_player->setSpeed(-1.0), result);
    if (result != 0) {
        QCOMPARE(m_player->getSpeed(), 1.0);
        QVERIFY(m_events->eventsNamed("speedChanged").isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 3400, 3000); // still forwards
        return;
    }
    QVERIFY(m_events->waitFor("speedChanged(-1)"));
    QCOMPARE(m_player->getSpeed(), -1.0);
    const long long turned = m_player->getPosition();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() < turned - 300, 3000);
}

void tst_E2ePlayer::audioStreamSwitch()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->play(), 0);
    QCOMPARE(m_player->changeStream(SPPlayer::STREAM_AUDIO, 1), 0);
    QVERIFY(m_events->waitFor("streamChanged(1,1)"));
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_AUDIO), 1);
    QCOMPARE(m_player->changeStream(SPPlayer::STREAM_AUDIO, 2), int(pswire::ResultInvalidArgument));
    QCOMPARE(m_player->changeStream(SPPlayer::STREAM_SUBTITLE, 1), int(pswire::ResultInvalidArgument));
    QCOMPARE(m_player->changeStream(7, 0), int(pswire::ResultInvalidArgument));
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_AUDIO), 1);
    QCOMPARE(m_player->changeStream(SPPlayer::STREAM_AUDIO, 0), 0);
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_AUDIO), 0);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));
}

void tst_E2ePlayer::subtitlesFollowPosition()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(setFlag(m_player.get(), "mPlayer", "set-subtitle-onoff", true), 0);
    QCOMPARE(intParameter(m_player.get(), "get-subtitle-onoff"), 1);
    QCOMPARE(m_player->play(), 0);

    // The first cue runs from 0.5 s to 1.5 s: shown when its time has come.
    QVERIFY(m_events->waitFor("subtitleChanged(First line,1)"));
    const long long shownAt = m_player->getPosition();
    QVERIFY2(shownAt >= 450 && shownAt < 1000, qPrintable(QString::number(shownAt)));

    // Jumping into the third cue (4 s to 5 s) clears the first and shows the third.
    QCOMPARE(m_player->seekTo(3900), 0);
    QVERIFY(m_events->waitFor("subtitleChanged(Third line,1)"));
    const long long thirdAt = m_player->getPosition();
    QVERIFY2(thirdAt >= 3950 && thirdAt < 4500, qPrintable(QString::number(thirdAt)));
    QVERIFY(m_events->waitFor("subtitleChanged(,1)", 5000));
    QTRY_COMPARE_WITH_TIMEOUT(m_events->eventsNamed("subtitleChanged").size(), 4, 3000);
    QCOMPARE(m_events->eventsNamed("subtitleChanged"), QStringList({
        "subtitleChanged(First line,1)", "subtitleChanged(,1)",
        "subtitleChanged(Third line,1)", "subtitleChanged(,1)"}));
}

void tst_E2ePlayer::subtitlesOffStaySilent()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->seekTo(1800), 0);
    QCOMPARE(m_player->play(), 0);
    // The second cue (2 s to 3 s) passes by unreported.
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 3100, 4000);
    QVERIFY(m_events->eventsNamed("subtitleChanged").isEmpty());

    // Switched on inside a cue, the cue shows at once.
    QCOMPARE(m_player->seekTo(4200), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 4300, 3000);
    QCOMPARE(setFlag(m_player.get(), "mPlayer", "set-subtitle-onoff", true), 0);
    QVERIFY(m_events->waitFor("subtitleChanged(Third line,1)"));
}

// A subtitle file next to an audio-only medium: its markup arrives as plain text.
void tst_E2ePlayer::externalSubtitleFile()
{
    m_player.reset(SPPlayer::create("Qspmediaplayer", m_events.get()));
    QCOMPARE(m_player->setUrl(local("sine.ogg").constData()), 0);
    QCOMPARE(m_player->setSubUrl(local("missing.srt").constData()), int(pswire::ResultNotFound));
    QCOMPARE(m_player->setSubUrl(local("cues.srt").constData()), 0);
    QCOMPARE(m_player->prepare(0, 0), 0);
    QCOMPARE(intParameter(m_player.get(), "get-subtitle-count"), 1);
    QCOMPARE(m_player->setSubUrl(local("cues.srt").constData()), int(pswire::ResultInvalidState)); // before prepare only
    QCOMPARE(setFlag(m_player.get(), "mPlayer", "set-subtitle-onoff", true), 0);
    QCOMPARE(m_player->seekTo(3800), 0);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(m_events->waitFor("subtitleChanged(Third line,1)"));
    const long long shownAt = m_player->getPosition();
    QVERIFY2(shownAt >= 3950 && shownAt < 4500, qPrintable(QString::number(shownAt)));
}

void tst_E2ePlayer::pauseStopAndReset()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 300, 3000);

    QCOMPARE(m_player->pause(), 0);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PAUSED));
    const long long pausedAt = m_player->getPosition();
    QTest::qWait(300); // the window in which nothing may move
    QCOMPARE(m_player->getPosition(), pausedAt);

    QCOMPARE(m_player->stop(), 0);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_STOPPED));
    QCOMPARE(m_player->getPosition(), 0LL);
    QCOMPARE(m_player->play(), int(pswire::ResultInvalidState)); // a stopped medium is prepared again first
    QCOMPARE(m_player->prepare(0, 0), 0);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 200, 3000);

    QCOMPARE(m_player->reset(), 0);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_IDLE));
    QCOMPARE(m_player->getDuration(), 0LL);
    QCOMPARE(m_player->seekTo(100), int(pswire::ResultInvalidState));
    QTRY_COMPARE(m_events->eventsNamed("stateChanged").mid(3), QStringList({
        "stateChanged(5)", "stateChanged(6)", "stateChanged(4)", "stateChanged(2)", "stateChanged(3)",
        "stateChanged(5)", "stateChanged(0)"}));
}

void tst_E2ePlayer::volume()
{
    m_player = open(local("sine.ogg"));
    QVERIFY(m_player);
    QCOMPARE(m_player->getVolume(), 100);
    QCOMPARE(m_player->setStreamVolume(40), 0);
    QVERIFY(m_events->waitFor("volumeChanged(40)"));
    QCOMPARE(m_player->getVolume(), 40);
    QCOMPARE(m_player->setStreamVolume(101), int(pswire::ResultInvalidArgument));
    QCOMPARE(m_player->setStreamVolume(-1), int(pswire::ResultInvalidArgument));
    QCOMPARE(m_player->setStreamVolume(0), 0);
    QCOMPARE(m_player->getVolume(), 0);
    // The volume belongs to the player, not to the medium.
    QCOMPARE(m_player->reset(), 0);
    QCOMPARE(m_player->getVolume(), 0);
}

void tst_E2ePlayer::decoderSwitches()
{
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(intParameter(m_player.get(), "get-video-onoff"), 1);
    QCOMPARE(setFlag(m_player.get(), "mDecoder", "set-video-onoff", false), 0);
    QVERIFY(m_events->waitFor("error(2331)")); // the video's availability changed
    QCOMPARE(intParameter(m_player.get(), "get-video-onoff"), 0);
    QCOMPARE(setFlag(m_player.get(), "mDecoder", "set-audio-onoff", false), 0);
    QCOMPARE(intParameter(m_player.get(), "get-audio-onoff"), 0);

    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 300, 3000);
    QCOMPARE(setFlag(m_player.get(), "mDecoder", "set-video-onoff", true), 0);
    QCOMPARE(setFlag(m_player.get(), "mDecoder", "set-audio-onoff", true), 0);
    QCOMPARE(intParameter(m_player.get(), "get-audio-onoff"), 1);
    const long long now = m_player->getPosition();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= now + 300, 3000);

    bool on = true;
    QCOMPARE(m_player->setParameter("mDecoder", "set-nothing", &on, 1), int(pswire::ResultInvalidArgument));
    QCOMPARE(m_player->setParameter("mDecoder", "set-video-onoff", &on, 0), int(pswire::ResultInvalidArgument));
}

void tst_E2ePlayer::brokenMedia_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("engineNumber");

    QTest::newRow("zero bytes") << "empty.mp4" << 1404;       // stream: type not found
    QTest::newRow("truncated") << "truncated.mp4" << 1409;    // stream: demux
    QTest::newRow("corrupt") << "corrupt.mp4" << 1409;        // stream: demux
    QTest::newRow("wrong extension") << "notmedia.mp3" << 1405; // stream: wrong type
}

void tst_E2ePlayer::brokenMedia()
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

void tst_E2ePlayer::missingAndUnsupported()
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

void tst_E2ePlayer::truncatedWithIndexEndsEarly()
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

void tst_E2ePlayer::networkStreamPlays()
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
void tst_E2ePlayer::networkFailureMidStream()
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

void tst_E2ePlayer::callsFromThreadWithoutEventLoop()
{
    m_player.reset(SPPlayer::create("Qspmediaplayer", m_events.get()));
    SPPlayer *player = m_player.get();
    QByteArray url = local("sine.ogg");
    int results[3] = {-1, -1, -1};
    // A plain thread: no Qt event loop anywhere in it.
    std::thread caller([&] {
        results[0] = player->setUrl(url.constData());
        results[1] = player->prepare(0, 0);
        results[2] = player->play();
    });
    caller.join();
    QCOMPARE(results[0], 0);
    QCOMPARE(results[1], 0);
    QCOMPARE(results[2], 0);
    QVERIFY(m_events->waitFor("stateChanged(5)"));
}

void tst_E2ePlayer::twoPlayersAreIndependent()
{
    RecordingCallBack otherEvents;
    PlayerPtr other(SPPlayer::create("Qspmediaplayer", &otherEvents));
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(other->setUrl(local("sine.ogg").constData()), 0);
    QCOMPARE(other->prepare(0, 0), 0);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 200, 3000);
    QCOMPARE(other->getState(), int(SPPlayer::STATE_PREPARED));
    QCOMPARE(other->getPosition(), 0LL);
    QCOMPARE(other->getDuration(), 4000LL);
    QVERIFY(otherEvents.eventsNamed("stateChanged").size() == 3);

    m_player.reset();
    QCOMPARE(other->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(other->getPosition() >= 200, 3000);
}

void tst_E2ePlayer::deadServiceNeverBlocks_data()
{
    QTest::addColumn<int>("sig");
    QTest::addColumn<int>("failure");

    QTest::newRow("killed") << int(SIGKILL) << int(pswire::ResultServiceUnavailable);
    QTest::newRow("frozen") << int(SIGSTOP) << int(pswire::ResultServiceUnresponsive);
}

void tst_E2ePlayer::deadServiceNeverBlocks()
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

void tst_E2ePlayer::frozenServiceRecoversAfterContinue()
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

void tst_E2ePlayer::noServiceAtCreation()
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

// Real sinks come from the environment of whoever starts the daemon; a
// description that cannot be built falls back to the headless sink.
void tst_E2ePlayer::configuredSinks()
{
    QCOMPARE(stopService(), 0);
    QVERIFY(m_runtime->daemonLog().contains("audio sink: fakesink sync=true, video sink: fakesink sync=true"));
    qputenv("ORVIC_AUDIO_SINK", "audioconvert ! fakesink sync=true");
    qputenv("ORVIC_VIDEO_SINK", "no-such-element");
    const bool started = startServiceAndWait();
    qunsetenv("ORVIC_AUDIO_SINK");
    qunsetenv("ORVIC_VIDEO_SINK");
    QVERIFY(started);
    m_player = open(local("av.mp4"));
    QVERIFY(m_player);
    QCOMPARE(m_player->play(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 300, 3000);
    const QByteArray log = m_runtime->daemonLog();
    QVERIFY2(log.contains("audio sink: audioconvert ! fakesink sync=true, video sink: no-such-element"),
             log.constData());
    QVERIFY2(log.contains("cannot build sink \"no-such-element\""), log.constData());
}

QTEST_GUILESS_MAIN(tst_E2ePlayer)
#include "tst_e2e_player.moc"
