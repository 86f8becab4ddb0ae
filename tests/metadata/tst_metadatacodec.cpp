// Text encoding: the system codec, detection through the detector table,
// the mapping of detector answers, and the conversions to QString.
#include "charsetdetectorspy.h"
#include "metadatatestutil.h"
#include "qorvicmetadata_p.h"

#include <QtCore/QTextCodec>
#include <QtTest/QtTest>

#include <climits>
#include <thread>
#include <vector>

using namespace orvictest;

namespace {
const int kSystemCodecItem = 104;

QString encodedAs(const char *codec, const QByteArray &bytes)
{
    QTextCodec *c = QTextCodec::codecForName(codec);
    if (!c)
        qFatal("no codec %s", codec);
    return c->toUnicode(bytes);
}

QByteArray encode(const char *codec, const QString &text)
{
    QTextCodec *c = QTextCodec::codecForName(codec);
    if (!c)
        qFatal("no codec %s", codec);
    return c->fromUnicode(text);
}

// Every platform singleton handed out went back.
#define VERIFY_PAIRED(platform) QCOMPARE((platform).releaseCount(), (platform).getInstanceCount())
} // namespace

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

    void fromCharWithoutText_data();
    void fromCharWithoutText();
    void fromCharWithoutSingleton();
    void fromCharWithoutSystemCodec_data();
    void fromCharWithoutSystemCodec();
    void fromCharDetectionDecides();
    void fromCharUnknownAnswerUsesSystemCodec();
    void fromCharDetectorFailureIsLatin1();

    void subtitleDeclared_data();
    void subtitleDeclared();
    void subtitleUtf16_data();
    void subtitleUtf16();
    void subtitleUtf16Limit_data();
    void subtitleUtf16Limit();
    void subtitleUndeclared_data();
    void subtitleUndeclared();
    void subtitleUndeclaredWithoutSingleton();
    void subtitleNullText_data();
    void subtitleNullText();

    void decodeWithCodec_data();
    void decodeWithCodec();

    void concurrentConversions();
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

void tst_MetaDataCodec::fromCharWithoutText_data()
{
    QTest::addColumn<bool>("nullText");
    QTest::newRow("empty") << false;
    QTest::newRow("null") << true;
}

void tst_MetaDataCodec::fromCharWithoutText()
{
    QFETCH(bool, nullText);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    CharsetDetectorSpy spy;
    MetaRig rig;
    QVERIFY(rig.session.fromCharToQstring(nullText ? nullptr : "").isNull());
    QCOMPARE(platform.getInstanceCount(), 0);
    QCOMPARE(spy.calls(), QStringList());
}

void tst_MetaDataCodec::fromCharWithoutSingleton()
{
    ScriptedPlatformControl platform;
    platform.setNullInstance(true);
    CharsetDetectorSpy spy;
    MetaRig rig;
    LogCapture log;
    QVERIFY(rig.session.fromCharToQstring("abc").isNull());
    ORVIC_COMPARE_LINES(log.lines(), QStringList{QStringLiteral(
        "E/OPMetaSession fromCharToQstring(#):fromCharToQstring SPPlatformControl::GetInstance() NULL")});
    QCOMPARE(platform.getInstanceCount(), 1);
    QCOMPARE(platform.releaseCount(), 0);
    QCOMPARE(spy.calls(), QStringList());
}

void tst_MetaDataCodec::fromCharWithoutSystemCodec_data()
{
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<int>("status");
    QTest::addColumn<QStringList>("logLines");
    QTest::newRow("empty item") << QByteArray() << 0
                                << QStringList{QStringLiteral(
                                       "D/OPMetaSession fromCharToQstring(#):fromCharToQstring syscodec is NULL,use ISO-8859-1")};
    QTest::newRow("unreadable item") << QByteArray("GB18030") << 7
                                     << QStringList{QStringLiteral("E/OPMetaSession fromCharToQstring(#):SPPlatformControl "
                                                                   "Vendor_Data_Read_String readData error 7 "),
                                                    QStringLiteral("D/OPMetaSession fromCharToQstring(#):fromCharToQstring "
                                                                   "syscodec is NULL,use ISO-8859-1")};
}

void tst_MetaDataCodec::fromCharWithoutSystemCodec()
{
    QFETCH(QByteArray, item);
    QFETCH(int, status);
    QFETCH(QStringList, logLines);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, item);
    platform.setReadStatus(status);
    CharsetDetectorSpy spy;
    spy.setAnswer("GB18030");
    MetaRig rig;
    LogCapture log;
    QCOMPARE(rig.session.fromCharToQstring("caf\xe9 \xd6\xd0"), QString::fromUtf8("café ÖÐ"));
    ORVIC_COMPARE_LINES(log.lines(), logLines);
    QCOMPARE(spy.calls(), QStringList());
    QCOMPARE(platform.getInstanceCount(), 1);
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::fromCharDetectionDecides()
{
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    CharsetDetectorSpy spy;
    spy.setAnswer("BIG5");
    MetaRig rig;
    const QString text = QString::fromUtf8("圖書館");
    const QByteArray bytes = encode("Big5", text);
    const QString converted = rig.session.fromCharToQstring(bytes.constData());
    QCOMPARE(converted, text);
    QVERIFY(converted != encodedAs("GB18030", bytes));
    QCOMPARE(spy.handedData(), QList<QByteArray>{bytes.repeated(5)});
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::fromCharUnknownAnswerUsesSystemCodec()
{
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    CharsetDetectorSpy spy;
    spy.setAnswer("");
    MetaRig rig;
    const QString text = QString::fromUtf8("中文歌曲");
    QCOMPARE(rig.session.fromCharToQstring(encode("GB18030", text).constData()), text);
    // Once for the switch, once for the unknown answer.
    QCOMPARE(platform.getInstanceCount(), 2);
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::fromCharDetectorFailureIsLatin1()
{
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    CharsetDetectorSpy spy;
    spy.setHandleResult(3);
    MetaRig rig;
    QCOMPARE(rig.session.fromCharToQstring("\xd6\xd0"), QString::fromLatin1("\xd6\xd0"));
    VERIFY_PAIRED(platform);
}

void tst_MetaDataCodec::subtitleDeclared_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("Latin-1") << 0u << QByteArray("caf\xe9") << QString::fromUtf8("café");
    QTest::newRow("Latin-1 of UTF-8 bytes") << 0u << QByteArray("caf\xc3\xa9") << QString::fromUtf8("cafÃ©");
    QTest::newRow("UTF-8") << 1u << QByteArray("caf\xc3\xa9 \xe4\xb8\xad") << QString::fromUtf8("café 中");
    QTest::newRow("invalid UTF-8") << 1u << QByteArray("a\xff\xfe\xc3") << QString::fromUtf8("a\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd");
    QTest::newRow("empty Latin-1") << 0u << QByteArray("") << QString::fromLatin1("");
}

void tst_MetaDataCodec::subtitleDeclared()
{
    QFETCH(uint, type);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    CharsetDetectorSpy spy;
    MetaRig rig;
    LogCapture log;
    QCOMPARE(rig.session.SubCharToQstring(bytes.constData(), QOrvicMetaDataSession::SubtStrType_e(type)), expected);
    QCOMPARE(platform.getInstanceCount(), 0);
    QCOMPARE(spy.calls(), QStringList());
    QCOMPARE(log.lines(), QStringList());
}

void tst_MetaDataCodec::subtitleUtf16_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("little-endian AB") << 2u << QByteArray("\x41\x00\x42\x00\x00\x00", 6) << QStringLiteral("AB");
    QTest::newRow("big-endian AB") << 3u << QByteArray("\x00\x41\x00\x42\x00\x00", 6) << QStringLiteral("AB");
    QTest::newRow("little-endian, stops at the first zero unit")
        << 2u << QByteArray("\x41\x00\x00\x00\x42\x00\x00\x00", 8) << QStringLiteral("A");
    QTest::newRow("little-endian, one zero byte is no end")
        << 2u << QByteArray("\x00\x41\x00\x00", 4) << QString(QChar(0x4100));
    QTest::newRow("big-endian, one zero byte is no end")
        << 3u << QByteArray("\x41\x00\x00\x00", 4) << QString(QChar(0x4100));
    QTest::newRow("little-endian CJK") << 2u << QByteArray("\x2d\x4e\x87\x65\x00\x00", 6) << QString::fromUtf8("中文");
    QTest::newRow("big-endian CJK") << 3u << QByteArray("\x4e\x2d\x65\x87\x00\x00", 6) << QString::fromUtf8("中文");
    QTest::newRow("little-endian surrogate pair") << 2u << QByteArray("\x3d\xd8\x00\xde\x00\x00", 6)
                                                  << QString::fromUtf8("\xf0\x9f\x98\x80");
    QTest::newRow("empty") << 3u << QByteArray("\x00\x00", 2) << QString();
}

void tst_MetaDataCodec::subtitleUtf16()
{
    QFETCH(uint, type);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    MetaRig rig;
    // Exactly the given bytes are readable.
    const std::vector<char> buffer(bytes.constData(), bytes.constData() + bytes.size());
    QCOMPARE(rig.session.SubCharToQstring(buffer.data(), QOrvicMetaDataSession::SubtStrType_e(type)), expected);
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataCodec::subtitleUtf16Limit_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<int>("units");
    QTest::addColumn<bool>("terminated");
    QTest::newRow("1500 little-endian units, terminated") << 2u << 1500 << true;
    QTest::newRow("1500 big-endian units, unterminated") << 3u << 1500 << false;
    QTest::newRow("exactly 1024 units, unterminated") << 2u << 1024 << false;
    QTest::newRow("1023 units, terminated") << 3u << 1023 << true;
}

void tst_MetaDataCodec::subtitleUtf16Limit()
{
    QFETCH(uint, type);
    QFETCH(int, units);
    QFETCH(bool, terminated);
    QString text;
    for (int i = 0; i < units; ++i)
        text.append(QChar(ushort(0x4e00 + i % 500)));
    std::vector<char> buffer;
    for (const QChar c : qAsConst(text)) {
        const char high = char(c.unicode() >> 8);
        const char low = char(c.unicode() & 0xff);
        buffer.push_back(type == 2 ? low : high);
        buffer.push_back(type == 2 ? high : low);
    }
    if (terminated) {
        buffer.push_back(0);
        buffer.push_back(0);
    }
    ScriptedPlatformControl platform;
    MetaRig rig;
    const QString converted = rig.session.SubCharToQstring(buffer.data(), QOrvicMetaDataSession::SubtStrType_e(type));
    QCOMPARE(converted.size(), qMin(units, 1024));
    QCOMPARE(converted, text.left(1024));
}

void tst_MetaDataCodec::subtitleUndeclared_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<QByteArray>("item");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("codec");
    QTest::newRow("type 7, GB18030 configured") << 7u << QByteArray("GB18030") << 0 << QStringLiteral("GB18030");
    QTest::newRow("type 4, Big5 configured") << 4u << QByteArray("Big5") << 0 << QStringLiteral("Big5");
    QTest::newRow("all ones, KOI8-R configured") << 0xffffffffu << QByteArray("KOI8-R") << 0 << QStringLiteral("KOI8-R");
    QTest::newRow("type 7, nothing configured") << 7u << QByteArray() << 0 << QStringLiteral("ISO-8859-1");
    QTest::newRow("type 7, unreadable item") << 7u << QByteArray("GB18030") << 9 << QStringLiteral("ISO-8859-1");
    QTest::newRow("type 7, unknown codec name") << 7u << QByteArray("no-such-codec") << 0 << QStringLiteral("ISO-8859-1");
}

void tst_MetaDataCodec::subtitleUndeclared()
{
    QFETCH(uint, type);
    QFETCH(QByteArray, item);
    QFETCH(int, status);
    QFETCH(QString, codec);
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, item);
    platform.setReadStatus(status);
    CharsetDetectorSpy spy;
    spy.setAnswer("BIG5");
    MetaRig rig;
    LogCapture log;
    const QByteArray bytes = encode("GB18030", QString::fromUtf8("字幕一行"));
    QCOMPARE(rig.session.SubCharToQstring(bytes.constData(), QOrvicMetaDataSession::SubtStrType_e(type)),
             encodedAs(codec.toLatin1().constData(), bytes));
    ORVIC_COMPARE_LINES(log.lines(), QStringList{QStringLiteral(
        "D/OPMetaSession SubCharToQstring(#):not match string type,using defalut language\n")});
    // No detection on this path.
    QCOMPARE(spy.calls(), QStringList());
    QCOMPARE(platform.getInstanceCount(), 1);
    VERIFY_PAIRED(platform);
    QCOMPARE(platform.readItems(), QList<int>{kSystemCodecItem});
}

void tst_MetaDataCodec::subtitleUndeclaredWithoutSingleton()
{
    ScriptedPlatformControl platform;
    platform.setNullInstance(true);
    MetaRig rig;
    QCOMPARE(rig.session.SubCharToQstring("\xd7\xd6", QOrvicMetaDataSession::SubtStrType_e(7)),
             QString::fromLatin1("\xd7\xd6"));
    QCOMPARE(platform.releaseCount(), 0);
}

void tst_MetaDataCodec::subtitleNullText_data()
{
    QTest::addColumn<uint>("type");
    for (uint type : {0u, 1u, 2u, 3u, 7u})
        QTest::addRow("type %u", type) << type;
}

void tst_MetaDataCodec::subtitleNullText()
{
    QFETCH(uint, type);
    ScriptedPlatformControl platform;
    MetaRig rig;
    QVERIFY(rig.session.SubCharToQstring(nullptr, QOrvicMetaDataSession::SubtStrType_e(type)).isNull());
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataCodec::decodeWithCodec_data()
{
    QTest::addColumn<QString>("codec");
    QTest::addColumn<bool>("nullBytes");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");
    QTest::newRow("ISO_8859_1 resolves") << QStringLiteral("ISO_8859_1") << false << QByteArray("caf\xe9")
                                         << QString::fromUtf8("café");
    QTest::newRow("UTF8 resolves") << QStringLiteral("UTF8") << false << QByteArray("caf\xc3\xa9")
                                   << QString::fromUtf8("café");
    QTest::newRow("EUC-KR resolves") << QStringLiteral("EUC-KR") << false << QByteArray("\xc7\xd1") << QString::fromUtf8("한");
    QTest::newRow("windows-1250 resolves") << QStringLiteral("windows-1250") << false << QByteArray("\x9a\x9d")
                                           << QString::fromUtf8("šť");
    QTest::newRow("UHC is unknown: Latin-1") << QStringLiteral("UHC") << false << QByteArray("\xc7\xd1")
                                             << QString::fromLatin1("\xc7\xd1");
    QTest::newRow("empty name: Latin-1") << QString() << false << QByteArray("\xe9") << QString::fromUtf8("é");
    QTest::newRow("Latin-1 stops at the NUL") << QStringLiteral("no-such") << false << QByteArray("ab\0cd", 5)
                                              << QStringLiteral("ab");
    QTest::newRow("codec input stops at the NUL") << QStringLiteral("UTF8") << false << QByteArray("ab\0cd", 5)
                                                  << QStringLiteral("ab");
    QTest::newRow("result cut at the first NUL character") << QStringLiteral("UTF-7") << false
                                                           << QByteArray("A+AAA-B") << QStringLiteral("A");
    QTest::newRow("broken GB18030") << QStringLiteral("GB18030") << false << QByteArray("a\x81")
                                    << encodedAs("GB18030", "a\x81");
    QTest::newRow("null bytes, known codec") << QStringLiteral("UTF8") << true << QByteArray() << QString();
    QTest::newRow("null bytes, unknown codec") << QStringLiteral("UHC") << true << QByteArray() << QString();
}

void tst_MetaDataCodec::decodeWithCodec()
{
    QFETCH(QString, codec);
    QFETCH(bool, nullBytes);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    const QString decoded = QOrvicMetaData::decodeWithCodec(codec, nullBytes ? nullptr : bytes.constData());
    QCOMPARE(decoded, expected);
    QCOMPARE(decoded.isNull(), expected.isNull());
}

void tst_MetaDataCodec::concurrentConversions()
{
    // The subtitle thread and the session thread convert at the same time.
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    MetaRig rig;
    const QString chinese = QString::fromUtf8("今天晚上我们一起去看电影，然后在河边散步。");
    const QByteArray gb = encode("GB18030", chinese);
    const QByteArray utf16 = QByteArray(reinterpret_cast<const char *>(chinese.utf16()), chinese.size() * 2)
                             + QByteArray(2, '\0');
    std::atomic<int> wrong{0};
    std::thread subtitles([&] {
        for (int i = 0; i < 50; ++i) {
            if (rig.session.SubCharToQstring(utf16.constData(), QOrvicMetaDataSession::SubtStr_Utf16LE) != chinese)
                ++wrong;
        }
    });
    for (int i = 0; i < 50; ++i) {
        if (rig.session.fromCharToQstring(gb.constData()) != chinese)
            ++wrong;
    }
    subtitles.join();
    QCOMPARE(wrong.load(), 0);
    VERIFY_PAIRED(platform);
}

QTEST_GUILESS_MAIN(tst_MetaDataCodec)
#include "tst_metadatacodec.moc"
