// Subtitle files beside a medium: which names belong to it, their order and
// their language tags.
#include <subtitlefiles.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

namespace {
// "name [language]" per file found, in order.
QStringList describe(const QList<SubtitleFile> &files, const QString &folder)
{
    QStringList out;
    for (const SubtitleFile &f : files) {
        const QString name = f.path.mid(folder.size() + 1);
        out.append(QStringLiteral("%1 [%2]").arg(name, QString::fromLatin1(f.language)));
    }
    return out;
}

bool touch(const QString &path, const QByteArray &content = "1\n00:00:01,000 --> 00:00:02,000\nx\n")
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(content) == content.size();
}
} // namespace

class tst_SubtitleFiles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void matchSiblings_data();
    void matchSiblings();
    void languageCode_data();
    void languageCode();
    void formats();
    void discoverSkipsFoldersAndOtherMedia();
    void discoverNameWithSpacesAndNonAscii();
    void manyFilesAreBounded();
};

void tst_SubtitleFiles::matchSiblings_data()
{
    QTest::addColumn<QString>("medium");
    QTest::addColumn<QStringList>("names");
    QTest::addColumn<QStringList>("found");

    QTest::newRow("none") << "film.mp4" << QStringList({"film.mp4", "other.srt", "film.txt"}) << QStringList();
    QTest::newRow("one srt") << "film.mp4" << QStringList({"film.mp4", "film.srt"}) << QStringList({"film.srt [und]"});
    QTest::newRow("every format, untagged, in format order")
            << "film.mp4"
            << QStringList({"film.vtt", "film.sub", "film.ssa", "film.ass", "film.sami", "film.smi", "film.srt"})
            << QStringList({"film.srt [und]", "film.smi [und]", "film.sami [und]", "film.ass [und]",
                            "film.ssa [und]", "film.sub [und]", "film.vtt [und]"});
    QTest::newRow("extensions in any case")
            << "film.mp4" << QStringList({"film.SRT", "film.Smi", "film.ko.SrT"})
            << QStringList({"film.SRT [und]", "film.Smi [und]", "film.ko.SrT [ko]"});
    QTest::newRow("untagged first, then by tag")
            << "film.mp4" << QStringList({"film.pt-BR.srt", "film.eng.srt", "film.ko.srt", "film.srt"})
            << QStringList({"film.srt [und]", "film.eng.srt [en]", "film.ko.srt [ko]", "film.pt-BR.srt [pt]"});
    QTest::newRow("tag order ignores case")
            << "film.mp4" << QStringList({"film.Fr.srt", "film.de.srt", "film.EN.srt"})
            << QStringList({"film.de.srt [de]", "film.EN.srt [en]", "film.Fr.srt [fr]"});
    QTest::newRow("tag that is no language")
            << "film.mp4" << QStringList({"film.forced.srt", "film.x1.srt"})
            << QStringList({"film.forced.srt [und]", "film.x1.srt [und]"});
    QTest::newRow("base name must match exactly")
            << "film.mp4" << QStringList({"Film.srt", "film2.srt", "films.srt", "film .srt", "film..srt"})
            << QStringList();
    QTest::newRow("dotted base name")
            << "my.film.mkv" << QStringList({"my.film.srt", "my.srt", "my.film.ru.ass"})
            << QStringList({"my.film.srt [und]", "my.film.ru.ass [ru]"});
    QTest::newRow("medium of no extension") << "film" << QStringList({"film.srt"}) << QStringList({"film.srt [und]"});
    QTest::newRow("the medium itself is no subtitle") << "film.sub" << QStringList({"film.sub", "film.srt"})
                                                       << QStringList({"film.srt [und]"});
}

void tst_SubtitleFiles::matchSiblings()
{
    QFETCH(QString, medium);
    QFETCH(QStringList, names);
    QFETCH(QStringList, found);
    QCOMPARE(describe(subtitlefiles::matchSiblings("/media/usb", medium, names), "/media/usb"), found);
}

void tst_SubtitleFiles::languageCode_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QByteArray>("code");
    QTest::newRow("two letters") << "ko" << QByteArray("ko");
    QTest::newRow("three letters") << "kor" << QByteArray("ko");
    QTest::newRow("bibliographic") << "fre" << QByteArray("fr");
    QTest::newRow("upper case") << "ENG" << QByteArray("en");
    QTest::newRow("with region") << "pt-BR" << QByteArray("pt");
    QTest::newRow("with underscore") << "zh_TW" << QByteArray("zh");
    QTest::newRow("three letters only") << "haw" << QByteArray("haw");
    QTest::newRow("unknown two letters") << "qq" << QByteArray("und");
    QTest::newRow("word") << "forced" << QByteArray("und");
    QTest::newRow("digits") << "12" << QByteArray("und");
    QTest::newRow("empty") << "" << QByteArray("und");
}

void tst_SubtitleFiles::languageCode()
{
    QFETCH(QString, tag);
    QFETCH(QByteArray, code);
    QCOMPARE(subtitlefiles::languageCode(tag), code);
}

void tst_SubtitleFiles::formats()
{
    const QList<SubtitleFile> files = subtitlefiles::matchSiblings(
            "/m", "a.mp4", {"a.srt", "a.smi", "a.sami", "a.ass", "a.ssa", "a.sub", "a.vtt"});
    QList<SubtitleFormat> formats;
    for (const SubtitleFile &f : files)
        formats.append(f.format);
    QCOMPARE(formats, QList<SubtitleFormat>({SubtitleFormat::Srt, SubtitleFormat::Sami, SubtitleFormat::Sami,
                                             SubtitleFormat::Ass, SubtitleFormat::Ass, SubtitleFormat::MicroDvd,
                                             SubtitleFormat::WebVtt}));
    QCOMPARE(files.first().tag, QString());
}

void tst_SubtitleFiles::discoverSkipsFoldersAndOtherMedia()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(touch(dir.filePath("film.mp4"), "not played here"));
    QVERIFY(QDir(dir.path()).mkdir("film.srt")); // a folder of a subtitle's name
    QVERIFY(touch(dir.filePath("film.ko.srt")));
    QVERIFY(touch(dir.filePath("film.smi")));
    QVERIFY(touch(dir.filePath("other.srt")));
    QCOMPARE(describe(subtitlefiles::discover(dir.filePath("film.mp4")), dir.path()),
             QStringList({"film.smi [und]", "film.ko.srt [ko]"}));
}

void tst_SubtitleFiles::discoverNameWithSpacesAndNonAscii()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString base = QStringLiteral("Mon film [été] 영화 (2021)");
    QVERIFY(touch(dir.filePath(base + ".mp4"), "x"));
    QVERIFY(touch(dir.filePath(base + ".srt")));
    QVERIFY(touch(dir.filePath(base + ".fr.srt")));
    QVERIFY(touch(dir.filePath(QStringLiteral("Mon film [ete] 영화 (2021).srt"))));
    QCOMPARE(describe(subtitlefiles::discover(dir.filePath(base + ".mp4")), dir.path()),
             QStringList({base + ".srt [und]", base + ".fr.srt [fr]"}));
}

void tst_SubtitleFiles::manyFilesAreBounded()
{
    QStringList names;
    for (int i = 0; i < 100; ++i)
        names.append(QStringLiteral("film.x%1.srt").arg(i, 3, 10, QLatin1Char('0')));
    names.append("film.srt");
    const QList<SubtitleFile> files = subtitlefiles::matchSiblings("/m", "film.mp4", names);
    QCOMPARE(files.size(), subtitlefiles::kMaxFiles);
    QCOMPARE(files.first().path, QStringLiteral("/m/film.srt"));
    QCOMPARE(files.last().path, QStringLiteral("/m/film.x030.srt"));
}

QTEST_GUILESS_MAIN(tst_SubtitleFiles)
#include "tst_subtitlefiles.moc"
