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
    QTest::newRow("PNG signature only") << QByteArray("\x89PNG\r\n\x1a\n", 8);
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

QTEST_GUILESS_MAIN(tst_HostMetaDataReaderUnit)
#include "tst_hostmetadatareader_unit.moc"
