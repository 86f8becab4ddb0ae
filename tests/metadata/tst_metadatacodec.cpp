// Text encoding: the system codec, detection through the detector table and
// the mapping of detector answers. The conversions to QString are in
// tst_metadatadecode.
#include "charsetdetectorspy.h"
#include "codectestutil.h"
#include "metadatatestutil.h"
#include "qorvicmetadata_p.h"

#include <QtTest/QtTest>

#include <climits>
#include <vector>

using namespace orvictest;

class tst_MetaDataCodec : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void systemCodec_data();
    void systemCodec();
    void systemCodecWithoutSingleton();

    void mapping_data();
    void mapping();
    void mappingUnknown_data();
    void mappingUnknown();

    void detectFeedsFiveCopies_data();
    void detectFeedsFiveCopies();
    void detectWithoutAnswer_data();
    void detectWithoutAnswer();
    void detectHandleError();
    void detectWithoutDetector();
    void detectWithoutInput_data();
    void detectWithoutInput();
    void detectOversizedLength_data();
    void detectOversizedLength();
    void detectWithLibuchardet();

    void detectEncodingWithoutText_data();
    void detectEncodingWithoutText();
    void detectEncodingRunsDetector();
    void detectEncodingDetectorFails();
    void detectEncodingJoined_data();
    void detectEncodingJoined();
    void detectEncodingJoinedEmpty_data();
    void detectEncodingJoinedEmpty();
};

void tst_MetaDataCodec::systemCodec_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("expected");
    QTest::newRow("configured") << QByteArray("GB18030") << 0 << QStringLiteral("GB18030");
    QTest::newRow("empty") << QByteArray() << 0 << QStringLiteral("ISO-8859-1");
    QTest::newRow("unreadable") << QByteArray("GB18030") << 5 << QStringLiteral("ISO-8859-1");
    QTest::newRow("unreadable with negative code") << QByteArray("Big5") << -1 << QStringLiteral("ISO-8859-1");
    QTest::newRow("NUL inside") << QByteArray("Big5\0junk", 9) << 0 << QStringLiteral("Big5");
    QTest::newRow("twenty bytes without NUL") << QByteArray("ABCDEFGHIJKLMNOPQRSTUVWXYZ") << 0
                                              << QStringLiteral("ABCDEFGHIJKLMNOPQRST");
}

void tst_MetaDataCodec::systemCodec()
{
    QFETCH(QByteArray, item);
    QFETCH(int, status);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, item);
    platform.setReadStatus(status);
    MetaRig rig;
    QCOMPARE(rig.session.getSysCodec(), expected);
    QCOMPARE(platform.getInstanceCount(), 1);
    VERIFY_PAIRED(platform);
    QCOMPARE(platform.readItems(), QList<int>{kSystemCodecItem});
}

void tst_MetaDataCodec::systemCodecWithoutSingleton()
{
    ScriptedPlatformControl platform;
    platform.setNullInstance(true);
    MetaRig rig;
    QCOMPARE(rig.session.getSysCodec(), QStringLiteral("ISO-8859-1"));
    QCOMPARE(platform.getInstanceCount(), 1);
    QCOMPARE(platform.releaseCount(), 0);
    QCOMPARE(platform.readCount(), 0);
}

void tst_MetaDataCodec::mapping_data()
{
    QTest::addColumn<QString>("detected");
    QTest::addColumn<QString>("expected");
    const char *table[][2] = {
        {"EUC-TW", "GB18030"},           {"HZ-GB-2312", "GB18030"},        {"ISO_8859_2", "windows-1250"},
        {"IBM852", "windows-1250"},      {"MAC-CENTRALEUROPE", "windows-1250"},
        {"ISO-8859-3", "ISO_8859_1"},    {"ISO-8859-4", "windows-1252"},   {"ISO-8859-9", "windows-1252"},
        {"ISO-8859-5", "windows-1251"},  {"KOIR-R", "windows-1251"},       {"MAC-CYRILLIC", "windows-1251"},
        {"IBM855", "windows-1251"},      {"ISO-8859-6", "windows-1256"},   {"ISO-8859-7", "windows-1253"},
        {"ISO-8859-8", "windows-1255"},  {"UHC", "EUC-KR"},                {"VISCII", "windows-1258"},
    };
    for (const auto &row : table)
        QTest::addRow("%s", row[0]) << QString::fromLatin1(row[0]) << QString::fromLatin1(row[1]);
    // Compared literally: other spellings are used as they are.
    const char *unchanged[] = {"ISO-8859-2", "iso_8859_2", "ISO_8859_2 ", "KOI8-R", "euc-tw", "uhc", "Unknown",
                               "UNKNOWN", "GB18030", "BIG5", "SHIFT_JIS", "WINDOWS-1252", "UTF-8", "ASCII",
                               "ISO-8859-1", "windows-1253", ""};
    for (const char *name : unchanged)
        QTest::addRow("\"%s\" unchanged", name) << QString::fromLatin1(name) << QString::fromLatin1(name);
    QTest::newRow("null unchanged") << QString() << QString();
}

void tst_MetaDataCodec::mapping()
{
    QFETCH(QString, detected);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    MetaRig rig;
    const QString mapped = rig.session.detectResultMapping(detected);
    QCOMPARE(mapped, expected);
    QCOMPARE(mapped.isNull(), expected.isNull());
    // Only "unknown" asks the platform.
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataCodec::mappingUnknown_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("expected");
    QTest::newRow("system codec") << QByteArray("windows-1251") << 0 << QStringLiteral("windows-1251");
    QTest::newRow("empty item") << QByteArray() << 0 << QStringLiteral("ISO-8859-1");
    QTest::newRow("unreadable item") << QByteArray("windows-1251") << 2 << QStringLiteral("ISO-8859-1");
}

void tst_MetaDataCodec::mappingUnknown()
{
    QFETCH(QByteArray, item);
    QFETCH(int, status);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, item);
    platform.setReadStatus(status);
    MetaRig rig;
    QCOMPARE(rig.session.detectResultMapping(QStringLiteral("unknown")), expected);
    QCOMPARE(platform.getInstanceCount(), 1);
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::detectFeedsFiveCopies_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("length");
    QTest::addColumn<QByteArray>("handed");
    QTest::newRow("three bytes feed 15") << QByteArray("abc") << 3 << QByteArray("abcabcabcabcabc");
    QTest::newRow("one byte feeds 5") << QByteArray("x") << 1 << QByteArray("xxxxx");
    QTest::newRow("only length bytes") << QByteArray("abcdef") << 2 << QByteArray("ababababab");
    QTest::newRow("embedded NUL within length") << QByteArray("a\0b", 3) << 3 << QByteArray("a\0b", 3).repeated(5);
    QTest::newRow("300 bytes") << QByteArray(300, '\xE4') << 300 << QByteArray(1500, '\xE4');
}

void tst_MetaDataCodec::detectFeedsFiveCopies()
{
    QFETCH(QByteArray, text);
    QFETCH(int, length);
    QFETCH(QByteArray, handed);
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    spy.setAnswer("UHC");
    MetaRig rig;
    LogCapture log;
    // Exactly `length` readable bytes: the detector input is built from them alone.
    std::vector<char> input(text.constData(), text.constData() + length);
    QCOMPARE(rig.session.detect(input.data(), length), QStringLiteral("EUC-KR"));

    QCOMPARE(spy.calls(), (QStringList{QStringLiteral("new"), QStringLiteral("handle_data(%1)").arg(length * 5),
                                       QStringLiteral("data_end"), QStringLiteral("get_charset"),
                                       QStringLiteral("delete")}));
    QCOMPARE(spy.handedData(), QList<QByteArray>{handed});
    QCOMPARE(spy.liveDetectors(), 0);
    ORVIC_COMPARE_LINES(log.lines(), (QStringList{QStringLiteral("D/OPMetaSession detect(#):the result of ucharset is:UHC"),
                                        QStringLiteral("D/OPMetaSession detect(#):use the codec after mapping is:")}));
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataCodec::detectWithoutAnswer_data()
{
    QTest::addColumn<bool>("nullAnswer");
    QTest::addColumn<QByteArray>("answer");
    QTest::newRow("empty answer") << false << QByteArray("");
    QTest::newRow("null answer") << true << QByteArray();
    QTest::newRow("literal unknown") << false << QByteArray("unknown");
}

void tst_MetaDataCodec::detectWithoutAnswer()
{
    QFETCH(bool, nullAnswer);
    QFETCH(QByteArray, answer);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "KOI8-R");
    CharsetDetectorSpy spy;
    if (nullAnswer)
        spy.setNullAnswer();
    else
        spy.setAnswer(answer);
    MetaRig rig;
    LogCapture log;
    QCOMPARE(rig.session.detect("ab", 2), QStringLiteral("KOI8-R"));
    ORVIC_COMPARE_LINES(log.lines(), (QStringList{QStringLiteral("D/OPMetaSession detect(#):the result of ucharset is:unknown"),
                                        QStringLiteral("D/OPMetaSession detect(#):use the codec after mapping is:")}));
    QCOMPARE(spy.liveDetectors(), 0);
    QCOMPARE(platform.getInstanceCount(), 1);
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::detectHandleError()
{
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    spy.setHandleResult(1);
    spy.setAnswer("BIG5");
    MetaRig rig;
    LogCapture log;
    const QString codec = rig.session.detect("ab", 2);
    QVERIFY(codec.isNull());
    // The detector is still deleted (and the buffer freed: the leak checker watches).
    QCOMPARE(spy.calls(), (QStringList{QStringLiteral("new"), QStringLiteral("handle_data(10)"),
                                       QStringLiteral("delete")}));
    QCOMPARE(spy.liveDetectors(), 0);
    ORVIC_COMPARE_LINES(log.lines(), QStringList{QStringLiteral("D/OPMetaSession detect(#):Handle data error")});
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataCodec::detectWithoutDetector()
{
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    spy.setCreateFails(true);
    MetaRig rig;
    LogCapture log;
    QVERIFY(rig.session.detect("ab", 2).isNull());
    QCOMPARE(spy.calls(), QStringList{QStringLiteral("new")});
    ORVIC_COMPARE_LINES(log.lines(), QStringList{QStringLiteral("D/OPMetaSession detect(#):Handle data error")});
}

void tst_MetaDataCodec::detectWithoutInput_data()
{
    QTest::addColumn<bool>("nullData");
    QTest::addColumn<int>("length");
    QTest::newRow("length 0") << false << 0;
    QTest::newRow("negative length") << false << -3;
    QTest::newRow("null data") << true << 3;
}

void tst_MetaDataCodec::detectWithoutInput()
{
    QFETCH(bool, nullData);
    QFETCH(int, length);
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    MetaRig rig;
    LogCapture log;
    QVERIFY(rig.session.detect(nullData ? nullptr : "abc", length).isNull());
    QCOMPARE(spy.calls(), QStringList());
    QCOMPARE(log.lines(), QStringList());
}

void tst_MetaDataCodec::detectOversizedLength_data()
{
    QTest::addColumn<int>("length");
    QTest::newRow("INT_MAX") << INT_MAX;
    QTest::newRow("first length whose five-fold overflows") << INT_MAX / 5 + 1;
}

void tst_MetaDataCodec::detectOversizedLength()
{
    QFETCH(int, length);
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    MetaRig rig;
    LogCapture log;
    // Treated as a failed allocation: nothing of the (short) text is read.
    QVERIFY(rig.session.detect("abc", length).isNull());
    QCOMPARE(spy.calls(), QStringList());
    ORVIC_COMPARE_LINES(log.lines(), QStringList{QStringLiteral("D/OPMetaSession detect(#):data is null")});
}

void tst_MetaDataCodec::detectWithLibuchardet()
{
    ScriptedPlatformControl platform;
    MetaRig rig;
    LogCapture log;
    const QByteArray text("Plain words of the ASCII range only");
    QCOMPARE(rig.session.detect(text.constData(), text.size()), QStringLiteral("ASCII"));
    QVERIFY(log.contains(QStringLiteral("D/OPMetaSession detect(#):the result of ucharset is:ASCII")));
}

void tst_MetaDataCodec::detectEncodingWithoutText_data()
{
    QTest::addColumn<bool>("nullText");
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<QString>("expected");
    QTest::newRow("null, system codec") << true << QByteArray("KOI8-R") << QStringLiteral("KOI8-R");
    QTest::newRow("empty, system codec") << false << QByteArray("KOI8-R") << QStringLiteral("KOI8-R");
    QTest::newRow("empty, no system codec") << false << QByteArray() << QStringLiteral("ISO-8859-1");
}

void tst_MetaDataCodec::detectEncodingWithoutText()
{
    QFETCH(bool, nullText);
    QFETCH(QByteArray, item);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, item);
    CharsetDetectorSpy spy;
    MetaRig rig;
    QCOMPARE(rig.session.detectEncoding(nullText ? nullptr : ""), expected);
    QCOMPARE(spy.calls(), QStringList());
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::detectEncodingRunsDetector()
{
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "KOI8-R");
    CharsetDetectorSpy spy;
    spy.setAnswer("BIG5");
    MetaRig rig;
    QCOMPARE(rig.session.detectEncoding("abc"), QStringLiteral("BIG5"));
    QCOMPARE(spy.handedData(), QList<QByteArray>{QByteArray("abcabcabcabcabc")});
    // The system codec is read first as the provisional answer.
    QCOMPARE(platform.getInstanceCount(), 1);
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::detectEncodingDetectorFails()
{
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "KOI8-R");
    CharsetDetectorSpy spy;
    spy.setHandleResult(-1);
    MetaRig rig;
    // The detector's failure replaces the provisional system codec: no codec, Latin-1 later.
    QVERIFY(rig.session.detectEncoding("abc").isNull());
    QVERIFY(rig.session.detectEncoding("a", "b", "c").isNull());
    QCOMPARE(spy.liveDetectors(), 0);
}

void tst_MetaDataCodec::detectEncodingJoined_data()
{
    QTest::addColumn<bool>("nullA");
    QTest::addColumn<QByteArray>("a");
    QTest::addColumn<bool>("nullB");
    QTest::addColumn<QByteArray>("b");
    QTest::addColumn<bool>("nullC");
    QTest::addColumn<QByteArray>("c");
    QTest::addColumn<QByteArray>("handed");
    QTest::newRow("three texts in order") << false << QByteArray("ti") << false << QByteArray("al") << false
                                          << QByteArray("ar") << QByteArray("tialar").repeated(5);
    QTest::newRow("only the last") << false << QByteArray() << false << QByteArray() << false << QByteArray("x")
                                   << QByteArray("xxxxx");
    QTest::newRow("null ones join as empty") << true << QByteArray() << false << QByteArray("b") << true
                                             << QByteArray() << QByteArray("bbbbb");
}

void tst_MetaDataCodec::detectEncodingJoined()
{
    QFETCH(bool, nullA);
    QFETCH(QByteArray, a);
    QFETCH(bool, nullB);
    QFETCH(QByteArray, b);
    QFETCH(bool, nullC);
    QFETCH(QByteArray, c);
    QFETCH(QByteArray, handed);
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    spy.setAnswer("SHIFT_JIS");
    MetaRig rig;
    QCOMPARE(rig.session.detectEncoding(nullA ? nullptr : a.constData(), nullB ? nullptr : b.constData(),
                                        nullC ? nullptr : c.constData()),
             QStringLiteral("SHIFT_JIS"));
    QCOMPARE(spy.handedData(), QList<QByteArray>{handed});
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::detectEncodingJoinedEmpty_data()
{
    QTest::addColumn<bool>("nulls");
    QTest::newRow("three empty strings") << false;
    QTest::newRow("three null pointers") << true;
}

void tst_MetaDataCodec::detectEncodingJoinedEmpty()
{
    QFETCH(bool, nulls);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "windows-1250");
    CharsetDetectorSpy spy;
    MetaRig rig;
    const char *empty = nulls ? nullptr : "";
    QCOMPARE(rig.session.detectEncoding(empty, empty, empty), QStringLiteral("windows-1250"));
    QCOMPARE(spy.calls(), QStringList());
    VERIFY_PAIRED(platform);
}

QTEST_GUILESS_MAIN(tst_MetaDataCodec)
#include "tst_metadatacodec.moc"
