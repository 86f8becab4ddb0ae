// Subtitle lines of a declared encoding: the text is built from the engine's
// bytes as they are (a byte-order mark is a unit of the line), and a size the
// engine gives is never read past.
#include "metadatatestutil.h"

#include <QtTest/QtTest>

#include <climits>
#include <cstring>
#include <vector>

using namespace orvictest;
using Session = QOrvicMetaDataSession;

namespace {
QString units(std::initializer_list<ushort> list)
{
    QString text;
    for (ushort u : list)
        text.append(QChar(u));
    return text;
}

// The bytes in a heap block of exactly their size, so that AddressSanitizer
// catches a read past the end.
std::vector<char> exactBlock(const QByteArray &bytes)
{
    return std::vector<char>(bytes.constData(), bytes.constData() + bytes.size());
}
} // namespace

class tst_SubtitleText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void byteOrderMarkIsKept_data();
    void byteOrderMarkIsKept();
    void sizeBoundsTheLine_data();
    void sizeBoundsTheLine();
    void unknownSizeStopsAtEndMark_data();
    void unknownSizeStopsAtEndMark();
    void sizeBeyondTheUnitLimit();
};

void tst_SubtitleText::byteOrderMarkIsKept_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("expected");

    // Without a size, and with the terminator inside the given size.
    QTest::newRow("LE, FEFF first") << 2u << QByteArray("\xff\xfe" "A\0B\0\0\0", 8)
                                    << units({0xfeff, 'A', 'B'});
    QTest::newRow("LE, FFFE first: not swapped") << 2u << QByteArray("\xfe\xff" "A\0B\0\0\0", 8)
                                                 << units({0xfffe, 'A', 'B'});
    QTest::newRow("BE, FEFF first") << 3u << QByteArray("\xfe\xff\0A\0B\0\0", 8)
                                    << units({0xfeff, 'A', 'B'});
    QTest::newRow("BE, FFFE first: not swapped") << 3u << QByteArray("\xff\xfe\0A\0B\0\0", 8)
                                                 << units({0xfffe, 'A', 'B'});
    QTest::newRow("LE, only a mark") << 2u << QByteArray("\xff\xfe\0\0", 4) << units({0xfeff});
    QTest::newRow("BE, two marks") << 3u << QByteArray("\xfe\xff\xfe\xff\0A\0\0", 8)
                                   << units({0xfeff, 0xfeff, 'A'});
    QTest::newRow("LE, mark inside the line") << 2u << QByteArray("A\0\xff\xfe" "B\0\0\0", 8)
                                              << units({'A', 0xfeff, 'B'});
}

void tst_SubtitleText::byteOrderMarkIsKept()
{
    QFETCH(uint, type);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    MetaRig rig;
    const std::vector<char> block = exactBlock(bytes);
    const auto encoding = Session::SubtStrType_e(type);
    QCOMPARE(rig.session.SubCharToQstring(block.data(), encoding), expected);
    QCOMPARE(rig.session.SubCharToQstring(block.data(), encoding, int(block.size())), expected);
    QCOMPARE(platform.getInstanceCount(), 0);
}

void tst_SubtitleText::sizeBoundsTheLine_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("expected");

    // UTF-16 lines without a terminator: the size is all there is.
    QTest::newRow("LE, even size, no end mark") << 2u << QByteArray("A\0B\0C\0", 6) << 6 << QStringLiteral("ABC");
    QTest::newRow("BE, even size, no end mark") << 3u << QByteArray("\0A\0B\0C", 6) << 6 << QStringLiteral("ABC");
    QTest::newRow("LE, size shorter than the text") << 2u << QByteArray("A\0B\0C\0", 6) << 4 << QStringLiteral("AB");
    QTest::newRow("LE, odd size: the half unit is dropped") << 2u << QByteArray("A\0B\0C", 5) << 5
                                                            << QStringLiteral("AB");
    QTest::newRow("BE, odd size: the half unit is dropped") << 3u << QByteArray("\0A\0B\0", 5) << 5
                                                            << QStringLiteral("AB");
    QTest::newRow("LE, size 1: no whole unit") << 2u << QByteArray("A", 1) << 1 << QString();
    QTest::newRow("BE, size 2, mark only") << 3u << QByteArray("\xfe\xff", 2) << 2 << units({0xfeff});
    QTest::newRow("LE, end mark before the size") << 2u << QByteArray("A\0\0\0B\0", 6) << 6 << QStringLiteral("A");
    // Byte texts: the size ends them as a NUL would.
    QTest::newRow("UTF-8, no NUL") << 1u << QByteArray("Hello") << 5 << QStringLiteral("Hello");
    QTest::newRow("UTF-8, size shorter than the text") << 1u << QByteArray("Hello") << 3 << QStringLiteral("Hel");
    QTest::newRow("UTF-8, NUL before the size") << 1u << QByteArray("Hi\0yo", 5) << 5 << QStringLiteral("Hi");
    QTest::newRow("Latin-1, no NUL") << 0u << QByteArray("caf\xe9") << 4 << QStringLiteral("caf\u00e9");
    QTest::newRow("Latin-1, size 1") << 0u << QByteArray("caf\xe9") << 1 << QStringLiteral("c");
}

void tst_SubtitleText::sizeBoundsTheLine()
{
    QFETCH(uint, type);
    QFETCH(QByteArray, bytes);
    QFETCH(int, length);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    MetaRig rig;
    // Exactly the given bytes are readable: a read past them is a sanitizer error.
    const std::vector<char> block = exactBlock(bytes);
    QCOMPARE(rig.session.SubCharToQstring(block.data(), Session::SubtStrType_e(type), length), expected);
}

void tst_SubtitleText::unknownSizeStopsAtEndMark_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<int>("length");
    QTest::addColumn<QString>("expected");

    // A size of 0 or less tells nothing: the end mark ends the line, as without a size.
    for (int length : {0, -1, -2, INT_MIN}) {
        QTest::addRow("LE, size %d", length) << 2u << QByteArray("A\0B\0\0\0", 6) << length << QStringLiteral("AB");
        QTest::addRow("BE, size %d", length) << 3u << QByteArray("\0A\0B\0\0", 6) << length << QStringLiteral("AB");
        QTest::addRow("UTF-8, size %d", length) << 1u << QByteArray("Hi\0", 3) << length << QStringLiteral("Hi");
    }
    // A size larger than the line does not read past its end mark.
    QTest::newRow("LE, size INT_MAX") << 2u << QByteArray("A\0B\0\0\0", 6) << INT_MAX << QStringLiteral("AB");
    QTest::newRow("UTF-8, size INT_MAX") << 1u << QByteArray("Hi\0", 3) << INT_MAX << QStringLiteral("Hi");
}

void tst_SubtitleText::unknownSizeStopsAtEndMark()
{
    QFETCH(uint, type);
    QFETCH(QByteArray, bytes);
    QFETCH(int, length);
    QFETCH(QString, expected);
    ScriptedPlatformControl platform;
    MetaRig rig;
    const std::vector<char> block = exactBlock(bytes);
    QCOMPARE(rig.session.SubCharToQstring(block.data(), Session::SubtStrType_e(type), length), expected);
}

void tst_SubtitleText::sizeBeyondTheUnitLimit()
{
    // 1500 units without an end mark and their full size: the line is still
    // cut at 1024 units.
    QString text;
    std::vector<char> block;
    for (int i = 0; i < 1500; ++i) {
        const ushort u = ushort(0x4e00 + i % 300);
        text.append(QChar(u));
        block.push_back(char(u & 0xff));
        block.push_back(char(u >> 8));
    }
    ScriptedPlatformControl platform;
    MetaRig rig;
    const QString line = rig.session.SubCharToQstring(block.data(), Session::SubtStr_Utf16LE, int(block.size()));
    QCOMPARE(line.size(), 1024);
    QCOMPARE(line, text.left(1024));
}

QTEST_GUILESS_MAIN(tst_SubtitleText)
#include "tst_subtitletext.moc"
