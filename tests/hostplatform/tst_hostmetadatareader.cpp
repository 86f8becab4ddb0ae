// The PC metadata reader (libplayback.so's default SPMetaData) on the
// generated media: raw tag bytes and their kind, stream attributes, covers.
#include "samples.h"

#include <filemetadata.h>
#include <playback/spmetadata.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>
#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <cstring>
#include <memory>

namespace {

struct ReaderDeleter {
    void operator()(playback::SPMetaData *reader) const { playback::SPMetaData::destroy(reader); }
};
using Reader = std::unique_ptr<playback::SPMetaData, ReaderDeleter>;

// The reader exactly as the session gets it: through the engine library's
// default factory, nothing injected.
Reader openedReader(const QString &file)
{
    Reader reader(playback::SPMetaData::create("hostmeta-test", nullptr));
    if (reader && reader->setUrl(QFile::encodeName(samples::path(file)).constData()) != 0)
        qWarning("setUrl failed for %s", qPrintable(file));
    return reader;
}

QByteArray gbk(const QString &text) { return samples::encoded("GBK", text); }
QByteArray cp1251(const QString &text) { return samples::encoded("windows-1251", text); }

playback::SPMetaData::Picture zeroPicture()
{
    playback::SPMetaData::Picture picture;
    memset(&picture, 0, sizeof picture);
    return picture;
}

} // namespace

class tst_HostMetaDataReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void defaultFactoryReadsFiles();
    void tags_data();
    void tags();
    void isTagV2FollowsEachRead();
    void audioFileStreams();
    void movieStreams();
    void videoOnlyStreams();
    void movieAudioTracks_data();
    void movieAudioTracks();
    void coverScaledToLimit_data();
    void coverScaledToLimit();
    void coverPixelsInQImageRowLayout_data();
    void coverPixelsInQImageRowLayout();
    void coverPicturesFrontCoverFirst();
    void noCoverIsFailure();
    void fileUris_data();
    void fileUris();
    void failedOpenForgetsPreviousFile();
};

void tst_HostMetaDataReader::initTestCase()
{
    QVERIFY2(QFile::exists(samples::path("tagged-gbk.mp3")),
             qPrintable("no generated media in " + samples::dir() + " (scripts/make-samples.sh)"));
    QVERIFY(QTextCodec::codecForName("GBK"));
    QVERIFY(QTextCodec::codecForName("windows-1251"));
}

void tst_HostMetaDataReader::defaultFactoryReadsFiles()
{
    const Reader reader = openedReader("tagged-gbk.mp3");
    QVERIFY(reader);
    QCOMPARE(reader->getProgramNum(), 1);
    QVERIFY(reader->getMetaString("title"));
}

void tst_HostMetaDataReader::tags_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("present");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("tagV2");

    // Latin-1-flagged ID3v2.3 frames: the GBK bytes as written, not UTF-8.
    QTest::newRow("gbk title") << "tagged-gbk.mp3" << "title" << true << gbk(samples::gbkTitle()) << false;
    QTest::newRow("gbk artist") << "tagged-gbk.mp3" << "artist" << true << gbk(samples::gbkArtist()) << false;
    QTest::newRow("gbk album") << "tagged-gbk.mp3" << "album" << true << gbk(samples::gbkAlbum()) << false;
    QTest::newRow("gbk comment") << "tagged-gbk.mp3" << "comment" << true << gbk(samples::gbkComment()) << false;
    QTest::newRow("gbk genre") << "tagged-gbk.mp3" << "genre" << true << gbk(samples::gbkGenre()) << false;
    QTest::newRow("gbk date") << "tagged-gbk.mp3" << "date" << true << QByteArray("2023") << false;
    // ID3v1 in windows-1251, byte for byte, padding removed.
    QTest::newRow("v1 title") << "tagged-gbk.mp3" << "title_v1" << true << cp1251(samples::v1Title()) << false;
    QTest::newRow("v1 artist") << "tagged-gbk.mp3" << "artist_v1" << true << cp1251(samples::v1Artist()) << false;
    QTest::newRow("v1 TP1_V1") << "tagged-gbk.mp3" << "TP1_V1" << true << cp1251(samples::v1Artist()) << false;
    QTest::newRow("v1 album") << "tagged-gbk.mp3" << "album_v1" << true << cp1251(samples::v1Album()) << false;
    QTest::newRow("v1 TAL_V1") << "tagged-gbk.mp3" << "TAL_V1" << true << cp1251(samples::v1Album()) << false;
    QTest::newRow("v1 comment") << "tagged-gbk.mp3" << "comment_v1" << true << cp1251(samples::v1Comment()) << false;
    QTest::newRow("v1 date") << "tagged-gbk.mp3" << "date_v1" << true << QByteArray("1999") << false;
    QTest::newRow("v1 genre") << "tagged-gbk.mp3" << "genre_v1" << true << QByteArray("Pop") << false;
    QTest::newRow("unknown key") << "tagged-gbk.mp3" << "lyrics" << false << QByteArray() << false;

    // Only an ID3v1 tag: the main keys are absent, so the session falls back.
    QTest::newRow("v1only title") << "tagged-v1only.mp3" << "title" << false << QByteArray() << false;
    QTest::newRow("v1only artist") << "tagged-v1only.mp3" << "artist" << false << QByteArray() << false;
    QTest::newRow("v1only date") << "tagged-v1only.mp3" << "date" << false << QByteArray() << false;
    QTest::newRow("v1only title_v1") << "tagged-v1only.mp3" << "title_v1" << true << cp1251(samples::v1Title())
                                     << false;
    QTest::newRow("v1only TP1_V1") << "tagged-v1only.mp3" << "TP1_V1" << true << cp1251(samples::v1Artist())
                                   << false;

    // ID3v2.4 Unicode frames come as UTF-8 and say so; an ASCII frame flagged
    // Latin-1 does not.
    QTest::newRow("unicode title") << "tagged-unicode.mp3" << "title" << true << samples::unicodeTitle().toUtf8()
                                   << true;
    QTest::newRow("unicode album") << "tagged-unicode.mp3" << "album" << true << samples::unicodeAlbum().toUtf8()
                                   << true;
    QTest::newRow("latin1 artist") << "tagged-unicode.mp3" << "artist" << true << QByteArray("Plain ASCII Artist")
                                   << false;
    QTest::newRow("no comment") << "tagged-unicode.mp3" << "comment" << false << QByteArray() << false;
    QTest::newRow("no v1 title") << "tagged-unicode.mp3" << "title_v1" << false << QByteArray() << false;

    // Long texts come whole; cutting them is the session's business.
    QTest::newRow("300-byte title") << "tagged-long.mp3" << "title" << true << samples::longTitle() << false;
    QTest::newRow("full date") << "tagged-long.mp3" << "date" << true << QByteArray("2024-05-01") << true;

    // Container tags of other formats are Unicode by definition.
    QTest::newRow("mp4 title") << "movie.mp4" << "title" << true << QByteArray("Sample movie") << true;
    QTest::newRow("mp4 artist") << "movie.mp4" << "artist" << false << QByteArray() << false;
    QTest::newRow("mp4 title_v1") << "movie.mp4" << "title_v1" << false << QByteArray() << false;
}

void tst_HostMetaDataReader::tags()
{
    QFETCH(QString, file);
    QFETCH(QString, key);
    QFETCH(bool, present);
    QFETCH(QByteArray, bytes);
    QFETCH(bool, tagV2);

    const Reader reader = openedReader(file);
    QVERIFY(reader);
    const char *text = reader->getMetaString(key.toLatin1().constData());
    QCOMPARE(text != nullptr, present);
    if (present)
        QCOMPARE(QByteArray(text), bytes);
    QCOMPARE(reader->isTagV2(), tagV2);
}

void tst_HostMetaDataReader::isTagV2FollowsEachRead()
{
    const Reader reader = openedReader("tagged-unicode.mp3");
    QCOMPARE(reader->isTagV2(), false); // nothing read yet
    QVERIFY(reader->getMetaString("title"));
    QCOMPARE(reader->isTagV2(), true);
    QVERIFY(reader->getMetaString("artist"));
    QCOMPARE(reader->isTagV2(), false);
    QVERIFY(reader->getMetaString("album"));
    QCOMPARE(reader->isTagV2(), true);
    QVERIFY(!reader->getMetaString("comment"));
    QCOMPARE(reader->isTagV2(), false);
    QVERIFY(!reader->getMetaString(nullptr));
    QCOMPARE(reader->isTagV2(), false);
}

void tst_HostMetaDataReader::audioFileStreams()
{
    const Reader reader = openedReader("tagged-gbk.mp3");
    QCOMPARE(reader->getMediaType(), 1);
    QCOMPARE(reader->getProgramNum(), 1);
    QCOMPARE(reader->getAudioStreamNum(0), 1);
    QCOMPARE(reader->getVideoStreamNum(0), 0); // the cover is no video stream
    QCOMPARE(reader->getSubtitleStreamNum(0), 0);
    QVERIFY2(reader->getDuration() >= 2950 && reader->getDuration() <= 3150,
             qPrintable(QString::number(reader->getDuration())));

    playback::SPMetaData::AudioAttribute audio;
    memset(&audio, 0x55, sizeof audio);
    QCOMPARE(reader->getAudioAttribute(0, 0, audio), 0);
    QCOMPARE(audio.channel, 2);
    QCOMPARE(audio.samplingRate, 44100);
    QCOMPARE(audio.bitRate, 128000);
    QCOMPARE(audio.bitDepth, 0); // lossy: no sample width
    QCOMPARE(QByteArray(audio.codec, sizeof audio.codec), QByteArray("mp3\0\0\0\0\0", 8));
    QCOMPARE(QByteArray(audio.language, sizeof audio.language), QByteArray(8, '\0'));

    playback::SPMetaData::VideoAttribute video;
    QCOMPARE(reader->getVideoAttribute(0, 0, video), -1);
    QCOMPARE(reader->getAudioAttribute(0, 1, audio), -1);
    QCOMPARE(reader->getAudioAttribute(0, -1, audio), -1);
    // There is one program only.
    QCOMPARE(reader->getAudioAttribute(1, 0, audio), -1);
    QCOMPARE(reader->getAudioStreamNum(1), 0);
}

void tst_HostMetaDataReader::movieStreams()
{
    const Reader reader = openedReader("movie.mp4");
    QCOMPARE(reader->getMediaType(), 2);
    QCOMPARE(reader->getProgramNum(), 1);
    QCOMPARE(reader->getAudioStreamNum(0), 2);
    QCOMPARE(reader->getVideoStreamNum(0), 1);
    QCOMPARE(reader->getSubtitleStreamNum(0), 1);
    QVERIFY2(reader->getDuration() >= 3950 && reader->getDuration() <= 4100,
             qPrintable(QString::number(reader->getDuration())));

    playback::SPMetaData::VideoAttribute video;
    memset(&video, 0x55, sizeof video);
    QCOMPARE(reader->getVideoAttribute(0, 0, video), 0);
    QCOMPARE(video.width, 320);
    QCOMPARE(video.height, 240);
    QCOMPARE(video.frameRate, 25);
    QCOMPARE(video.info2, 25000); // frames per 1000 s
    QVERIFY2(video.info1 > 0, "video bit rate");
    QCOMPARE(QByteArray(video.codec, sizeof video.codec), QByteArray("h264\0\0\0\0", 8));
    QCOMPARE(reader->getVideoAttribute(0, 1, video), -1);
}

void tst_HostMetaDataReader::videoOnlyStreams()
{
    const Reader reader = openedReader("video-only.mp4");
    QCOMPARE(reader->getMediaType(), 2);
    QCOMPARE(reader->getAudioStreamNum(0), 0);
    QCOMPARE(reader->getVideoStreamNum(0), 1);
    QCOMPARE(reader->getSubtitleStreamNum(0), 0);
    QCOMPARE(reader->getDuration(), 2000LL);
    playback::SPMetaData::AudioAttribute audio;
    QCOMPARE(reader->getAudioAttribute(0, 0, audio), -1);
    playback::SPMetaData::VideoAttribute video;
    QCOMPARE(reader->getVideoAttribute(0, 0, video), 0);
    QCOMPARE(QSize(video.width, video.height), QSize(176, 144));
    QCOMPARE(video.frameRate, 10);
    QCOMPARE(video.info2, 10000);
}

void tst_HostMetaDataReader::movieAudioTracks_data()
{
    QTest::addColumn<int>("stream");
    QTest::addColumn<int>("channels");
    QTest::addColumn<int>("samplingRate");
    QTest::addColumn<QByteArray>("language");

    QTest::newRow("first") << 0 << 2 << 48000 << QByteArray("eng");
    QTest::newRow("second") << 1 << 1 << 44100 << QByteArray("fre");
}

void tst_HostMetaDataReader::movieAudioTracks()
{
    QFETCH(int, stream);
    QFETCH(int, channels);
    QFETCH(int, samplingRate);
    QFETCH(QByteArray, language);

    const Reader reader = openedReader("movie.mp4");
    playback::SPMetaData::AudioAttribute audio;
    memset(&audio, 0x55, sizeof audio);
    QCOMPARE(reader->getAudioAttribute(0, stream, audio), 0);
    QCOMPARE(audio.channel, channels);
    QCOMPARE(audio.samplingRate, samplingRate);
    QVERIFY2(audio.bitRate >= 48000 && audio.bitRate <= 160000, qPrintable(QString::number(audio.bitRate)));
    QCOMPARE(audio.bitDepth, 0);
    QCOMPARE(QByteArray(audio.codec, sizeof audio.codec), QByteArray("aac\0\0\0\0\0", 8));
    QCOMPARE(QByteArray(audio.language, sizeof audio.language), language + QByteArray(8 - language.size(), '\0'));
}

void tst_HostMetaDataReader::coverScaledToLimit_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<QSize>("size");

    QTest::newRow("512 as the session asks") << 512 << QSize(512, 384);
    QTest::newRow("100") << 100 << QSize(100, 75);
    QTest::newRow("larger than the picture") << 1000 << QSize(640, 480);
    QTest::newRow("no limit") << 0 << QSize(640, 480);
}

void tst_HostMetaDataReader::coverScaledToLimit()
{
    QFETCH(int, limit);
    QFETCH(QSize, size);

    const Reader reader = openedReader("tagged-gbk.mp3");
    playback::SPMetaData::Picture picture = zeroPicture();
    QCOMPARE(reader->getPicture(picture, 0, limit), 0);
    QVERIFY(picture.data);
    QCOMPARE(QSize(picture.width, picture.height), size);
}

void tst_HostMetaDataReader::coverPixelsInQImageRowLayout_data()
{
    QTest::addColumn<int>("limit");
    QTest::addColumn<QSize>("size");

    QTest::newRow("512: rows of 1536 bytes") << 512 << QSize(512, 384);
    // 101 pixels are 303 bytes, padded to 304 as QImage expects.
    QTest::newRow("101: padded rows") << 101 << QSize(101, 76);
    QTest::newRow("unscaled") << 0 << QSize(640, 480);
}

void tst_HostMetaDataReader::coverPixelsInQImageRowLayout()
{
    QFETCH(int, limit);
    QFETCH(QSize, size);

    const Reader reader = openedReader("tagged-gbk.mp3");
    playback::SPMetaData::Picture picture = zeroPicture();
    QCOMPARE(reader->getPicture(picture, 0, limit), 0);
    QCOMPARE(QSize(picture.width, picture.height), size);
    // The pixels stay the reader's until its next picture request: other
    // calls in between must not touch them.
    QVERIFY(reader->getMetaString("title"));
    QCOMPARE(reader->getMediaType(), 1);

    // Wrapped the way the session wraps them (no bytes-per-line given).
    const QImage cover(picture.data, picture.width, picture.height, QImage::Format_RGB888);
    QImage reference(samples::path("cover-640x480.jpg"));
    QVERIFY(!reference.isNull());
    reference = reference.scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
                    .convertToFormat(QImage::Format_RGB888);
    // Different scalers and JPEG decoders differ at sharp edges; a wrong row
    // stride or channel order differs everywhere.
    qint64 difference = 0;
    for (int y = 0; y < size.height(); ++y) {
        const uchar *a = cover.constScanLine(y);
        const uchar *b = reference.constScanLine(y);
        for (int x = 0; x < size.width() * 3; ++x)
            difference += qAbs(int(a[x]) - int(b[x]));
    }
    const double mean = double(difference) / (double(size.width()) * size.height() * 3.0);
    QVERIFY2(mean < 4.0, qPrintable(QStringLiteral("mean difference %1").arg(mean)));
}

void tst_HostMetaDataReader::coverPicturesFrontCoverFirst()
{
    // The file holds a back cover (100x200 PNG) before the front cover (300x300 JPEG).
    const Reader reader = openedReader("tagged-unicode.mp3");
    playback::SPMetaData::Picture picture = zeroPicture();
    QCOMPARE(reader->getPicture(picture, 0, 512), 0);
    QCOMPARE(QSize(picture.width, picture.height), QSize(300, 300));
    picture = zeroPicture();
    QCOMPARE(reader->getPicture(picture, 1, 512), 0);
    QCOMPARE(QSize(picture.width, picture.height), QSize(100, 200));
    picture = zeroPicture();
    QCOMPARE(reader->getPicture(picture, 1, 50), 0);
    QCOMPARE(QSize(picture.width, picture.height), QSize(25, 50));
    QCOMPARE(reader->getPicture(picture, 2, 512), -1);
    QCOMPARE(reader->getPicture(picture, -1, 512), -1);
}

void tst_HostMetaDataReader::noCoverIsFailure()
{
    for (const char *file : {"movie.mp4", "tagged-v1only.mp3"}) {
        const Reader reader = openedReader(file);
        playback::SPMetaData::Picture picture = zeroPicture();
        QCOMPARE(reader->getPicture(picture, 0, 512), -1);
        QVERIFY(!picture.data);
    }
}

void tst_HostMetaDataReader::fileUris_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("localhost");

    QTest::newRow("plain") << "copy.mp3" << false;
    QTest::newRow("blank, percent, hash") << "a b%c #1.mp3" << false;
    QTest::newRow("non-ASCII") << "Ünïcödé 中文.mp3" << false;
    QTest::newRow("localhost") << "copy.mp3" << true;
}

void tst_HostMetaDataReader::fileUris()
{
    QFETCH(QString, name);
    QFETCH(bool, localhost);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString copy = dir.filePath(name);
    QVERIFY(QFile::copy(samples::path("tagged-gbk.mp3"), copy));
    QUrl url = QUrl::fromLocalFile(copy);
    if (localhost)
        url.setHost("localhost");
    const QByteArray uri = url.toEncoded();
    QVERIFY(uri.startsWith(localhost ? "file://localhost/" : "file:///"));

    Reader reader(playback::SPMetaData::create("hostmeta-test", nullptr));
    QCOMPARE(reader->setUrl(uri.constData()), 0);
    QCOMPARE(QByteArray(reader->getMetaString("title")), gbk(samples::gbkTitle()));
    // The path itself, unescaped, names the same file.
    QCOMPARE(reader->setUrl(QFile::encodeName(copy).constData()), 0);
    QCOMPARE(QByteArray(reader->getMetaString("album")), gbk(samples::gbkAlbum()));
}

void tst_HostMetaDataReader::failedOpenForgetsPreviousFile()
{
    Reader reader = openedReader("movie.mp4");
    QCOMPARE(reader->getMediaType(), 2);
    const QByteArray missing = QFile::encodeName(samples::path("no-such-file.mp4"));
    QCOMPARE(reader->setUrl(missing.constData()), -2);
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
    playback::SPMetaData::Picture picture = zeroPicture();
    QCOMPARE(reader->getPicture(picture, 0, 512), -1);
    // And it opens the next file as usual.
    QCOMPARE(reader->setUrl(QFile::encodeName(samples::path("tagged-gbk.mp3")).constData()), 0);
    QCOMPARE(reader->getMediaType(), 1);
}

QTEST_GUILESS_MAIN(tst_HostMetaDataReader)
#include "tst_hostmetadatareader.moc"
