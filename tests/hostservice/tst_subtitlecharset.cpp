// The charset of a subtitle file: byte-order mark, valid UTF-8, the detector
// with the library's remap of its answers, else the system codec.
#include "subtitlesamples.h"

#include <subtitlecharset.h>

#include <QtTest/QtTest>

Q_DECLARE_METATYPE(CharsetDecision::Source)

class tst_SubtitleCharset : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void byteOrderMarks_data();
    void byteOrderMarks();
    void utf8Validity_data();
    void utf8Validity();
    void codepages_data();
    void codepages();
    void undetectableFallsToSystemCodec_data();
    void undetectableFallsToSystemCodec();
    void binary();
    void systemCodecOfThePlatform_data();
    void systemCodecOfThePlatform();
};

void tst_SubtitleCharset::byteOrderMarks_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<int>("markLength");
    QTest::addColumn<QString>("text");
    QTest::newRow("UTF-8") << QByteArray("\xEF\xBB\xBF" "A\xC3\xA9") << QByteArray("UTF-8") << 3 << QStringLiteral("Aé");
    QTest::newRow("UTF-16 LE") << QByteArray("\xFF\xFE" "A\0\xE9\0", 6) << QByteArray("UTF-16LE") << 2
                               << QStringLiteral("Aé");
    QTest::newRow("UTF-16 BE") << QByteArray("\xFE\xFF" "\0A\0\xE9", 6) << QByteArray("UTF-16BE") << 2
                               << QStringLiteral("Aé");
    QTest::newRow("UTF-32 LE") << QByteArray("\xFF\xFE\0\0" "A\0\0\0", 8) << QByteArray("UTF-32LE") << 4
                               << QStringLiteral("A");
    QTest::newRow("UTF-32 BE") << QByteArray("\0\0\xFE\xFF" "\0\0\0A", 8) << QByteArray("UTF-32BE") << 4
                               << QStringLiteral("A");
}

void tst_SubtitleCharset::byteOrderMarks()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, codec);
    QFETCH(int, markLength);
    QFETCH(QString, text);
    const CharsetDecision decision = subtitlecharset::decide(bytes, "windows-1252");
    QCOMPARE(decision.source, CharsetDecision::ByteOrderMark);
    QCOMPARE(decision.codec, codec);
    QCOMPARE(decision.markLength, markLength);
    QCOMPARE(subtitlecharset::decode(bytes, decision), text);
}

void tst_SubtitleCharset::utf8Validity_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<bool>("valid");
    QTest::newRow("ascii") << QByteArray("plain text\r\n") << true;
    QTest::newRow("two, three, four bytes") << QByteArray("\xC3\xA9\xED\x95\x9C\xF0\x9F\x98\x80") << true;
    QTest::newRow("lone continuation") << QByteArray("a\x80") << false;
    QTest::newRow("cut sequence") << QByteArray("\xED\x95") << false;
    QTest::newRow("overlong") << QByteArray("\xC0\xAF") << false;
    QTest::newRow("overlong three") << QByteArray("\xE0\x80\xAF") << false;
    QTest::newRow("surrogate") << QByteArray("\xED\xA0\x80") << false;
    QTest::newRow("past U+10FFFF") << QByteArray("\xF4\x90\x80\x80") << false;
    QTest::newRow("CP949 bytes") << QByteArray("\xBE\xC8\xB3\xE7") << false;
}

void tst_SubtitleCharset::utf8Validity()
{
    QFETCH(QByteArray, bytes);
    QFETCH(bool, valid);
    QCOMPARE(subtitlecharset::isValidUtf8(bytes), valid);
    const CharsetDecision decision = subtitlecharset::decide(bytes, "windows-1252");
    QCOMPARE(decision.source == CharsetDecision::ValidUtf8, valid);
}

// Every sample codepage: which source decides and whether the text comes out
// right. The system codec is set to one that cannot read the sample, so that
// a right text means the detector found the charset alone.
// Turkish: the detector answers "ISO-8859-9", which the remap of detector
// answers turns into "windows-1252"; its letters ş, ğ and İ come out wrong,
// and the system codec is not asked because the detector had an answer.
void tst_SubtitleCharset::codepages_data()
{
    QTest::addColumn<QByteArray>("codepage");
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<CharsetDecision::Source>("source");
    QTest::addColumn<QByteArray>("detectorAnswer");
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<bool>("rightText");

    struct Expected
    {
        CharsetDecision::Source source;
        QByteArray detectorAnswer;
        QByteArray codec;
        bool rightText;
    };
    const QHash<QByteArray, Expected> expected = {
        {"CP949", {CharsetDecision::Detected, "UHC", "EUC-KR", true}},
        {"GBK", {CharsetDecision::Detected, "GB18030", "GB18030", true}},
        {"Big5", {CharsetDecision::Detected, "BIG5", "BIG5", true}},
        {"windows-1251", {CharsetDecision::Detected, "WINDOWS-1251", "WINDOWS-1251", true}},
        {"windows-1250", {CharsetDecision::Detected, "WINDOWS-1250", "WINDOWS-1250", true}},
        {"windows-1254", {CharsetDecision::Detected, "ISO-8859-9", "windows-1252", false}},
        {"UTF-8", {CharsetDecision::ValidUtf8, "", "UTF-8", true}},
        {"UTF-8 BOM", {CharsetDecision::ByteOrderMark, "", "UTF-8", true}},
        {"UTF-16LE BOM", {CharsetDecision::ByteOrderMark, "", "UTF-16LE", true}},
        {"UTF-16BE BOM", {CharsetDecision::ByteOrderMark, "", "UTF-16BE", true}},
    };
    for (const subtitlesamples::Sample &sample : subtitlesamples::samples()) {
        const Expected e = expected.value(sample.codepage);
        QTest::newRow(sample.name) << QByteArray(sample.codepage) << sample.lines << e.source
                                   << e.detectorAnswer << e.codec << e.rightText;
    }
}

void tst_SubtitleCharset::codepages()
{
    QFETCH(QByteArray, codepage);
    QFETCH(QStringList, lines);
    QFETCH(CharsetDecision::Source, source);
    QFETCH(QByteArray, detectorAnswer);
    QFETCH(QByteArray, codec);
    QFETCH(bool, rightText);

    const QString text = subtitlesamples::srt(lines);
    const QByteArray bytes = subtitlesamples::encode(text, codepage);
    QVERIFY(!bytes.isEmpty());

    // A system codec of a script the sample does not use.
    const QByteArray unrelated = codepage == "windows-1251" ? "ISO-8859-7" : "windows-1251";
    const CharsetDecision decision = subtitlecharset::decide(bytes, unrelated);
    QCOMPARE(decision.source, source);
    QCOMPARE(decision.detectorAnswer, detectorAnswer);
    QCOMPARE(decision.codec, codec);
    QCOMPARE(subtitlecharset::decode(bytes, decision) == text, rightText);
}

void tst_SubtitleCharset::undetectableFallsToSystemCodec_data()
{
    QTest::addColumn<QByteArray>("systemCodec");
    QTest::addColumn<QByteArray>("codec");
    QTest::newRow("configured") << QByteArray("windows-1250") << QByteArray("windows-1250");
    QTest::newRow("unknown to the codec set") << QByteArray("no-such-codec") << QByteArray("ISO-8859-1");
}

// Bytes the detector has nothing to say about.
void tst_SubtitleCharset::undetectableFallsToSystemCodec()
{
    QFETCH(QByteArray, systemCodec);
    QFETCH(QByteArray, codec);
    const QByteArray bytes("a\x81" "b");
    const CharsetDecision decision = subtitlecharset::decide(bytes, systemCodec);
    QCOMPARE(decision.detectorAnswer, QByteArray());
    QCOMPARE(decision.source, CharsetDecision::SystemCodec);
    QCOMPARE(decision.codec, codec);
}

void tst_SubtitleCharset::binary()
{
    QVERIFY(subtitlecharset::looksBinary(QByteArray("\x89PNG\r\n\x1A\n\0\0\0\x0D", 12)));
    QVERIFY(!subtitlecharset::looksBinary(QByteArray("1\r\n00:00:01,000 --> 00:00:02,000\r\nText\r\n")));
}

void tst_SubtitleCharset::systemCodecOfThePlatform_data()
{
    QTest::addColumn<QByteArray>("configured");
    QTest::addColumn<QByteArray>("codec");
    QTest::newRow("configured") << QByteArray("windows-1250") << QByteArray("windows-1250");
    QTest::newRow("empty") << QByteArray("") << QByteArray("ISO-8859-1");
    QTest::newRow("longer than the item") << QByteArray("abcdefghijklmnopqrstuvwxyz")
                                          << QByteArray("abcdefghijklmnopqrst");
}

// Vendor item 104 as the PC platform is configured (ORVIC_SYSTEM_CODEC).
void tst_SubtitleCharset::systemCodecOfThePlatform()
{
    QFETCH(QByteArray, configured);
    QFETCH(QByteArray, codec);
    qputenv("ORVIC_PLATFORM_CONFIG", "/nonexistent/platform.conf");
    qputenv("ORVIC_SYSTEM_CODEC", configured);
    QCOMPARE(subtitlecharset::systemCodec(), codec);
    qunsetenv("ORVIC_SYSTEM_CODEC");
}

QTEST_GUILESS_MAIN(tst_SubtitleCharset)
#include "tst_subtitlecharset.moc"
