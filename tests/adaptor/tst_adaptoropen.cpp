// Opening a medium: setMedia, openMetadata, openVideoThumbnail, setResumeData.
#include "adaptorharness.h"

#include <QtCore/QThread>
#include <QtMultimedia/QMediaMetaData>
#include <QtTest/QtTest>

#include <cstring>
#include <thread>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");

QString mapSignal(int keys)
{
    return QStringLiteral("metadataChanged(%1 keys)").arg(keys);
}

QStringList networkOpenCalls(const QString &url)
{
    return {"setUrl(" + url + ")", "setSubUrl(" + url + ")", "prepare(0,0)"};
}
} // namespace

class tst_AdaptorOpen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void openLocalMedium();
    void publishedMapComesFromTheRecord();
    void networkPrefixes_data();
    void networkPrefixes();
    void networkFlagIsSticky();
    void reopenBusyEngine_data();
    void reopenBusyEngine();
    void setUrlFailure();
    void subUrlFailureIsIgnored();
    void prepareFailure();
    void prepareFailureMetadataOnly();
    void rateAnnouncedAfterEveryOpen();
    void noEngine();
    void stopInProgressBeforeOpening();
    void stopDuringPrepare();
    void stopDuringPrepareThroughCommandQueue();
    void stoppedWhileReadingMetadata();
    void openThroughCommandQueue();
    void openMetadata();
    void openMetadataWithoutMetadataSession();
    void openVideoThumbnail();
    void setResumeData();

private:
    std::unique_ptr<AdaptorHarness> h;
};

void tst_AdaptorOpen::init()
{
    h.reset(new AdaptorHarness);
}

void tst_AdaptorOpen::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_AdaptorOpen::openLocalMedium()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    QSignalSpy maps(h->session.get(), &S::metadataChanged);

    h->d->setMedia(kMovie);

    QCOMPARE(h->signalTexts(), media::localOpenSignals());
    QCOMPARE(h->transportCalls(), media::localOpenCalls(kMovie));
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession setMedia(#) called",
        "D/OPSession setMedia(#):setmedia::/media/movie.mkv ",
        "D/OPSession setMedia(#):mSPMetaData: ",
        "D/OPSession setMedia(#):setUrl::0 ",
        "D/OPSession setMedia(#):open file /media/movie.mkv return value 0 ",
        "D/OPSession setState(#):emit state 3",
        "D/OPSession setState(#):emit state 4",
        "D/OPSession setMedia(#):open file emit total time 120000 isvideo 1 is audio 1",
    }));

    QCOMPARE(maps.size(), 1);
    const QVariantMap map = maps.at(0).at(0).toMap();
    QCOMPARE(QStringList(map.keys()), media::localVideoKeys());
    QCOMPARE(map.value(QMediaMetaData::Duration).toLongLong(), 120000);
    QCOMPARE(map.value(QMediaMetaData::AudioCodec).toString(), QStringLiteral("aac"));
    QCOMPARE(map.value(QMediaMetaData::Language).toString(), QStringLiteral("eng"));
    QCOMPARE(map.value(QMediaMetaData::AudioStreamCount).toInt(), 2);
    QCOMPARE(map.value(QMediaMetaData::Resolution).toSize(), QSize(1920, 1080));
    QCOMPARE(map.value(QMediaMetaData::VideoCodec).toString(), QStringLiteral("h264"));
    QCOMPARE(map.value(QMediaMetaData::SubtitleCount).toInt(), 2);
    QCOMPARE(map.value(QMediaMetaData::Title).toString(), QStringLiteral("Night Drive"));
    QCOMPARE(map, h->d->mMetaDataMap);

    QCOMPARE(h->session->state(), S::Player_Prepared);
    QCOMPARE(h->d->mCurrentUrl, kMovie);
    QVERIFY(!h->d->mIsNetwork);
    QCOMPARE(h->d->mResumePosition, qint64(0));
    QCOMPARE(h->session->availablePlaybackRanges(), QMediaTimeRange());
    // Seekability is announced, not stored, by an open: the getter keeps what
    // the engine callbacks reported (nothing here). The stream counts come
    // from the collected metadata.
    QVERIFY(!h->session->isSeekable());
    QVERIFY(h->session->isVideoAvailable());
    QVERIFY(h->session->isAudioAvailable());
}

void tst_AdaptorOpen::publishedMapComesFromTheRecord()
{
    // Whatever the collection put into the record is what the map shows.
    h->useMedium(Medium::AudioOnly);
    h->start();
    QSignalSpy maps(h->session.get(), &S::metadataChanged);
    h->d->setMedia(QStringLiteral("/media/song.mp3"));
    QCOMPARE(maps.size(), 1);
    const QVariantMap map = maps.at(0).at(0).toMap();
    QCOMPARE(QStringList(map.keys()), media::audioOnlyKeys());
    QVERIFY(h->d->mMetaData.audioAttribute);
    QVERIFY(!h->d->mMetaData.videoAttribute);
    QCOMPARE(map.value(QMediaMetaData::AudioCodec).toString(), QStringLiteral("mp3"));
    QCOMPARE(map.value(QMediaMetaData::Duration).toLongLong(), 200000);
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "stateChanged(4)",
                                            mapSignal(media::audioOnlyKeys().size()),
                                            "seekableChanged(false)", "audioAvailableChanged(true)",
                                            "positionChanged(0)", "durationChanged(200000)",
                                            "playbackRateChanged(1)"}));
}

void tst_AdaptorOpen::networkPrefixes_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("network");

    QTest::newRow("http") << "http://host/live.ts" << true;
    QTest::newRow("https") << "https://host/live.m3u8" << true;
    QTest::newRow("rtmp") << "rtmp://host/app/stream" << true;
    QTest::newRow("rtsp") << "rtsp://host:554/cam" << true;
    QTest::newRow("prefix only") << "rtsp:" << true;
    QTest::newRow("no slashes after the colon") << "http:stream" << true;
    QTest::newRow("upper-case HTTP") << "HTTP://host/live.ts" << false;
    QTest::newRow("mixed-case Https") << "Https://host/live.ts" << false;
    QTest::newRow("https without colon") << "https//host/live.ts" << false;
    QTest::newRow("scheme too short") << "rtm://host" << false;
    QTest::newRow("prefix later in a path") << "/media/http://x.ts" << false;
    QTest::newRow("file scheme") << "file:///media/a.mp4" << false;
    QTest::newRow("plain path") << "/media/a.mp4" << false;
}

void tst_AdaptorOpen::networkPrefixes()
{
    QFETCH(QString, url);
    QFETCH(bool, network);
    h->useMedium(Medium::LocalVideo);
    h->start();

    h->d->setMedia(url);

    QCOMPARE(h->d->mIsNetwork, network);
    if (network) {
        // Streams: no metadata reader, no metadata collection, no map,
        // seekability or duration from the open.
        QCOMPARE(h->engine.recorder().calls(), networkOpenCalls(url));
        QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "stateChanged(4)", "playbackRateChanged(1)"}));
        QVERIFY(!h->log->contains("D/OPSession setMedia(#):mSPMetaData: "));
        QVERIFY(!h->log->contains("D/OPSession setMedia(#):open file emit total time # isvideo 0 is audio 0"));
    } else {
        QCOMPARE(h->transportCalls(), media::localOpenCalls(url));
        QCOMPARE(h->signalTexts(), media::localOpenSignals());
        QCOMPARE(h->log->count("D/OPSession setMedia(#):mSPMetaData: "), 1);
    }
    QCOMPARE(h->session->state(), S::Player_Prepared);
}

void tst_AdaptorOpen::networkFlagIsSticky()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->setMedia(QStringLiteral("http://host/live.ts"));
    QVERIFY(h->d->mIsNetwork);
    h->clear();

    // A local file after a stream is still handled as a stream.
    h->d->setMedia(kMovie);

    QVERIFY(h->d->mIsNetwork);
    QCOMPARE(h->engine.recorder().calls(),
             QStringList({"stop()", "reset()"}) + networkOpenCalls(kMovie));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "stateChanged(3)", "stateChanged(4)",
                                            "playbackRateChanged(1)"}));
    QVERIFY(!h->log->contains("D/OPSession setMedia(#):mSPMetaData: "));
}

void tst_AdaptorOpen::reopenBusyEngine_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<bool>("busy");
    for (int s = S::Player_Idle; s <= S::Player_Pause; ++s)
        QTest::addRow("state %d", s) << s << (s > S::Player_Stop);
}

void tst_AdaptorOpen::reopenBusyEngine()
{
    QFETCH(int, state);
    QFETCH(bool, busy);
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->mCurrentState = S::PlayerState(state);
    h->checker.reset(new StateTransitionChecker(h->session.get(), h->log.get()));

    h->d->setMedia(kMovie);

    QStringList calls = media::localOpenCalls(kMovie);
    QStringList signalsExpected = media::localOpenSignals();
    if (busy) {
        // The engine is stopped and reset first; Preparing is announced twice.
        calls = QStringList({"stop()", "reset()"}) + calls;
        signalsExpected.prepend("stateChanged(3)");
    }
    QCOMPARE(h->transportCalls(), calls);
    QCOMPARE(h->signalTexts(), signalsExpected);
    const QStringList busyLines = {"D/OPSession setMedia(#):stop start ", "D/OPSession setMedia(#):stop:0 ",
                                   "D/OPSession setMedia(#):reset:0 "};
    QCOMPARE(h->log->containsInOrder(busyLines), busy);
    QCOMPARE(h->log->count("D/OPSession setMedia(#):stop start "), busy ? 1 : 0);
}

void tst_AdaptorOpen::setUrlFailure()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->player()->script().push("setUrl", -5);

    h->d->setMedia(kMovie);

    QCOMPARE(h->transportCalls(), QStringList({"SPMetaData::setUrl(" + kMovie + ")", "setUrl(" + kMovie + ")",
                                               "setSubUrl(" + kMovie + ")"}));
    // Player_Stop is stored silently; only the error tells.
    QCOMPARE(h->signalTexts(), QStringList({"error(2,video format not support)"}));
    QCOMPARE(h->session->state(), S::Player_Stop);
    QVERIFY(h->d->mCurrentUrl.isEmpty());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession setMedia(#) called",
        "D/OPSession setMedia(#):setmedia::/media/movie.mkv ",
        "D/OPSession setMedia(#):mSPMetaData: ",
        "D/OPSession setMedia(#):setUrl::0 ",
        "D/OPSession setMedia(#):open file /media/movie.mkv return value -5 ",
        "E/OPSession setMedia(#):open file fail -5",
    }));
}

void tst_AdaptorOpen::subUrlFailureIsIgnored()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->player()->script().push("setSubUrl", -1);

    h->d->setMedia(kMovie);

    QVERIFY(h->log->containsInOrder({"D/OPSession setMedia(#):setSubUrl error",
                                     "D/OPSession setMedia(#):open file /media/movie.mkv return value 0 "}));
    QCOMPARE(h->signalTexts(), media::localOpenSignals());
    QCOMPARE(h->session->state(), S::Player_Prepared);
}

void tst_AdaptorOpen::prepareFailure()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->player()->script().push("prepare", -2);

    h->d->setMedia(kMovie);

    QCOMPARE(h->transportCalls(), QStringList({"SPMetaData::setUrl(" + kMovie + ")", "setUrl(" + kMovie + ")",
                                               "setSubUrl(" + kMovie + ")", "prepare(0,0)"}));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "error(1,video format not support)"}));
    QCOMPARE(h->session->state(), S::Player_Stop);
    QVERIFY(h->d->mCurrentUrl.isEmpty());
    QVERIFY(h->log->contains("E/OPSession setMedia(#):open file fail -2"));
    QVERIFY(!h->log->contains("D/OPSession setMedia(#):update metadata"));
    // No metadata was collected for a medium the engine could not prepare.
    QCOMPARE(h->engine.recorder().count("getMediaType"), 0);
}

void tst_AdaptorOpen::prepareFailureMetadataOnly()
{
    h->useMedium(Medium::LocalVideo);
    h->start(QMediaPlayer::MetaDataOnly);
    QCOMPARE(h->player()->name(), QStringLiteral("QspmediaplayerOnlyMetadata"));
    h->player()->script().push("prepare", -2);
    QSignalSpy maps(h->session.get(), &S::metadataChanged);

    h->d->setMedia(kMovie);

    // What the reader found is published before the error.
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", mapSignal(media::localVideoKeys().size()),
                                            "videoAvailableChanged(true)", "audioAvailableChanged(true)",
                                            "error(1,video format not support)"}));
    QCOMPARE(QStringList(maps.at(0).at(0).toMap().keys()), media::localVideoKeys());
    QCOMPARE(h->session->state(), S::Player_Stop);
    QVERIFY(h->d->mCurrentUrl.isEmpty());
    ORVIC_COMPARE_LINES(h->sessionLog().mid(5), QStringList({
        "D/OPSession setState(#):emit state 3",
        "E/OPSession setMedia(#):open file fail -2",
        "D/OPSession setMedia(#):update metadata",
        "V/OPSession openMetadata(#) called",
    }));
}

void tst_AdaptorOpen::rateAnnouncedAfterEveryOpen()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    QCOMPARE(h->d->mPlaybackRate, 1.0f);

    h->d->setMedia(kMovie);
    h->d->setMedia(QStringLiteral("/media/other.mkv"));
    // Already 1.0 both times, announced both times.
    QCOMPARE(h->recorder->texts({"playbackRateChanged"}),
             QStringList({"playbackRateChanged(1)", "playbackRateChanged(1)"}));

    h->d->setPlaybackRate(2.0);
    QCOMPARE(h->d->mPlaybackRate, 2.0f);
    h->clear();
    h->d->setMedia(kMovie);
    QCOMPARE(h->d->mPlaybackRate, 1.0f);
    QCOMPARE(h->recorder->texts({"playbackRateChanged"}), QStringList({"playbackRateChanged(1)"}));

    // Streams get it too.
    h->clear();
    h->d->setMedia(QStringLiteral("rtsp://cam/1"));
    QCOMPARE(h->recorder->texts({"playbackRateChanged"}), QStringList({"playbackRateChanged(1)"}));
}

void tst_AdaptorOpen::noEngine()
{
    h->start();
    h->d->release();
    h->clear();

    h->d->setMedia(kMovie);

    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({
        "V/OPSession setMedia(#) called",
        "D/OPSession setMedia(#):setmedia::/media/movie.mkv ",
        "D/OPSession setMedia(#): setMedia failed. mFilePlayer is null. ",
    }));
    QVERIFY(h->d->mCurrentUrl.isEmpty());
}

void tst_AdaptorOpen::stopInProgressBeforeOpening()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->mIsStopping.storeRelease(true);

    h->d->setMedia(kMovie);
    h->d->mIsStopping.storeRelease(false);

    // The reader was pointed at the file; the engine was not.
    QCOMPARE(h->engine.recorder().calls(), QStringList({"SPMetaData::setUrl(" + kMovie + ")"}));
    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->session->state(), S::Player_Initialized);
    ORVIC_COMPARE_LINES(h->sessionLog().mid(2), QStringList({
        "D/OPSession setMedia(#):mSPMetaData: ",
        "D/OPSession setMedia(#):setUrl::0 ",
        "D/OPSession setMedia(#):stop process is doing",
    }));
}

void tst_AdaptorOpen::stopDuringPrepare()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    ScriptedPlayer *player = h->player();
    player->script().setDefault("getState", int(playback::SPPlayer::STATE_PREPARED));
    QOrvicPlayerSessionPrivate *d = h->d;

    // prepare() blocks until a stop has started on another thread; the stop
    // then waits for the player lock that the open holds.
    h->stopDuringEngineCall("prepare");

    d->setMedia(kMovie);
    h->joinStop();

    QVERIFY(h->log->contains("D/OPSession setMedia(#):stop process is doing or done"));
    // Nothing of the medium is published; the stop's states follow the open's.
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "stateChanged(4)", "stateChanged(3)",
                                            "mediaMessageChanged(0,100)", "stateChanged(2)"}));
    QCOMPARE(h->transportCalls(), QStringList({"SPMetaData::setUrl(" + kMovie + ")", "setUrl(" + kMovie + ")",
                                               "setSubUrl(" + kMovie + ")", "prepare(0,0)", "getState()",
                                               "stop()", "reset()"}));
    QCOMPARE(h->session->state(), S::Player_Stop);
    QVERIFY(!d->mIsStopping.loadAcquire());
}

void tst_AdaptorOpen::stopDuringPrepareThroughCommandQueue()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    QOrvicPlayerSession *session = h->session.get();
    h->stopDuringEngineCall("prepare");

    session->manageActList(S::Msg_SetMedia, kMovie);
    h->joinStop();

    QVERIFY(h->log->contains("D/OPSession setMedia(#):stop process is doing or done"));
    // The engine was still idle when the stop asked (getState() answers 0),
    // so it is not stopped again.
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "stateChanged(4)", "stateChanged(3)",
                                            "stateChanged(2)"}));
    QCOMPARE(h->engine.recorder().count("stop"), 0);
    QCOMPARE(session->state(), S::Player_Stop);
    QVERIFY(h->log->containsInOrder({"D/OPSession actMessage(#):play session actMessage 0",
                                     "D/OPSession setMedia(#):stop process is doing or done",
                                     "D/OPSession stop(#):dCurrentState 0"}));
}

void tst_AdaptorOpen::stoppedWhileReadingMetadata()
{
    // The stop may complete while the metadata is being collected (the
    // reader runs without the engine's progress); the open then gives way.
    h->useMedium(Medium::LocalVideo);
    h->start();
    QOrvicPlayerSessionPrivate *d = h->d;
    h->player()->setHook("isTrickPlaySupported", [d] { d->stop(); });

    d->setMedia(kMovie);

    QVERIFY(h->log->contains("D/OPSession setMedia(#):stop process is doing or done"));
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "stateChanged(4)", "stateChanged(3)",
                                            "stateChanged(2)"}));
    QCOMPARE(h->session->state(), S::Player_Stop);
}

void tst_AdaptorOpen::openThroughCommandQueue()
{
    h->useMedium(Medium::LocalVideo);
    h->start();

    h->session->manageActList(S::Msg_SetMedia, kMovie);

    QCOMPARE(h->signalTexts(), media::localOpenSignals());
    QCOMPARE(h->transportCalls(), media::localOpenCalls(kMovie));
    QVERIFY(h->log->containsInOrder({"D/OPSession actMessage(#):play session actMessage 0",
                                     "D/OPSession setMedia(#):setmedia::/media/movie.mkv "}));
}

void tst_AdaptorOpen::openMetadata()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->setMedia(kMovie);
    h->clear();
    QSignalSpy maps(h->session.get(), &S::metadataChanged);

    h->d->openMetadata(QStringLiteral("/media/ignored.mkv"));

    // Only the metadata collection talks to the engine.
    QCOMPARE(h->transportCalls(), QStringList());
    QVERIFY(h->engine.recorder().count("getMediaType") > 0);
    QCOMPARE(h->signalTexts(), QStringList({mapSignal(media::localVideoKeys().size())}));
    QCOMPARE(QStringList(maps.at(0).at(0).toMap().keys()), media::localVideoKeys());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession openMetadata(#) called"}));
    QCOMPARE(h->session->state(), S::Player_Prepared);
}

void tst_AdaptorOpen::openMetadataWithoutMetadataSession()
{
    h->start();
    h->d->release();
    h->clear();

    h->d->openMetadata(kMovie);

    QCOMPARE(h->signalTexts(), QStringList());
    ORVIC_COMPARE_LINES(h->sessionLog(), QStringList({"V/OPSession openMetadata(#) called",
                                                    "D/OPSession openMetadata(#):mMetaSession is null"}));
}

void tst_AdaptorOpen::openVideoThumbnail()
{
    h->useMedium(Medium::LocalVideo);
    h->start();

    h->d->openVideoThumbnail(kMovie);

    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    ORVIC_COMPARE_LINES(h->log->lines(), QStringList({"V/OPSession openVideoThumbnail(#) called"}));
}

void tst_AdaptorOpen::setResumeData()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    QMediaPlayer::ResumeData data;
    std::memset(data.data, 0x5a, sizeof data.data);

    h->d->setResumeData(&data);
    QCOMPARE(h->log->lines(), QStringList());

    h->session->manageActList(S::Msg_setResumeData, QVariant::fromValue(data));

    QCOMPARE(h->signalTexts(), QStringList());
    QCOMPARE(h->engine.recorder().calls(), QStringList());
    QCOMPARE(h->sessionLog().filter(QStringLiteral("setResumeData")), QStringList());
    QCOMPARE(h->session->state(), S::Player_Initialized);
}

QTEST_GUILESS_MAIN(tst_AdaptorOpen)
#include "tst_adaptoropen.moc"
