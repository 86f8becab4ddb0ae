// Audio and video availability: set from the collected metadata of an opened
// medium, announced when it changes, dropped with the medium (a new open, a
// service restart).
#include "adaptorharness.h"

#include <QtTest/QtTest>

using namespace orvictest;
using S = QOrvicPlayerSession;

namespace {
const QString kMovie = QStringLiteral("/media/movie.mkv");
const QString kSong = QStringLiteral("/media/song.mp3");

QString keys(const QStringList &list)
{
    return QStringLiteral("metadataChanged(%1 keys)").arg(list.size());
}

// Scripts the live engine objects for the next medium.
void scriptMedium(AdaptorHarness &h, Medium medium)
{
    switch (medium) {
    case Medium::LocalVideo:
        media::localVideo(h.player());
        media::localVideo(h.reader());
        break;
    case Medium::AudioOnly:
        media::audioOnly(h.player());
        media::audioOnly(h.reader());
        h.reader()->script().setDefault("getVideoStreamNum", 0);
        break;
    case Medium::WithoutSubtitles:
    case Medium::Plain:
        break;
    }
}
} // namespace

class tst_AdaptorAvailability : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void openAnnouncesAvailability();
    void nextMedium_data();
    void nextMedium();
    void failedOpenLeavesNothingAvailable_data();
    void failedOpenLeavesNothingAvailable();
    void networkStreamHasNoCounts();
    void serviceRestartDropsAvailability();
    void metadataOnlySessionPublishesCounts();
    void videoNoticeReportsTheStoredAvailability();

private:
    std::unique_ptr<AdaptorHarness> h;
};

void tst_AdaptorAvailability::init()
{
    h.reset(new AdaptorHarness);
}

void tst_AdaptorAvailability::cleanup()
{
    QCOMPARE(closeHarness(h), QString());
}

void tst_AdaptorAvailability::openAnnouncesAvailability()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    QVERIFY(!h->session->isVideoAvailable());
    QVERIFY(!h->session->isAudioAvailable());

    h->d->setMedia(kMovie);

    // After the map and seekability, before position and duration; the log
    // line that reports them sees them set.
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "stateChanged(4)", keys(media::localVideoKeys()),
                                            "seekableChanged(true)", "videoAvailableChanged(true)",
                                            "audioAvailableChanged(true)", "positionChanged(0)",
                                            "durationChanged(120000)", "playbackRateChanged(1)"}));
    QVERIFY(h->log->contains("D/OPSession setMedia(#):open file emit total time 120000 isvideo 1 is audio 1"));
    QVERIFY(h->session->isVideoAvailable());
    QVERIFY(h->session->isAudioAvailable());
    QCOMPARE(h->d->mAudioStreamNum, 2);
    QCOMPARE(h->d->mVideoStreamNum, 1);
}

void tst_AdaptorAvailability::nextMedium_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("second");
    QTest::addColumn<QStringList>("dropped");   // when the second open starts
    QTest::addColumn<QStringList>("found");     // after its metadata is collected
    QTest::addColumn<bool>("video");
    QTest::addColumn<bool>("audio");

    const QStringList both = {"videoAvailableChanged(false)", "audioAvailableChanged(false)"};
    QTest::newRow("video, then video") << int(Medium::LocalVideo) << int(Medium::LocalVideo) << both
                                       << QStringList({"videoAvailableChanged(true)", "audioAvailableChanged(true)"})
                                       << true << true;
    // The video block of the movie stays in the record (the collection leaves
    // it alone for a medium that is not a video), but no video is available.
    QTest::newRow("video, then audio only") << int(Medium::LocalVideo) << int(Medium::AudioOnly) << both
                                            << QStringList({"audioAvailableChanged(true)"}) << false << true;
    QTest::newRow("audio only, then video") << int(Medium::AudioOnly) << int(Medium::LocalVideo)
                                            << QStringList({"audioAvailableChanged(false)"})
                                            << QStringList({"videoAvailableChanged(true)", "audioAvailableChanged(true)"})
                                            << true << true;
}

void tst_AdaptorAvailability::nextMedium()
{
    QFETCH(int, first);
    QFETCH(int, second);
    QFETCH(QStringList, dropped);
    QFETCH(QStringList, found);
    QFETCH(bool, video);
    QFETCH(bool, audio);
    h->useMedium(Medium(first));
    h->start();
    h->d->setMedia(kMovie);
    scriptMedium(*h, Medium(second));
    h->clear();

    // Opened from Player_Prepared: the busy engine is reset first.
    h->d->setMedia(kSong);

    const QString map = QStringLiteral("metadataChanged(%1 keys)").arg(h->d->mMetaDataMap.size());
    const QString duration = second == int(Medium::LocalVideo) ? "durationChanged(120000)" : "durationChanged(200000)";
    const QString seekable = h->d->mMetaData.trickPlay ? "seekableChanged(true)" : "seekableChanged(false)";
    const QStringList expected = QStringList({"stateChanged(3)"}) + dropped
        + QStringList({"stateChanged(3)", "stateChanged(4)", map, seekable}) + found
        + QStringList({"positionChanged(0)", duration, "playbackRateChanged(1)"});
    QVERIFY2(h->signalTexts() == expected, qPrintable(h->signalTexts().join(QLatin1Char(' '))));
    QCOMPARE(h->session->isVideoAvailable(), video);
    QCOMPARE(h->session->isAudioAvailable(), audio);
}

void tst_AdaptorAvailability::failedOpenLeavesNothingAvailable_data()
{
    QTest::addColumn<QString>("failing");
    QTest::addColumn<QString>("error");
    QTest::newRow("URL refused") << "setUrl" << "error(2,video format not support)";
    QTest::newRow("prepare fails") << "prepare" << "error(1,video format not support)";
}

void tst_AdaptorAvailability::failedOpenLeavesNothingAvailable()
{
    QFETCH(QString, failing);
    QFETCH(QString, error);
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->setMedia(kMovie);
    h->player()->script().push(failing, -1);
    h->clear();

    h->d->setMedia(kSong);

    QStringList expected = {"stateChanged(3)", "videoAvailableChanged(false)", "audioAvailableChanged(false)"};
    if (failing == QLatin1String("prepare"))
        expected.append("stateChanged(3)");
    expected.append(error);
    QCOMPARE(h->signalTexts(), expected);
    QVERIFY(!h->session->isVideoAvailable());
    QVERIFY(!h->session->isAudioAvailable());
}

void tst_AdaptorAvailability::networkStreamHasNoCounts()
{
    // A stream's metadata is not collected by the open: nothing is known to be available.
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->setMedia(kMovie);
    h->clear();

    h->d->setMedia(QStringLiteral("http://example.com/live"));

    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", "videoAvailableChanged(false)",
                                            "audioAvailableChanged(false)", "stateChanged(3)",
                                            "stateChanged(4)", "playbackRateChanged(1)"}));
    QVERIFY(!h->session->isVideoAvailable());
    QVERIFY(!h->session->isAudioAvailable());
}

void tst_AdaptorAvailability::serviceRestartDropsAvailability()
{
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->setMedia(kMovie);
    h->clear();

    h->d->reset();

    // Gone with the engine, before the fresh engine is announced.
    QCOMPARE(h->signalTexts(), QStringList({"videoAvailableChanged(false)", "audioAvailableChanged(false)",
                                            "stateChanged(1)"}));
    QVERIFY(!h->session->isVideoAvailable());
    QVERIFY(!h->session->isAudioAvailable());

    // A restart with nothing available announces nothing of it.
    h->clear();
    h->d->reset();
    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(1)"}));
}

void tst_AdaptorAvailability::metadataOnlySessionPublishesCounts()
{
    // The reader's findings reach the client although the medium cannot be prepared.
    h->useMedium(Medium::AudioOnly);
    h->start(QMediaPlayer::Flags(0x8));   // metadata only
    h->player()->script().push("prepare", -1);

    h->d->setMedia(kSong);

    QCOMPARE(h->signalTexts(), QStringList({"stateChanged(3)", keys(media::audioOnlyKeys()),
                                            "audioAvailableChanged(true)",
                                            "error(1,video format not support)"}));
    QVERIFY(h->session->isAudioAvailable());
    QVERIFY(!h->session->isVideoAvailable());
}

void tst_AdaptorAvailability::videoNoticeReportsTheStoredAvailability()
{
    // The engine's video notice (error 2331) repeats what the session knows.
    h->useMedium(Medium::LocalVideo);
    h->start();
    h->d->navQueueCallBack(S::Rsp_Error, QVariant(2331));
    h->d->setMedia(kMovie);
    h->d->navQueueCallBack(S::Rsp_Error, QVariant(2331));

    const QStringList video = h->recorder->texts({"videoAvailableChanged"});
    QCOMPARE(video, QStringList({"videoAvailableChanged(false)", "videoAvailableChanged(true)",
                                 "videoAvailableChanged(true)"}));
}

QTEST_GUILESS_MAIN(tst_AdaptorAvailability)
#include "tst_adaptoravailability.moc"
