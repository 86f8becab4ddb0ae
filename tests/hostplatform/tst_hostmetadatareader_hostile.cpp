// The PC metadata reader on damaged and misleading files: every query the
// session makes is answered without a crash, a hang or a stale answer.
#include "samples.h"

#include <playback/spmetadata.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <cstring>
#include <memory>

namespace {

struct ReaderDeleter {
    void operator()(playback::SPMetaData *reader) const { playback::SPMetaData::destroy(reader); }
};
using Reader = std::unique_ptr<playback::SPMetaData, ReaderDeleter>;

const char *const kAllKeys[] = {"title",   "title_v1", "artist",  "artist_v1",  "TP1_V1",
                                "album",   "album_v1", "TAL_V1",  "date",       "date_v1",
                                "comment", "comment_v1", "genre", "genre_v1"};

} // namespace

class tst_HostMetaDataReaderHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void hostileFiles_data();
    void hostileFiles();
    void everyQueryAnswers_data();
    void everyQueryAnswers();
    void textEncodingPastDefined();
};

void tst_HostMetaDataReaderHostile::hostileFiles_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("mediaType");
    QTest::addColumn<int>("audioStreams");
    QTest::addColumn<int>("videoStreams");
    QTest::addColumn<QByteArray>("title"); // null: absent
    QTest::addColumn<QSize>("cover");      // invalid: getPicture fails

    const QByteArray none;
    const QByteArray gbkTitle = samples::encoded("GBK", samples::gbkTitle());

    // Nothing a demuxer recognises: refused, and nothing answered.
    QTest::newRow("zero-byte mp3") << "hostile/zero.mp3" << -3 << 0 << 0 << 0 << none << QSize();
    QTest::newRow("zero-byte mp4") << "hostile/zero.mp4" << -3 << 0 << 0 << 0 << none << QSize();
    QTest::newRow("text as mp3") << "hostile/garbage.mp3" << -3 << 0 << 0 << 0 << none << QSize();
    QTest::newRow("text as mp4") << "hostile/garbage.mp4" << -3 << 0 << 0 << 0 << none << QSize();
    QTest::newRow("mp4 index overwritten") << "hostile/corrupt.mp4" << -3 << 0 << 0 << 0 << none << QSize();
    // The ID3v2 tag claims more than the file holds: no audio behind it.
    QTest::newRow("cut inside the tag") << "hostile/truncated-in-tag.mp3" << -3 << 0 << 0 << 0 << none << QSize();
    QTest::newRow("tag of 256 MB") << "hostile/huge-tag.mp3" << -3 << 0 << 0 << 0 << none << QSize();

    // Damaged, but the headers are there: answered from what is readable.
    QTest::newRow("cut in the audio") << "hostile/truncated-audio.mp3" << 0 << 1 << 1 << 0 << gbkTitle
                                      << QSize(512, 384);
    QTest::newRow("half a movie") << "hostile/truncated.mp4" << 0 << 2 << 2 << 1 << QByteArray("Sample movie")
                                  << QSize();
    // A frame larger than its tag is dropped; the audio is still there.
    QTest::newRow("title frame of 2 GB") << "hostile/huge-frame.mp3" << 0 << 1 << 1 << 0 << none << QSize();
    QTest::newRow("picture frame of 256 MB") << "hostile/huge-picture-frame.mp3" << 0 << 1 << 1 << 0 << none
                                             << QSize();
    // Covers that cannot be decoded fail alone; the tags are still read.
    QTest::newRow("cover of 7000x6000") << "hostile/huge-cover.mp3" << 0 << 1 << 1 << 0
                                        << QByteArray("Huge cover") << QSize();
    QTest::newRow("cover header of 16000x16000") << "hostile/forged-cover.mp3" << 0 << 1 << 1 << 0
                                                 << QByteArray("Forged cover") << QSize();
    QTest::newRow("cover of noise") << "hostile/bad-cover.mp3" << 0 << 1 << 1 << 0 << QByteArray("Bad cover")
                                    << QSize();

    // The content decides, not the name.
    QTest::newRow("movie named .mp3") << "hostile/movie-named.mp3" << 0 << 2 << 2 << 1
                                      << QByteArray("Sample movie") << QSize();
    QTest::newRow("mp3 named .mp4") << "hostile/audio-named.mp4" << 0 << 1 << 1 << 0 << gbkTitle
                                    << QSize(512, 384);
}

void tst_HostMetaDataReaderHostile::hostileFiles()
{
    QFETCH(QString, file);
    QFETCH(int, status);
    QFETCH(int, mediaType);
    QFETCH(int, audioStreams);
    QFETCH(int, videoStreams);
    QFETCH(QByteArray, title);
    QFETCH(QSize, cover);

    QVERIFY(QFile::exists(samples::path(file)));
    Reader reader(playback::SPMetaData::create("hostile", nullptr));
    // A good file first: a failed open must not leave its answers behind.
    QCOMPARE(reader->setUrl(QFile::encodeName(samples::path("tagged-gbk.mp3")).constData()), 0);

    QCOMPARE(reader->setUrl(QFile::encodeName(samples::path(file)).constData()), status);
    QCOMPARE(reader->getMediaType(), mediaType);
    QCOMPARE(reader->getProgramNum(), status == 0 ? 1 : 0);
    QCOMPARE(reader->getAudioStreamNum(0), audioStreams);
    QCOMPARE(reader->getVideoStreamNum(0), videoStreams);
    const char *text = reader->getMetaString("title");
    QCOMPARE(text != nullptr, !title.isNull());
    if (text)
        QCOMPARE(QByteArray(text), title);
    if (status != 0)
        QCOMPARE(reader->getDuration(), 0LL);

    playback::SPMetaData::Picture picture;
    memset(&picture, 0, sizeof picture);
    const int pictureStatus = reader->getPicture(picture, 0, 512);
    QCOMPARE(pictureStatus, cover.isValid() ? 0 : -1);
    if (cover.isValid())
        QCOMPARE(QSize(picture.width, picture.height), cover);
    else
        QVERIFY(!picture.data);
}

void tst_HostMetaDataReaderHostile::everyQueryAnswers_data()
{
    hostileFiles_data();
}

// The whole sequence of queries a session makes after opening, on every
// file; what matters is that each returns (and, under the sanitizers, that
// nothing is read out of bounds or leaked).
void tst_HostMetaDataReaderHostile::everyQueryAnswers()
{
    QFETCH(QString, file);
    QFETCH(int, status);

    Reader reader(playback::SPMetaData::create("hostile", nullptr));
    QCOMPARE(reader->setUrl(QFile::encodeName(samples::path(file)).constData()), status);
    const int programs = reader->getProgramNum();
    const int audio = reader->getAudioStreamNum(0);
    const int video = reader->getVideoStreamNum(0);
    QVERIFY(audio >= 0 && video >= 0 && reader->getSubtitleStreamNum(0) >= 0);
    QVERIFY(reader->getDuration() >= 0);
    for (int stream = 0; stream <= audio; ++stream) {
        playback::SPMetaData::AudioAttribute attr;
        memset(&attr, 0x55, sizeof attr);
        const int r = reader->getAudioAttribute(0, stream, attr);
        QCOMPARE(r, stream < audio ? 0 : -1);
        if (r == 0) {
            QVERIFY(memchr(attr.codec, 0, sizeof attr.codec));
            QVERIFY(memchr(attr.language, 0, sizeof attr.language));
        }
    }
    for (int stream = 0; stream <= video; ++stream) {
        playback::SPMetaData::VideoAttribute attr;
        memset(&attr, 0x55, sizeof attr);
        const int r = reader->getVideoAttribute(0, stream, attr);
        QCOMPARE(r, stream < video ? 0 : -1);
        if (r == 0)
            QVERIFY(memchr(attr.codec, 0, sizeof attr.codec));
    }
    for (const char *key : kAllKeys) {
        const char *text = reader->getMetaString(key);
        if (text)
            QVERIFY(strlen(text) > 0);
        reader->isTagV2();
    }
    for (int index = 0; index < 3; ++index) {
        playback::SPMetaData::Picture picture;
        memset(&picture, 0, sizeof picture);
        if (reader->getPicture(picture, index, 512) == 0) {
            QVERIFY(picture.data);
            QVERIFY(picture.width > 0 && picture.width <= 512);
            QVERIFY(picture.height > 0 && picture.height <= 512);
            // Touch every byte of the rows the session's QImage will read.
            const int stride = (picture.width * 3 + 3) & ~3;
            volatile unsigned sum = 0;
            for (int i = 0; i < stride * picture.height; ++i)
                sum += picture.data[i];
            Q_UNUSED(sum);
        }
    }
    QCOMPARE(programs, status == 0 ? 1 : 0);
}

// A text frame whose encoding byte is none of the four defined ones: TagLib
// decodes such text as UTF-16, so the reader hands it on as Unicode text.
void tst_HostMetaDataReaderHostile::textEncodingPastDefined()
{
    QFile sample(samples::path("tagged-long.mp3"));
    QVERIFY(sample.open(QIODevice::ReadOnly));
    QByteArray bytes = sample.readAll();
    const int frame = bytes.indexOf("TIT2");
    QVERIFY(frame > 0);
    QCOMPARE(bytes.at(frame + 10), '\0'); // Latin-1 as written
    bytes[frame + 10] = 't';
    QTemporaryDir dir;
    QFile medium(dir.filePath("encoding-t.mp3"));
    QVERIFY(medium.open(QIODevice::WriteOnly));
    QCOMPARE(medium.write(bytes), qint64(bytes.size()));
    medium.close();

    Reader reader(playback::SPMetaData::create("hostile", nullptr));
    QCOMPARE(reader->setUrl(QFile::encodeName(medium.fileName()).constData()), 0);
    QCOMPARE(reader->getMediaType(), 1);
    QVERIFY(reader->getMetaString("title"));
    QVERIFY(reader->isTagV2());
}

QTEST_GUILESS_MAIN(tst_HostMetaDataReaderHostile)
#include "tst_hostmetadatareader_hostile.moc"
