// Stream metadata collection against the scripted engine: call order and
// arguments, fallbacks, flags, copy limits, block reuse and release, log lines.
#include "metadatatestutil.h"

#include <QtTest/QtTest>

using namespace orvictest;
using Id3Info = QOrvicPlayerSession::Id3Info;

namespace {
const int kNotWritten = INT_MIN;

QByteArray tagText(const Id3Info &tags, const QString &field)
{
    if (field == QLatin1String("title"))
        return QByteArray(tags.title, int(qstrnlen(tags.title, sizeof tags.title)));
    if (field == QLatin1String("artist"))
        return QByteArray(tags.artist, int(qstrnlen(tags.artist, sizeof tags.artist)));
    if (field == QLatin1String("album"))
        return QByteArray(tags.album, int(qstrnlen(tags.album, sizeof tags.album)));
    if (field == QLatin1String("genre"))
        return QByteArray(tags.genre, int(qstrnlen(tags.genre, sizeof tags.genre)));
    if (field == QLatin1String("date"))
        return QByteArray(tags.date, int(qstrnlen(tags.date, sizeof tags.date)));
    if (field == QLatin1String("comment"))
        return QByteArray(tags.comment, int(qstrnlen(tags.comment, sizeof tags.comment)));
    qFatal("no tag field %s", qPrintable(field));
}

int tagFlag(const Id3Info &tags, const QString &field)
{
    if (field == QLatin1String("title"))
        return tags.titleFlag;
    if (field == QLatin1String("artist"))
        return tags.artistFlag;
    if (field == QLatin1String("album"))
        return tags.albumFlag;
    if (field == QLatin1String("genre"))
        return tags.genreFlag;
    if (field == QLatin1String("date"))
        return tags.dateFlag;
    if (field == QLatin1String("comment"))
        return tags.commentFlag;
    qFatal("no tag field %s", qPrintable(field));
}

const QStringList allTagFields = {QStringLiteral("title"), QStringLiteral("artist"), QStringLiteral("album"),
                                  QStringLiteral("genre"), QStringLiteral("date"), QStringLiteral("comment")};

// Every tag key in the order the collection asks when nothing is found.
const QStringList allTagQueries = {
    QStringLiteral("getMetaString(title)"),   QStringLiteral("getMetaString(title_v1)"),
    QStringLiteral("getMetaString(artist)"),  QStringLiteral("getMetaString(artist_v1)"),
    QStringLiteral("getMetaString(TP1_V1)"),  QStringLiteral("getMetaString(album)"),
    QStringLiteral("getMetaString(album_v1)"), QStringLiteral("getMetaString(TAL_V1)"),
    QStringLiteral("getMetaString(date)"),    QStringLiteral("getMetaString(date_v1)"),
    QStringLiteral("getMetaString(comment)"), QStringLiteral("getMetaString(comment_v1)"),
    QStringLiteral("getMetaString(genre)"),   QStringLiteral("getMetaString(genre_v1)")};

// A reader with one program and one audio stream whose attribute reads fine.
void scriptOneAudioStream(MetaRig &rig)
{
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getAudioStreamNum", 1);
    rig.reader.setAudioAttribute(0, engineAudio(2, 44100, 128000, "mp3", "eng", 16));
}

QStringList tagCalls(const CallRecorder &recorder)
{
    QStringList out;
    for (const QString &c : recorder.calls()) {
        if (c.startsWith(QLatin1String("getMetaString(")) || c == QLatin1String("isTagV2()"))
            out.append(c);
    }
    return out;
}
} // namespace

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
    void tagKeys_data();
    void tagKeys();
    void tagsAllAbsent();
    void tagFirstAnswerWins();
    void tagCopyLimits_data();
    void tagCopyLimits();
    void videoOnlyForVideoMedia_data();
    void videoOnlyForVideoMedia();
    void videoWithoutProgramKeepsBlock();
    void videoReleased_data();
    void videoReleased();
    void videoBlockReused();
    void videoBlockCreated();
    void subtitle_data();
    void subtitle();
    void subtitleBlockCreated();
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

void tst_MetaDataCollect::tagKeys_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<bool>("tagV2");
    QTest::addColumn<QString>("field");
    QTest::addColumn<int>("flag");

    const struct {
        const char *field;
        QList<QByteArray> fallbacks;
    } tags[] = {{"title", {"title_v1"}},
                {"artist", {"artist_v1", "TP1_V1"}},
                {"album", {"album_v1", "TAL_V1"}},
                {"date", {"date_v1"}},
                {"comment", {"comment_v1"}},
                {"genre", {"genre_v1"}}};
    for (const auto &tag : tags) {
        const QString field = QString::fromLatin1(tag.field);
        QTest::addRow("%s newer kind", tag.field) << QByteArray(tag.field) << true << field << 2;
        QTest::addRow("%s older kind", tag.field) << QByteArray(tag.field) << false << field << 1;
        for (const QByteArray &fallback : tag.fallbacks)
            QTest::addRow("%s", fallback.constData()) << fallback << true << field << 1;
    }
}

void tst_MetaDataCollect::tagKeys()
{
    QFETCH(QByteArray, key);
    QFETCH(bool, tagV2);
    QFETCH(QString, field);
    QFETCH(int, flag);

    MetaRig rig;
    scriptOneAudioStream(rig);
    rig.reader.setMetaString(key, "2024");
    rig.reader.script().setDefault("isTagV2", tagV2);
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);

    QVERIFY(owner.meta.audioAttribute && owner.meta.audioAttribute->id3Info);
    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    for (const QString &f : allTagFields) {
        QCOMPARE(tagText(tags, f), f == field ? QByteArray("2024") : QByteArray());
        QCOMPARE(tagFlag(tags, f), f == field ? flag : 0);
    }
    // The tag kind is asked only after a main-key answer.
    const bool mainKey = key == field.toLatin1();
    QCOMPARE(rig.recorder.count(QStringLiteral("isTagV2")), mainKey ? 1 : 0);
    const QStringList calls = tagCalls(rig.recorder);
    const int at = calls.indexOf(QStringLiteral("getMetaString(%1)").arg(QString::fromLatin1(key)));
    QVERIFY(at >= 0);
    if (mainKey)
        QCOMPARE(calls.value(at + 1), QStringLiteral("isTagV2()"));
    QCOMPARE(owner.meta.audioAttribute->id3Info->reserved, 0);
}

void tst_MetaDataCollect::tagsAllAbsent()
{
    MetaRig rig;
    scriptOneAudioStream(rig);
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);
    QCOMPARE(tagCalls(rig.recorder), allTagQueries);
    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    for (const QString &f : allTagFields) {
        QCOMPARE(tagText(tags, f), QByteArray());
        QCOMPARE(tagFlag(tags, f), 0);
    }
}

void tst_MetaDataCollect::tagFirstAnswerWins()
{
    MetaRig rig;
    scriptOneAudioStream(rig);
    rig.reader.setMetaString("artist_v1", "Older artist");
    rig.reader.setMetaString("TP1_V1", "Oldest artist");
    rig.reader.setMetaString("album", "Main album");
    rig.reader.setMetaString("TAL_V1", "Oldest album");
    // A present but empty main-key text is an answer too.
    rig.reader.setMetaString("comment", "");
    rig.reader.setMetaString("comment_v1", "Older comment");
    rig.reader.script().push("isTagV2", QVariantList{false, true});
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);

    QCOMPARE(tagCalls(rig.recorder),
             (QStringList{QStringLiteral("getMetaString(title)"), QStringLiteral("getMetaString(title_v1)"),
                          QStringLiteral("getMetaString(artist)"), QStringLiteral("getMetaString(artist_v1)"),
                          QStringLiteral("getMetaString(album)"), QStringLiteral("isTagV2()"),
                          QStringLiteral("getMetaString(date)"), QStringLiteral("getMetaString(date_v1)"),
                          QStringLiteral("getMetaString(comment)"), QStringLiteral("isTagV2()"),
                          QStringLiteral("getMetaString(genre)"), QStringLiteral("getMetaString(genre_v1)")}));
    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    QCOMPARE(QByteArray(tags.artist), QByteArray("Older artist"));
    QCOMPARE(tags.artistFlag, 1);
    QCOMPARE(QByteArray(tags.album), QByteArray("Main album"));
    QCOMPARE(tags.albumFlag, 1);
    QCOMPARE(QByteArray(tags.comment), QByteArray());
    QCOMPARE(tags.commentFlag, 2);
}

void tst_MetaDataCollect::tagCopyLimits_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray a300(300, 'a');
    QTest::newRow("300-byte title cut to 255") << QByteArray("title") << "title" << a300 << a300.left(255);
    QTest::newRow("255-byte title kept") << QByteArray("title") << "title" << a300.left(255) << a300.left(255);
    QTest::newRow("256-byte artist_v1 cut to 255") << QByteArray("artist_v1") << "artist" << QByteArray(256, 'b')
                                                   << QByteArray(255, 'b');
    QTest::newRow("300-byte TAL_V1 cut to 255") << QByteArray("TAL_V1") << "album" << QByteArray(300, 'c')
                                                << QByteArray(255, 'c');
    QTest::newRow("300-byte genre cut to 255") << QByteArray("genre") << "genre" << QByteArray(300, 'g')
                                               << QByteArray(255, 'g');
    const QByteArray invalid = QByteArray("\xE4\xB8", 2).repeated(150);
    QTest::newRow("300 bytes of broken multibyte in comment") << QByteArray("comment") << "comment" << invalid
                                                              << invalid.left(255);
    QTest::newRow("five-digit year cut to 4") << QByteArray("date") << "date" << QByteArray("20231")
                                              << QByteArray("2023");
    QTest::newRow("long date_v1 cut to 4") << QByteArray("date_v1") << "date" << QByteArray("1999-12-31")
                                           << QByteArray("1999");
    QTest::newRow("short year kept") << QByteArray("date") << "date" << QByteArray("99") << QByteArray("99");
    QTest::newRow("embedded NUL ends the text") << QByteArray("title") << "title" << QByteArray("ab\0cd", 5)
                                                << QByteArray("ab");
}

void tst_MetaDataCollect::tagCopyLimits()
{
    QFETCH(QByteArray, key);
    QFETCH(QString, field);
    QFETCH(QByteArray, value);
    QFETCH(QByteArray, expected);

    MetaRig rig;
    scriptOneAudioStream(rig);
    rig.reader.setMetaString(key, value);
    MetaDataOwner owner;
    rig.session.updateAudioMetadata(owner.meta, 0, 0);

    const Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    QCOMPARE(tagText(tags, field), expected);
    // The field's last byte stays NUL whatever the tag's length.
    const char *raw = field == QLatin1String("date") ? tags.date : nullptr;
    if (field == QLatin1String("title"))
        raw = tags.title;
    else if (field == QLatin1String("artist"))
        raw = tags.artist;
    else if (field == QLatin1String("album"))
        raw = tags.album;
    else if (field == QLatin1String("genre"))
        raw = tags.genre;
    else if (field == QLatin1String("comment"))
        raw = tags.comment;
    const int size = field == QLatin1String("date") ? int(sizeof tags.date) : 256;
    QCOMPARE(raw[size - 1], '\0');
    QCOMPARE(qstrnlen(raw, uint(size)), uint(expected.size()));
}

void tst_MetaDataCollect::videoOnlyForVideoMedia_data()
{
    QTest::addColumn<int>("mediaType");
    QTest::addColumn<bool>("withBlock");
    for (int type : {0, 1, 3, 4}) {
        QTest::addRow("kind %d, no block", type) << type << false;
        QTest::addRow("kind %d, previous block", type) << type << true;
    }
}

void tst_MetaDataCollect::videoOnlyForVideoMedia()
{
    QFETCH(int, mediaType);
    QFETCH(bool, withBlock);
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", 0);
    MetaDataOwner owner;
    owner.meta.mediaType = mediaType;
    QOrvicPlayerSession::VideoAttribute *block = nullptr;
    if (withBlock) {
        block = callocBlock<QOrvicPlayerSession::VideoAttribute>();
        block->width = 640;
        owner.meta.videoAttribute = block;
    }
    LogCapture log;
    rig.session.updateVideoMetadata(owner.meta, 0, 0);
    // Neither created nor released, and the engine is not asked.
    QCOMPARE(owner.meta.videoAttribute, block);
    if (block)
        QCOMPARE(block->width, 640);
    QCOMPARE(rig.recorder.calls(), QStringList());
    ORVIC_COMPARE_LINES(log.lines(), QStringList{
        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata %1").arg(mediaType)});
}

void tst_MetaDataCollect::videoWithoutProgramKeepsBlock()
{
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 0);
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    owner.meta.videoAttribute->height = 480;
    QOrvicPlayerSession::VideoAttribute *const block = owner.meta.videoAttribute;
    rig.session.updateVideoMetadata(owner.meta, 0, 0);
    QCOMPARE(owner.meta.videoAttribute, block);
    QCOMPARE(block->height, 480);
    QCOMPARE(rig.recorder.calls(), QStringList{QStringLiteral("getProgramNum()")});
}

void tst_MetaDataCollect::videoReleased_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("calls");
    QTest::newRow("no video stream") << 0 << 0
                                     << QStringList{QStringLiteral("getProgramNum()"),
                                                    QStringLiteral("getVideoStreamNum(0)")};
    QTest::newRow("attribute read fails") << 1 << -1
                                          << QStringList{QStringLiteral("getProgramNum()"),
                                                         QStringLiteral("getVideoStreamNum(0)"),
                                                         QStringLiteral("getVideoAttribute(0,2)")};
}

void tst_MetaDataCollect::videoReleased()
{
    QFETCH(int, count);
    QFETCH(int, status);
    QFETCH(QStringList, calls);
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", count);
    rig.reader.script().setDefault("getVideoAttribute", status);
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    LogCapture log;
    rig.session.updateVideoMetadata(owner.meta, 2, 7);
    QVERIFY(!owner.meta.videoAttribute);
    QCOMPARE(rig.recorder.calls(), calls);
    ORVIC_COMPARE_LINES(log.lines(), QStringList{QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata 2")});
}

void tst_MetaDataCollect::videoBlockReused()
{
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", 2);
    rig.reader.setVideoAttribute(1, engineVideo(1280, 720, -3, 30000, 11, "mpeg4"));
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    setField(owner.meta.videoAttribute->codec, "h264abc");
    QOrvicPlayerSession::VideoAttribute *const block = owner.meta.videoAttribute;

    LogCapture log;
    rig.session.updateVideoMetadata(owner.meta, 1, 0);
    QCOMPARE(owner.meta.videoAttribute, block);
    QCOMPARE(block->videoStreamNum, 2);
    QCOMPARE(block->width, 1280);
    QCOMPARE(block->height, 720);
    QCOMPARE(block->videoInfo1, -3);
    QCOMPARE(block->frameRate, 30000);
    QCOMPARE(block->videoInfo2, 11);
    // All eight codec bytes come from the engine's record.
    QCOMPARE(QByteArray(block->codec, 8), QByteArray("mpeg4\0\0\0", 8));
    QCOMPARE(rig.recorder.calls(), (QStringList{QStringLiteral("getProgramNum()"),
                                                QStringLiteral("getVideoStreamNum(0)"),
                                                QStringLiteral("getVideoAttribute(0,1)")}));
    ORVIC_COMPARE_LINES(log.lines(), (QStringList{QStringLiteral("D/OPMetaSession updateVideoMetadata(#):updateVideoMetadata 2"),
                                        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):width*height 1280 * 720\n"),
                                        QStringLiteral("D/OPMetaSession updateVideoMetadata(#):codec")}));
}

void tst_MetaDataCollect::videoBlockCreated()
{
    MetaRig rig;
    rig.reader.script().setDefault("getProgramNum", 1);
    rig.reader.script().setDefault("getVideoStreamNum", 1);
    rig.reader.setVideoAttribute(0, engineVideo(720, 576, 0, 25, 0, "ABCDEFGH"));
    MetaDataOwner owner;
    owner.meta.mediaType = 2;
    rig.session.updateVideoMetadata(owner.meta, 0, 0);
    QVERIFY(owner.meta.videoAttribute);
    QCOMPARE(owner.meta.videoAttribute->width, 720);
    QCOMPARE(owner.meta.videoAttribute->height, 576);
    QCOMPARE(QByteArray(owner.meta.videoAttribute->codec, 8), QByteArray("ABCDEFGH"));
}

void tst_MetaDataCollect::subtitle_data()
{
    QTest::addColumn<bool>("withPlayer");
    QTest::addColumn<int>("countStatus");
    QTest::addColumn<int>("countWritten");
    QTest::addColumn<int>("current");
    QTest::addColumn<int>("onoffStatus");
    QTest::addColumn<int>("onoffWritten");
    QTest::addColumn<int>("programs");
    QTest::addColumn<int>("readerCount");
    QTest::addColumn<int>("stream");
    QTest::addColumn<bool>("kept");
    QTest::addColumn<int>("subtitleNum");
    QTest::addColumn<int>("curSubtitleNum");
    QTest::addColumn<bool>("subtitleOn");
    QTest::addColumn<bool>("readerAsked");

    const int n = kNotWritten;
    // withPlayer countStatus countWritten current onoffStatus onoffWritten programs readerCount stream
    //   -> kept subtitleNum curSubtitleNum subtitleOn readerAsked
    QTest::newRow("player reports the streams") << true << 0 << 2 << 1 << 1 << n << 1 << 9 << 0
                                                << true << 2 << 1 << true << false;
    QTest::newRow("player count 0: reader count, stream as current") << true << 0 << 0 << 1 << 0 << n << 1 << 3 << 2
                                                                     << true << 3 << 2 << false << true;
    QTest::newRow("player count 0, no program: record without streams") << true << 0 << 0 << 5 << 1 << n << 0 << 9
                                                                        << 0 << true << 0 << 5 << true << true;
    QTest::newRow("count query fails, no program") << true << -1 << n << 1 << 0 << n << 0 << 9 << 0
                                                   << false << 0 << 0 << false << true;
    QTest::newRow("count query fails, reader answers") << true << -1 << n << 1 << 0 << n << 1 << 2 << 0
                                                       << true << 2 << 0 << false << true;
    QTest::newRow("count query fails after writing a count") << true << -2 << 4 << 1 << 0 << n << 1 << 9 << 0
                                                             << false << 0 << 0 << false << false;
    QTest::newRow("on/off status decides, not the written value") << true << 0 << 2 << 1 << 0 << 1 << 1 << 9 << 0
                                                                  << true << 2 << 1 << false << false;
    QTest::newRow("negative on/off status counts as on") << true << 0 << 2 << 1 << -5 << 0 << 1 << 9 << 0
                                                         << true << 2 << 1 << true << false;
    QTest::newRow("negative player count") << true << 0 << -1 << 1 << 0 << n << 1 << 9 << 0
                                           << false << 0 << 0 << false << false;
    QTest::newRow("no player: reader count, stream as current") << false << 0 << n << 0 << 0 << n << 1 << 2 << 4
                                                                << true << 2 << 4 << false << true;
    QTest::newRow("no player, no program") << false << 0 << n << 0 << 0 << n << 0 << 2 << 0
                                           << false << 0 << 0 << false << true;
    QTest::newRow("stream -1 with player") << true << 0 << 2 << 1 << 1 << n << 1 << 9 << -1
                                           << false << 0 << 0 << false << false;
    QTest::newRow("stream -1 without player") << false << 0 << n << 0 << 0 << n << 1 << 2 << -1
                                              << false << 0 << 0 << false << true;
    QTest::newRow("stream -1 after player count 0") << true << 0 << 0 << 1 << 0 << n << 1 << 2 << -1
                                                    << false << 0 << 0 << false << true;
    QTest::newRow("negative reader count") << false << 0 << n << 0 << 0 << n << 1 << -1 << 0
                                           << false << 0 << 0 << false << true;
}

void tst_MetaDataCollect::subtitle()
{
    QFETCH(bool, withPlayer);
    QFETCH(int, countStatus);
    QFETCH(int, countWritten);
    QFETCH(int, current);
    QFETCH(int, onoffStatus);
    QFETCH(int, onoffWritten);
    QFETCH(int, programs);
    QFETCH(int, readerCount);
    QFETCH(int, stream);
    QFETCH(bool, kept);
    QFETCH(int, subtitleNum);
    QFETCH(int, curSubtitleNum);
    QFETCH(bool, subtitleOn);
    QFETCH(bool, readerAsked);

    MetaRig rig(withPlayer);
    rig.player.script().push("getParameter", QVariantList{countStatus, onoffStatus});
    if (countWritten != kNotWritten)
        rig.player.script().push("getParameter/get-subtitle-count", countWritten);
    if (onoffWritten != kNotWritten)
        rig.player.script().push("getParameter/get-subtitle-onoff", onoffWritten);
    rig.player.script().setDefault("getCurrentStream", current);
    rig.reader.script().setDefault("getProgramNum", programs);
    rig.reader.script().setDefault("getSubtitleStreamNum", readerCount);

    MetaDataOwner owner;
    owner.meta.subtitleAttribute = callocBlock<QOrvicPlayerSession::SubtitleAttribute>();
    owner.meta.subtitleAttribute->reserved[1] = 77;
    setField(owner.meta.subtitleAttribute->language, "chi");
    QOrvicPlayerSession::SubtitleAttribute *const block = owner.meta.subtitleAttribute;

    LogCapture log;
    rig.session.updateSubtitleMetadata(owner.meta, stream, 6);

    QStringList expectedCalls;
    if (withPlayer)
        expectedCalls << QStringLiteral("getParameter(mPlayer,get-subtitle-count,4)")
                      << QStringLiteral("getCurrentStream(3)")
                      << QStringLiteral("getParameter(mPlayer,get-subtitle-onoff,4)");
    if (readerAsked) {
        expectedCalls << QStringLiteral("getProgramNum()");
        if (programs != 0)
            expectedCalls << QStringLiteral("getSubtitleStreamNum(0)");
    }
    QCOMPARE(rig.recorder.calls(), expectedCalls);

    QStringList expectedLog;
    if (readerAsked)
        expectedLog << QStringLiteral("D/OPMetaSession updateSubtitleMetadata(#):use mSPMetaData to get subtitleTrackNum\n");
    if (kept) {
        const int onoff = withPlayer ? onoffStatus : 0;
        expectedLog << QStringLiteral("get subtitle ison %1 %2 %3").arg(onoff).arg(stream).arg(subtitleNum);
    }
    ORVIC_COMPARE_LINES(log.lines(), expectedLog);

    if (!kept) {
        QVERIFY(!owner.meta.subtitleAttribute);
        return;
    }
    // Kept records are the same block, patched field by field.
    QCOMPARE(owner.meta.subtitleAttribute, block);
    QCOMPARE(block->subtitleNum, subtitleNum);
    QCOMPARE(block->curSubtitleNum, curSubtitleNum);
    QCOMPARE(block->subtitleOn, subtitleOn);
    QCOMPARE(block->reserved[1], 77);
    QCOMPARE(QByteArray(block->language), QByteArray("chi"));
}

void tst_MetaDataCollect::subtitleBlockCreated()
{
    MetaRig rig;
    rig.player.script().push("getParameter/get-subtitle-count", 1);
    rig.player.script().setDefault("getCurrentStream", 0);
    MetaDataOwner owner;
    rig.session.updateSubtitleMetadata(owner.meta, 0, 0);
    QVERIFY(owner.meta.subtitleAttribute);
    QCOMPARE(owner.meta.subtitleAttribute->subtitleNum, 1);
    QCOMPARE(owner.meta.subtitleAttribute->curSubtitleNum, 0);
    QCOMPARE(owner.meta.subtitleAttribute->subtitleOn, false);
    QCOMPARE(QByteArray(owner.meta.subtitleAttribute->language, 8), QByteArray(8, '\0'));
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
