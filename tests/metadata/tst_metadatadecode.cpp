// Text encoding: the conversions of engine text to QString (tags, subtitles,
// a named codec), with and without detection, and from several threads.
#include "charsetdetectorspy.h"
#include "codectestutil.h"
#include "metadatatestutil.h"
#include "qorvicmetadata_p.h"

#include <QtCore/QTextCodec>
#include <QtTest/QtTest>

#include <thread>
#include <vector>

using namespace orvictest;

namespace {
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
} // namespace

class tst_MetaDataDecode : public QObject
{
    Q_OBJECT

private Q_SLOTS:
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

void tst_MetaDataDecode::fromCharWithoutText_data()
{
    QTest::addColumn<bool>("nullText");
    QTest::newRow("empty") << false;
    QTest::newRow("null") << true;
}

void tst_MetaDataDecode::fromCharWithoutText()
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

void tst_MetaDataDecode::fromCharWithoutSingleton()
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

void tst_MetaDataDecode::fromCharWithoutSystemCodec_data()
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

void tst_MetaDataDecode::fromCharWithoutSystemCodec()
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

void tst_MetaDataDecode::fromCharDetectionDecides()
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

void tst_MetaDataDecode::fromCharUnknownAnswerUsesSystemCodec()
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

void tst_MetaDataDecode::fromCharDetectorFailureIsLatin1()
{
    ScriptedPlatformControl platform;
    platform.setVendorText(kSystemCodecItem, "GB18030");
    CharsetDetectorSpy spy;
    spy.setHandleResult(3);
    MetaRig rig;
    QCOMPARE(rig.session.fromCharToQstring("\xd6\xd0"), QString::fromLatin1("\xd6\xd0"));
    VERIFY_PAIRED(platform);
}

void tst_MetaDataDecode::subtitleDeclared_data()
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

void tst_MetaDataDecode::subtitleDeclared()
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

void tst_MetaDataDecode::subtitleUtf16_data()
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

void tst_MetaDataDecode::subtitleUtf16()
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

void tst_MetaDataDecode::subtitleUtf16Limit_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<int>("units");
    QTest::addColumn<bool>("terminated");
    QTest::newRow("1500 little-endian units, terminated") << 2u << 1500 << true;
    QTest::newRow("1500 big-endian units, unterminated") << 3u << 1500 << false;
    QTest::newRow("exactly 1024 units, unterminated") << 2u << 1024 << false;
    QTest::newRow("1023 units, terminated") << 3u << 1023 << true;
}

void tst_MetaDataDecode::subtitleUtf16Limit()
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

void tst_MetaDataDecode::subtitleUndeclared_data()
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

void tst_MetaDataDecode::subtitleUndeclared()
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

void tst_MetaDataDecode::subtitleUndeclaredWithoutSingleton()
{
    ScriptedPlatformControl platform;
    platform.setNullInstance(true);
    MetaRig rig;
    QCOMPARE(rig.session.SubCharToQstring("\xd7\xd6", QOrvicMetaDataSession::SubtStrType_e(7)),
             QString::fromLatin1("\xd7\xd6"));
    QCOMPARE(platform.releaseCount(), 0);
}

void tst_MetaDataDecode::subtitleNullText_data()
{
    QTest::addColumn<uint>("type");
    for (uint type : {0u, 1u, 2u, 3u, 7u})
        QTest::addRow("type %u", type) << type;
}

void tst_MetaDataDecode::subtitleNullText()
{
    QFETCH(uint, type);
    ScriptedPlatformControl platform;
    MetaRig rig;
    QVERIFY(rig.session.SubCharToQstring(nullptr, QOrvicMetaDataSession::SubtStrType_e(type)).isNull());
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_MetaDataDecode::decodeWithCodec_data()
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

void tst_MetaDataDecode::decodeWithCodec()
{
    QFETCH(QString, codec);
    QFETCH(bool, nullBytes);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    const QString decoded = QOrvicMetaData::decodeWithCodec(codec, nullBytes ? nullptr : bytes.constData());
    QCOMPARE(decoded, expected);
    QCOMPARE(decoded.isNull(), expected.isNull());
}

void tst_MetaDataDecode::concurrentConversions()
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

QTEST_GUILESS_MAIN(tst_MetaDataDecode)
#include "tst_metadatadecode.moc"
