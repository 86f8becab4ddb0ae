// The metadata session over the real PC reader: tags written in legacy
// charsets come out of the metadata map as the original text.
#include "samples.h"

#include <qorvicmetadatasession.h>

#include <playback/spmetadata.h>

#include <QtCore/QFile>
#include <QtMultimedia/QMediaMetaData>
#include <QtTest/QtTest>

#include <cstring>
#include <memory>

namespace {

struct ReaderDeleter {
    void operator()(playback::SPMetaData *reader) const { playback::SPMetaData::destroy(reader); }
};
using Reader = std::unique_ptr<playback::SPMetaData, ReaderDeleter>;

// What setMedia does for a local file on a metadata-only path: the reader
// opens the file, the session collects and maps. No player: the counts come
// from the reader.
class OpenedMedium
{
public:
    explicit OpenedMedium(const QString &file)
        : reader(playback::SPMetaData::create("hostmeta-session", nullptr)),
          session(reader.get(), nullptr)
    {
        status = reader->setUrl(QFile::encodeName(samples::path(file)).constData());
        session.updateAVMetadata(meta);
        session.fillMetadataMap(map, meta);
    }
    ~OpenedMedium() { QOrvicMetaDataSession::releaseMetaData(meta); }

    Reader reader;
    QOrvicMetaDataSession session;
    QOrvicPlayerSession::PlayerMetaData meta{};
    QMap<QString, QVariant> map;
    int status = -1;
};

} // namespace

class tst_HostMetaDataSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void decodedTags_data();
    void decodedTags();
    void tagFlags_data();
    void tagFlags();
    void audioFileMap();
    void movieMap();
    void videoOnlyMap();
    void coverPicture();
};

void tst_HostMetaDataSession::initTestCase()
{
    QVERIFY2(QFile::exists(samples::path("tagged-gbk.mp3")),
             qPrintable("no generated media in " + samples::dir() + " (scripts/make-samples.sh)"));
    // The system codec only decides when detection has nothing to say; the
    // texts here must be recognised without it.
    qunsetenv("ORVIC_SYSTEM_CODEC");
}

void tst_HostMetaDataSession::decodedTags_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("text");

    // GBK bytes in ID3v2.3 frames flagged Latin-1.
    QTest::newRow("gbk title") << "tagged-gbk.mp3" << QMediaMetaData::Title << samples::gbkTitle();
    QTest::newRow("gbk artist") << "tagged-gbk.mp3" << QMediaMetaData::AlbumArtist << samples::gbkArtist();
    QTest::newRow("gbk album") << "tagged-gbk.mp3" << QMediaMetaData::AlbumTitle << samples::gbkAlbum();
    QTest::newRow("gbk comment") << "tagged-gbk.mp3" << QMediaMetaData::Comment << samples::gbkComment();
    QTest::newRow("gbk genre") << "tagged-gbk.mp3" << QMediaMetaData::Genre << samples::gbkGenre();
    QTest::newRow("gbk year") << "tagged-gbk.mp3" << QMediaMetaData::Year << QStringLiteral("2023");

    // windows-1251 bytes of an ID3v1 tag, reached through the fallback keys.
    QTest::newRow("v1 title") << "tagged-v1only.mp3" << QMediaMetaData::Title << samples::v1Title();
    QTest::newRow("v1 artist") << "tagged-v1only.mp3" << QMediaMetaData::AlbumArtist << samples::v1Artist();
    QTest::newRow("v1 album") << "tagged-v1only.mp3" << QMediaMetaData::AlbumTitle << samples::v1Album();
    QTest::newRow("v1 comment") << "tagged-v1only.mp3" << QMediaMetaData::Comment << samples::v1Comment();
    QTest::newRow("v1 year") << "tagged-v1only.mp3" << QMediaMetaData::Year << QStringLiteral("1999");
    QTest::newRow("v1 genre") << "tagged-v1only.mp3" << QMediaMetaData::Genre << QStringLiteral("Pop");

    // Unicode frames are taken as UTF-8, whatever the detector would say.
    QTest::newRow("utf-8 title") << "tagged-unicode.mp3" << QMediaMetaData::Title << samples::unicodeTitle();
    QTest::newRow("utf-8 album") << "tagged-unicode.mp3" << QMediaMetaData::AlbumTitle << samples::unicodeAlbum();
    QTest::newRow("ascii artist") << "tagged-unicode.mp3" << QMediaMetaData::AlbumArtist
                                  << QStringLiteral("Plain ASCII Artist");
    QTest::newRow("no comment") << "tagged-unicode.mp3" << QMediaMetaData::Comment << QString("");

    QTest::newRow("mp4 title") << "movie.mp4" << QMediaMetaData::Title << QStringLiteral("Sample movie");

    // The record holds 255 bytes of a text and four of a date.
    QTest::newRow("long title cut") << "tagged-long.mp3" << QMediaMetaData::Title
                                    << QString::fromLatin1(samples::longTitle().left(255));
    QTest::newRow("date cut to the year") << "tagged-long.mp3" << QMediaMetaData::Year << QStringLiteral("2024");
}

void tst_HostMetaDataSession::decodedTags()
{
    QFETCH(QString, file);
    QFETCH(QString, key);
    QFETCH(QString, text);

    const OpenedMedium medium(file);
    QCOMPARE(medium.status, 0);
    QVERIFY2(medium.map.contains(key), qPrintable(key));
    QCOMPARE(medium.map.value(key).toString(), text);
}

void tst_HostMetaDataSession::tagFlags_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("titleFlag");
    QTest::addColumn<int>("artistFlag");
    QTest::addColumn<int>("albumFlag");

    // 1: legacy bytes (Latin-1 frame or ID3v1), 2: Unicode frame.
    QTest::newRow("latin-1 frames") << "tagged-gbk.mp3" << 1 << 1 << 1;
    QTest::newRow("id3v1 only") << "tagged-v1only.mp3" << 1 << 1 << 1;
    QTest::newRow("unicode and latin-1") << "tagged-unicode.mp3" << 2 << 1 << 2;
    QTest::newRow("container tag") << "movie.mp4" << 2 << 0 << 0;
}

void tst_HostMetaDataSession::tagFlags()
{
    QFETCH(QString, file);
    QFETCH(int, titleFlag);
    QFETCH(int, artistFlag);
    QFETCH(int, albumFlag);

    const OpenedMedium medium(file);
    QVERIFY(medium.meta.audioAttribute);
    const QOrvicPlayerSession::Id3Info *id3 = medium.meta.audioAttribute->id3Info;
    QVERIFY(id3);
    QCOMPARE(id3->titleFlag, titleFlag);
    QCOMPARE(id3->artistFlag, artistFlag);
    QCOMPARE(id3->albumFlag, albumFlag);
}

void tst_HostMetaDataSession::audioFileMap()
{
    const OpenedMedium medium("tagged-gbk.mp3");
    QCOMPARE(medium.meta.mediaType, 1);
    QVERIFY(!medium.meta.videoAttribute);
    QVERIFY(medium.map.value(QMediaMetaData::Duration).toLongLong() >= 2950);
    QCOMPARE(medium.map.value(QMediaMetaData::AudioCodec).toString(), QStringLiteral("mp3"));
    QCOMPARE(medium.map.value(QMediaMetaData::ChannelCount).toInt(), 2);
    QCOMPARE(medium.map.value(QMediaMetaData::AudioStreamCount).toInt(), 1);
    QCOMPARE(medium.map.value(QMediaMetaData::Language).toString(), QString());
    QVERIFY(!medium.map.contains(QMediaMetaData::Resolution));
    QCOMPARE(medium.map.value(QMediaMetaData::SubtitleCount).toInt(), 0);
}

void tst_HostMetaDataSession::movieMap()
{
    OpenedMedium medium("movie.mp4");
    QCOMPARE(medium.meta.mediaType, 2);
    QCOMPARE(medium.map.value(QMediaMetaData::Resolution).toSize(), QSize(320, 240));
    QCOMPARE(medium.map.value(QMediaMetaData::VideoCodec).toString(), QStringLiteral("h264"));
    QCOMPARE(medium.map.value(QMediaMetaData::VideoFrameRate).toInt(), 25);
    QCOMPARE(medium.map.value(QMediaMetaData::AudioCodec).toString(), QStringLiteral("aac"));
    QCOMPARE(medium.map.value(QMediaMetaData::AudioStreamCount).toInt(), 2);
    QCOMPARE(medium.map.value(QMediaMetaData::Language).toString(), QStringLiteral("eng"));
    QCOMPARE(medium.map.value(QMediaMetaData::ChannelCount).toInt(), 2);
    QCOMPARE(medium.map.value(QMediaMetaData::SubtitleCount).toInt(), 1);
    const qint64 duration = medium.map.value(QMediaMetaData::Duration).toLongLong();
    QVERIFY2(duration >= 3950 && duration <= 4100, qPrintable(QString::number(duration)));

    // The second audio track, as a stream switch refreshes it.
    medium.session.updateAudioMetadata(medium.meta, 1, 0);
    medium.session.fillMetadataMap(medium.map, medium.meta);
    QCOMPARE(medium.map.value(QMediaMetaData::Language).toString(), QStringLiteral("fre"));
    QCOMPARE(medium.map.value(QMediaMetaData::ChannelCount).toInt(), 1);
}

void tst_HostMetaDataSession::videoOnlyMap()
{
    const OpenedMedium medium("video-only.mp4");
    QCOMPARE(medium.meta.mediaType, 2);
    // No audio: no audio block, so no tag block and no tag keys either.
    QVERIFY(!medium.meta.audioAttribute);
    QVERIFY(!medium.map.contains(QMediaMetaData::AudioCodec));
    QVERIFY(!medium.map.contains(QMediaMetaData::Title));
    QCOMPARE(medium.map.value(QMediaMetaData::Resolution).toSize(), QSize(176, 144));
    QCOMPARE(medium.map.value(QMediaMetaData::VideoFrameRate).toInt(), 10);
    QCOMPARE(medium.map.value(QMediaMetaData::Duration).toLongLong(), 2000LL);
}

void tst_HostMetaDataSession::coverPicture()
{
    OpenedMedium medium("tagged-gbk.mp3");
    const QImage cover = medium.session.updateID3Pic().copy();
    QCOMPARE(cover.size(), QSize(512, 384));
    QCOMPARE(cover.format(), QImage::Format_RGB888);

    // Unscaled, and taken over as the reader decoded it. The image shares the
    // reader's pixels only until the reader's next picture request: copy it.
    OpenedMedium unicode("tagged-unicode.mp3");
    const QImage front = unicode.session.updateID3Pic().copy();
    QCOMPARE(front.size(), QSize(300, 300));
    playback::SPMetaData::Picture picture;
    memset(&picture, 0, sizeof picture);
    QCOMPARE(unicode.reader->getPicture(picture, 0, 512), 0);
    QCOMPARE(QByteArray(reinterpret_cast<const char *>(front.constBits()), 3),
             QByteArray(reinterpret_cast<const char *>(picture.data), 3));

    OpenedMedium movie("movie.mp4");
    QVERIFY(movie.session.updateID3Pic().isNull());
}

QTEST_GUILESS_MAIN(tst_HostMetaDataSession)
#include "tst_hostmetadatasession.moc"
