// QMediaPlayer through the back end plugin on the real playback service:
// which plugin is chosen, and the exact state and media status sequences
// of loading, transport, seeking, the end of media, errors and teardown.
#include "pluginplayertest.h"

#include <QtCore/QFile>
#include <QtCore/QProcess>
#include <QtCore/QScopeGuard>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTimer>
#include <QtMultimedia/QMediaPlayer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtMultimedia/QMediaService>
#include <QtCore/QScopeGuard>
#include <QtTest/QtTest>

#include <csignal>
#include <memory>

using namespace orvice2e;

namespace {
// Serves one file over HTTP at a slow pace until told to break off; from
// then on it drops its connections and answers 404, as a server that went
// away in the middle of a stream. Runs on the test's thread, which the
// plugin never blocks.
class BreakingHttpServer : public QObject
{
public:
    explicit BreakingHttpServer(const QString &file)
    {
        QFile f(file);
        if (f.open(QIODevice::ReadOnly))
            m_data = f.readAll();
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                socket->setParent(this);
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { answer(socket); });
            }
        });
        m_server.listen(QHostAddress::LocalHost);
    }
    QUrl url() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/av.mp4").arg(m_server.serverPort())); }
    void breakOff()
    {
        m_broken = true;
        for (QTcpSocket *socket : findChildren<QTcpSocket *>())
            socket->abort();
    }

private:
    void answer(QTcpSocket *socket)
    {
        if (!socket->readAll().contains("\r\n\r\n") && !m_broken)
            return;
        if (m_broken) {
            socket->write("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
            return;
        }
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: video/mp4\r\nConnection: close\r\nContent-Length: "
                      + QByteArray::number(m_data.size()) + "\r\n\r\n");
        // A tenth of the file at once, the rest slowly: playback starts long
        // before the end, whatever the machine's speed.
        const int head = m_data.size() / 10;
        socket->write(m_data.left(head));
        auto *timer = new QTimer(socket);
        qint64 offset = head;
        connect(timer, &QTimer::timeout, socket, [this, socket, offset]() mutable {
            const QByteArray chunk = m_data.mid(int(offset), 2048);
            offset += chunk.size();
            socket->write(chunk);
        });
        timer->start(100);
    }

    QTcpServer m_server;
    QByteArray m_data;
    bool m_broken = false;
};
} // namespace

class tst_PluginPlayer : public PluginPlayerTestBase
{
    Q_OBJECT

private Q_SLOTS:
    void pluginIsSelected();
    void loadSequence();
    void playBeforeLoaded();
    void stopWhileLoading();
    void transportSequence();
    void seek_data();
    void seek();
    void endOfMediaAndReplay();
    void unloadAndReload();
    void invalidMedia_data();
    void invalidMedia();
    void brokenNetworkStream();
    void volumeAndMuteAcrossMedia();
    void deleteFromSlotAtEndOfMedia();
    void serviceFailingTwiceIsAResourceError();
    void serviceMissing();
};

void tst_PluginPlayer::pluginIsSelected()
{
    QMediaService *service = m_player->service();
    QVERIFY(service);
    QCOMPARE(service->metaObject()->className(), "QOrvicMediaService");
    QCOMPARE(m_player->availability(), QMultimedia::Available);
    QVERIFY(m_player->isAvailable());
    QCOMPARE(serviceStatus(), QByteArray("running"));
}

void tst_PluginPlayer::loadSequence()
{
    QSignalSpy duration(m_player.get(), &QMediaPlayer::durationChanged);
    m_player->setMedia(media("sine.mp3"));
    // Loading is announced at once, the rest when the service has prepared.
    QCOMPARE(m_rec->events(), QStringList{"status:LoadingMedia"});
    QCOMPARE(m_player->state(), QMediaPlayer::StoppedState);
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "status:LoadedMedia"}));
    QVERIFY2(m_player->duration() > 3500 && m_player->duration() < 4500, qPrintable(QString::number(m_player->duration())));
    QVERIFY(!duration.isEmpty());
    QVERIFY(m_player->isSeekable());
    QVERIFY(m_player->isAudioAvailable());
    QVERIFY(!m_player->isVideoAvailable());
    QCOMPARE(m_player->position(), qint64(0));
    QCOMPARE(m_player->error(), QMediaPlayer::NoError);
}

void tst_PluginPlayer::playBeforeLoaded()
{
    m_player->setMedia(media("sine.mp3"));
    m_player->play();
    // Playing at once, as documented; the medium follows.
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "state:PlayingState"}));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::BufferedMedia, kLoadMs));
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "state:PlayingState", "status:BufferedMedia"}));
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);
}

void tst_PluginPlayer::stopWhileLoading()
{
    m_player->setMedia(media("sine.mp3"));
    m_player->play();
    m_player->stop();
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "state:PlayingState", "state:StoppedState"}));
    // Loading still ends, and nothing plays.
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "state:PlayingState", "state:StoppedState",
                                           "status:LoadedMedia"}));
    QCOMPARE(m_player->position(), qint64(0));
    m_player->play();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);
}

void tst_PluginPlayer::transportSequence()
{
    loadAndWait("sine.mp3");
    m_rec->clear();

    m_player->play();
    QCOMPARE(m_rec->events(), (QStringList{"status:BufferedMedia", "state:PlayingState"}));
    // Positions are notified while playing, at the notify interval.
    QTRY_VERIFY_WITH_TIMEOUT(m_rec->positions().size() >= 3 && m_player->position() > 300, 10000);

    m_rec->clear();
    m_player->pause();
    QCOMPARE(m_rec->events(), QStringList{"state:PausedState"});
    const qint64 paused = m_player->position();
    QVERIFY(paused > 0);

    m_rec->clear();
    m_player->play();
    QCOMPARE(m_rec->events(), QStringList{"state:PlayingState"});
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > paused, 10000);

    m_rec->clear();
    m_player->stop();
    QCOMPARE(m_player->state(), QMediaPlayer::StoppedState);
    QCOMPARE(m_player->position(), qint64(0));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia));
    QCOMPARE(m_rec->events(), (QStringList{"state:StoppedState", "status:LoadedMedia"}));
    QVERIFY(m_rec->positions().contains(0));

    // Stopped again: nothing to announce.
    m_rec->clear();
    m_player->stop();
    QVERIFY(m_rec->events().isEmpty());

    // Playing after a stop starts from the beginning.
    m_player->play();
    QCOMPARE(m_rec->events(), (QStringList{"status:BufferedMedia", "state:PlayingState"}));
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 100, 10000);
    QVERIFY(m_player->position() < 3000);
}

void tst_PluginPlayer::seek_data()
{
    QTest::addColumn<QMediaPlayer::State>("from");
    QTest::addColumn<QStringList>("beforePlay");
    QTest::newRow("stopped") << QMediaPlayer::StoppedState << QStringList();
    QTest::newRow("paused") << QMediaPlayer::PausedState << QStringList{"status:BufferedMedia", "state:PausedState"};
    QTest::newRow("playing") << QMediaPlayer::PlayingState << QStringList{"status:BufferedMedia", "state:PlayingState"};
}

void tst_PluginPlayer::seek()
{
    QFETCH(QMediaPlayer::State, from);
    QFETCH(QStringList, beforePlay);
    loadAndWait("sine.mp3");
    m_rec->clear();
    if (from == QMediaPlayer::PausedState)
        m_player->pause();
    else if (from == QMediaPlayer::PlayingState)
        m_player->play();
    QCOMPARE(m_rec->events(), beforePlay);
    if (from != QMediaPlayer::StoppedState)
        QTRY_COMPARE_WITH_TIMEOUT(m_player->mediaStatus(), QMediaPlayer::BufferedMedia, kLoadMs);

    m_rec->clear();
    m_player->setPosition(2500);
    // A seek changes neither state nor status; the position follows it.
    QCOMPARE(m_player->position(), qint64(2500));
    QTRY_VERIFY_WITH_TIMEOUT(m_rec->positions().contains(2500), 10000);
    QCOMPARE(m_rec->events(), QStringList());
    QCOMPARE(m_player->state(), from);

    if (from != QMediaPlayer::PlayingState)
        m_player->play();
    // Playback goes on from the new position, not from the start.
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 2600, 10000);
    QVERIFY(m_player->position() >= 2500);
}

void tst_PluginPlayer::endOfMediaAndReplay()
{
    loadAndWait("sine.mp3");
    m_player->setPosition(3000);
    m_rec->clear();
    m_player->play();
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::EndOfMedia, kLoadMs));
    QCOMPARE(m_rec->events(),
             (QStringList{"status:BufferedMedia", "state:PlayingState", "status:EndOfMedia", "state:StoppedState"}));
    QCOMPARE(m_player->position(), m_player->duration());

    m_rec->clear();
    m_player->play();
    QCOMPARE(m_rec->events(), (QStringList{"status:BufferedMedia", "state:PlayingState"}));
    QCOMPARE(m_player->position(), qint64(0));
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);
}

void tst_PluginPlayer::unloadAndReload()
{
    loadAndWait("sine.mp3");
    m_player->play();
    QTRY_COMPARE_WITH_TIMEOUT(m_player->mediaStatus(), QMediaPlayer::BufferedMedia, kLoadMs);
    m_rec->clear();

    m_player->setMedia(QMediaContent());
    QCOMPARE(m_rec->events(), (QStringList{"state:StoppedState", "status:NoMedia"}));
    QCOMPARE(m_player->position(), qint64(0));
    QVERIFY(!m_player->isSeekable());
    QVERIFY(!m_player->isAudioAvailable());
    QVERIFY(!m_player->isMetaDataAvailable());

    m_rec->clear();
    m_player->setMedia(media("sine.ogg"));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "status:LoadedMedia"}));
    QVERIFY(m_player->isAudioAvailable());

    // The same medium again is a new load.
    m_rec->clear();
    m_player->setMedia(media("sine.ogg"));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "status:LoadedMedia"}));
    m_player->play();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, 10000);
}

void tst_PluginPlayer::invalidMedia_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("playAtOnce");
    QTest::addColumn<QString>("errorString");
    const QString openFailed = QStringLiteral("Could not open the medium: its format is not supported or it is damaged");
    QTest::newRow("missing file") << "no-such-file.mp3" << false << "Resource not found.";
    QTest::newRow("missing file, play") << "no-such-file.mp3" << true << "Resource not found.";
    QTest::newRow("zero bytes") << "empty.mp4" << false << openFailed;
    QTest::newRow("text named mp3") << "notmedia.mp3" << false << openFailed;
    QTest::newRow("cut before index") << "truncated.mp4" << true << openFailed;
    QTest::newRow("garbage after type box") << "corrupt.mp4" << true << openFailed;
}

void tst_PluginPlayer::invalidMedia()
{
    QFETCH(QString, file);
    QFETCH(bool, playAtOnce);
    QFETCH(QString, errorString);
    m_player->setMedia(media(file));
    if (playAtOnce)
        m_player->play();
    // Never left in LoadingMedia: the failure becomes InvalidMedia and an error.
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::InvalidMedia, kLoadMs));
    QStringList expected{"status:LoadingMedia"};
    if (playAtOnce)
        expected << "state:PlayingState";
    expected << "status:InvalidMedia";
    if (playAtOnce)
        expected << "state:StoppedState";
    expected << "error:ResourceError";
    QCOMPARE(m_rec->events(), expected);
    QCOMPARE(m_player->state(), QMediaPlayer::StoppedState);
    QCOMPARE(m_player->error(), QMediaPlayer::ResourceError);
    QCOMPARE(m_player->errorString(), errorString);

    // Playing it again tries again: a missing file fails at once, a damaged
    // one is loaded anew and fails again.
    m_rec->clear();
    m_player->play();
    if (file.startsWith("no-such-file")) {
        QCOMPARE(m_rec->events(), QStringList{"error:ResourceError"});
    } else {
        QVERIFY(m_rec->waitForStatus(QMediaPlayer::InvalidMedia, kLoadMs));
        QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "state:PlayingState", "status:InvalidMedia",
                                               "state:StoppedState", "error:ResourceError"}));
    }
    QCOMPARE(m_player->state(), QMediaPlayer::StoppedState);

    // A good medium afterwards plays on the same player.
    m_rec->clear();
    loadAndWait("sine.mp3");
    QCOMPARE(m_rec->events(), (QStringList{"status:LoadingMedia", "status:LoadedMedia"}));
}

void tst_PluginPlayer::brokenNetworkStream()
{
    BreakingHttpServer server(mediaPath("av-indexed.mp4"));
    m_player->setMedia(server.url());
    m_player->play();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 0, 40000);
    QCOMPARE(m_player->state(), QMediaPlayer::PlayingState);
    const QStringList started = m_rec->events();
    QCOMPARE(started.mid(0, 2), (QStringList{"status:LoadingMedia", "state:PlayingState"}));
    // Buffering or buffered: the network decides; not at its end.
    QVERIFY2((started.contains("status:BufferedMedia") || started.contains("status:BufferingMedia"))
                     && !started.contains("status:EndOfMedia"),
             qPrintable(started.join(' ')));
    m_rec->clear();
    server.breakOff();
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::InvalidMedia, 40000));
    QCOMPARE(m_rec->events(), (QStringList{"status:InvalidMedia", "state:StoppedState", "error:NetworkError"}));
    QCOMPARE(m_player->errorString(),
             QStringLiteral("Playback stopped: the network stream broke off or could not be read"));
}

void tst_PluginPlayer::volumeAndMuteAcrossMedia()
{
    QSignalSpy volume(m_player.get(), &QMediaPlayer::volumeChanged);
    QSignalSpy muted(m_player.get(), &QMediaPlayer::mutedChanged);
    QCOMPARE(m_player->volume(), 100);
    QVERIFY(!m_player->isMuted());
    m_player->setVolume(30);
    m_player->setMuted(true);
    m_player->setVolume(30); // unchanged: no signal
    QCOMPARE(volume.size(), 1);
    QCOMPARE(volume.at(0).at(0).toInt(), 30);
    QCOMPARE(muted.size(), 1);
    loadAndWait("sine.mp3");
    loadAndWait("sine.ogg");
    m_player->play();
    QTRY_COMPARE_WITH_TIMEOUT(m_player->mediaStatus(), QMediaPlayer::BufferedMedia, kLoadMs);
    QCOMPARE(m_player->volume(), 30);
    QVERIFY(m_player->isMuted());
    QCOMPARE(volume.size(), 1);
    QCOMPARE(muted.size(), 1);
    m_player->setMuted(false);
    QCOMPARE(muted.size(), 2);
    QCOMPARE(m_player->volume(), 30);
}

void tst_PluginPlayer::deleteFromSlotAtEndOfMedia()
{
    auto *player = new QMediaPlayer;
    QPointer<QMediaPlayer> guard(player);
    bool deleted = false;
    connect(player, &QMediaPlayer::mediaStatusChanged, this, [&](QMediaPlayer::MediaStatus s) {
        if (s == QMediaPlayer::EndOfMedia) {
            delete player;
            deleted = true;
        }
    });
    player->setMedia(media("sine.mp3"));
    player->setPosition(3200);
    player->play();
    QTRY_VERIFY_WITH_TIMEOUT(deleted, kLoadMs);
    QVERIFY(guard.isNull());
    // The service goes once control is back in the event loop.
    QTest::qWait(0);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    // Another player works afterwards.
    loadAndWait("sine.mp3");
}

void tst_PluginPlayer::serviceFailingTwiceIsAResourceError()
{
    // A medium long enough to outlast two restarts of the service on a busy
    // machine: the end of media must not come first.
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString longMedium = dir.filePath("sine-60s.mp3");
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", {"-hide_banner", "-loglevel", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
                            "sine=frequency=440:duration=60", "-c:a", "libmp3lame", "-b:a", "32k", longMedium});
    QVERIFY(ffmpeg.waitForFinished(60000));
    QCOMPARE(ffmpeg.exitCode(), 0);
    m_player->setMedia(QUrl::fromLocalFile(longMedium));
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::LoadedMedia, kLoadMs));
    m_player->play();
    // Playing for real in the service, not only announced.
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > 200, kLoadMs);
    // First failure: the session restarts the service and reopens the medium.
    QVERIFY(signalDaemon(SIGKILL));
    QTRY_VERIFY_WITH_TIMEOUT(serviceStatus() == "running" && daemonPid() > 0, 20000);
    const qint64 resumed = m_player->position();
    QTRY_VERIFY_WITH_TIMEOUT(m_player->position() > resumed, 20000);
    QCOMPARE(m_player->state(), QMediaPlayer::PlayingState);
    QCOMPARE(m_player->error(), QMediaPlayer::NoError);
    m_rec->clear();
    // Second failure of the same medium: restarted, not reopened.
    QTRY_VERIFY_WITH_TIMEOUT(signalDaemon(SIGKILL), 10000);
    QVERIFY(m_rec->waitForStatus(QMediaPlayer::InvalidMedia, 20000));
    QCOMPARE(m_rec->events(), (QStringList{"status:InvalidMedia", "state:StoppedState", "error:ResourceError"}));
    QCOMPARE(m_player->errorString(),
             QStringLiteral("The playback service failed twice on this medium; it was restarted, "
                            "but the medium was not reopened"));
}

void tst_PluginPlayer::serviceMissing()
{
    m_rec.reset();
    m_player.reset();
    // A service that cannot be started, in a runtime folder where none runs.
    m_runtime = std::make_unique<RuntimeDir>();
    const QByteArray previous = qgetenv("ORVIC_PSSERVER");
    qputenv("ORVIC_PSSERVER", "/nonexistent/psserver");
    // The session starts the service on its own thread some time after the
    // player exists: the setting stays until the check is over.
    const auto restore = qScopeGuard([&previous] {
        if (previous.isEmpty())
            qunsetenv("ORVIC_PSSERVER");
        else
            qputenv("ORVIC_PSSERVER", previous);
    });
    QMediaPlayer player;
    PlayerRecorder rec(&player);
    QCOMPARE(player.service()->metaObject()->className(), "QOrvicMediaService");
    QCOMPARE(player.availability(), QMultimedia::ServiceMissing);
    QVERIFY(!player.isAvailable());
    player.setMedia(media("sine.mp3"));
    QVERIFY(rec.waitForStatus(QMediaPlayer::InvalidMedia));
    QCOMPARE(rec.events(), (QStringList{"status:LoadingMedia", "status:InvalidMedia", "error:ServiceMissingError"}));
    QCOMPARE(player.errorString(), QStringLiteral("The playback service psserver could not be started"));
}

QTEST_GUILESS_MAIN(tst_PluginPlayer)
#include "tst_plugin_player.moc"
