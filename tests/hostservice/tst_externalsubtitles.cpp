// One subtitle file read into streams, or into a notice when it gives none.
#include "subtitlesamples.h"

#include <errormap.h>
#include <externalsubtitles.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>
#include <QtTest/QtTest>

Q_DECLARE_METATYPE(SubtitleFormat)

class tst_ExternalSubtitles : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readFile_data();
    void readFile();
    void loadsOnceAndCountsStreams();
};

void tst_ExternalSubtitles::readFile_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<SubtitleFormat>("format");
    QTest::addColumn<int>("notice");
    QTest::addColumn<QList<QByteArray>>("languages");
    // The daemon's log line about the file; %1 is its path.
    QTest::addColumn<int>("messageType");
    QTest::addColumn<QString>("message");

    const int info = QtInfoMsg;
    const int warning = QtWarningMsg;
    QTest::newRow("good srt") << "good" << SubtitleFormat::Srt << 0 << QList<QByteArray>({"ko"}) << info
                              << "subtitle file %1: charset UTF-8 (valid UTF-8, detector \"\")";
    QTest::newRow("sami classes name their languages")
            << "sami" << SubtitleFormat::Sami << 0 << QList<QByteArray>({"ko", "en"}) << info
            << "subtitle file %1: charset EUC-KR (detected, detector \"UHC\")";
    QTest::newRow("empty") << "empty" << SubtitleFormat::Srt << errormap::kNoticeStream << QList<QByteArray>()
                           << warning << "subtitle file %1: empty";
    QTest::newRow("binary") << "binary" << SubtitleFormat::Srt << errormap::kNoticeStream << QList<QByteArray>()
                            << warning << "subtitle file %1: binary, not text";
    QTest::newRow("over the size limit") << "huge" << SubtitleFormat::Srt << errormap::kNoticeStream
                                         << QList<QByteArray>() << warning
                                         << "subtitle file %1: 4194305 bytes, too large for subtitles";
    QTest::newRow("no cue") << "nocue" << SubtitleFormat::Srt << errormap::kNoticeStream << QList<QByteArray>()
                            << warning << "subtitle file %1: no cue";
    QTest::newRow("gone") << "gone" << SubtitleFormat::Srt << errormap::kNoticeResource << QList<QByteArray>()
                          << warning << "subtitle file %1: no longer there";
    QTest::newRow("a folder now") << "folder" << SubtitleFormat::Srt << errormap::kNoticeResource
                                  << QList<QByteArray>() << warning << "subtitle file %1: no longer there";
    QTest::newRow("UTF-16 with its mark is not binary")
            << "utf16" << SubtitleFormat::Srt << 0 << QList<QByteArray>({"ko"}) << info
            << "subtitle file %1: charset UTF-16LE (byte-order mark, detector \"\")";
}

void tst_ExternalSubtitles::readFile()
{
    QFETCH(QString, kind);
    QFETCH(SubtitleFormat, format);
    QFETCH(int, notice);
    QFETCH(QList<QByteArray>, languages);
    QFETCH(int, messageType);
    QFETCH(QString, message);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath("film.ko.srt");
    QByteArray bytes;
    if (kind == "good")
        bytes = subtitlesamples::srt({"One", "Two"}).toUtf8();
    else if (kind == "sami")
        bytes = subtitlesamples::koreanSami();
    else if (kind == "binary")
        bytes = QByteArray("\x7F" "ELF\x02\x01\x01\0\0\0\0\0\0\0\0\0", 16);
    else if (kind == "nocue")
        bytes = "Dear reader,\nthis is no subtitle file.\n";
    else if (kind == "utf16")
        bytes = subtitlesamples::encode(subtitlesamples::srt({QStringLiteral("한국어")}), "UTF-16LE BOM");
    if (kind == "folder") {
        QVERIFY(QDir(dir.path()).mkdir("film.ko.srt"));
    } else if (kind != "gone") {
        QFile f(path);
        QVERIFY(f.open(QIODevice::WriteOnly));
        QCOMPARE(f.write(bytes), qint64(bytes.size()));
        if (kind == "huge")
            QVERIFY(f.resize(ExternalSubtitles::kMaxFileBytes + 1));
    }

    QTest::ignoreMessage(QtMsgType(messageType), qPrintable(message.arg(path)));
    const SubtitleFile file{path, "ko", "ko", format};
    QList<ExternalSubtitles::Stream> streams;
    QCOMPARE(ExternalSubtitles::readFile(file, 0, "ISO-8859-1", &streams), notice);
    QList<QByteArray> found;
    for (const ExternalSubtitles::Stream &s : qAsConst(streams)) {
        QCOMPARE(s.path, path);
        QVERIFY(!s.cues.isEmpty());
        found.append(s.language);
    }
    QCOMPARE(found, languages);
}

void tst_ExternalSubtitles::loadsOnceAndCountsStreams()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const auto write = [&dir](const QString &name, const QByteArray &bytes) {
        QFile f(dir.filePath(name));
        return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
    };
    QVERIFY(write("film.srt", subtitlesamples::srt({"Untagged"}).toUtf8()));
    QVERIFY(write("film.smi", subtitlesamples::koreanSami()));
    QVERIFY(write("film.de.srt", QByteArray()));
    QVERIFY(write("film.en.srt", QByteArray("\0\1\2", 3)));

    ExternalSubtitles external;
    external.setFiles(subtitlefiles::discover(dir.filePath("film.mp4")));
    QVERIFY(external.hasFiles());
    QCOMPARE(external.count(), 0); // nothing read before the medium is prepared
    const ExternalSubtitles::LoadResult first = external.load(0);
    QCOMPARE(first.notices, QList<int>({errormap::kNoticeStream})); // one per kind
    QCOMPARE(external.count(), 3);
    QCOMPARE(external.stream(0).language, QByteArray("und"));
    QCOMPARE(external.stream(0).cues.first().text, QStringLiteral("Untagged"));
    QCOMPARE(external.stream(1).language, QByteArray("ko"));
    QCOMPARE(external.stream(2).language, QByteArray("en"));

    // Read once per medium: a file gone since is not missed.
    QVERIFY(QFile::remove(dir.filePath("film.srt")));
    QVERIFY(external.load(0).notices.isEmpty());
    QCOMPARE(external.count(), 3);

    external.clear();
    QVERIFY(!external.hasFiles());
    QCOMPARE(external.count(), 0);
}

QTEST_GUILESS_MAIN(tst_ExternalSubtitles)
#include "tst_externalsubtitles.moc"
