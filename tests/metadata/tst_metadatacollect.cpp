// Stream metadata collection against the scripted engine: call order and
// arguments, fallbacks, the audio block, trick play, total time and log
// lines. The tags are in tst_metadatatags, the video and subtitle blocks in
// tst_metadatastreams.
#include "collecttestutil.h"

#include <QtTest/QtTest>

using namespace orvictest;

class tst_MetaDataCollect : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void mediaType_data();
    void mediaType();
    void fullRefreshWithPlayer();
    void fullRefreshWithoutPlayer();
    void audioCount_data();
    void audioCount();
    void noAudioReleasesVideo_data();
    void noAudioReleasesVideo();
    void audioBlockRebuiltOnRefresh();
    void audioEngineTextWithoutNul();
    void trickPlay_data();
    void trickPlay();
    void trickPlayWithoutPlayer();
    void totalTime_data();
    void totalTime();
    void logContext();
};

void tst_MetaDataCollect::mediaType_data()
{
    QTest::addColumn<int>("previous");
    QTest::addColumn<int>("answer");
    QTest::addColumn<int>("expected");
    QTest::newRow("1 stored") << 0 << 1 << 1;
    QTest::newRow("2 stored") << 0 << 2 << 2;
    QTest::newRow("4 stored") << 2 << 4 << 4;
    QTest::newRow("0 stored") << 2 << 0 << 0;
    QTest::newRow("3 keeps previous 2") << 2 << 3 << 2;
    QTest::newRow("3 keeps previous 1") << 1 << 3 << 1;
    QTest::newRow("3 keeps previous 0") << 0 << 3 << 0;
    QTest::newRow("5 gives 0") << 2 << 5 << 0;
    QTest::newRow("-1 gives 0") << 4 << -1 << 0;
}

void tst_MetaDataCollect::mediaType()
{
    QFETCH(int, previous);
    QFETCH(int, answer);
    QFETCH(int, expected);
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.mediaType = previous;
    rig.reader.script().push("getMediaType", answer);
    rig.session.updateAVMetadata(owner.meta);
    QCOMPARE(owner.meta.mediaType, expected);
    QCOMPARE(rig.recorder.count(QStringLiteral("getMediaType")), 1);
}

void tst_MetaDataCollect::fullRefreshWithPlayer()
{
    MetaRig rig;
    rig.reader.script().setDefault("getMediaType", 2);
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.setAudioAttribute(0, engineAudio(2, 48000, 192000, "aac", "eng", 24));
    rig.reader.setMetaString("title", "Song");
    rig.reader.setMetaString("TP1_V1", "Band");
    rig.reader.setMetaString("album", "Album");
    rig.reader.setMetaString("date_v1", "1999");
    rig.reader.setMetaString("genre_v1", "Rock");
    rig.reader.script().push("isTagV2", QVariantList{true, false});
    rig.reader.script().setDefault("getVideoStreamNum", 1);
    rig.reader.setVideoAttribute(0, engineVideo(1920, 1080, 7, 25, 9, "h264"));
    rig.reader.script().setDefault("getDuration", Q_INT64_C(123456789012));
    // Statuses in call order: audio count, subtitle count, subtitle on/off.
    rig.player.script().push("getParameter", QVariantList{0, 0, 1});
    rig.player.script().push("getParameter/get-audio-count", 2);
    rig.player.script().push("getParameter/get-subtitle-count", 3);
    rig.player.script().setDefault("getCurrentStream", 1);
    rig.player.script().setDefault("isTrickPlaySupported", true);

    MetaDataOwner owner;
    LogCapture log;
    rig.session.updateAVMetadata(owner.meta);

    const QStringList expectedCalls = {
        QStringLiteral("getMediaType()"),
        QStringLiteral("getProgramNum()"),
        QStringLiteral("getParameter(mPlayer,get-audio-count,4)"),
        QStringLiteral("getAudioAttribute(0,0)"),
        QStringLiteral("getMetaString(title)"), QStringLiteral("isTagV2()"),
        QStringLiteral("getMetaString(artist)"), QStringLiteral("getMetaString(artist_v1)"),
        QStringLiteral("getMetaString(TP1_V1)"),
        QStringLiteral("getMetaString(album)"), QStringLiteral("isTagV2()"),
        QStringLiteral("getMetaString(date)"), QStringLiteral("getMetaString(date_v1)"),
        QStringLiteral("getMetaString(comment)"), QStringLiteral("getMetaString(comment_v1)"),
        QStringLiteral("getMetaString(genre)"), QStringLiteral("getMetaString(genre_v1)"),
        QStringLiteral("getProgramNum()"),
        QStringLiteral("getVideoStreamNum(0)"),
        QStringLiteral("getVideoAttribute(0,0)"),
        QStringLiteral("getParameter(mPlayer,get-subtitle-count,4)"),
        QStringLiteral("getCurrentStream(3)"),
        QStringLiteral("getParameter(mPlayer,get-subtitle-onoff,4)"),
        QStringLiteral("isTrickPlaySupported()"),
        QStringLiteral("SPMetaData::getDuration()")};
    QCOMPARE(rig.recorder.calls(), expectedCalls);

    ORVIC_COMPARE_LINES(log.lines(), (QStringList{
        QStringLiteral("V/OPMetaSession updateAVMetadata(#) called"),
        QStringLiteral("D/OPMetaSession updateAudioMetadata(#):program num 1"),
        QStringLiteral("D/OPMetaSession updateAudioMetadata(#):audio stream num 2, channel 2, sampling rate 48000, "
                       "bit rate 192000, bit depth 24, language eng, codec aac"),
        QStringLiteral("D/OPMetaSession updateAudioMetadata(#):id3 string max length is 256"),
        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata 2"),
        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):width*height 1920 * 1080\n"),
        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):codec"),
        QStringLiteral("get subtitle ison 1 0 3")}));

    const QOrvicPlayerSession::PlayerMetaData &meta = owner.meta;
    QCOMPARE(meta.mediaType, 2);
    QCOMPARE(meta.reserved, 0);
    QCOMPARE(meta.totalTime, Q_INT64_C(123456789012));
    QCOMPARE(meta.trickPlay, true);

    QVERIFY(meta.audioAttribute);
    QCOMPARE(meta.audioAttribute->audioStreamNum, 2);
    QCOMPARE(meta.audioAttribute->channel, 2);
    QCOMPARE(meta.audioAttribute->samplingRate, 48000);
    QCOMPARE(meta.audioAttribute->bitRate, 192000);
    QCOMPARE(meta.audioAttribute->bitDepth, 24);
    QCOMPARE(QByteArray(meta.audioAttribute->codec), QByteArray("aac"));
    QCOMPARE(QByteArray(meta.audioAttribute->language), QByteArray("eng"));

    QVERIFY(meta.audioAttribute->id3Info);
    const Id3Info &tags = *meta.audioAttribute->id3Info;
    QCOMPARE(tags.reserved, 0);
    QCOMPARE(QByteArray(tags.title), QByteArray("Song"));
    QCOMPARE(tags.titleFlag, 2);
    QCOMPARE(QByteArray(tags.artist), QByteArray("Band"));
    QCOMPARE(tags.artistFlag, 1);
    QCOMPARE(QByteArray(tags.album), QByteArray("Album"));
    QCOMPARE(tags.albumFlag, 1);
    QCOMPARE(QByteArray(tags.date), QByteArray("1999"));
    QCOMPARE(tags.dateFlag, 1);
    QCOMPARE(QByteArray(tags.comment), QByteArray());
    QCOMPARE(tags.commentFlag, 0);
    QCOMPARE(QByteArray(tags.genre), QByteArray("Rock"));
    QCOMPARE(tags.genreFlag, 1);

    QVERIFY(meta.videoAttribute);
    QCOMPARE(meta.videoAttribute->videoStreamNum, 1);
    QCOMPARE(meta.videoAttribute->width, 1920);
    QCOMPARE(meta.videoAttribute->height, 1080);
    QCOMPARE(meta.videoAttribute->videoInfo1, 7);
    QCOMPARE(meta.videoAttribute->frameRate, 25);
    QCOMPARE(meta.videoAttribute->videoInfo2, 9);
    QCOMPARE(QByteArray(meta.videoAttribute->codec), QByteArray("h264"));

    QVERIFY(meta.subtitleAttribute);
    QCOMPARE(meta.subtitleAttribute->subtitleNum, 3);
    QCOMPARE(meta.subtitleAttribute->curSubtitleNum, 1);
    QCOMPARE(meta.subtitleAttribute->subtitleOn, true);
    QCOMPARE(meta.subtitleAttribute->reserved[0], 0);
    QCOMPARE(meta.subtitleAttribute->reserved[1], 0);
    QCOMPARE(meta.subtitleAttribute->reserved[2], 0);
    QCOMPARE(QByteArray(meta.subtitleAttribute->language), QByteArray());
}

void tst_MetaDataCollect::fullRefreshWithoutPlayer()
{
    MetaRig rig(false);
    rig.reader.script().setDefault("getMediaType", 1);
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getAudioStreamNum", 2);
    rig.reader.setAudioAttribute(0, engineAudio(1, 22050, 64000, "wma", "ger", 8));
    rig.reader.script().setDefault("getSubtitleStreamNum", 4);
    rig.reader.script().setDefault("getDuration", 5000);

    MetaDataOwner owner;
    owner.meta.trickPlay = true;
    LogCapture log;
    rig.session.updateAVMetadata(owner.meta);

    QStringList expectedCalls = {QStringLiteral("getMediaType()"), QStringLiteral("getProgramNum()"),
                                 QStringLiteral("getAudioStreamNum(0)"), QStringLiteral("getAudioAttribute(0,0)")};
    expectedCalls += allTagQueries;
    expectedCalls += QStringList{QStringLiteral("getProgramNum()"), QStringLiteral("getSubtitleStreamNum(0)"),
                                 QStringLiteral("SPMetaData::getDuration()")};
    QCOMPARE(rig.recorder.calls(), expectedCalls);

    ORVIC_COMPARE_LINES(log.lines(), (QStringList{
        QStringLiteral("V/OPMetaSession updateAVMetadata(#) called"),
        QStringLiteral("D/OPMetaSession updateAudioMetadata(#):program num 1"),
        QStringLiteral("D/OPMetaSession updateAudioMetadata(#):use mSPMetaData to get audioTrackNum\n"),
        QStringLiteral("D/OPMetaSession updateAudioMetadata(#):audio stream num 2, channel 1, sampling rate 22050, "
                       "bit rate 64000, bit depth 8, language ger, codec wma"),
        QStringLiteral("D/OPMetaSession updateAudioMetadata(#):id3 string max length is 256"),
        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata 1"),
        QStringLiteral("D/OPMetaSession updateSubtitleMetadata(#):use mSPMetaData to get subtitleTrackNum\n"),
        QStringLiteral("get subtitle ison 0 0 4"),
        QStringLiteral("D/OPMetaSession updateTrickPlayFlag(#):updateSubtitleMetadata mFilePlayer is NULL!\n")}));

    QCOMPARE(owner.meta.mediaType, 1);
    QVERIFY(owner.meta.audioAttribute);
    QCOMPARE(owner.meta.audioAttribute->audioStreamNum, 2);
    QVERIFY(!owner.meta.videoAttribute);
    QVERIFY(owner.meta.subtitleAttribute);
    QCOMPARE(owner.meta.subtitleAttribute->subtitleNum, 4);
    // Without a player the current subtitle is the stream asked for.
    QCOMPARE(owner.meta.subtitleAttribute->curSubtitleNum, 0);
    QCOMPARE(owner.meta.subtitleAttribute->subtitleOn, false);
    QCOMPARE(owner.meta.trickPlay, true);
    QCOMPARE(owner.meta.totalTime, Q_INT64_C(5000));
}

void tst_MetaDataCollect::audioCount_data()
{
    QTest::addColumn<bool>("withPlayer");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("written");
    QTest::addColumn<int>("readerCount");
    QTest::addColumn<int>("expectedCount");
    QTest::addColumn<bool>("failLogged");
    QTest::addColumn<bool>("readerAsked");

    QTest::newRow("player count") << true << 0 << 3 << 7 << 3 << false << false;
    QTest::newRow("player positive status is success") << true << 1 << 4 << 7 << 4 << false << false;
    QTest::newRow("player count 0 asks the reader") << true << 0 << 0 << 7 << 7 << false << true;
    QTest::newRow("player status 0 writing nothing") << true << 0 << kNotWritten << 6 << 6 << false << true;
    QTest::newRow("player fails writing nothing") << true << -1 << kNotWritten << 5 << 5 << true << true;
    QTest::newRow("player fails but wrote a count") << true << -1 << 2 << 5 << 2 << true << false;
    QTest::newRow("negative player count is kept") << true << 0 << -3 << 5 << -3 << false << false;
    QTest::newRow("no player") << false << 0 << kNotWritten << 6 << 6 << false << true;
}

void tst_MetaDataCollect::audioCount()
{
    QFETCH(bool, withPlayer);
    QFETCH(int, status);
    QFETCH(int, written);
    QFETCH(int, readerCount);
    QFETCH(int, expectedCount);
    QFETCH(bool, failLogged);
    QFETCH(bool, readerAsked);

    MetaRig rig(withPlayer);
    rig.reader.script().setDefault("getProgramNum", 3);
    rig.reader.script().setDefault("getAudioStreamNum", readerCount);
    rig.reader.setAudioAttribute(5, engineAudio(6, 96000, 320000, "flac", "fra", 24));
    rig.player.script().push("getParameter", status);
    if (written != kNotWritten)
        rig.player.script().push("getParameter/get-audio-count", written);

    MetaDataOwner owner;
    LogCapture log;
    rig.session.updateAudioMetadata(owner.meta, 5, 9);

    QStringList expectedCalls = {QStringLiteral("getProgramNum()")};
    if (withPlayer)
        expectedCalls << QStringLiteral("getParameter(mPlayer,get-audio-count,4)");
    if (readerAsked)
        expectedCalls << QStringLiteral("getAudioStreamNum(9)");
    // The attribute is always read from the first program.
    expectedCalls << QStringLiteral("getAudioAttribute(0,5)");
    expectedCalls += allTagQueries;
    QCOMPARE(rig.recorder.calls(), expectedCalls);

    QStringList expectedLog = {QStringLiteral("D/OPMetaSession updateAudioMetadata(#):program num 3")};
    if (failLogged)
        expectedLog << QStringLiteral("D/OPMetaSession updateAudioMetadata(#):mFilePlayer get audioTrackNum fail\n");
    if (readerAsked)
        expectedLog << QStringLiteral("D/OPMetaSession updateAudioMetadata(#):use mSPMetaData to get audioTrackNum\n");
    expectedLog << QStringLiteral("D/OPMetaSession updateAudioMetadata(#):audio stream num %1, channel 6, "
                                  "sampling rate 96000, bit rate 320000, bit depth 24, language fra, codec flac")
                       .arg(expectedCount)
                << QStringLiteral("D/OPMetaSession updateAudioMetadata(#):id3 string max length is 256");
    ORVIC_COMPARE_LINES(log.lines(), expectedLog);

    QVERIFY(owner.meta.audioAttribute);
    QCOMPARE(owner.meta.audioAttribute->audioStreamNum, expectedCount);
    QCOMPARE(owner.meta.audioAttribute->channel, 6);
    QVERIFY(owner.meta.audioAttribute->id3Info);
}

void tst_MetaDataCollect::noAudioReleasesVideo_data()
{
    QTest::addColumn<int>("readerCount");
    QTest::addColumn<int>("attributeStatus");
    QTest::addColumn<bool>("audioExpected");
    QTest::newRow("no audio stream") << 0 << 0 << false;
    QTest::newRow("attribute read fails") << 2 << -1 << false;
    QTest::newRow("only -1 is a failed attribute read") << 2 << -2 << true;
}

void tst_MetaDataCollect::noAudioReleasesVideo()
{
    QFETCH(int, readerCount);
    QFETCH(int, attributeStatus);
    QFETCH(bool, audioExpected);

    MetaRig rig;
    rig.reader.script().setDefault("getAudioStreamNum", readerCount);
    rig.reader.script().setDefault("getAudioAttribute", attributeStatus);

    MetaDataOwner owner;
    // A previous medium's blocks, the audio one with its tag block.
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    owner.meta.audioAttribute->audioStreamNum = 99;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    owner.meta.subtitleAttribute = callocBlock<QOrvicPlayerSession::SubtitleAttribute>();
    QOrvicPlayerSession::SubtitleAttribute *const subtitle = owner.meta.subtitleAttribute;

    rig.session.updateAudioMetadata(owner.meta, 0, 0);

    QCOMPARE(owner.meta.subtitleAttribute, subtitle);
    if (audioExpected) {
        QVERIFY(owner.meta.videoAttribute);
        QVERIFY(owner.meta.audioAttribute);
        QCOMPARE(owner.meta.audioAttribute->audioStreamNum, 2);
    } else {
        // The video block goes with the missing audio; the audio block was dropped before.
        QVERIFY(!owner.meta.videoAttribute);
        QVERIFY(!owner.meta.audioAttribute);
    }
}

void tst_MetaDataCollect::audioBlockRebuiltOnRefresh()
{
    MetaRig rig;
    scriptOneAudioStream(rig);
    rig.reader.setMetaString("title", "First");
    rig.reader.setMetaString("comment_v1", "Old comment");

    MetaDataOwner owner;
    // Leftovers of an earlier medium must not survive into the new block.
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    owner.meta.audioAttribute->audioStreamNum = 99;
    setField(owner.meta.audioAttribute->codec, "junk");
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    setField(owner.meta.audioAttribute->id3Info->genre, "Stale genre");
    owner.meta.audioAttribute->id3Info->genreFlag = 2;

    rig.session.updateAudioMetadata(owner.meta, 0, 0);
    QVERIFY(owner.meta.audioAttribute);
    QCOMPARE(owner.meta.audioAttribute->audioStreamNum, 1);
    QCOMPARE(QByteArray(owner.meta.audioAttribute->codec), QByteArray("mp3"));
    QCOMPARE(QByteArray(owner.meta.audioAttribute->id3Info->title), QByteArray("First"));
    QCOMPARE(QByteArray(owner.meta.audioAttribute->id3Info->genre), QByteArray());
    QCOMPARE(owner.meta.audioAttribute->id3Info->genreFlag, 0);

    // The second medium has no tags at all: nothing of the first remains.
    MetaRig second;
    second.reader.script().setDefault("getProgramNum", 1);
    second.reader.script().setDefault("getAudioStreamNum", 3);
    second.reader.setAudioAttribute(0, engineAudio(2, 48000, 96000, "aac", "jpn", 16));
    second.session.updateAudioMetadata(owner.meta, 0, 0);
    QVERIFY(owner.meta.audioAttribute);
    QCOMPARE(owner.meta.audioAttribute->audioStreamNum, 3);
    QCOMPARE(QByteArray(owner.meta.audioAttribute->codec), QByteArray("aac"));
    QVERIFY(owner.meta.audioAttribute->id3Info);
    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    for (const QString &field : allTagFields) {
        QCOMPARE(tagText(tags, field), QByteArray());
        QCOMPARE(tagFlag(tags, field), 0);
    }
}

void tst_MetaDataCollect::audioEngineTextWithoutNul()
{
    MetaRig rig;
    rig.reader.script().setDefault("getAudioStreamNum", 1);
    // Both eight-byte texts filled to the last byte, no NUL anywhere.
    rig.reader.setAudioAttribute(0, engineAudio(2, 44100, 1, "ABCDEFGH", "IJKLMNOP", 16));
    MetaDataOwner owner;
    LogCapture log;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);
    QVERIFY(owner.meta.audioAttribute);
    QCOMPARE(QByteArray(owner.meta.audioAttribute->codec, 8), QByteArray("ABCDEFGH"));
    QCOMPARE(QByteArray(owner.meta.audioAttribute->language, 8), QByteArray("IJKLMNOP"));
    QVERIFY(log.contains(QStringLiteral("D/OPMetaSession updateAudioMetadata(#):audio stream num 1, channel 2, "
                                        "sampling rate 44100, bit rate 1, bit depth 16, language IJKLMNOP, "
                                        "codec ABCDEFGH")));
}

void tst_MetaDataCollect::trickPlay_data()
{
    QTest::addColumn<bool>("previous");
    QTest::addColumn<bool>("supported");
    QTest::newRow("supported") << false << true;
    QTest::newRow("not supported") << true << false;
}

void tst_MetaDataCollect::trickPlay()
{
    QFETCH(bool, previous);
    QFETCH(bool, supported);
    MetaRig rig;
    rig.player.script().setDefault("isTrickPlaySupported", supported);
    MetaDataOwner owner;
    owner.meta.trickPlay = previous;
    LogCapture log;
    rig.session.updateTrickPlayFlag(owner.meta);
    QCOMPARE(owner.meta.trickPlay, supported);
    QCOMPARE(rig.recorder.calls(), QStringList{QStringLiteral("isTrickPlaySupported()")});
    QCOMPARE(log.lines(), QStringList());
}

void tst_MetaDataCollect::trickPlayWithoutPlayer()
{
    MetaRig rig(false);
    MetaDataOwner owner;
    owner.meta.trickPlay = true;
    LogCapture log;
    rig.session.updateTrickPlayFlag(owner.meta);
    QCOMPARE(owner.meta.trickPlay, true);
    QCOMPARE(rig.recorder.calls(), QStringList());
    // The message names the subtitle function; that is the line the device has always written.
    ORVIC_COMPARE_LINES(log.lines(), QStringList{
        QStringLiteral("D/OPMetaSession updateTrickPlayFlag(#):updateSubtitleMetadata mFilePlayer is NULL!\n")});
}

void tst_MetaDataCollect::totalTime_data()
{
    QTest::addColumn<qint64>("duration");
    QTest::newRow("zero") << qint64(0);
    QTest::newRow("beyond 32 bits") << Q_INT64_C(5000000000123);
    QTest::newRow("negative") << qint64(-1);
}

void tst_MetaDataCollect::totalTime()
{
    QFETCH(qint64, duration);
    MetaRig rig;
    rig.reader.script().setDefault("getDuration", duration);
    MetaDataOwner owner;
    owner.meta.totalTime = 42;
    rig.session.updateTotalTime(owner.meta);
    QCOMPARE(owner.meta.totalTime, duration);
    QCOMPARE(rig.recorder.calls(), QStringList{QStringLiteral("SPMetaData::getDuration()")});
}

void tst_MetaDataCollect::logContext()
{
    MetaRig rig;
    MetaDataOwner owner;
    LogCapture log;
    rig.session.updateVideoMetadata(owner.meta, 0, 0);
    const QList<LogEntry> entries = log.entries();
    QCOMPARE(entries.size(), 1);
    QCOMPARE(entries.at(0).type, QtDebugMsg);
    QCOMPARE(entries.at(0).file, QStringLiteral("qorvicmetadatasession"));
    QCOMPARE(entries.at(0).category, QStringLiteral("default"));
    QVERIFY2(entries.at(0).function.contains(QLatin1String("QOrvicMetaDataSession::updateVideoMetadata(")),
             qPrintable(entries.at(0).function));
    QVERIFY(entries.at(0).line > 0);
}

QTEST_GUILESS_MAIN(tst_MetaDataCollect)
#include "tst_metadatacollect.moc"
