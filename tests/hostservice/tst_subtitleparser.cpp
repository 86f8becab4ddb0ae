// Subtitle file formats as plain timed cues; SAMI language classes as tracks;
// invalid and overlapping timestamps.
#include <subtitleparser.h>

#include <QtTest/QtTest>

Q_DECLARE_METATYPE(SubtitleFormat)
Q_DECLARE_METATYPE(QVector<SubtitleCue>)

namespace {
// "start-end text" per cue (end -1: until the next), tracks separated by "|".
QStringList describe(const QList<SubtitleTrack> &tracks)
{
    QStringList out;
    for (const SubtitleTrack &track : tracks) {
        if (!out.isEmpty())
            out.append(QStringLiteral("|"));
        out.append(QStringLiteral("[%1]").arg(QString::fromLatin1(track.language)));
        for (const SubtitleCue &cue : track.cues)
            out.append(QStringLiteral("%1-%2 %3").arg(cue.startMs).arg(cue.endMs).arg(cue.text));
    }
    return out;
}
} // namespace

class tst_SubtitleParser : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void clock_data();
    void clock();
    void formats_data();
    void formats();
    void microDvdTakesTheVideoRate();
    void normalised_data();
    void normalised();
};

void tst_SubtitleParser::clock_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<qint64>("ms");
    QTest::newRow("srt") << "01:02:03,456" << qint64(3723456);
    QTest::newRow("vtt") << "01:02:03.456" << qint64(3723456);
    QTest::newRow("vtt without hours") << "02:03.456" << qint64(123456);
    QTest::newRow("ass centiseconds") << "0:00:01.50" << qint64(1500);
    QTest::newRow("no fraction") << "00:00:07" << qint64(7000);
    QTest::newRow("minutes past 59") << "00:61:00,000" << qint64(-1);
    QTest::newRow("letters") << "00:0a:00,000" << qint64(-1);
    QTest::newRow("negative") << "-00:00:01,000" << qint64(-1);
    QTest::newRow("empty") << "" << qint64(-1);
}

void tst_SubtitleParser::clock()
{
    QFETCH(QString, text);
    QFETCH(qint64, ms);
    QCOMPARE(subtitleparser::parseClock(text), ms);
}

void tst_SubtitleParser::formats_data()
{
    QTest::addColumn<SubtitleFormat>("format");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("cues");

    QTest::newRow("srt with markup and two lines")
            << SubtitleFormat::Srt
            << "1\r\n00:00:00,500 --> 00:00:01,500\r\n<i>First</i> line\r\n\r\n"
               "2\r\n00:00:02,000 --> 00:00:03,000\r\n{\\an8}Top &amp; <font color=\"red\">red</font>\r\nsecond row\r\n"
            << QStringList({"[]", "500-1500 First line", "2000-3000 Top & red\nsecond row"});
    QTest::newRow("srt invalid timestamps dropped, the rest stays")
            << SubtitleFormat::Srt
            << "1\n00:00:0x,500 --> 00:00:01,500\nbad start\n\n2\n00:00:02,000 --> 00:00:01,000\nends before start\n\n"
               "3\n00:00:04,000 --> 00:00:05,000\ngood\n"
            << QStringList({"[]", "4000-5000 good"});
    QTest::newRow("webvtt")
            << SubtitleFormat::WebVtt
            << "WEBVTT\n\nNOTE a comment\n\ncue-1\n00:01.000 --> 00:02.000 align:start\n<v Bob>Hello</v>\n\n"
               "00:00:03.000 --> 00:00:04.500\nBye\n"
            << QStringList({"[]", "1000-2000 Hello", "3000-4500 Bye"});
    QTest::newRow("ass")
            << SubtitleFormat::Ass
            << "[Script Info]\nTitle: x\n\n[V4+ Styles]\nFormat: Name, Fontname\nStyle: Default,Arial\n\n[Events]\n"
               "Format: Layer, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
               "Dialogue: 0,0:00:01.00,0:00:02.50,Default,,0,0,0,,{\\i1}Hello{\\i0}, world\\Nnext line\n"
               "Comment: 0,0:00:03.00,0:00:04.00,Default,,0,0,0,,not shown\n"
            << QStringList({"[]", "1000-2500 Hello, world\nnext line"});
    QTest::newRow("ssa with its own field order")
            << SubtitleFormat::Ass
            << "[Events]\nFormat: Marked, Start, End, Style, Name, MarginL, MarginR, MarginV, Effect, Text\n"
               "Dialogue: Marked=0,0:00:05.10,0:00:06.00,*Default,,0000,0000,0000,,Old style\n"
            << QStringList({"[]", "5100-6000 Old style"});
    QTest::newRow("microdvd at its own rate")
            << SubtitleFormat::MicroDvd
            << "{1}{1}25.000\n{25}{50}First|{y:i}second\n{100}{}/Open ended\n"
            << QStringList({"[]", "1000-2000 First\nsecond", "4000--1 Open ended"});
    QTest::newRow("sami with two language classes")
            << SubtitleFormat::Sami
            << "<SAMI>\n<HEAD>\n<STYLE TYPE=\"text/css\">\n<!--\nP { margin-left:8pt; }\n"
               ".KRCC { Name:Korean; lang:ko-KR; SAMIType:CC; }\n.ENCC { Name:English; lang:en-US; SAMIType:CC; }\n"
               "-->\n</STYLE>\n</HEAD>\n<BODY>\n"
               "<SYNC Start=500><P Class=KRCC>안녕<br>하세요\n<SYNC Start=500><P Class=ENCC>Hello\n"
               "<SYNC Start=1500><P Class=KRCC>&nbsp;\n<SYNC Start=1500><P Class=ENCC>&nbsp;\n"
               "<SYNC Start=2000><P Class=KRCC><font color=\"#ffff00\">둘째</font>\n"
               "<SYNC Start=2000><P Class=ENCC>Second\n</BODY>\n</SAMI>\n"
            << QStringList({"[ko]", "500-1500 안녕\n하세요", "2000--1 둘째", "|", "[en]", "500-1500 Hello",
                            "2000--1 Second"});
    QTest::newRow("sami with one unnamed class")
            << SubtitleFormat::Sami
            << "<SAMI><BODY><SYNC Start=1000><P>One<SYNC Start=2000><P>&nbsp;<SYNC Start=3000><P>Two</BODY></SAMI>"
            << QStringList({"[]", "1000-2000 One", "3000--1 Two"});
    QTest::newRow("sami class of no cue is no track")
            << SubtitleFormat::Sami
            << "<SAMI><HEAD><STYLE>.KRCC { lang:ko; } .JPCC { lang:ja; }</STYLE></HEAD><BODY>"
               "<SYNC Start=10><P Class=KRCC>가</BODY></SAMI>"
            << QStringList({"[ko]", "10--1 가"});
    QTest::newRow("nothing timed") << SubtitleFormat::Srt << "just some text\nwithout cues\n" << QStringList();
    QTest::newRow("empty") << SubtitleFormat::Sami << "" << QStringList();
}

void tst_SubtitleParser::formats()
{
    QFETCH(SubtitleFormat, format);
    QFETCH(QString, text);
    QFETCH(QStringList, cues);
    QCOMPARE(describe(subtitleparser::parse(format, text)), cues);
}

void tst_SubtitleParser::microDvdTakesTheVideoRate()
{
    const QString text = QStringLiteral("{50}{100}Line\n");
    QCOMPARE(describe(subtitleparser::parse(SubtitleFormat::MicroDvd, text, 50.0)),
             QStringList({"[]", "1000-2000 Line"}));
    // Without a rate of the video or the file: 23.976 frames a second.
    QCOMPARE(describe(subtitleparser::parse(SubtitleFormat::MicroDvd, text)), QStringList({"[]", "2085-4171 Line"}));
}

void tst_SubtitleParser::normalised_data()
{
    QTest::addColumn<QVector<SubtitleCue>>("in");
    QTest::addColumn<QVector<SubtitleCue>>("out");
    QTest::newRow("sorted by start")
            << QVector<SubtitleCue>({{3000, 4000, "b"}, {1000, 2000, "a"}})
            << QVector<SubtitleCue>({{1000, 2000, "a"}, {3000, 4000, "b"}});
    QTest::newRow("overlap ends the earlier at the later")
            << QVector<SubtitleCue>({{1000, 5000, "long"}, {2000, 3000, "short"}})
            << QVector<SubtitleCue>({{1000, 2000, "long"}, {2000, 3000, "short"}});
    QTest::newRow("same start merged")
            << QVector<SubtitleCue>({{1000, 2000, "top"}, {1000, 2500, "bottom"}})
            << QVector<SubtitleCue>({{1000, 2500, "top\nbottom"}});
    QTest::newRow("invalid and empty dropped")
            << QVector<SubtitleCue>({{-5, 100, "negative"}, {500, 500, "zero length"}, {600, 700, ""},
                                     {800, 900, "kept"}})
            << QVector<SubtitleCue>({{800, 900, "kept"}});
    QTest::newRow("open ended runs to the next")
            << QVector<SubtitleCue>({{1000, -1, "a"}, {4000, -1, "b"}})
            << QVector<SubtitleCue>({{1000, 4000, "a"}, {4000, -1, "b"}});
}

void tst_SubtitleParser::normalised()
{
    QFETCH(QVector<SubtitleCue>, in);
    QFETCH(QVector<SubtitleCue>, out);
    QCOMPARE(subtitleparser::normalised(in), out);
}

QTEST_GUILESS_MAIN(tst_SubtitleParser)
#include "tst_subtitleparser.moc"
