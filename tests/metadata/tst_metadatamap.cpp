// The published metadata map: keys, value types, sources, conditions, and
// the codec choice for tag text.
#include "charsetdetectorspy.h"
#include "metadatatestutil.h"

#include <QtCore/QTextCodec>
#include <QtMultimedia/qmediametadata.h>
#include <QtTest/QtTest>

using namespace orvictest;
using Id3Info = QOrvicPlayerSession::Id3Info;

namespace {
const int kSystemCodecItem = 104;

QString decodeAs(const QString &codec, const QByteArray &bytes)
{
    QTextCodec *c = QTextCodec::codecForName(codec.toLatin1());
    if (!c)
        qFatal("no codec %s", qPrintable(codec));
    return c->toUnicode(bytes);
}

QStringList sorted(QStringList keys)
{
    keys.sort();
    return keys;
}

const QStringList audioKeys = {QMediaMetaData::Language, QMediaMetaData::ChannelCount, QMediaMetaData::AudioCodec,
                               QMediaMetaData::AudioStreamCount, QMediaMetaData::AudioStream};
const QStringList tagKeys = {QMediaMetaData::Title, QMediaMetaData::AlbumArtist, QMediaMetaData::AlbumTitle,
                             QMediaMetaData::Genre, QMediaMetaData::Year, QMediaMetaData::Comment};
const QStringList videoKeys = {QMediaMetaData::VideoFrameRate, QMediaMetaData::VideoCodec, QMediaMetaData::Resolution};
const QStringList subtitleKeys = {QMediaMetaData::SubtitleCount, QMediaMetaData::SubtitleLanguage,
                                  QMediaMetaData::SubtitleId, QMediaMetaData::SubtitleOnOff};

// Records with every group present.
void fillAllRecords(QOrvicPlayerSession::PlayerMetaData &meta)
{
    meta.totalTime = 183000;
    meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    meta.audioAttribute->audioStreamNum = 2;
    meta.audioAttribute->channel = 6;
    setField(meta.audioAttribute->codec, "ac3");
    setField(meta.audioAttribute->language, "eng");
    meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    meta.videoAttribute->frameRate = 25000;
    meta.videoAttribute->width = 1920;
    meta.videoAttribute->height = 1080;
    setField(meta.videoAttribute->codec, "h264");
    meta.subtitleAttribute = callocBlock<QOrvicPlayerSession::SubtitleAttribute>();
    meta.subtitleAttribute->subtitleNum = 3;
    meta.subtitleAttribute->curSubtitleNum = 1;
    meta.subtitleAttribute->subtitleOn = true;
    setField(meta.subtitleAttribute->language, "chi");
}
} // namespace

class tst_MetaDataMap : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void durationOnly();
    void audioOnlyWithTags();
    void allGroups();
    void videoGroup();
    void subtitleGroup();
    void audioWithoutTagBlock();
    void rebuiltFromScratch();
    void engineTextBoundedAndLatin1();
    void tagFieldsWithoutNul();
    void codecChoice_data();
    void codecChoice();
    void newerTagIsUtf8_data();
    void newerTagIsUtf8();
    void emptyTagFields();
    void emptyComment();
    void failedDetectionIsLatin1();
};

void tst_MetaDataMap::durationOnly()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.totalTime = Q_INT64_C(5000000000);
    QMap<QString, QVariant> map;
    map.insert(QStringLiteral("left over"), 1);
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(map.keys(), QStringList{QMediaMetaData::Duration});
    QCOMPARE(map.value(QMediaMetaData::Duration).userType(), int(QMetaType::LongLong));
    QCOMPARE(map.value(QMediaMetaData::Duration).toLongLong(), Q_INT64_C(5000000000));
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataMap::audioOnlyWithTags()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    // Collected from the engine with the third audio stream playing.
    rig.player.script().push("getParameter/get-audio-count", 3);
    rig.reader.setAudioAttribute(2, engineAudio(2, 44100, 128000, "mp3", "fra", 16));
    rig.reader.setMetaString("title", "Une chanson");
    rig.reader.setMetaString("TP1_V1", "Le groupe");
    rig.reader.setMetaString("album_v1", "Premier disque");
    rig.reader.setMetaString("genre", "Pop");
    rig.reader.setMetaString("date", "2001");
    rig.reader.setMetaString("comment", "Enregistrement public");
    MetaDataOwner owner;
    owner.meta.totalTime = 241000;
    rig.session.updateAudioMetadata(owner.meta, 2, 0);
    QVERIFY(owner.meta.audioAttribute);

    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(sorted(map.keys()), sorted(QStringList{QMediaMetaData::Duration} + audioKeys + tagKeys));
    QCOMPARE(map.value(QMediaMetaData::Duration), QVariant(qint64(241000)));
    QCOMPARE(map.value(QMediaMetaData::Language), QVariant(QStringLiteral("fra")));
    QCOMPARE(map.value(QMediaMetaData::ChannelCount), QVariant(2));
    QCOMPARE(map.value(QMediaMetaData::AudioCodec), QVariant(QStringLiteral("mp3")));
    QCOMPARE(map.value(QMediaMetaData::AudioStreamCount), QVariant(3));
    QCOMPARE(map.value(QMediaMetaData::AudioStream), QVariant(0));
    QCOMPARE(map.value(QMediaMetaData::Title), QVariant(QStringLiteral("Une chanson")));
    QCOMPARE(map.value(QMediaMetaData::AlbumArtist), QVariant(QStringLiteral("Le groupe")));
    QCOMPARE(map.value(QMediaMetaData::AlbumTitle), QVariant(QStringLiteral("Premier disque")));
    QCOMPARE(map.value(QMediaMetaData::Genre), QVariant(QStringLiteral("Pop")));
    QCOMPARE(map.value(QMediaMetaData::Year), QVariant(QStringLiteral("2001")));
    QCOMPARE(map.value(QMediaMetaData::Comment), QVariant(QStringLiteral("Enregistrement public")));
    QVERIFY(!map.contains(QMediaMetaData::SubTitle));
    QCOMPARE(platform.getInstanceCount(), 3);
    QCOMPARE(platform.releaseCount(), 3);
}

void tst_MetaDataMap::allGroups()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    fillAllRecords(owner.meta);
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(map.size(), 19);
    QCOMPARE(sorted(map.keys()),
             sorted(QStringList{QMediaMetaData::Duration} + audioKeys + tagKeys + videoKeys + subtitleKeys));
    QVERIFY(!map.contains(QMediaMetaData::SubTitle));
}

void tst_MetaDataMap::videoGroup()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.videoAttribute = callocBlock<QOrvicPlayerSession::VideoAttribute>();
    owner.meta.videoAttribute->frameRate = 29970;
    owner.meta.videoAttribute->width = 720;
    owner.meta.videoAttribute->height = 576;
    setField(owner.meta.videoAttribute->codec, "mpeg2");
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(sorted(map.keys()), sorted(QStringList{QMediaMetaData::Duration} + videoKeys));
    QCOMPARE(map.value(QMediaMetaData::VideoFrameRate).userType(), int(QMetaType::Int));
    QCOMPARE(map.value(QMediaMetaData::VideoFrameRate).toInt(), 29970);
    QCOMPARE(map.value(QMediaMetaData::VideoCodec), QVariant(QStringLiteral("mpeg2")));
    QCOMPARE(map.value(QMediaMetaData::Resolution).userType(), int(QMetaType::QSize));
    QCOMPARE(map.value(QMediaMetaData::Resolution).toSize(), QSize(720, 576));
}

void tst_MetaDataMap::subtitleGroup()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.subtitleAttribute = callocBlock<QOrvicPlayerSession::SubtitleAttribute>();
    owner.meta.subtitleAttribute->subtitleNum = 4;
    owner.meta.subtitleAttribute->curSubtitleNum = 2;
    owner.meta.subtitleAttribute->subtitleOn = true;
    setField(owner.meta.subtitleAttribute->language, "kor");
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(sorted(map.keys()), sorted(QStringList{QMediaMetaData::Duration} + subtitleKeys));
    QCOMPARE(map.value(QMediaMetaData::SubtitleCount).userType(), int(QMetaType::Int));
    QCOMPARE(map.value(QMediaMetaData::SubtitleCount).toInt(), 4);
    QCOMPARE(map.value(QMediaMetaData::SubtitleLanguage), QVariant(QStringLiteral("kor")));
    QCOMPARE(map.value(QMediaMetaData::SubtitleId).userType(), int(QMetaType::Int));
    QCOMPARE(map.value(QMediaMetaData::SubtitleId).toInt(), 2);
    QCOMPARE(map.value(QMediaMetaData::SubtitleOnOff).userType(), int(QMetaType::Bool));
    QCOMPARE(map.value(QMediaMetaData::SubtitleOnOff).toBool(), true);
}

void tst_MetaDataMap::audioWithoutTagBlock()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(sorted(map.keys()), sorted(QStringList{QMediaMetaData::Duration} + audioKeys));
    QCOMPARE(map.value(QMediaMetaData::AudioCodec), QVariant(QString()));
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataMap::rebuiltFromScratch()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    fillAllRecords(owner.meta);
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(map.size(), 19);
    // The next snapshot has only video: the other groups leave the map.
    QOrvicPlayerSession::PlayerMetaData videoOnly;
    videoOnly.videoAttribute = owner.meta.videoAttribute;
    rig.session.fillMetadataMap(map, videoOnly);
    QCOMPARE(sorted(map.keys()), sorted(QStringList{QMediaMetaData::Duration} + videoKeys));
    QCOMPARE(map.value(QMediaMetaData::Duration).toLongLong(), qint64(0));
}

void tst_MetaDataMap::engineTextBoundedAndLatin1()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    fillAllRecords(owner.meta);
    // Eight bytes and no NUL in each engine text field.
    setField(owner.meta.audioAttribute->codec, "ABCDEFGH");
    setField(owner.meta.audioAttribute->language, "fran\xe7" "ais");
    setField(owner.meta.videoAttribute->codec, "VIDEOCOD");
    setField(owner.meta.subtitleAttribute->language, "SUBTLANG");
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(map.value(QMediaMetaData::AudioCodec), QVariant(QStringLiteral("ABCDEFGH")));
    QCOMPARE(map.value(QMediaMetaData::Language), QVariant(QString::fromUtf8("français")));
    QCOMPARE(map.value(QMediaMetaData::VideoCodec), QVariant(QStringLiteral("VIDEOCOD")));
    QCOMPARE(map.value(QMediaMetaData::SubtitleLanguage), QVariant(QStringLiteral("SUBTLANG")));
}

void tst_MetaDataMap::tagFieldsWithoutNul()
{
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    spy.setAnswer("");  // unknown: the system codec, Latin-1 here
    MetaRig rig;
    MetaDataOwner owner;
    fillAllRecords(owner.meta);
    Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    std::memset(tags.title, 'T', sizeof tags.title);
    std::memset(tags.artist, 'R', sizeof tags.artist);
    std::memset(tags.album, 'L', sizeof tags.album);
    std::memset(tags.genre, 'G', sizeof tags.genre);
    std::memcpy(tags.date, "12345", 5);
    std::memset(tags.comment, '\xe9', sizeof tags.comment);
    tags.titleFlag = tags.artistFlag = tags.albumFlag = tags.genreFlag = tags.dateFlag = tags.commentFlag = 1;
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(map.value(QMediaMetaData::Title).toString(), QString(256, QLatin1Char('T')));
    QCOMPARE(map.value(QMediaMetaData::AlbumArtist).toString(), QString(256, QLatin1Char('R')));
    QCOMPARE(map.value(QMediaMetaData::AlbumTitle).toString(), QString(256, QLatin1Char('L')));
    QCOMPARE(map.value(QMediaMetaData::Genre).toString(), QString(256, QLatin1Char('G')));
    QCOMPARE(map.value(QMediaMetaData::Year).toString(), QStringLiteral("12345"));
    QCOMPARE(map.value(QMediaMetaData::Comment).toString(), QString(256, QChar(0xe9)));
    // The detector saw each field within its bounds.
    QCOMPARE(spy.handedData(), (QList<QByteArray>{QByteArray(256, 'R').repeated(5), QByteArray(256, 'L').repeated(5),
                                                  (QByteArray(256, 'T') + QByteArray(256, 'L') + QByteArray(256, 'R'))
                                                      .repeated(5)}));
}

void tst_MetaDataMap::codecChoice_data()
{
    QTest::addColumn<QByteArray>("artistAnswer");
    QTest::addColumn<QByteArray>("albumAnswer");
    QTest::addColumn<QString>("artistCodec");
    QTest::addColumn<QString>("albumCodec");
    // The joint answer is always BIG5.
    QTest::newRow("different: both take the joint codec") << QByteArray("GB18030") << QByteArray("WINDOWS-1252")
                                                          << "BIG5" << "BIG5";
    QTest::newRow("artist ASCII: kept") << QByteArray("ASCII") << QByteArray("WINDOWS-1252") << "ASCII"
                                        << "WINDOWS-1252";
    QTest::newRow("album ASCII: kept") << QByteArray("WINDOWS-1252") << QByteArray("ASCII") << "WINDOWS-1252"
                                       << "ASCII";
    QTest::newRow("equal: kept") << QByteArray("GB18030") << QByteArray("GB18030") << "GB18030" << "GB18030";
    QTest::newRow("equal after mapping: kept") << QByteArray("UHC") << QByteArray("EUC-KR") << "EUC-KR" << "EUC-KR";
    QTest::newRow("different spellings differ") << QByteArray("ISO-8859-2") << QByteArray("ISO_8859_2") << "BIG5"
                                                << "BIG5";
    QTest::newRow("only exact ASCII keeps") << QByteArray("ascii") << QByteArray("WINDOWS-1252") << "BIG5" << "BIG5";
}

void tst_MetaDataMap::codecChoice()
{
    QFETCH(QByteArray, artistAnswer);
    QFETCH(QByteArray, albumAnswer);
    QFETCH(QString, artistCodec);
    QFETCH(QString, albumCodec);

    const QByteArray title("\xad\xb5\xbc\xd6");      // Big5 "音樂"
    const QByteArray artist("\xa4\xa4\xa4\xe5");     // Big5 "中文"
    const QByteArray album("\xb8\xea\xae\xc6");      // Big5 "資料"
    const QByteArray genre("\xac\xfc\xb0\xea");      // Big5 "美國"
    const QByteArray comment("\xa6\x6e\xc5\xa5");    // Big5 "好聽"
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    spy.setAnswerFor(artist, artistAnswer);
    spy.setAnswerFor(album, albumAnswer);
    spy.setAnswerFor(title + album + artist, "BIG5");
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    setField(tags.title, title);
    setField(tags.artist, artist);
    setField(tags.album, album);
    setField(tags.genre, genre);
    setField(tags.date, "1998");
    setField(tags.comment, comment);
    tags.titleFlag = tags.artistFlag = tags.albumFlag = tags.genreFlag = tags.dateFlag = tags.commentFlag = 1;

    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);

    // Artist first, then album, then the three judged together.
    QCOMPARE(spy.handedData(), (QList<QByteArray>{artist.repeated(5), album.repeated(5),
                                                  (title + album + artist).repeated(5)}));
    QCOMPARE(map.value(QMediaMetaData::AlbumArtist).toString(), decodeAs(artistCodec, artist));
    QCOMPARE(map.value(QMediaMetaData::AlbumTitle).toString(), decodeAs(albumCodec, album));
    QCOMPARE(map.value(QMediaMetaData::Title).toString(), QString::fromUtf8("音樂"));
    QCOMPARE(map.value(QMediaMetaData::Genre).toString(), QString::fromUtf8("美國"));
    QCOMPARE(map.value(QMediaMetaData::Year).toString(), QStringLiteral("1998"));
    QCOMPARE(map.value(QMediaMetaData::Comment).toString(), QString::fromUtf8("好聽"));
    QCOMPARE(platform.getInstanceCount(), 3);
    QCOMPARE(platform.releaseCount(), 3);
}

void tst_MetaDataMap::newerTagIsUtf8_data()
{
    QTest::addColumn<int>("flag");
    QTest::addColumn<bool>("utf8");
    QTest::newRow("flag 2: UTF-8") << 2 << true;
    QTest::newRow("flag 1: detected codec") << 1 << false;
    QTest::newRow("flag 0 with text: detected codec") << 0 << false;
    QTest::newRow("flag 3: detected codec") << 3 << false;
}

void tst_MetaDataMap::newerTagIsUtf8()
{
    QFETCH(int, flag);
    QFETCH(bool, utf8);
    const QString text = QString::fromUtf8("Grüße 中文");
    const QByteArray bytes = text.toUtf8();
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    spy.setAnswer("GB18030");
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    Id3Info &tags = *owner.meta.audioAttribute->id3Info;
    setField(tags.title, bytes);
    setField(tags.artist, bytes);
    setField(tags.comment, bytes);
    tags.titleFlag = flag;
    tags.artistFlag = flag;
    tags.commentFlag = flag;
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    const QString expected = utf8 ? text : decodeAs(QStringLiteral("GB18030"), bytes);
    QVERIFY(decodeAs(QStringLiteral("GB18030"), bytes) != text);
    QCOMPARE(map.value(QMediaMetaData::Title).toString(), expected);
    QCOMPARE(map.value(QMediaMetaData::AlbumArtist).toString(), expected);
    QCOMPARE(map.value(QMediaMetaData::Comment).toString(), expected);
}

void tst_MetaDataMap::emptyTagFields()
{
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    for (const QString &key : tagKeys) {
        QVERIFY2(map.contains(key), qPrintable(key));
        QCOMPARE(map.value(key).userType(), int(QMetaType::QString));
        QVERIFY(map.value(key).toString().isEmpty());
        QVERIFY(!map.value(key).toString().isNull());
    }
    // Nothing to detect: artist, album and the joint text all fall to the system codec.
    QCOMPARE(spy.calls(), QStringList());
    QCOMPARE(platform.getInstanceCount(), 3);
    QCOMPARE(platform.releaseCount(), 3);
}

void tst_MetaDataMap::emptyComment()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    setField(owner.meta.audioAttribute->id3Info->title, "A title long enough to detect");
    owner.meta.audioAttribute->id3Info->titleFlag = 1;
    owner.meta.audioAttribute->id3Info->commentFlag = 2;
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(map.value(QMediaMetaData::Title).toString(), QStringLiteral("A title long enough to detect"));
    QVERIFY(map.contains(QMediaMetaData::Comment));
    QCOMPARE(map.value(QMediaMetaData::Comment), QVariant(QStringLiteral("")));
}

void tst_MetaDataMap::failedDetectionIsLatin1()
{
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    CharsetDetectorSpy spy;
    spy.setHandleResult(1);
    MetaRig rig;
    MetaDataOwner owner;
    owner.meta.audioAttribute = callocBlock<QOrvicPlayerSession::AudioAttribute>();
    owner.meta.audioAttribute->id3Info = callocBlock<Id3Info>();
    setField(owner.meta.audioAttribute->id3Info->title, "\xd6\xd0\xce\xc4");
    setField(owner.meta.audioAttribute->id3Info->artist, "\xd6\xd0");
    owner.meta.audioAttribute->id3Info->titleFlag = 1;
    owner.meta.audioAttribute->id3Info->artistFlag = 1;
    QMap<QString, QVariant> map;
    rig.session.fillMetadataMap(map, owner.meta);
    QCOMPARE(map.value(QMediaMetaData::Title).toString(), QString::fromLatin1("\xd6\xd0\xce\xc4"));
    QCOMPARE(map.value(QMediaMetaData::AlbumArtist).toString(), QString::fromLatin1("\xd6\xd0"));
    QCOMPARE(spy.liveDetectors(), 0);
}

QTEST_GUILESS_MAIN(tst_MetaDataMap)
#include "tst_metadatamap.moc"
