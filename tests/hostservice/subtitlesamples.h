// Subtitle texts in the legacy codepages met on USB sticks, shared by the
// unit tests of the charset decision and the end-to-end tests of subtitle
// files: each sample is written in its codepage by the test itself.
#ifndef ORVICTEST_SUBTITLESAMPLES_H
#define ORVICTEST_SUBTITLESAMPLES_H

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTextCodec>
#include <QtCore/QVector>

namespace subtitlesamples {

struct Sample
{
    const char *name;
    const char *codepage; // as written; "UTF-8", "UTF-8 BOM", "UTF-16LE BOM", "UTF-16BE BOM" or a codec name
    QStringList lines;    // one cue each
};

inline QVector<Sample> samples()
{
    const QStringList korean = {QStringLiteral("안녕하세요, 만나서 반갑습니다."),
                                QStringLiteral("오늘 날씨가 정말 좋네요."),
                                QStringLiteral("우리는 내일 서울에 갑니다."),
                                QStringLiteral("이 영화는 정말 재미있어요.")};
    const QStringList simplified = {QStringLiteral("你好，很高兴见到你。"), QStringLiteral("今天天气真好，我们去公园散步吧。"),
                                    QStringLiteral("我们明天去北京看长城。"), QStringLiteral("这部电影非常有意思。")};
    const QStringList traditional = {QStringLiteral("你好，很高興見到你。"), QStringLiteral("今天天氣真好，我們去公園散步吧。"),
                                     QStringLiteral("我們明天去臺北看故宮。"), QStringLiteral("這部電影非常有意思。")};
    const QStringList russian = {QStringLiteral("Привет, рад тебя видеть."),
                                 QStringLiteral("Сегодня очень хорошая погода."),
                                 QStringLiteral("Мы завтра поедем в Москву."),
                                 QStringLiteral("Этот фильм очень интересный.")};
    const QStringList polish = {QStringLiteral("Cześć, miło cię widzieć."),
                                QStringLiteral("Dzisiaj jest bardzo ładna pogoda."),
                                QStringLiteral("Jutro jedziemy do Łodzi, żeby zobaczyć źródło."),
                                QStringLiteral("Ten film jest naprawdę ciekawy.")};
    const QStringList turkish = {QStringLiteral("Merhaba, seni gördüğüme sevindim."),
                                 QStringLiteral("Bugün hava çok güzel, değil mi?"),
                                 QStringLiteral("Yarın İstanbul'a gidiyoruz."),
                                 QStringLiteral("Bu film gerçekten çok ilginç, şüphesiz.")};
    return {
        {"Korean CP949", "CP949", korean},
        {"Simplified Chinese GBK", "GBK", simplified},
        {"Traditional Chinese Big5", "Big5", traditional},
        {"Russian windows-1251", "windows-1251", russian},
        {"Polish windows-1250", "windows-1250", polish},
        {"Turkish windows-1254", "windows-1254", turkish},
        {"UTF-8", "UTF-8", korean},
        {"UTF-8 with BOM", "UTF-8 BOM", russian},
        {"UTF-16 LE with BOM", "UTF-16LE BOM", simplified},
        {"UTF-16 BE with BOM", "UTF-16BE BOM", polish},
    };
}

// `text` as the bytes of a file written in `codepage`.
inline QByteArray encode(const QString &text, const QByteArray &codepage)
{
    if (codepage == "UTF-8")
        return text.toUtf8();
    if (codepage == "UTF-8 BOM")
        return QByteArray("\xEF\xBB\xBF") + text.toUtf8();
    QByteArray bytes;
    QByteArray codec = codepage;
    if (codepage == "UTF-16LE BOM") {
        bytes = "\xFF\xFE";
        codec = "UTF-16LE";
    } else if (codepage == "UTF-16BE BOM") {
        bytes = "\xFE\xFF";
        codec = "UTF-16BE";
    }
    QTextCodec *c = QTextCodec::codecForName(codec);
    return c ? bytes + c->fromUnicode(text) : QByteArray();
}

// An SRT file of `lines`, cue i from `firstMs` + i * `stepMs` for `lengthMs`.
inline QString srt(const QStringList &lines, int firstMs = 500, int stepMs = 1000, int lengthMs = 600)
{
    const auto clock = [](int ms) {
        return QStringLiteral("%1:%2:%3,%4")
                .arg(ms / 3600000, 2, 10, QLatin1Char('0'))
                .arg(ms / 60000 % 60, 2, 10, QLatin1Char('0'))
                .arg(ms / 1000 % 60, 2, 10, QLatin1Char('0'))
                .arg(ms % 1000, 3, 10, QLatin1Char('0'));
    };
    QString text;
    for (int i = 0; i < lines.size(); ++i) {
        const int start = firstMs + i * stepMs;
        text += QStringLiteral("%1\r\n%2 --> %3\r\n%4\r\n\r\n")
                        .arg(i + 1)
                        .arg(clock(start), clock(start + lengthMs), lines[i]);
    }
    return text;
}

// A Korean SAMI file with a Korean and an English class, in CP949: two cues
// each, from 300 to 900 ms and from 1200 to 1800 ms.
inline QByteArray koreanSami()
{
    const QString text = QStringLiteral(
            "<SAMI>\r\n<HEAD>\r\n<TITLE>film</TITLE>\r\n<STYLE TYPE=\"text/css\">\r\n<!--\r\n"
            "P { margin-left:8pt; margin-right:8pt; text-align:center; }\r\n"
            ".KRCC { Name:한국어; lang:ko-KR; SAMIType:CC; }\r\n"
            ".ENCC { Name:English; lang:en-US; SAMIType:CC; }\r\n-->\r\n</STYLE>\r\n</HEAD>\r\n<BODY>\r\n"
            "<SYNC Start=300><P Class=KRCC>안녕하세요,<br>만나서 반갑습니다.\r\n"
            "<SYNC Start=300><P Class=ENCC>Hello,<br>nice to meet you.\r\n"
            "<SYNC Start=900><P Class=KRCC>&nbsp;\r\n<SYNC Start=900><P Class=ENCC>&nbsp;\r\n"
            "<SYNC Start=1200><P Class=KRCC><font color=\"#ffff00\">오늘 날씨가 정말 좋네요.</font>\r\n"
            "<SYNC Start=1200><P Class=ENCC>The weather is lovely today.\r\n"
            "<SYNC Start=1800><P Class=KRCC>&nbsp;\r\n<SYNC Start=1800><P Class=ENCC>&nbsp;\r\n"
            "</BODY>\r\n</SAMI>\r\n");
    return QTextCodec::codecForName("CP949")->fromUnicode(text);
}

} // namespace subtitlesamples

#endif // ORVICTEST_SUBTITLESAMPLES_H
