// The media made by scripts/make-samples.sh and the texts written into them.
#ifndef ORVICTEST_SAMPLES_H
#define ORVICTEST_SAMPLES_H

#include <QtCore/QByteArray>
#include <QtCore/QDir>
#include <QtCore/QString>
#include <QtCore/QTextCodec>

namespace samples {

inline QString dir()
{
    const QString env = qEnvironmentVariable("ORVIC_SAMPLES_DIR");
    return env.isEmpty() ? QStringLiteral(ORVIC_SAMPLES_DIR) : env;
}

inline QString path(const QString &name)
{
    return QDir(dir()).filePath(name);
}

// `text` in a legacy charset, converted by Qt, independently of the iconv
// that made the files.
inline QByteArray encoded(const char *charset, const QString &text)
{
    QTextCodec *codec = QTextCodec::codecForName(charset);
    Q_ASSERT(codec);
    return codec->fromUnicode(text);
}

// tagged-gbk.mp3: ID3v2.3 frames flagged Latin-1 holding GBK.
inline QString gbkTitle() { return QStringLiteral("春天的故事在这里开始"); }
inline QString gbkArtist() { return QStringLiteral("北京爱乐乐团与合唱团"); }
inline QString gbkAlbum() { return QStringLiteral("中国民歌精选第二辑"); }
inline QString gbkComment() { return QStringLiteral("这是一段用于测试的中文注释"); }
inline QString gbkGenre() { return QStringLiteral("流行音乐"); }

// tagged-gbk.mp3 and tagged-v1only.mp3: ID3v1 in windows-1251.
inline QString v1Title() { return QStringLiteral("Тихая ночь над рекой"); }
inline QString v1Artist() { return QStringLiteral("Хор Московской филармонии"); }
inline QString v1Album() { return QStringLiteral("Русские народные песни"); }
inline QString v1Comment() { return QStringLiteral("Песня о родной земле"); }

// tagged-unicode.mp3: ID3v2.4.
inline QString unicodeTitle() { return QStringLiteral("Привет, 世界: a title in UTF-8"); }
inline QString unicodeAlbum() { return QStringLiteral("Ünïcödé Album"); }

// tagged-long.mp3: "Long title 001 Long title 002 ... Long title 020 ".
inline QByteArray longTitle()
{
    QByteArray title;
    for (int i = 1; i <= 20; ++i)
        title += QByteArray("Long title ") + QByteArray::number(i).rightJustified(3, '0') + ' ';
    return title;
}

} // namespace samples

#endif // ORVICTEST_SAMPLES_H
