// The host engine player against the real psserver: every operation of the
// player interface on generated media, the callbacks and their timing.
// Broken media and a service that dies or freezes: tst_e2e_playerfaults.
#include "playerfixture.h"

#include <pswire.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QUrl>
#include <QtTest/QtTest>

#include <cstring>
#include <thread>

using namespace orvice2e;
using playback::SPPlayer;

class tst_E2ePlayer : public PlayerTestBase
{
    Q_OBJECT

private Q_SLOTS:
    void openDescribes_data();
    void openDescribes();
    void streamCountsAndLanguage();
    void playAdvancesAndFinishes();
    void seekWhilePaused();
    void rateTwoAndBack();
    void reverseRate_data();
    void reverseRate();
    void audioStreamSwitch();
    void rateAndSeekRightAfterStreamSwitch_data();
    void rateAndSeekRightAfterStreamSwitch();
    void subtitlesFollowPosition();
    void subtitlesOffStaySilent();
    void embeddedSubtitleStreamSwitch_data();
    void embeddedSubtitleStreamSwitch();
    void subtitleSwitchesInAPause();
    void externalSubtitleFile();
    void pauseStopAndReset();
    void volume();
    void decoderSwitches();
    void callsFromThreadWithoutEventLoop();
    void twoPlayersAreIndependent();
    void configuredSinks();
};

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

void tst_E2ePlayer::rateAndSeekRightAfterStreamSwitch_data()
{
    QTest::addColumn<QByteArray>("medium");
    QTest::addColumn<bool>("playing");
    QTest::addColumn<bool>("rateFirst");
    QTest::addColumn<bool>("rateAfter");

    // The movie, and its two audio tracks alone: there the seek has no chain
    // but the switched one to go up through.
    for (const char *medium : {"av.mp4", "twoaudio.m4a"}) {
        QTest::addRow("%s playing: switch, rate, seek", medium) << QByteArray(medium) << true << false << true;
        QTest::addRow("%s playing: rate, switch, seek", medium) << QByteArray(medium) << true << true << false;
        QTest::addRow("%s paused: switch, rate, seek", medium) << QByteArray(medium) << false << false << true;
        QTest::addRow("%s paused: switch, seek", medium) << QByteArray(medium) << false << false << false;
        QTest::addRow("%s paused: rate, switch, seek", medium) << QByteArray(medium) << false << true << false;
    }
}

// A switch of the audio stream, then flushing seeks (a rate change is one)
// with nothing waited for between: each call completes, and playback goes on
// from the target with the new stream at the new rate. In a pause the sink
// holds its preroll, which is where a seek after a switch used to wait for
// ever.
void tst_E2ePlayer::rateAndSeekRightAfterStreamSwitch()
{
    QFETCH(QByteArray, medium);
    QFETCH(bool, playing);
    QFETCH(bool, rateFirst);
    QFETCH(bool, rateAfter);

    m_player = open(local(medium));
    QVERIFY(m_player);
    QCOMPARE(playing ? m_player->play() : m_player->pause(), 0);
    if (playing)
        QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 200, 3000);
    if (rateFirst)
        QCOMPARE(m_player->setSpeed(2.0), 0);
    QCOMPARE(m_player->changeStream(SPPlayer::STREAM_AUDIO, 1), 0);
    if (rateAfter)
        QCOMPARE(m_player->setSpeed(2.0), 0);
    QCOMPARE(m_player->seekTo(4000), 0);
    const bool rateChanged = rateFirst || rateAfter;
    QVERIFY(m_events->waitFor("streamChanged(1,1)"));
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_AUDIO), 1);
    if (!playing) {
        QTRY_COMPARE_WITH_TIMEOUT(m_player->getPosition(), 4000LL, 3000);
        QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PAUSED));
        QCOMPARE(m_player->play(), 0);
    }
    if (rateChanged) {
        QVERIFY(m_events->waitFor("speedChanged(2)"));
        QCOMPARE(m_player->getSpeed(), 2.0);
    }
    QTRY_VERIFY_WITH_TIMEOUT(m_player->getPosition() >= 4600, 3000);
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_AUDIO), 1);
    const QStringList errors = m_events->eventsNamed("error");
    QVERIFY2(errors.isEmpty(), qPrintable(errors.join(QLatin1Char(' ')) + QLatin1Char('\n') + m_runtime->daemonLog()));
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
void tst_E2ePlayer::embeddedSubtitleStreamSwitch_data()
{
    QTest::addColumn<bool>("playing");
    QTest::addColumn<QString>("cue");
    QTest::addColumn<QString>("otherStreamsCue");

    // Switched while paused at the start, then sent into the third cue: once
    // playing, that cue comes from the new stream.
    QTest::newRow("paused") << false << "Dritte Zeile" << "Third line";
    // Switched while playing the first cue: the next cue comes from the new stream.
    QTest::newRow("playing") << true << "Zweite Zeile" << QString::fromUtf8("Zweite Zeile äöü");
}

// A switch between the medium's two subtitle streams (with a flushing seek of
// the engine's own), paused or playing: the call completes, the cues come
// from the new stream and playback goes on.
void tst_E2ePlayer::embeddedSubtitleStreamSwitch()
{
    QFETCH(bool, playing);
    QFETCH(QString, cue);
    QFETCH(QString, otherStreamsCue);

    m_player = open(local("twosubs.mp4"));
    QVERIFY(m_player);
    QCOMPARE(setFlag(m_player.get(), "mPlayer", "set-subtitle-onoff", true), 0);
    if (playing) {
        QCOMPARE(m_player->play(), 0);
        QVERIFY(m_events->waitFor("subtitleChanged(First line,1)"));
    } else {
        QCOMPARE(m_player->pause(), 0);
    }
    const int cuesBefore = m_events->eventsNamed("subtitleChanged").size();
    QCOMPARE(m_player->changeStream(SPPlayer::STREAM_SUBTITLE, 1), 0);
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_SUBTITLE), 1);
    QVERIFY(m_events->waitFor("streamChanged(3,1)"));
    if (!playing) {
        QCOMPARE(m_player->seekTo(4200), 0);
        QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PAUSED));
        QCOMPARE(m_player->play(), 0);
    }
    QVERIFY(m_events->waitFor(QStringLiteral("subtitleChanged(%1,1)").arg(cue)));
    const QStringList cuesAfter = m_events->eventsNamed("subtitleChanged").mid(cuesBefore);
    QVERIFY2(!cuesAfter.contains(QStringLiteral("subtitleChanged(%1,1)").arg(otherStreamsCue)),
             qPrintable(cuesAfter.join(QLatin1Char(' '))));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));
    const QStringList errors = m_events->eventsNamed("error");
    QVERIFY2(errors.isEmpty(), qPrintable(errors.join(QLatin1Char(' ')) + QLatin1Char('\n') + m_runtime->daemonLog()));
}

// Subtitle switches in a pause, back to back, each stream chosen twice in a
// row: every switch seeks (with a flush) while playbin's sink bin may still be
// flushing its subtitle chain after the switch before. Every call is
// answered, and the cues then come from the stream chosen last.
void tst_E2ePlayer::subtitleSwitchesInAPause()
{
    const int switches = 40;
    m_player = open(local("twosubs.mp4"));
    QVERIFY(m_player);
    QCOMPARE(setFlag(m_player.get(), "mPlayer", "set-subtitle-onoff", true), 0);
    QCOMPARE(m_player->pause(), 0);
    for (int i = 0; i < switches; ++i)
        QCOMPARE(m_player->changeStream(SPPlayer::STREAM_SUBTITLE, (i / 2) % 2), 0);
    QCOMPARE(m_player->getCurrentStream(SPPlayer::STREAM_SUBTITLE), 1);
    QCOMPARE(m_player->seekTo(4200), 0);
    QCOMPARE(m_player->play(), 0);
    QVERIFY(m_events->waitFor("subtitleChanged(Dritte Zeile,1)"));
    QCOMPARE(m_player->getState(), int(SPPlayer::STATE_PLAYING));
}

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
