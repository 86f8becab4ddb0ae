// The plain metadata records: layout, creation through the meta-type system,
// copies that share the heap blocks.
#include "metadatatestutil.h"

#include <QtTest/QtTest>

#include <cstddef>

using namespace orvictest;
using PlayerMetaData = QOrvicPlayerSession::PlayerMetaData;
using AudioAttribute = QOrvicPlayerSession::AudioAttribute;
using VideoAttribute = QOrvicPlayerSession::VideoAttribute;
using SubtitleAttribute = QOrvicPlayerSession::SubtitleAttribute;
using Id3Info = QOrvicPlayerSession::Id3Info;

class tst_MetaDataRecords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void defaultVideoAttribute();
    void heapVideoAttributeIsZero();
    void defaultRecordsAreZero();
    void metaTypeCreatesDefaults();
    void metaTypeCopiesBytewise();
    void copySharesBlocks();
    void variantCopySharesBlocks();
    void tagBlockLayout();
    void attributeLayout();
    void releaseMetaData();
};

void tst_MetaDataRecords::defaultVideoAttribute()
{
    const VideoAttribute video;
    QCOMPARE(video.width, -1);
    QCOMPARE(video.height, -1);
    QCOMPARE(video.videoStreamNum, 0);
    QCOMPARE(video.videoInfo1, 0);
    QCOMPARE(video.frameRate, 0);
    QCOMPARE(video.videoInfo2, 0);
    QCOMPARE(QByteArray(video.codec, 8), QByteArray(8, '\0'));
}

void tst_MetaDataRecords::heapVideoAttributeIsZero()
{
    VideoAttribute *video = callocBlock<VideoAttribute>();
    QVERIFY(video);
    const int width = video->width;
    const int height = video->height;
    std::free(video);
    QCOMPARE(width, 0);
    QCOMPARE(height, 0);
}

void tst_MetaDataRecords::defaultRecordsAreZero()
{
    const PlayerMetaData meta;
    QCOMPARE(meta.mediaType, 0);
    QCOMPARE(meta.reserved, 0);
    QCOMPARE(meta.totalTime, qint64(0));
    QCOMPARE(meta.trickPlay, false);
    QVERIFY(!meta.videoAttribute);
    QVERIFY(!meta.audioAttribute);
    QVERIFY(!meta.subtitleAttribute);

    const AudioAttribute audio;
    QCOMPARE(audio.audioStreamNum + audio.channel + audio.samplingRate + audio.bitRate + audio.bitDepth, 0);
    QVERIFY(!audio.id3Info);
    QCOMPARE(QByteArray(audio.codec, 8) + QByteArray(audio.language, 8), QByteArray(16, '\0'));

    const SubtitleAttribute subtitle;
    QCOMPARE(subtitle.subtitleNum, 0);
    QCOMPARE(subtitle.curSubtitleNum, 0);
    QCOMPARE(subtitle.subtitleOn, false);
    QCOMPARE(subtitle.reserved[0] + subtitle.reserved[1] + subtitle.reserved[2], 0);
    QCOMPARE(QByteArray(subtitle.language, 8), QByteArray(8, '\0'));
}

void tst_MetaDataRecords::metaTypeCreatesDefaults()
{
    const int videoType = qMetaTypeId<VideoAttribute>();
    void *created = QMetaType::create(videoType);
    QVERIFY(created);
    const VideoAttribute video = *static_cast<VideoAttribute *>(created);
    QMetaType::destroy(videoType, created);
    QCOMPARE(video.width, -1);
    QCOMPARE(video.height, -1);
    QCOMPARE(video.frameRate, 0);

    const QVariant meta(qMetaTypeId<PlayerMetaData>(), nullptr);
    QVERIFY(meta.isValid());
    QCOMPARE(meta.value<PlayerMetaData>().mediaType, 0);
    QVERIFY(!meta.value<PlayerMetaData>().audioAttribute);

    const QVariant subtitle(qMetaTypeId<SubtitleAttribute>(), nullptr);
    QCOMPARE(subtitle.value<SubtitleAttribute>().subtitleNum, 0);
    const QVariant audio(qMetaTypeId<AudioAttribute>(), nullptr);
    QVERIFY(!audio.value<AudioAttribute>().id3Info);
}

void tst_MetaDataRecords::metaTypeCopiesBytewise()
{
    AudioAttribute audio;
    audio.channel = 6;
    setField(audio.codec, "ABCDEFGH");
    Id3Info tags;
    audio.id3Info = &tags;
    const int type = qMetaTypeId<AudioAttribute>();
    void *copy = QMetaType::create(type, &audio);
    QVERIFY(copy);
    const bool same = std::memcmp(copy, &audio, sizeof audio) == 0;
    QMetaType::destroy(type, copy);
    QVERIFY(same);
}

void tst_MetaDataRecords::copySharesBlocks()
{
    MetaDataOwner owner;
    owner.meta.audioAttribute = callocBlock<AudioAttribute>();
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    owner.meta.videoAttribute = callocBlock<VideoAttribute>();
    owner.meta.subtitleAttribute = callocBlock<SubtitleAttribute>();

    PlayerMetaData copy = owner.meta;
    QCOMPARE(copy.audioAttribute, owner.meta.audioAttribute);
    QCOMPARE(copy.audioAttribute->id3Info, owner.meta.audioAttribute->id3Info);
    QCOMPARE(copy.videoAttribute, owner.meta.videoAttribute);
    QCOMPARE(copy.subtitleAttribute, owner.meta.subtitleAttribute);
    copy.videoAttribute->width = 333;
    QCOMPARE(owner.meta.videoAttribute->width, 333);
}

void tst_MetaDataRecords::variantCopySharesBlocks()
{
    MetaDataOwner owner;
    owner.meta.subtitleAttribute = callocBlock<SubtitleAttribute>();
    owner.meta.totalTime = Q_INT64_C(9000000000);
    const QVariant variant = QVariant::fromValue(owner.meta);
    const PlayerMetaData back = variant.value<PlayerMetaData>();
    QCOMPARE(back.subtitleAttribute, owner.meta.subtitleAttribute);
    QCOMPARE(back.totalTime, Q_INT64_C(9000000000));
}

void tst_MetaDataRecords::tagBlockLayout()
{
    // Flags in the listed order (genre's before date's), then the texts.
    QCOMPARE(offsetof(Id3Info, reserved), size_t(0));
    QCOMPARE(offsetof(Id3Info, titleFlag), size_t(4));
    QCOMPARE(offsetof(Id3Info, artistFlag), size_t(8));
    QCOMPARE(offsetof(Id3Info, albumFlag), size_t(12));
    QCOMPARE(offsetof(Id3Info, genreFlag), size_t(16));
    QCOMPARE(offsetof(Id3Info, dateFlag), size_t(20));
    QCOMPARE(offsetof(Id3Info, commentFlag), size_t(24));
    QCOMPARE(offsetof(Id3Info, title), size_t(28));
    QCOMPARE(offsetof(Id3Info, artist), size_t(28 + 256));
    QCOMPARE(offsetof(Id3Info, album), size_t(28 + 2 * 256));
    QCOMPARE(offsetof(Id3Info, genre), size_t(28 + 3 * 256));
    QCOMPARE(offsetof(Id3Info, date), size_t(28 + 4 * 256));
    QCOMPARE(offsetof(Id3Info, comment), size_t(28 + 4 * 256 + 5));
    QCOMPARE(sizeof(Id3Info::date), size_t(5));
    QCOMPARE(sizeof(Id3Info::comment), size_t(256));
}

void tst_MetaDataRecords::attributeLayout()
{
    QCOMPARE(offsetof(AudioAttribute, audioStreamNum), size_t(0));
    QCOMPARE(offsetof(AudioAttribute, codec), size_t(16));
    QCOMPARE(offsetof(AudioAttribute, language), size_t(24));
    QCOMPARE(offsetof(AudioAttribute, id3Info), size_t(32));
    QVERIFY(offsetof(AudioAttribute, bitDepth) > offsetof(AudioAttribute, id3Info));

    QCOMPARE(offsetof(VideoAttribute, width), size_t(4));
    QCOMPARE(offsetof(VideoAttribute, frameRate), size_t(16));
    QCOMPARE(offsetof(VideoAttribute, codec), size_t(24));

    QCOMPARE(offsetof(SubtitleAttribute, subtitleOn), size_t(8));
    QCOMPARE(offsetof(SubtitleAttribute, reserved), size_t(12));
    QCOMPARE(offsetof(SubtitleAttribute, language), size_t(24));

    QCOMPARE(offsetof(PlayerMetaData, totalTime), size_t(8));
    QVERIFY(offsetof(PlayerMetaData, videoAttribute) > offsetof(PlayerMetaData, trickPlay));
    QVERIFY(offsetof(PlayerMetaData, audioAttribute) > offsetof(PlayerMetaData, videoAttribute));
    QVERIFY(offsetof(PlayerMetaData, subtitleAttribute) > offsetof(PlayerMetaData, audioAttribute));
}

void tst_MetaDataRecords::releaseMetaData()
{
    PlayerMetaData meta;
    meta.audioAttribute = callocBlock<AudioAttribute>();
    meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    meta.videoAttribute = callocBlock<VideoAttribute>();
    meta.subtitleAttribute = callocBlock<SubtitleAttribute>();
    QOrvicMetaDataSession::releaseMetaData(meta);
    // The blocks are gone (the leak checker sees the tag block go too).
    QVERIFY(!meta.audioAttribute);
    QVERIFY(!meta.videoAttribute);
    QVERIFY(!meta.subtitleAttribute);
    QOrvicMetaDataSession::releaseMetaData(meta);
    QVERIFY(!meta.audioAttribute);
}

QTEST_GUILESS_MAIN(tst_MetaDataRecords)
#include "tst_metadatarecords.moc"
