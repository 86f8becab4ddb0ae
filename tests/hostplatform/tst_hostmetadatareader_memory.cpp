// The PC metadata reader on a medium held in memory: every answer equals the
// answer for the same bytes in a file of no telling name, the previous medium
// is forgotten, and a medium in memory opens no other file.
#include "samples.h"

#include <metadatareader.h>

#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

#include <cstring>

namespace mr = hostplatform::metadatareader;

namespace {

const char *const kAllKeys[] = {"title",   "title_v1",   "artist", "artist_v1", "TP1_V1",
                                "album",   "album_v1",   "TAL_V1", "date",      "date_v1",
                                "comment", "comment_v1", "genre",  "genre_v1"};

QByteArray fileBytes(const QString &name)
{
    QFile f(samples::path(name));
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    return f.readAll();
}

// Every answer the session can ask for, one line each, so that a difference
// shows as the line that differs.
QStringList answers(mr::FileMetaData &reader, int status)
{
    QStringList out;
    out << QStringLiteral("status %1 type %2 duration %3 programs %4")
               .arg(status)
               .arg(reader.getMediaType())
               .arg(reader.getDuration())
               .arg(reader.getProgramNum());
    const int audio = reader.getAudioStreamNum(0);
    const int video = reader.getVideoStreamNum(0);
    out << QStringLiteral("streams %1 %2 %3").arg(audio).arg(video).arg(reader.getSubtitleStreamNum(0));
    for (int i = 0; i < audio; ++i) {
        playback::SPMetaData::AudioAttribute a;
        std::memset(&a, 0, sizeof a);
        const int r = reader.getAudioAttribute(0, i, a);
        out << QStringLiteral("audio %1: %2 %3 %4 %5 %6 %7 %8")
                   .arg(i)
                   .arg(r)
                   .arg(a.channel)
                   .arg(a.samplingRate)
                   .arg(a.bitRate)
                   .arg(a.bitDepth)
                   .arg(QString::fromLatin1(a.codec), QString::fromLatin1(a.language));
    }
    for (int i = 0; i < video; ++i) {
        playback::SPMetaData::VideoAttribute v;
        std::memset(&v, 0, sizeof v);
        const int r = reader.getVideoAttribute(0, i, v);
        out << QStringLiteral("video %1: %2 %3x%4 %5 %6 %7 %8")
                   .arg(i)
                   .arg(r)
                   .arg(v.width)
                   .arg(v.height)
                   .arg(v.info1)
                   .arg(v.frameRate)
                   .arg(v.info2)
                   .arg(QString::fromLatin1(v.codec));
    }
    for (const char *key : kAllKeys) {
        const char *text = reader.getMetaString(key);
        out << QStringLiteral("%1: %2 %3")
                   .arg(QLatin1String(key),
                        text ? QString::fromLatin1(QByteArray(text).toHex()) : QStringLiteral("(null)"))
                   .arg(reader.isTagV2());
    }
    playback::SPMetaData::Picture picture;
    std::memset(&picture, 0, sizeof picture);
    const int r = reader.getPicture(picture, 0, 512);
    QByteArray pixels;
    if (r == 0) {
        const int stride = (picture.width * 3 + 3) & ~3;
        pixels = QByteArray(reinterpret_cast<const char *>(picture.data), stride * picture.height);
    }
    out << QStringLiteral("picture %1 %2x%3 %4")
               .arg(r)
               .arg(picture.width)
               .arg(picture.height)
               .arg(QString::fromLatin1(QCryptographicHash::hash(pixels, QCryptographicHash::Sha1).toHex()));
    return out;
}

} // namespace

class tst_HostMetaDataReaderMemory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void sameAnswersAsTheFile_data();
    void sameAnswersAsTheFile();
    void emptyBuffer_data();
    void emptyBuffer();
    void previousMediumForgotten();
    void playlistOpensNoOtherFile();
};

void tst_HostMetaDataReaderMemory::sameAnswersAsTheFile_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("status"); // what the file answers, so a row cannot pass on two failures

    for (const char *name : {"movie.mp4", "video-only.mp4", "tagged-gbk.mp3", "tagged-unicode.mp3",
                             "tagged-long.mp3", "tagged-v1only.mp3"})
        QTest::newRow(name) << QString::fromLatin1(name) << 0;
    // Still images: recognised by their content alone, as in a file whose
    // name gives no hint.
    for (const char *name : {"cover-300x300.jpg", "cover-640x480.jpg", "back-100x200.png"})
        QTest::newRow(name) << QString::fromLatin1(name) << 0;
    for (const char *name : {"hostile/truncated-audio.mp3", "hostile/truncated.mp4", "hostile/huge-frame.mp3",
                             "hostile/huge-picture-frame.mp3", "hostile/huge-cover.mp3", "hostile/forged-cover.mp3",
                             "hostile/bad-cover.mp3", "hostile/movie-named.mp3", "hostile/audio-named.mp4"})
        QTest::newRow(name) << QString::fromLatin1(name) << 0;
    for (const char *name : {"hostile/zero.mp3", "hostile/garbage.mp3", "hostile/garbage.mp4", "hostile/corrupt.mp4",
                             "hostile/truncated-in-tag.mp3", "hostile/huge-tag.mp3"})
        QTest::newRow(name) << QString::fromLatin1(name) << int(mr::StatusNotMedia);
}

void tst_HostMetaDataReaderMemory::sameAnswersAsTheFile()
{
    QFETCH(QString, file);
    QFETCH(int, status);
    QVERIFY2(QFile::exists(samples::path(file)), qPrintable(samples::path(file)));
    const QByteArray bytes = fileBytes(file);

    // A medium in memory has no name, so it answers like a file whose name
    // gives libavformat no hint (an image named .jpg is read as a one-frame
    // sequence of 40 ms, the same bytes under another name as a still of 0).
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QFile copy(dir.filePath(QStringLiteral("medium")));
    QVERIFY(copy.open(QIODevice::WriteOnly));
    QCOMPARE(copy.write(bytes), qint64(bytes.size()));
    copy.close();

    mr::FileMetaData fromFile;
    const QStringList expected = answers(fromFile, fromFile.setUrl(QFile::encodeName(copy.fileName()).constData()));
    QVERIFY2(expected.first().startsWith(QStringLiteral("status %1 ").arg(status)), qPrintable(expected.first()));

    mr::FileMetaData fromMemory;
    const int memoryStatus = fromMemory.setBytes(reinterpret_cast<const unsigned char *>(bytes.constData()),
                                                 size_t(bytes.size()));
    QCOMPARE(answers(fromMemory, memoryStatus), expected);
}

void tst_HostMetaDataReaderMemory::emptyBuffer_data()
{
    QTest::addColumn<bool>("nullData");
    QTest::newRow("no bytes") << false;
    QTest::newRow("null pointer") << true;
}

void tst_HostMetaDataReaderMemory::emptyBuffer()
{
    QFETCH(bool, nullData);
    static const unsigned char byte = 0;
    mr::FileMetaData reader;
    QCOMPARE(reader.setBytes(nullData ? nullptr : &byte, 0), int(mr::StatusNotMedia));
    QCOMPARE(reader.getMediaType(), int(mr::MediaKindNone));
    QCOMPARE(reader.getProgramNum(), 0);
}

void tst_HostMetaDataReaderMemory::previousMediumForgotten()
{
    mr::FileMetaData reader;
    QCOMPARE(reader.setUrl(QFile::encodeName(samples::path(QStringLiteral("tagged-gbk.mp3"))).constData()), 0);
    QVERIFY(reader.getMetaString("title"));

    const QByteArray garbage = fileBytes(QStringLiteral("hostile/garbage.mp3"));
    QVERIFY(!garbage.isEmpty());
    QCOMPARE(reader.setBytes(reinterpret_cast<const unsigned char *>(garbage.constData()), size_t(garbage.size())),
             int(mr::StatusNotMedia));
    QCOMPARE(reader.getMediaType(), int(mr::MediaKindNone));
    QCOMPARE(reader.getAudioStreamNum(0), 0);
    QVERIFY(!reader.getMetaString("title"));
    playback::SPMetaData::Picture picture;
    std::memset(&picture, 0, sizeof picture);
    QCOMPARE(reader.getPicture(picture, 0, 512), -1);
}

void tst_HostMetaDataReaderMemory::playlistOpensNoOtherFile()
{
    // A playlist naming a local medium that exists: the same playlist in a
    // file opens it; in memory it must not, or arbitrary bytes could make the
    // reader open local files.
    const QString medium = samples::path(QStringLiteral("tagged-gbk.mp3"));
    QVERIFY(QFile::exists(medium));
    const QByteArray playlist = "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:10,\nfile://"
        + QFile::encodeName(medium) + "\n#EXT-X-ENDLIST\n";

    mr::FileMetaData fromMemory;
    QCOMPARE(fromMemory.setBytes(reinterpret_cast<const unsigned char *>(playlist.constData()),
                                 size_t(playlist.size())),
             int(mr::StatusNotMedia));
    QCOMPARE(fromMemory.getAudioStreamNum(0), 0);
}

QTEST_GUILESS_MAIN(tst_HostMetaDataReaderMemory)
#include "tst_hostmetadatareader_memory.moc"
