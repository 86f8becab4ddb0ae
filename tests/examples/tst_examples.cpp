// The example players run as a user runs them, on the generated samples:
// consoleplayer plays to the end and reports the medium's tags, refuses a bad
// command line and ends on media it cannot play; qmlplayer, in an offscreen
// window, plays to the end showing tags and cover art and writes a
// screenshot of itself. Where the session's media service plugin is built,
// Qt is told to prefer it (the environment comes from CTest) and the players
// also get the legacy-encoded tags, which only the session decodes; the
// plugin's service then runs in a runtime directory of this test's own.
#include "samples.h"

#ifdef ORVIC_EXAMPLES_THROUGH_PLUGIN
#include "e2esupport.h"
#endif

#include <QtCore/QProcess>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtGui/QColor>
#include <QtGui/QImage>
#include <QtTest/QtTest>

namespace {

const int kRunTimeoutMs = 60000;

struct Run {
    int exitCode = -1;
    QStringList lines;
    QByteArray err;

    // The texts of the lines that begin with `what` and a blank.
    QStringList values(const QString &what) const
    {
        QStringList found;
        const QString prefix = what + QLatin1Char(' ');
        for (const QString &line : lines) {
            if (line.startsWith(prefix))
                found.append(line.mid(prefix.size()));
        }
        return found;
    }
};

// UTF-8 title, plain ASCII artist, UTF-8 album; a back cover before the
// front cover (scripts/make-samples.sh).
const QString kUnicodeTitle = QStringLiteral("Привет, 世界: a title in UTF-8");
const QString kUnicodeArtist = QStringLiteral("Plain ASCII Artist");
const QString kUnicodeAlbum = QStringLiteral("Ünïcödé Album");

} // namespace

class tst_Examples : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void consolePlaysToEnd_data();
    void consolePlaysToEnd();
    void consoleCommandLine_data();
    void consoleCommandLine();
    void consoleUnplayable_data();
    void consoleUnplayable();
    void qmlPlayerScreenshot_data();
    void qmlPlayerScreenshot();
    void qmlPlayerShowsVideo();

private:
    Run run(const QString &program, const QStringList &arguments,
            const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment());

    QString m_console;
    QString m_qml;
    QTemporaryDir m_work;
#ifdef ORVIC_EXAMPLES_THROUGH_PLUGIN
    // Inherited by the players through the environment; stops the service
    // they started when the test ends.
    orvice2e::RuntimeDir m_runtime;
#endif
};

void tst_Examples::initTestCase()
{
    QVERIFY(m_work.isValid());
#ifdef ORVIC_EXAMPLES_THROUGH_PLUGIN
    QVERIFY(m_runtime.isValid());
    QCOMPARE(qgetenv("QT_MULTIMEDIA_PREFERRED_PLUGINS"), QByteArray("orvic"));
#endif
    m_console = qEnvironmentVariable("EXAMPLE_CONSOLEPLAYER");
    m_qml = qEnvironmentVariable("EXAMPLE_QMLPLAYER");
    QVERIFY2(QFileInfo(m_console).isExecutable(), qPrintable(m_console));
    QVERIFY(QFileInfo::exists(samples::path("tagged-unicode.mp3")));
}

Run tst_Examples::run(const QString &program, const QStringList &arguments,
                      const QProcessEnvironment &environment)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    Run result;
    if (!process.waitForFinished(kRunTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        result.err = process.readAllStandardError();
        qWarning("%s did not finish: %s", qPrintable(program), result.err.constData());
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.lines = QString::fromUtf8(process.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    result.err = process.readAllStandardError();
    return result;
}

void tst_Examples::consolePlaysToEnd_data()
{
    QTest::addColumn<QString>("medium");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("artist");
    QTest::addColumn<QString>("album");
    QTest::newRow("UTF-8 tags") << "tagged-unicode.mp3" << kUnicodeTitle << kUnicodeArtist << kUnicodeAlbum;
#ifdef ORVIC_EXAMPLES_THROUGH_PLUGIN
    QTest::newRow("GBK in Latin-1 frames") << "tagged-gbk.mp3" << samples::gbkTitle() << samples::gbkArtist()
                                           << samples::gbkAlbum();
#endif
}

void tst_Examples::consolePlaysToEnd()
{
    QFETCH(QString, medium);
    QFETCH(QString, title);
    QFETCH(QString, artist);
    QFETCH(QString, album);
    const Run r = run(m_console, {"--interval", "500", samples::path(medium)});
    QVERIFY2(r.exitCode == 0, r.err.constData());

    QCOMPARE(r.values("title"), QStringList{title});
    QCOMPARE(r.values("artist"), QStringList{artist});
    QCOMPARE(r.values("album"), QStringList{album});
    QCOMPARE(r.values("state"), (QStringList{"PlayingState", "StoppedState"}));
    const QStringList statuses = r.values("status");
    QVERIFY2(!statuses.isEmpty(), qPrintable(r.lines.join('\n')));
    QCOMPARE(statuses.first(), QStringLiteral("LoadingMedia"));
    QCOMPARE(statuses.last(), QStringLiteral("EndOfMedia"));
    QVERIFY(!statuses.contains("InvalidMedia"));
    QCOMPARE(r.values("error"), QStringList());

    // The 3 s sample: its duration, and positions that only go forward to
    // near its end.
    const QStringList durations = r.values("duration");
    QVERIFY(!durations.isEmpty());
    QVERIFY2(qAbs(durations.last().toLongLong() - 3000) <= 150, qPrintable(durations.last()));
    qint64 previous = -1;
    for (const QString &p : r.values("position")) {
        QVERIFY2(p.toLongLong() >= previous, qPrintable(r.values("position").join(' ')));
        previous = p.toLongLong();
    }
    QVERIFY2(previous >= 2500, qPrintable(r.values("position").join(' ')));
}

void tst_Examples::consoleCommandLine_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("no medium") << QStringList{} << 64;
    QTest::newRow("two media") << QStringList{"a.mp3", "b.mp3"} << 64;
    QTest::newRow("volume above 100") << QStringList{"--volume", "101", "a.mp3"} << 64;
    QTest::newRow("volume not a number") << QStringList{"--volume", "loud", "a.mp3"} << 64;
    QTest::newRow("interval 0") << QStringList{"--interval", "0", "a.mp3"} << 64;
    QTest::newRow("help") << QStringList{"--help"} << 0;
}

void tst_Examples::consoleCommandLine()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);
    const Run r = run(m_console, arguments);
    QCOMPARE(r.exitCode, exitCode);
    // Nothing was played.
    QCOMPARE(r.values("state"), QStringList());
}

void tst_Examples::consoleUnplayable_data()
{
    QTest::addColumn<QString>("medium");
    QTest::newRow("missing file") << m_work.filePath("missing.mp3");
    QTest::newRow("text named .mp3") << samples::path("hostile/garbage.mp3");
    QTest::newRow("empty file") << samples::path("hostile/zero.mp3");
}

void tst_Examples::consoleUnplayable()
{
    QFETCH(QString, medium);
    const Run r = run(m_console, {medium});
    QCOMPARE(r.exitCode, 1);
    const QStringList statuses = r.values("status");
    const QStringList errors = r.values("error");
    // The player says so: an invalid medium, an error, or both.
    QVERIFY2(statuses.contains("InvalidMedia") || !errors.isEmpty(), qPrintable(r.lines.join('\n')));
    QVERIFY(!statuses.contains("EndOfMedia"));
    for (const QString &e : errors)
        QVERIFY2(QRegularExpression("^[A-Za-z]+Error .+").match(e).hasMatch(), qPrintable(e));
}

void tst_Examples::qmlPlayerScreenshot_data()
{
    QTest::addColumn<QString>("medium");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("artist");
    QTest::addColumn<QString>("album");
    // The cover's size in pixels, as the back end delivers it.
    QTest::addColumn<QString>("cover");
    // One of the two embedded pictures, as the back end chooses.
    QTest::newRow("UTF-8 tags") << "tagged-unicode.mp3" << kUnicodeTitle << kUnicodeArtist << kUnicodeAlbum
                                << "^(300x300|100x200)$";
#ifdef ORVIC_EXAMPLES_THROUGH_PLUGIN
    // The 640x480 front cover, whole or as the engine's picture of at most
    // 512 pixels a side.
    QTest::newRow("GBK in Latin-1 frames") << "tagged-gbk.mp3" << samples::gbkTitle() << samples::gbkArtist()
                                           << samples::gbkAlbum() << "^(640x480|512x384)$";
#endif
}

void tst_Examples::qmlPlayerScreenshot()
{
    QFETCH(QString, medium);
    QFETCH(QString, title);
    QFETCH(QString, artist);
    QFETCH(QString, album);
    QFETCH(QString, cover);
    if (m_qml.isEmpty())
        QSKIP("qmlplayer is not built here (no Qt Quick)");
    const QString shot = m_work.filePath(QFileInfo(medium).completeBaseName() + ".png");
    // Qt 5.15's offscreen platform never releases its screen, so everything
    // hung on it (window connections, the last frame) is still allocated at
    // exit, as in any Qt Quick program on it: leak detection is off for this
    // process only; the sanitizers' other checks stay on.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    if (environment.contains("ASAN_OPTIONS"))
        environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":detect_leaks=0");
    const Run r = run(m_qml, {"--quit-at-end", "--screenshot", shot, samples::path(medium)}, environment);
    QVERIFY2(r.exitCode == 0, qPrintable(r.lines.join('\n') + '\n' + QString::fromLocal8Bit(r.err)));

    QCOMPARE(r.values("title"), QStringList{title});
    QCOMPARE(r.values("artist"), QStringList{artist});
    QCOMPARE(r.values("album"), QStringList{album});
    QCOMPARE(r.values("state"), (QStringList{"Playing", "Stopped"}));
    QCOMPARE(r.values("status").last(), QStringLiteral("EndOfMedia"));
    QCOMPARE(r.values("error"), QStringList());

    const QStringList covers = r.values("cover");
    QCOMPARE(covers.size(), 1);
    QVERIFY2(QRegularExpression(cover).match(covers.first()).hasMatch(), qPrintable(covers.first()));

    const QStringList shots = r.values("screenshot");
    QCOMPARE(shots.size(), 1);
    const QImage image(shot);
    QVERIFY(!image.isNull());
    QCOMPARE(shots.first(), QStringLiteral("%1 %2x%3").arg(shot).arg(image.width()).arg(image.height()));
    QVERIFY(image.width() >= 400 && image.height() >= 300);
    // The cover area (top left) shows a picture, not a plain panel: the test
    // patterns have many colours.
    QSet<QRgb> colours;
    for (int y = 20; y < 240; y += 4) {
        for (int x = 20; x < 240; x += 4)
            colours.insert(image.pixel(x, y));
    }
    QVERIFY2(colours.size() >= 8, qPrintable(QString::number(colours.size())));
}

// The QML example's VideoOutput shows the colour bars of bars.mp4 where the
// pattern puts them. Qt Quick's software renderer draws no video (with any
// back end): this one runs on a virtual X server with Mesa's OpenGL.
void tst_Examples::qmlPlayerShowsVideo()
{
#ifndef ORVIC_EXAMPLES_THROUGH_PLUGIN
    QSKIP("the session's media service plugin is not built here");
#else
    if (m_qml.isEmpty())
        QSKIP("qmlplayer is not built here (no Qt Quick)");
    const QString xvfbRun = QStandardPaths::findExecutable(QStringLiteral("xvfb-run"));
    QVERIFY2(!xvfbRun.isEmpty(), "xvfb-run is missing (scripts/install-deps.sh installs it)");
    const QString shot = m_work.filePath(QStringLiteral("bars.png"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("QT_QPA_PLATFORM"));
    environment.remove(QStringLiteral("QT_QUICK_BACKEND"));
    // Mesa's and X's own allocations live to the end of the process.
    if (environment.contains("ASAN_OPTIONS"))
        environment.insert("ASAN_OPTIONS", environment.value("ASAN_OPTIONS") + ":detect_leaks=0");
    const Run r = run(xvfbRun, {"-a", "-s", "-screen 0 800x600x24", m_qml, "--quit-at-end", "--screenshot", shot,
                                samples::path("bars.mp4")}, environment);
    QVERIFY2(r.exitCode == 0, qPrintable(r.lines.join('\n') + '\n' + QString::fromLocal8Bit(r.err)));
    QCOMPARE(r.values("status").last(), QStringLiteral("EndOfMedia"));
    QCOMPARE(r.values("error"), QStringList());
    QCOMPARE(r.values("screenshot").size(), 1);
    const QImage image(shot);
    QVERIFY(!image.isNull());

    // The picture panel: 240x240 at x 16, its top found from its dark
    // frame; the 4:3 picture fills its width, centred, 180 high.
    int top = -1;
    for (int y = 0; y < image.height() && top < 0; ++y) {
        if (qGray(image.pixel(20, y)) < 64)
            top = y;
    }
    QVERIFY(top >= 0);
    const int barsY = top + 30 + 60; // a third down the picture: the seven bars
    const QList<QRgb> bars = {qRgb(192, 192, 192), qRgb(192, 192, 0), qRgb(0, 192, 192), qRgb(0, 192, 0),
                              qRgb(192, 0, 192), qRgb(192, 0, 0), qRgb(0, 0, 192)};
    for (int i = 0; i < bars.size(); ++i) {
        const int x = 16 + int((i + 0.5) * 240 / 7);
        const QRgb seen = image.pixel(x, barsY);
        const QRgb want = bars.at(i);
        const bool close = qAbs(qRed(seen) - qRed(want)) <= 40 && qAbs(qGreen(seen) - qGreen(want)) <= 40
                && qAbs(qBlue(seen) - qBlue(want)) <= 40;
        QVERIFY2(close, qPrintable(QStringLiteral("bar %1 at (%2, %3): %4")
                                           .arg(i).arg(x).arg(barsY).arg(QColor(seen).name())));
    }
#endif
}

QTEST_GUILESS_MAIN(tst_Examples)
#include "tst_examples.moc"
