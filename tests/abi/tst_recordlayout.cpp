// Record layouts that cross a binary boundary: the engine writes its attribute
// and picture records into caller storage as 32-bit words, the resume point is
// an opaque engine block, and the tag block is read field by field. The device
// is 32-bit ARM; rows that describe a 32-bit-only layout are skipped where
// pointers are wider.

#include "qorvicplayersession.h"

#include <playback/spmetadata.h>

#include <QtTest/QtTest>

#include <cstddef>
#include <cstring>

using EngineMeta = playback::SPMetaData;
using Id3Info = QOrvicPlayerSession::Id3Info;

namespace {

constexpr bool pointersAre32Bit = sizeof(void *) == 4;

// Engine-side view: word `index` (0-based) of a record as the engine fills it.
template<size_t N>
void putWord(unsigned char (&raw)[N], size_t index, quint32 value)
{
    QVERIFY((index + 1) * 4 <= N);
    std::memcpy(raw + index * 4, &value, sizeof value);
}

template<size_t N>
void putText(unsigned char (&raw)[N], size_t firstWord, const char *text)
{
    QVERIFY(firstWord * 4 + std::strlen(text) < N);
    std::memcpy(raw + firstWord * 4, text, std::strlen(text) + 1);
}

} // namespace

class tst_RecordLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void engineLayout_data();
    void engineLayout();
    void id3InfoFields_data();
    void id3InfoFields();
    void id3InfoSize();
    void engineAudioWords();
    void engineVideoWords();
    void engineSubtitleWords();
    void enginePictureWords();
};

void tst_RecordLayout::engineLayout_data()
{
    QTest::addColumn<int>("actual");
    QTest::addColumn<int>("expected");
    QTest::addColumn<bool>("only32Bit");

    // Same on every target: records of 32-bit integers and byte arrays.
    QTest::newRow("audio record size") << int(sizeof(EngineMeta::AudioAttribute)) << 32 << false;
    QTest::newRow("audio codec from word 4") << int(offsetof(EngineMeta::AudioAttribute, codec)) << 12 << false;
    QTest::newRow("audio language from word 6") << int(offsetof(EngineMeta::AudioAttribute, language)) << 20 << false;
    QTest::newRow("audio bit depth word 8") << int(offsetof(EngineMeta::AudioAttribute, bitDepth)) << 28 << false;
    QTest::newRow("video record size") << int(sizeof(EngineMeta::VideoAttribute)) << 28 << false;
    QTest::newRow("video codec from word 6") << int(offsetof(EngineMeta::VideoAttribute, codec)) << 20 << false;
    QTest::newRow("subtitle language from word 4") << int(offsetof(EngineMeta::SubtitleAttribute, language)) << 12 << false;
    QTest::newRow("picture pixel pointer first") << int(offsetof(EngineMeta::Picture, data)) << 0 << false;
    QTest::newRow("resume data size") << int(sizeof(QMediaPlayer::ResumeData)) << 4224 << false;

    // The device's picture record holds a 32-bit pointer in its first word.
    QTest::newRow("picture record size") << int(sizeof(EngineMeta::Picture)) << 44 << true;
    QTest::newRow("picture width word 9") << int(offsetof(EngineMeta::Picture, width)) << 32 << true;
    QTest::newRow("picture height word 10") << int(offsetof(EngineMeta::Picture, height)) << 36 << true;
}

void tst_RecordLayout::engineLayout()
{
    QFETCH(int, actual);
    QFETCH(int, expected);
    QFETCH(bool, only32Bit);
    if (only32Bit && !pointersAre32Bit)
        QSKIP("32-bit engine layout; this target has 64-bit pointers");
    QCOMPARE(actual, expected);
}

void tst_RecordLayout::id3InfoFields_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("expectedOffset");
    QTest::addColumn<int>("expectedSize");

    struct Field {
        const char *name;
        size_t offset;
        size_t size;
        int tableSize;
    };
#define ORVIC_ID3_FIELD(f, tableSize) Field{#f, offsetof(Id3Info, f), sizeof(Id3Info::f), tableSize}
    // The tag block's fields in their published order, each directly after
    // the one before (genre's flag and text come before date's).
    const Field fields[] = {
        ORVIC_ID3_FIELD(reserved, 4),   ORVIC_ID3_FIELD(titleFlag, 4),  ORVIC_ID3_FIELD(artistFlag, 4),
        ORVIC_ID3_FIELD(albumFlag, 4),  ORVIC_ID3_FIELD(genreFlag, 4),  ORVIC_ID3_FIELD(dateFlag, 4),
        ORVIC_ID3_FIELD(commentFlag, 4), ORVIC_ID3_FIELD(title, 256),   ORVIC_ID3_FIELD(artist, 256),
        ORVIC_ID3_FIELD(album, 256),    ORVIC_ID3_FIELD(genre, 256),    ORVIC_ID3_FIELD(date, 5),
        ORVIC_ID3_FIELD(comment, 256),
    };
#undef ORVIC_ID3_FIELD
    int expectedOffset = 0;
    for (const Field &f : fields) {
        QTest::newRow(f.name) << int(f.offset) << int(f.size) << expectedOffset << f.tableSize;
        expectedOffset += f.tableSize;
    }
}

void tst_RecordLayout::id3InfoFields()
{
    QFETCH(int, offset);
    QFETCH(int, size);
    QFETCH(int, expectedOffset);
    QFETCH(int, expectedSize);
    QCOMPARE(size, expectedSize);
    QCOMPARE(offset, expectedOffset);
}

void tst_RecordLayout::id3InfoSize()
{
    // Seven words and 1285 text bytes, padded to the word alignment.
    QCOMPARE(int(alignof(Id3Info)), 4);
    QCOMPARE(int(sizeof(Id3Info)), 1316);
}

void tst_RecordLayout::engineAudioWords()
{
    unsigned char raw[32] = {};
    putWord(raw, 0, 6);
    putWord(raw, 1, 48000);
    putWord(raw, 2, 384000);
    putText(raw, 3, "ac3");
    putText(raw, 5, "deu");
    putWord(raw, 7, 24);

    EngineMeta::AudioAttribute attr;
    QCOMPARE(sizeof attr, sizeof raw);
    std::memcpy(&attr, raw, sizeof raw);
    QCOMPARE(attr.channel, 6);
    QCOMPARE(attr.samplingRate, 48000);
    QCOMPARE(attr.bitRate, 384000);
    QCOMPARE(QByteArray(attr.codec), QByteArray("ac3"));
    QCOMPARE(QByteArray(attr.language), QByteArray("deu"));
    QCOMPARE(attr.bitDepth, 24);
}

void tst_RecordLayout::engineVideoWords()
{
    unsigned char raw[28] = {};
    putWord(raw, 0, 1920);
    putWord(raw, 1, 1080);
    putWord(raw, 2, 7);
    putWord(raw, 3, 25);
    putWord(raw, 4, 9);
    putText(raw, 5, "h264");

    EngineMeta::VideoAttribute attr;
    QCOMPARE(sizeof attr, sizeof raw);
    std::memcpy(&attr, raw, sizeof raw);
    QCOMPARE(attr.width, 1920);
    QCOMPARE(attr.height, 1080);
    QCOMPARE(attr.info1, 7);
    QCOMPARE(attr.frameRate, 25);
    QCOMPARE(attr.info2, 9);
    QCOMPARE(QByteArray(attr.codec), QByteArray("h264"));
}

void tst_RecordLayout::engineSubtitleWords()
{
    unsigned char raw[sizeof(EngineMeta::SubtitleAttribute)] = {};
    putText(raw, 3, "fra");

    EngineMeta::SubtitleAttribute attr;
    std::memcpy(&attr, raw, sizeof raw);
    QCOMPARE(QByteArray(attr.language), QByteArray("fra"));
}

void tst_RecordLayout::enginePictureWords()
{
    if (!pointersAre32Bit)
        QSKIP("32-bit engine layout; this target has 64-bit pointers");

    static unsigned char pixels[3 * 4 * 2];
    unsigned char raw[44] = {};
    putWord(raw, 0, quint32(quintptr(pixels)));
    putWord(raw, 8, 4);
    putWord(raw, 9, 2);
    for (size_t word : {1, 2, 3, 4, 5, 6, 7, 10})
        putWord(raw, word, 0xdeadbeef);

    EngineMeta::Picture picture;
    QCOMPARE(sizeof picture, sizeof raw);
    std::memcpy(&picture, raw, sizeof raw);
    QCOMPARE(static_cast<const void *>(picture.data), static_cast<const void *>(pixels));
    QCOMPARE(picture.width, 4);
    QCOMPARE(picture.height, 2);
}

QTEST_APPLESS_MAIN(tst_RecordLayout)

#include "tst_recordlayout.moc"
