// The PC metadata reader without media: URL handling, refused paths, the
// size arithmetic of covers, codec texts, and a reader that was never opened.
#include <filemetadata.h>
#include <metadatareader.h>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace mr = hostplatform::metadatareader;

namespace {

struct ReaderDeleter {
    void operator()(playback::SPMetaData *reader) const { hostplatform::destroyFileMetaData(reader); }
};
using Reader = std::unique_ptr<playback::SPMetaData, ReaderDeleter>;

Reader newReader()
{
    return Reader(hostplatform::createFileMetaData("unit", ""));
}

// A literal with embedded NULs, all of it but the terminator.
template <int N>
QByteArray bytes(const char (&literal)[N])
{
    return QByteArray(literal, N - 1);
}

QByteArray bigEndian32(quint32 v)
{
    QByteArray b(4, '\0');
    for (int i = 0; i < 4; ++i)
        b[i] = char((v >> (24 - 8 * i)) & 0xff);
    return b;
}

QByteArray id3v23Frame(const char *id, const QByteArray &payload)
{
    return QByteArray(id) + bigEndian32(quint32(payload.size())) + QByteArray(2, '\0') + payload;
}

// An ID3v2.3 tag around `frames`; its size is four 7-bit bytes.
QByteArray id3v23Tag(const QByteArray &frames)
{
    const quint32 n = quint32(frames.size());
    QByteArray header = bytes("ID3\x03\x00\x00");
    for (int shift = 21; shift >= 0; shift -= 7)
        header.append(char((n >> shift) & 0x7f));
    return header + frames;
}

QByteArray fixedField(const QByteArray &text, int width, char pad)
{
    return text.left(width) + QByteArray(qMax(0, width - text.size()), pad);
}

// A 128-byte ID3v1.1 tag.
QByteArray id3v1Tag(const QByteArray &title, const QByteArray &artist, const QByteArray &album,
                    const QByteArray &year, const QByteArray &comment, char pad, uchar genre)
{
    return "TAG" + fixedField(title, 30, pad) + fixedField(artist, 30, pad) + fixedField(album, 30, pad)
        + fixedField(year, 4, pad) + fixedField(comment, 28, pad) + QByteArray(1, '\0') + QByteArray(1, '\x07')
        + QByteArray(1, char(genre));
}

} // namespace

Q_DECLARE_METATYPE(std::string)

class tst_HostMetaDataReaderUnit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void localPathFromUrl_data();
    void localPathFromUrl();
    void refusedUrls_data();
    void refusedUrls();
    void refusedFiles();
    void unopenedReaderAnswersNothing();
    void fitWithin_data();
    void fitWithin();
    void shortCodecName_data();
    void shortCodecName();
    void undecodablePictures_data();
    void undecodablePictures();
    void defaultFactoryMakesFileReader();
    void id3Tags_data();
    void id3Tags();
    void notId3Tags_data();
    void notId3Tags();
};

void tst_HostMetaDataReaderUnit::localPathFromUrl_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<QByteArray>("path");

    QTest::newRow("absolute path") << QByteArray("/media/a b.mp3") << QByteArray("/media/a b.mp3");
    QTest::newRow("relative path") << QByteArray("music/a.mp3") << QByteArray("music/a.mp3");
    QTest::newRow("colon in a path") << QByteArray("c:/a.mp3") << QByteArray("c:/a.mp3");
    QTest::newRow("percent in a path") << QByteArray("/a%20b.mp3") << QByteArray("/a%20b.mp3");
    QTest::newRow("file uri") << QByteArray("file:///media/a.mp3") << QByteArray("/media/a.mp3");
    QTest::newRow("escapes") << QByteArray("file:///media/a%20b%25%23.mp3") << QByteArray("/media/a b%#.mp3");
    QTest::newRow("utf-8 escapes") << QByteArray("file:///%E4%B8%AD.mp3") << QByteArray("/\xe4\xb8\xad.mp3");
    QTest::newRow("upper-case scheme") << QByteArray("FILE:///a.mp3") << QByteArray("/a.mp3");
    QTest::newRow("localhost") << QByteArray("file://localhost/a.mp3") << QByteArray("/a.mp3");
    QTest::newRow("query and fragment cut") << QByteArray("file:///a.mp3?x=1#t=5") << QByteArray("/a.mp3");
    QTest::newRow("other host") << QByteArray("file://server/a.mp3") << QByteArray();
    QTest::newRow("no path") << QByteArray("file://") << QByteArray();
    QTest::newRow("short escape") << QByteArray("file:///a%2") << QByteArray();
    QTest::newRow("bad escape") << QByteArray("file:///a%zz") << QByteArray();
    QTest::newRow("escaped NUL") << QByteArray("file:///a%00b") << QByteArray();
    QTest::newRow("http") << QByteArray("http://host/a.mp3") << QByteArray();
    QTest::newRow("upper-case HTTP") << QByteArray("HTTP://host/a.mp3") << QByteArray();
    QTest::newRow("rtsp") << QByteArray("rtsp://host/a") << QByteArray();
    QTest::newRow("scheme with plus") << QByteArray("a+b.c-d://x") << QByteArray();
    QTest::newRow("empty") << QByteArray("") << QByteArray();
}

void tst_HostMetaDataReaderUnit::localPathFromUrl()
{
    QFETCH(QByteArray, url);
    QFETCH(QByteArray, path);
    QCOMPARE(QByteArray::fromStdString(mr::localPathFromUrl(url.constData())), path);
}

void tst_HostMetaDataReaderUnit::refusedUrls_data()
{
    QTest::addColumn<QByteArray>("url");
    QTest::addColumn<int>("status");

    QTest::newRow("empty") << QByteArray("") << -1;
    QTest::newRow("network") << QByteArray("http://127.0.0.1:9/a.mp3") << -1;
    QTest::newRow("remote file uri") << QByteArray("file://server/a.mp3") << -1;
    QTest::newRow("missing") << QByteArray("/nonexistent/dir/a.mp3") << -2;
    QTest::newRow("missing uri") << QByteArray("file:///nonexistent/dir/a.mp3") << -2;
    QTest::newRow("a device") << QByteArray("/dev/null") << -2;
}

void tst_HostMetaDataReaderUnit::refusedUrls()
{
    QFETCH(QByteArray, url);
    QFETCH(int, status);
    const Reader reader = newReader();
    QCOMPARE(reader->setUrl(url.constData()), status);
    QCOMPARE(reader->getProgramNum(), 0);
}

void tst_HostMetaDataReaderUnit::refusedFiles()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const Reader reader = newReader();

    QCOMPARE(reader->setUrl(nullptr), -1);
    // A directory.
    QCOMPARE(reader->setUrl(QFile::encodeName(dir.path()).constData()), -2);
    // A FIFO nobody writes to: opening it would block for ever.
    const QByteArray fifo = QFile::encodeName(dir.filePath("fifo.mp3"));
    QCOMPARE(mkfifo(fifo.constData(), 0600), 0);
    QCOMPARE(reader->setUrl(fifo.constData()), -2);
    // Text is readable but no medium.
    QFile text(dir.filePath("notes.mp3"));
    QVERIFY(text.open(QIODevice::WriteOnly));
    text.write(QByteArray("nothing to play here\n").repeated(100));
    text.close();
    QCOMPARE(reader->setUrl(QFile::encodeName(text.fileName()).constData()), -3);
    QCOMPARE(reader->getMediaType(), 0);
    // Without read permission (root reads everything, so only as a user).
    if (geteuid() != 0) {
        QVERIFY(text.setPermissions(QFileDevice::WriteOwner));
        QCOMPARE(reader->setUrl(QFile::encodeName(text.fileName()).constData()), -2);
    }
}

void tst_HostMetaDataReaderUnit::unopenedReaderAnswersNothing()
{
    const Reader reader = newReader();
    QCOMPARE(reader->getMediaType(), 0);
    QCOMPARE(reader->getDuration(), 0LL);
    QCOMPARE(reader->getProgramNum(), 0);
    QCOMPARE(reader->getAudioStreamNum(0), 0);
    QCOMPARE(reader->getVideoStreamNum(0), 0);
    QCOMPARE(reader->getSubtitleStreamNum(0), 0);
    playback::SPMetaData::AudioAttribute audio;
    QCOMPARE(reader->getAudioAttribute(0, 0, audio), -1);
    playback::SPMetaData::VideoAttribute video;
    QCOMPARE(reader->getVideoAttribute(0, 0, video), -1);
    QVERIFY(!reader->getMetaString("title"));
    QVERIFY(!reader->getMetaString(nullptr));
    QCOMPARE(reader->isTagV2(), false);
    playback::SPMetaData::Picture picture;
    memset(&picture, 0, sizeof picture);
    QCOMPARE(reader->getPicture(picture, 0, 512), -1);
    QVERIFY(!picture.data);
}

void tst_HostMetaDataReaderUnit::fitWithin_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("limit");
    QTest::addColumn<QSize>("fitted");

    QTest::newRow("landscape") << QSize(640, 480) << 512 << QSize(512, 384);
    QTest::newRow("portrait") << QSize(480, 640) << 512 << QSize(384, 512);
    QTest::newRow("square") << QSize(1000, 1000) << 512 << QSize(512, 512);
    QTest::newRow("fits") << QSize(300, 300) << 512 << QSize(300, 300);
    QTest::newRow("exactly the limit") << QSize(512, 200) << 512 << QSize(512, 200);
    QTest::newRow("rounded") << QSize(513, 512) << 512 << QSize(512, 511);
    QTest::newRow("thin line stays a pixel") << QSize(5000, 1) << 512 << QSize(512, 1);
    QTest::newRow("thin column stays a pixel") << QSize(1, 5000) << 512 << QSize(1, 512);
    QTest::newRow("no limit") << QSize(4000, 3000) << 0 << QSize(4000, 3000);
    QTest::newRow("negative limit") << QSize(4000, 3000) << -1 << QSize(4000, 3000);
    QTest::newRow("huge") << QSize(65000, 65000) << 512 << QSize(512, 512);
}

void tst_HostMetaDataReaderUnit::fitWithin()
{
    QFETCH(QSize, size);
    QFETCH(int, limit);
    QFETCH(QSize, fitted);
    const mr::Size s = mr::fitWithin(size.width(), size.height(), limit);
    QCOMPARE(QSize(s.width, s.height), fitted);
}

void tst_HostMetaDataReaderUnit::shortCodecName_data()
{
    QTest::addColumn<int>("codec");
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("h264") << int(AV_CODEC_ID_H264) << QByteArray("h264");
    QTest::newRow("hevc") << int(AV_CODEC_ID_HEVC) << QByteArray("hevc");
    QTest::newRow("mpeg2video") << int(AV_CODEC_ID_MPEG2VIDEO) << QByteArray("mpeg2");
    QTest::newRow("mpeg1video") << int(AV_CODEC_ID_MPEG1VIDEO) << QByteArray("mpeg1");
    QTest::newRow("mpeg4") << int(AV_CODEC_ID_MPEG4) << QByteArray("mpeg4");
    QTest::newRow("mp3") << int(AV_CODEC_ID_MP3) << QByteArray("mp3");
    QTest::newRow("aac") << int(AV_CODEC_ID_AAC) << QByteArray("aac");
    QTest::newRow("aac_latm") << int(AV_CODEC_ID_AAC_LATM) << QByteArray("aac");
    QTest::newRow("pcm_s16le") << int(AV_CODEC_ID_PCM_S16LE) << QByteArray("pcm");
    QTest::newRow("pcm_f32be") << int(AV_CODEC_ID_PCM_F32BE) << QByteArray("pcm");
    QTest::newRow("wmav2") << int(AV_CODEC_ID_WMAV2) << QByteArray("wma");
    QTest::newRow("truehd") << int(AV_CODEC_ID_TRUEHD) << QByteArray("truehd");
    QTest::newRow("vorbis") << int(AV_CODEC_ID_VORBIS) << QByteArray("vorbis");
    // Any other long name is cut to fit the 8-byte field with its NUL.
    QTest::newRow("cut") << int(AV_CODEC_ID_PRORES) << QByteArray("prores");
    QTest::newRow("cut long") << int(AV_CODEC_ID_DSD_LSBF_PLANAR) << QByteArray("dsd_lsb");
    QTest::newRow("none") << int(AV_CODEC_ID_NONE) << QByteArray("none");
}

void tst_HostMetaDataReaderUnit::shortCodecName()
{
    QFETCH(int, codec);
    QFETCH(QByteArray, text);
    const std::string name = mr::shortCodecName(codec);
    QCOMPARE(QByteArray::fromStdString(name), text);
    QVERIFY(name.size() <= 7);
}

void tst_HostMetaDataReaderUnit::undecodablePictures_data()
{
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("unknown signature") << QByteArray("not a picture at all");
    QTest::newRow("JPEG signature, then noise") << QByteArray("\xff\xd8\xff\xe0").append(QByteArray(500, 'x'));
    QTest::newRow("PNG signature only") << bytes("\x89PNG\r\n\x1a\n");
}

void tst_HostMetaDataReaderUnit::undecodablePictures()
{
    QFETCH(QByteArray, bytes);
    mr::EncodedPicture picture;
    picture.bytes.assign(bytes.cbegin(), bytes.cend());
    mr::RgbImage image;
    QVERIFY(!mr::decodePicture(picture, 512, image));
}

void tst_HostMetaDataReaderUnit::defaultFactoryMakesFileReader()
{
    playback::SPMetaData *reader = playback::SPMetaData::create("unit", nullptr);
    QVERIFY(dynamic_cast<mr::FileMetaData *>(reader));
    playback::SPMetaData::destroy(reader);
}

void tst_HostMetaDataReaderUnit::id3Tags_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QByteArray>("bytes"); // null: absent
    QTest::addColumn<bool>("unicode");

    const QByteArray audio(64, '\x55');
    const QByteArray blanks = audio + id3v1Tag("Blank padded", " Leading kept", QByteArray(30, 'A'), "1987",
                                               "C\xe9", ' ', 255);
    QTest::newRow("v1 blank padding removed") << blanks << "title_v1" << QByteArray("Blank padded") << false;
    QTest::newRow("v1 leading blank kept") << blanks << "artist_v1" << QByteArray(" Leading kept") << false;
    QTest::newRow("v1 field without terminator") << blanks << "album_v1" << QByteArray(30, 'A') << false;
    QTest::newRow("v1 year") << blanks << "date_v1" << QByteArray("1987") << false;
    QTest::newRow("v1 raw byte") << blanks << "comment_v1" << QByteArray("C\xe9") << false;
    QTest::newRow("v1 no genre") << blanks << "genre_v1" << QByteArray() << false;
    QTest::newRow("v1 only: no main key") << blanks << "title" << QByteArray() << false;
    const QByteArray nulPadded = audio + id3v1Tag("T", "", "", "", "", '\0', 17);
    QTest::newRow("v1 empty field absent") << nulPadded << "artist_v1" << QByteArray() << false;
    QTest::newRow("v1 genre name") << nulPadded << "genre_v1" << QByteArray("Rock") << false;

    const QByteArray latin1 = bytes("\x00");
    const QByteArray utf16 = bytes("\x01");
    const QByteArray v2 = id3v23Tag(
        id3v23Frame("TIT2", latin1 + bytes("First\0Second"))
        + id3v23Frame("TPE1", utf16 + bytes("\xff\xfe\xc4\x00\x20\x00\x2d\x4e"))
        + id3v23Frame("TALB", latin1)
        + id3v23Frame("TCON", latin1 + "(13)")
        + id3v23Frame("COMM", latin1 + "eng" + bytes("iTunNORM\0 0000"))
        + id3v23Frame("COMM", latin1 + "eng" + bytes("\0The comment \xb0"))
        + id3v23Frame("TYER", latin1 + "2001"))
        + audio;
    QTest::newRow("v2 several values") << v2 << "title" << QByteArray("First / Second") << false;
    QTest::newRow("v2 utf-16 as utf-8") << v2 << "artist" << QByteArray("\xc3\x84 \xe4\xb8\xad") << true;
    QTest::newRow("v2 empty frame absent") << v2 << "album" << QByteArray() << false;
    QTest::newRow("v2 genre number") << v2 << "genre" << QByteArray("Pop") << false;
    QTest::newRow("v2 comment without description") << v2 << "comment" << QByteArray("The comment \xb0")
                                                     << false;
    QTest::newRow("v2.3 year") << v2 << "date" << QByteArray("2001") << false;
    QTest::newRow("v2 only: no v1 key") << v2 << "title_v1" << QByteArray() << false;
}

// TagLib reading of hand-made tags, without any demuxer involved.
void tst_HostMetaDataReaderUnit::id3Tags()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, key);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, unicode);

    QTemporaryDir dir;
    QFile file(dir.filePath("tags.bin"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
    file.close();

    mr::MediaFacts facts;
    QVERIFY(mr::readId3Tags(QFile::encodeName(file.fileName()).toStdString(), facts));
    const auto it = facts.tags.find(key.toStdString());
    QCOMPARE(it != facts.tags.end(), !bytes.isNull());
    if (it != facts.tags.end()) {
        QCOMPARE(QByteArray::fromStdString(it->second.bytes), bytes);
        QCOMPARE(it->second.unicode, unicode);
    }
}

void tst_HostMetaDataReaderUnit::notId3Tags_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("no tag") << QByteArray(300, '\x55');
    QTest::newRow("ID3v2.5 is no known revision") << bytes("ID3\x05\x00\x00\x00\x00\x00\x10")
                                                     + QByteArray(300, '\x55');
    QTest::newRow("size byte with its high bit") << bytes("ID3\x03\x00\x00\x00\x00\x80\x10")
                                                    + QByteArray(300, '\x55');
    QTest::newRow("TAG too close to the start") << QByteArray("TAG").append(QByteArray(100, 'x'));
}

void tst_HostMetaDataReaderUnit::notId3Tags()
{
    QFETCH(QByteArray, content);

    QTemporaryDir dir;
    QFile file(dir.filePath("untagged.bin"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(content), qint64(content.size()));
    file.close();

    mr::MediaFacts facts;
    QVERIFY(!mr::readId3Tags(QFile::encodeName(file.fileName()).toStdString(), facts));
    QVERIFY(facts.tags.empty());
    QVERIFY(facts.pictures.empty());
}

QTEST_GUILESS_MAIN(tst_HostMetaDataReaderUnit)
#include "tst_hostmetadatareader_unit.moc"
