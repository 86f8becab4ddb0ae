// QOrvicPlayerSession with nothing injected: the shared library on the real
// host platform (psserver on GStreamer, the property service that starts
// and stops it, the file metadata reader), driven as a client would drive it.
// The watchdog is fed by timeUpdate from a timer, as a client feeds it.
#include "e2esupport.h"
#include "sessionrecorder.h"
#include "../hostservice/subtitlesamples.h"

#include <qorvicplayersession.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>
#include <QtCore/QRegularExpression>
#include <QtCore/QSize>
#include <QtCore/QTimer>
#include <QtMultimedia/QMediaMetaData>
#include <QtTest/QtTest>

#include <algorithm>
#include <csignal>
#include <memory>

using namespace orvice2e;
using orvictest::SessionRecorder;
using Session = QOrvicPlayerSession;

namespace {

// A client's time updates: what the session reports as its position, fed
// back at a steady pace.
const int kTimeUpdateMs = 100;

QString medium(const QString &name)
{
    return mediaPath(name);
}

} // namespace

class tst_E2eSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void comesUpAgainstRealService();
    void openPlayAndControlMp4();
    void subtitlesThroughSession();
    void subtitleFileThroughSession();
    void ratesOnTheRealEngine_data();
    void ratesOnTheRealEngine();
    void audioStreamOfAudioOnlyMediumIsRefused();
    void openWhilePlayingStopsFirst();
    void brokenMedia_data();
    void brokenMedia();
    void missingMedium();
    void metadataOnlySession();
    void metadataOnlySessionPublishesBeforeFailing();
    void networkStreamFailsAsFormatNotSupported();
    void recoversFromKill();
    void recoversFromFreeze();
    void pausedBeforeKillIsPausedAgain();
    void secondFailureOfSameMediumIsNotReopened();
    void playsWithLongRuntimeDirectory();

private:
    void createSession();
    bool openMedium(const QString &name);
    QVariantMap lastMetadata() const;
    // Starts feeding timeUpdate(position()) every kTimeUpdateMs.
    void startTimeUpdates();
    // Kills or freezes the daemon while the session plays; returns the time
    // from the signal until the session plays again from near where it was,
    // or -1.
    qint64 interruptAndWaitForResume(int sig);

    std::unique_ptr<RuntimeDir> m_runtime;
    std::unique_ptr<Session> m_session;
    std::unique_ptr<SessionRecorder> m_recorder;
    QTimer m_timeUpdates;
};

void tst_E2eSession::init()
{
    m_runtime.reset(new RuntimeDir);
    QVERIFY(m_runtime->isValid());
}

void tst_E2eSession::cleanup()
{
    m_timeUpdates.stop();
    m_timeUpdates.disconnect();
    if (m_session)
        m_session->stop();
    m_session.reset();
    m_recorder.reset();
    if (m_runtime) {
        // Stopped first: a sanitizer's report is written when the daemon exits.
        QCOMPARE(stopService(), 0);
        const QByteArray log = m_runtime->daemonLog();
        QVERIFY2(!hasSanitizerReport(log), log.constData());
    }
    m_runtime.reset();
}

void tst_E2eSession::createSession()
{
    m_session.reset(new Session(QMediaPlayer::Flags{}));
    m_recorder.reset(new SessionRecorder(m_session.get()));
}

bool tst_E2eSession::openMedium(const QString &name)
{
    m_session->manageActList(Session::Msg_SetMedia, medium(name));
    return QTest::qWaitFor([this] {
        return m_recorder->texts({"playbackRateChanged"}).contains("playbackRateChanged(1)");
    }, 10000);
}

QVariantMap tst_E2eSession::lastMetadata() const
{
    const QList<orvictest::RecordedSignal> all = m_recorder->signalsEmitted();
    for (auto it = all.crbegin(); it != all.crend(); ++it) {
        if (it->name == QLatin1String("metadataChanged"))
            return it->args.value(0).toMap();
    }
    return QVariantMap();
}

void tst_E2eSession::startTimeUpdates()
{
    m_timeUpdates.setInterval(kTimeUpdateMs);
    connect(&m_timeUpdates, &QTimer::timeout, this, [this] { m_session->timeUpdate(m_session->position()); });
    m_timeUpdates.start();
}

void tst_E2eSession::comesUpAgainstRealService()
{
    QCOMPARE(serviceStatus(), QByteArray("stopped"));
    QElapsedTimer timer;
    timer.start();
    createSession();
    const qint64 constructionMs = timer.elapsed();
    qInfo("session construction with the service start: %lld ms", constructionMs);

    QCOMPARE(serviceStatus(), QByteArray("running"));
    QVERIFY(daemonPid() > 0);
    QCOMPARE(m_session->state(), Session::Player_Initialized);
    QCOMPARE(m_session->volume(), 100); // the engine's own volume
    QCOMPARE(m_session->isMuted(), false);
    QCOMPARE(m_session->playbackRate(), 1.0f);

    // A second session shares the running daemon.
    const pid_t daemon = daemonPid();
    Session second{QMediaPlayer::Flags{}};
    QCOMPARE(second.state(), Session::Player_Initialized);
    QCOMPARE(daemonPid(), daemon);
}

void tst_E2eSession::openPlayAndControlMp4()
{
    createSession();
    QElapsedTimer timer;
    timer.start();
    m_session->manageActList(Session::Msg_SetMedia, medium("av.mp4"));
    QTRY_VERIFY_WITH_TIMEOUT(!m_recorder->texts({"metadataChanged"}).isEmpty(), 10000);
    qInfo("open to metadata: %lld ms", timer.elapsed());
    QTRY_VERIFY(m_recorder->texts({"playbackRateChanged"}).contains("playbackRateChanged(1)"));

    // The open's own announcements; the engine's callbacks repeat duration
    // and seekability on their own thread, in no fixed order with these.
    QCOMPARE(m_recorder->texts({"stateChanged", "positionChanged", "error"}),
             QStringList({"stateChanged(3)", "stateChanged(4)", "positionChanged(0)"}));
    QVERIFY(m_recorder->texts({"seekableChanged"}).contains("seekableChanged(true)"));
    QVERIFY(m_recorder->texts({"durationChanged"}).contains("durationChanged(6000)"));
    QVERIFY(!m_recorder->texts({"seekableChanged"}).contains("seekableChanged(false)"));
    const QVariantMap meta = lastMetadata();
    QCOMPARE(meta.value(QMediaMetaData::Duration).toLongLong(), 6000LL);
    QCOMPARE(meta.value(QMediaMetaData::Resolution).toSize(), QSize(160, 120));
    QCOMPARE(meta.value(QMediaMetaData::AudioStreamCount).toInt(), 2);
    QCOMPARE(meta.value(QMediaMetaData::SubtitleCount).toInt(), 1);
    QVERIFY(!meta.value(QMediaMetaData::VideoCodec).toString().isEmpty());
    QVERIFY(!meta.value(QMediaMetaData::AudioCodec).toString().isEmpty());
    QTRY_VERIFY(m_session->isSeekable()); // stored from the engine's callback
    QCOMPARE(m_session->duration(), 0LL); // only known to the session once playing

    m_recorder->clear();
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_COMPARE(m_session->state(), Session::Player_Play);
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 300, 3000);
    QCOMPARE(m_session->duration(), 6000LL);

    m_session->manageActList(Session::Msg_Position, 3000);
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 3000, 3000);

    m_session->manageActList(Session::Msg_PlayBackRate, 2.0);
    QTRY_COMPARE(m_session->state(), Session::Player_FF);
    QTRY_COMPARE(m_session->playbackRate(), 2.0f);
    m_session->manageActList(Session::Msg_PlayBackRate, 1.0);
    QTRY_COMPARE(m_session->state(), Session::Player_Play);
    QCOMPARE(m_session->playbackRate(), 1.0f);
    QVERIFY(m_recorder->texts({"playbackRateChanged"}).contains("playbackRateChanged(2)"));

    // The second audio track: 880 Hz, French.
    m_session->manageActList(Session::Msg_AudioStream, 1);
    QTRY_VERIFY(m_recorder->texts({"metaDataChanged"}).contains(
            QStringLiteral("metaDataChanged(%1,1)").arg(QMediaMetaData::AudioStream)));
    QCOMPARE(m_session->getCurrentAudioStream(), 1);
    const QStringList audioSignals = m_recorder->texts({"metaDataChanged"});
    QVERIFY2(audioSignals.contains(QStringLiteral("metaDataChanged(%1,fre)").arg(QMediaMetaData::Language)),
             qPrintable(audioSignals.join(' ')));

    m_session->manageActList(Session::Msg_Pause, QVariant());
    QTRY_COMPARE(m_session->state(), Session::Player_Pause);
    const qint64 pausedAt = m_session->position();
    QTest::qWait(300); // the window in which nothing may move
    QCOMPARE(m_session->position(), pausedAt);

    m_recorder->clear();
    m_session->stop();
    QCOMPARE(m_recorder->texts({"stateChanged"}), QStringList({"stateChanged(3)", "stateChanged(2)"}));
    QCOMPARE(m_session->state(), Session::Player_Stop);
}

void tst_E2eSession::subtitlesThroughSession()
{
    createSession();
    QVERIFY(openMedium("av.mp4"));
    m_session->manageActList(Session::Msg_SubtitleOnOff, true);
    QTRY_VERIFY(m_recorder->texts({"metaDataChanged"}).contains(
            QStringLiteral("metaDataChanged(%1,true)").arg(QMediaMetaData::SubtitleOnOff)));
    m_session->manageActList(Session::Msg_Position, 1800);
    m_session->manageActList(Session::Msg_Play, QVariant());
    const QString second = QStringLiteral("metaDataChanged(%1,Zweite Zeile äöü)").arg(QMediaMetaData::SubTitle);
    QTRY_VERIFY_WITH_TIMEOUT(m_recorder->texts({"metaDataChanged"}).contains(second), 5000);
    const qint64 shownAt = m_session->position();
    QVERIFY2(shownAt >= 1950 && shownAt < 2500, qPrintable(QString::number(shownAt)));

    // Off again: the next cue passes unpublished.
    m_session->manageActList(Session::Msg_SubtitleOnOff, false);
    m_session->manageActList(Session::Msg_Position, 3900);
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 4300, 3000);
    const QStringList subtitles = m_recorder->texts({"metaDataChanged"}).filter(QMediaMetaData::SubTitle + ",");
    QCOMPARE(subtitles, QStringList({second}));
}

// A Korean SAMI file in CP949 beside a film of no subtitles of its own: two
// streams (its Korean and English classes), named in the subtitle records,
// their lines at their times, switched by the subtitle number.
void tst_E2eSession::subtitleFileThroughSession()
{
    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    const QString film = folder.filePath("film.mp4");
    QVERIFY(QFile::copy(medium("plain.mp4"), film));
    QFile sami(folder.filePath("film.smi"));
    QVERIFY(sami.open(QIODevice::WriteOnly));
    const QByteArray bytes = subtitlesamples::koreanSami();
    QCOMPARE(sami.write(bytes), qint64(bytes.size()));
    sami.close();

    createSession();
    m_session->manageActList(Session::Msg_SetMedia, film);
    QTRY_VERIFY_WITH_TIMEOUT(m_recorder->texts({"playbackRateChanged"}).contains("playbackRateChanged(1)"), 10000);
    const QVariantMap meta = lastMetadata();
    QCOMPARE(meta.value(QMediaMetaData::SubtitleCount).toInt(), 2);
    QCOMPARE(meta.value(QMediaMetaData::SubtitleId).toInt(), 0);
    QStringList languages;
    for (int i = 0; i < 2; ++i) {
        const QVariant info = m_session->metadataInvoke(QMediaPlayer::SubtitleStreamInvoke, i);
        languages.append(info.value<QMediaPlayer::SubtitleInfo>().language);
    }
    QCOMPARE(languages, QStringList({"ko", "en"}));

    const auto line = [](const QString &text) {
        return QStringLiteral("metaDataChanged(%1,%2)").arg(QMediaMetaData::SubTitle, text);
    };
    const auto lines = [this] {
        return m_recorder->texts({"metaDataChanged"}).filter(QMediaMetaData::SubTitle + ",");
    };
    m_session->manageActList(Session::Msg_SubtitleOnOff, true);
    m_session->manageActList(Session::Msg_Play, QVariant());
    const QString first = line(QStringLiteral("안녕하세요,\n만나서 반갑습니다."));
    QTRY_VERIFY_WITH_TIMEOUT(lines().contains(first), 5000);
    const qint64 shownAt = m_session->position();
    // Never before its time; read late by up to a second on a busy machine.
    QVERIFY2(shownAt >= 250 && shownAt < 1300, qPrintable(QString::number(shownAt)));
    QTRY_COMPARE_WITH_TIMEOUT(lines(), QStringList({first, line(QString())}), 3000);

    // The English class from here on: its second line at 1.2 s.
    m_session->manageActList(Session::Msg_SubtitleNum, 1);
    QTRY_VERIFY(m_recorder->texts({"metaDataChanged"}).contains(
            QStringLiteral("metaDataChanged(%1,1)").arg(QMediaMetaData::SubtitleId)));
    const QString second = line(QStringLiteral("The weather is lovely today."));
    QTRY_VERIFY_WITH_TIMEOUT(lines().contains(second), 5000);
    const qint64 secondAt = m_session->position();
    QVERIFY2(secondAt >= 1150 && secondAt < 2200, qPrintable(QString::number(secondAt)));
    QTRY_COMPARE_WITH_TIMEOUT(lines(), QStringList({first, line(QString()), second, line(QString())}), 3000);
    QCOMPARE(lastMetadata().value(QMediaMetaData::SubtitleId).toInt(), 1);
}

void tst_E2eSession::ratesOnTheRealEngine_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<float>("rate");
    QTest::addColumn<int>("state");     // -1: refused
    QTest::addColumn<QString>("signal"); // what the session reports

    QTest::newRow("fast forward") << "av.mp4" << 2.0f << int(Session::Player_FF) << "playbackRateChanged(2)";
    QTest::newRow("slow forward") << "av.mp4" << 0.5f << int(Session::Player_SF) << "playbackRateChanged(0.5)";
    QTest::newRow("fast backward") << "av.mp4" << -2.0f << int(Session::Player_FB) << "playbackRateChanged(-2)";
    // The engine cannot play at rate 0; the session's table would call it fast forward.
    QTest::newRow("zero") << "av.mp4" << 0.0f << -1 << "mediaMessageChanged(2,0)";
    QTest::newRow("slow backward") << "av.mp4" << -0.5f << -1 << "mediaMessageChanged(2,-0.5)";
    QTest::newRow("backward on mpeg-ts") << "av.ts" << -2.0f << -1 << "mediaMessageChanged(2,-2)";
}

void tst_E2eSession::ratesOnTheRealEngine()
{
    QFETCH(QString, file);
    QFETCH(float, rate);
    QFETCH(int, state);
    QFETCH(QString, signal);

    createSession();
    QVERIFY(openMedium(file));
    m_session->manageActList(Session::Msg_Position, 3000);
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(m_session->state() == Session::Player_Play && m_session->position() >= 3100, 5000);
    m_recorder->clear();
    m_session->manageActList(Session::Msg_PlayBackRate, rate);
    QTRY_VERIFY(m_recorder->texts({"playbackRateChanged", "mediaMessageChanged"}).contains(signal));
    if (state < 0) {
        QCOMPARE(m_session->state(), Session::Player_Play);
        QCOMPARE(m_recorder->texts({"stateChanged", "playbackRateChanged"}), QStringList());
        return;
    }
    QCOMPARE(int(m_session->state()), state);
    QTRY_COMPARE(m_session->playbackRate(), rate);
    const qint64 from = m_session->position();
    // Moving the way the rate says.
    QTRY_VERIFY_WITH_TIMEOUT(rate > 0 ? m_session->position() > from + 200 : m_session->position() < from - 200, 3000);
    // Play leaves trick play by returning to speed 1.
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_COMPARE(m_session->state(), Session::Player_Play);
    QCOMPARE(m_session->playbackRate(), 1.0f);
}

// The session tests the video block for an audio switch: an audio-only
// medium is refused before the engine is asked.
void tst_E2eSession::audioStreamOfAudioOnlyMediumIsRefused()
{
    createSession();
    QVERIFY(openMedium("sine.ogg"));
    m_session->manageActList(Session::Msg_AudioStream, 0);
    QTRY_VERIFY(!m_recorder->texts({"error"}).isEmpty());
    QCOMPARE(m_recorder->texts({"error"}), QStringList({"error(1,has not audio stream)"}));
}

void tst_E2eSession::openWhilePlayingStopsFirst()
{
    createSession();
    QVERIFY(openMedium("av.mp4"));
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 300, 3000);
    m_recorder->clear();
    QVERIFY(openMedium("sine.ogg"));
    QCOMPARE(m_recorder->texts({"stateChanged", "error"}),
             QStringList({"stateChanged(3)", "stateChanged(3)", "stateChanged(4)"}));
    QCOMPARE(lastMetadata().value(QMediaMetaData::Duration).toLongLong(), 4000LL);
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 300, 3000);
    QCOMPARE(m_session->duration(), 4000LL);
}

void tst_E2eSession::brokenMedia_data()
{
    QTest::addColumn<QString>("file");
    QTest::newRow("zero bytes") << "empty.mp4";
    QTest::newRow("truncated") << "truncated.mp4";
    QTest::newRow("corrupt") << "corrupt.mp4";
    QTest::newRow("wrong extension") << "notmedia.mp3";
}

// Refused at preparation: the open failure path, without a hang.
void tst_E2eSession::brokenMedia()
{
    QFETCH(QString, file);
    createSession();
    m_session->manageActList(Session::Msg_SetMedia, medium(file));
    QTRY_VERIFY_WITH_TIMEOUT(!m_recorder->texts({"error"}).isEmpty(), 10000);
    QCOMPARE(m_recorder->texts({"error", "stateChanged", "metadataChanged"}),
             QStringList({"stateChanged(3)", "error(1,video format not support)"}));
    QCOMPARE(m_session->state(), Session::Player_Stop);

    // The session goes on with a good medium.
    m_recorder->clear();
    QVERIFY(openMedium("sine.ogg"));
    QCOMPARE(m_session->state(), Session::Player_Prepared);
}

void tst_E2eSession::missingMedium()
{
    createSession();
    m_session->manageActList(Session::Msg_SetMedia, medium("no-such-file.mp4"));
    QTRY_VERIFY(!m_recorder->texts({"error"}).isEmpty());
    QCOMPARE(m_recorder->texts({"error", "stateChanged"}), QStringList({"error(2,video format not support)"}));
    QCOMPARE(m_session->state(), Session::Player_Stop);
}

void tst_E2eSession::metadataOnlySession()
{
    m_session.reset(new Session(QMediaPlayer::MetaDataOnly));
    m_recorder.reset(new SessionRecorder(m_session.get()));
    QCOMPARE(m_session->state(), Session::Player_Initialized);
    QVERIFY(openMedium("av.mp4"));
    QCOMPARE(lastMetadata().value(QMediaMetaData::Duration).toLongLong(), 6000LL);
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY(!m_recorder->texts({"error"}).isEmpty());
    QCOMPARE(m_recorder->texts({"error"}), QStringList({"error(1,onlymetadata flag not support play)"}));
    QCOMPARE(m_session->state(), Session::Player_Prepared);
}

// A metadata-only session whose preparation fails still publishes what the
// reader found, then the error.
void tst_E2eSession::metadataOnlySessionPublishesBeforeFailing()
{
    m_session.reset(new Session(QMediaPlayer::MetaDataOnly));
    m_recorder.reset(new SessionRecorder(m_session.get()));
    m_session->manageActList(Session::Msg_SetMedia, medium("truncated.mp4"));
    QTRY_VERIFY_WITH_TIMEOUT(!m_recorder->texts({"error"}).isEmpty(), 10000);
    const QStringList texts = m_recorder->texts({"stateChanged", "metadataChanged", "error"});
    QCOMPARE(texts.size(), 3);
    QCOMPARE(texts.at(0), QStringLiteral("stateChanged(3)"));
    QVERIFY(texts.at(1).startsWith("metadataChanged("));
    QCOMPARE(texts.at(2), QStringLiteral("error(1,video format not support)"));
}

// A stream: no metadata from the open, duration and seekability from the
// engine's callbacks, buffering as media message 0, and a server that goes
// away mid-stream as the engine error that reads "file format not support".
void tst_E2eSession::networkStreamFailsAsFormatNotSupported()
{
    const QString file = medium("av-indexed.mp4");
    HttpFileServer server(file, 60000, QFileInfo(file).size() * 6 / 10);
    createSession();
    m_session->manageActList(Session::Msg_SetMedia, QString::fromUtf8(server.url()));
    QTRY_VERIFY_WITH_TIMEOUT(m_recorder->texts({"playbackRateChanged"}).contains("playbackRateChanged(1)"), 10000);
    QCOMPARE(m_recorder->texts({"stateChanged", "metadataChanged", "positionChanged"}),
             QStringList({"stateChanged(3)", "stateChanged(4)"}));
    QTRY_VERIFY(m_recorder->texts({"durationChanged"}).contains("durationChanged(6000)"));
    QTRY_VERIFY(m_recorder->texts({"seekableChanged"}).contains("seekableChanged(true)"));
    QVERIFY(!m_recorder->texts({"mediaMessageChanged"}).filter(QRegularExpression("^mediaMessageChanged\\(0,\\d+\\)$")).isEmpty());

    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(!m_recorder->texts({"error"}).isEmpty(), 10000);
    QCOMPARE(m_recorder->texts({"error"}), QStringList({"error(2,file format not support)"}));
}

qint64 tst_E2eSession::interruptAndWaitForResume(int sig)
{
    createSession();
    if (!openMedium("av.mp4"))
        return -1;
    startTimeUpdates();
    m_session->manageActList(Session::Msg_Play, QVariant());
    if (!QTest::qWaitFor([this] { return m_session->position() >= 1500; }, 5000))
        return -1;

    const pid_t before = daemonPid();
    const int startsBefore = m_recorder->texts({"stateChanged"}).count("stateChanged(1)");
    QElapsedTimer timer;
    timer.start();
    const qint64 interruptedAt = m_session->position();
    ::kill(before, sig);

    // Recovery happens inside one time update: a new daemon, the session
    // initialised again, the medium reopened, played and sought to the
    // position the watchdog saved.
    const bool recovered = QTest::qWaitFor([&] {
        return m_recorder->texts({"stateChanged"}).count("stateChanged(1)") > startsBefore
                && m_session->state() == Session::Player_Play;
    }, 15000);
    const qint64 recoveryMs = timer.elapsed();
    const qint64 resumedAt = m_session->position();
    const pid_t after = daemonPid();
    if (!recovered || after == 0 || after == before) {
        qWarning("not recovered: state %d, daemon %d -> %d", int(m_session->state()), int(before), int(after));
        return -1;
    }
    // Within a second of where playback was when the service went.
    if (qAbs(resumedAt - interruptedAt) > 1000) {
        qWarning("resumed at %lld, interrupted at %lld", resumedAt, interruptedAt);
        return -1;
    }
    if (!QTest::qWaitFor([&] { return m_session->position() >= resumedAt + 300; }, 3000))
        return -1;
    qInfo("interrupted at %lld ms, resumed at %lld ms", interruptedAt, resumedAt);
    return recoveryMs;
}

void tst_E2eSession::recoversFromKill()
{
    const qint64 ms = interruptAndWaitForResume(SIGKILL);
    QVERIFY2(ms >= 0, m_runtime->daemonLog().constData());
    qInfo("recovery after SIGKILL: %lld ms", ms);
}

void tst_E2eSession::recoversFromFreeze()
{
    const qint64 ms = interruptAndWaitForResume(SIGSTOP);
    QVERIFY2(ms >= 0, m_runtime->daemonLog().constData());
    qInfo("recovery after SIGSTOP: %lld ms", ms);
}

void tst_E2eSession::pausedBeforeKillIsPausedAgain()
{
    createSession();
    QVERIFY(openMedium("av.mp4"));
    startTimeUpdates();
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 1500, 5000);
    m_session->manageActList(Session::Msg_Pause, QVariant());
    QTRY_COMPARE(m_session->state(), Session::Player_Pause);
    const qint64 pausedAt = m_session->position();

    m_recorder->clear();
    const pid_t before = daemonPid();
    QVERIFY(signalDaemon(SIGKILL));
    // Restart, reopen, play, seek, pause again.
    QTRY_VERIFY_WITH_TIMEOUT(m_recorder->texts({"stateChanged"}).contains("stateChanged(10)"), 10000);
    QVERIFY(daemonPid() != before);
    QCOMPARE(m_session->state(), Session::Player_Pause);
    QTRY_VERIFY_WITH_TIMEOUT(qAbs(m_session->position() - pausedAt) <= kTimeUpdateMs + 50, 3000);
    const qint64 at = m_session->position();
    QTest::qWait(300); // paused: nothing moves
    QCOMPARE(m_session->position(), at);
    const QStringList states = m_recorder->texts({"stateChanged"});
    QCOMPARE(states.last(), QStringLiteral("stateChanged(10)"));
    QVERIFY(states.contains("stateChanged(1)") && states.contains("stateChanged(5)"));
}

// A medium that takes the service down a second time is not reopened.
void tst_E2eSession::secondFailureOfSameMediumIsNotReopened()
{
    createSession();
    QVERIFY(openMedium("av.mp4"));
    startTimeUpdates();
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 500, 5000);
    QVERIFY(signalDaemon(SIGKILL));
    QTRY_VERIFY_WITH_TIMEOUT(m_session->state() == Session::Player_Play && daemonPid() != 0
                                     && m_session->position() > 600, 10000);

    m_recorder->clear();
    QVERIFY(signalDaemon(SIGKILL));
    QTRY_VERIFY_WITH_TIMEOUT(m_recorder->texts({"stateChanged"}).contains("stateChanged(1)"), 10000);
    QTRY_COMPARE_WITH_TIMEOUT(serviceStatus(), QByteArray("running"), 5000);
    QTest::qWait(3 * kTimeUpdateMs); // a few more time updates: nothing else happens
    QCOMPARE(m_session->state(), Session::Player_Initialized);
    QCOMPARE(m_recorder->texts({"stateChanged"}), QStringList({"stateChanged(1)"}));
}

// A runtime directory far longer than a Unix socket path may be: the service
// starts, and a medium opens and plays through it.
void tst_E2eSession::playsWithLongRuntimeDirectory()
{
    m_runtime.reset(); // gives the environment back first
    m_runtime.reset(new RuntimeDir(200));
    QVERIFY(m_runtime->isValid());
    QCOMPARE(m_runtime->path().size(), 200);
    QCOMPARE(qgetenv("ORVIC_RUNTIME_DIR").size(), 200);

    createSession();
    QCOMPARE(serviceStatus(), QByteArray("running"));
    QCOMPARE(m_session->state(), Session::Player_Initialized);
    QVERIFY(openMedium("sine.mp3"));
    m_session->manageActList(Session::Msg_Play, QVariant());
    QTRY_COMPARE(m_session->state(), Session::Player_Play);
    QTRY_VERIFY_WITH_TIMEOUT(m_session->position() >= 300, 3000);
    QVERIFY(m_runtime->daemonLog().contains("listening on @orvic-psserver-"));
}

QTEST_GUILESS_MAIN(tst_E2eSession)
#include "tst_e2e_session.moc"
