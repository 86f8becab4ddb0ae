// orvic-play run as a user runs it: metadata-only JSON on the generated
// samples, playback to the end, a damaged file, and keys typed into a
// pseudo-terminal. The platform is the real host one (psserver in a runtime
// directory of this test's own).
#include "samples.h"

#include <cutils/properties.h>

#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTextCodec>
#include <QtGui/QImage>
#include <QtTest/QtTest>

#include <csignal>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

const int kRunTimeoutMs = 30000;

struct Run {
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
    QList<QJsonObject> events;

    QList<QJsonObject> named(const QString &event) const
    {
        QList<QJsonObject> found;
        for (const QJsonObject &e : events) {
            if (e.value("event").toString() == event)
                found.append(e);
        }
        return found;
    }

    QList<int> states() const
    {
        QList<int> s;
        for (const QJsonObject &e : named("state"))
            s.append(e.value("state").toInt());
        return s;
    }
};

} // namespace

class tst_OrvicPlay : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void help();
    void metadataOnlyJson_data();
    void metadataOnlyJson();
    void metadataOnlyMovie();
    void coverExport();
    void playToEnd();
    void subtitlesBesideTheFilm();
    void damagedFiles_data();
    void damagedFiles();
    void interactiveKeys();
    void signalWhileServiceCannotStart_data();
    void signalWhileServiceCannotStart();
    void signalWhileCommandBlocksTheLoop_data();
    void signalWhileCommandBlocksTheLoop();

private:
    QProcessEnvironment environment() const;
    Run run(const QStringList &arguments);

    QTemporaryDir m_runtime;
    QTemporaryDir m_work;
    QString m_player;
    QString m_longMedium;
};

QProcessEnvironment tst_OrvicPlay::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("ORVIC_RUNTIME_DIR", m_runtime.path());
    env.remove("ORVIC_SYSTEM_CODEC");
    return env;
}

void tst_OrvicPlay::initTestCase()
{
    QVERIFY(m_runtime.isValid());
    QVERIFY(m_work.isValid());
    // This process talks to the same service as the players it starts.
    qputenv("ORVIC_RUNTIME_DIR", m_runtime.path().toUtf8());
    m_player = QString::fromLocal8Bit(qgetenv("ORVIC_PLAY"));
    QVERIFY2(QFileInfo(m_player).isExecutable(), qPrintable(m_player));
    QVERIFY(QFileInfo::exists(samples::path("tagged-gbk.mp3")));

    // A medium long enough to type keys into while it plays.
    m_longMedium = m_work.filePath("long.mp3");
    QProcess ff;
    ff.start("ffmpeg", {"-hide_banner", "-loglevel", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
                        "sine=frequency=330:duration=20:sample_rate=44100", "-c:a", "libmp3lame", m_longMedium});
    QVERIFY(ff.waitForFinished(kRunTimeoutMs));
    QCOMPARE(ff.exitCode(), 0);
}

void tst_OrvicPlay::cleanupTestCase()
{
    // The session never stops the service; the test's own one goes with it.
    property_set("ctl.stop", "psserver");
}

Run tst_OrvicPlay::run(const QStringList &arguments)
{
    QProcess process;
    process.setProcessEnvironment(environment());
    process.start(m_player, arguments);
    Run result;
    if (!process.waitForFinished(kRunTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        return result;
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    for (const QByteArray &line : result.out.split('\n')) {
        const QJsonDocument doc = QJsonDocument::fromJson(line);
        if (doc.isObject())
            result.events.append(doc.object());
    }
    return result;
}

void tst_OrvicPlay::help()
{
    const Run r = run({"--help"});
    QCOMPARE(r.exitCode, 0);
    for (const char *option : {"--metadata-only", "--json", "--cover", "--start", "--rate", "--volume",
                               "--system-codec", "--verbose"})
        QVERIFY2(r.out.contains(option), option);
    QCOMPARE(run({}).exitCode, 64);
    QCOMPARE(run({"--volume", "101", samples::path("tagged-gbk.mp3")}).exitCode, 64);
}

void tst_OrvicPlay::metadataOnlyJson_data()
{
    QTest::addColumn<QString>("medium");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("artist");
    QTest::addColumn<QString>("album");
    QTest::newRow("GBK in Latin-1 frames") << "tagged-gbk.mp3" << samples::gbkTitle() << samples::gbkArtist()
                                           << samples::gbkAlbum();
    QTest::newRow("windows-1251 ID3v1 only") << "tagged-v1only.mp3" << samples::v1Title() << samples::v1Artist()
                                             << samples::v1Album();
}

void tst_OrvicPlay::metadataOnlyJson()
{
    QFETCH(QString, medium);
    QFETCH(QString, title);
    QFETCH(QString, artist);
    QFETCH(QString, album);
    const Run r = run({"--metadata-only", "--json", samples::path(medium)});
    QVERIFY2(r.exitCode == 0, r.err.constData());
    const QList<QJsonObject> maps = r.named("metadata");
    QCOMPARE(maps.size(), 1);
    const QJsonObject map = maps.first().value("metadata").toObject();
    QCOMPARE(map.value("Title").toString(), title);
    QCOMPARE(map.value("AlbumArtist").toString(), artist);
    QCOMPARE(map.value("AlbumTitle").toString(), album);
    QCOMPARE(map.value("ChannelCount").toInt(), 2);
    QCOMPARE(map.value("AudioStreamCount").toInt(), 1);
    QCOMPARE(map.value("AudioStream").toInt(), 0);
    QVERIFY(map.value("Duration").toDouble() > 2500);
    QVERIFY(!map.contains("Resolution"));
    // A metadata-only session never plays.
    QVERIFY(!r.states().contains(5));
}

void tst_OrvicPlay::metadataOnlyMovie()
{
    const Run r = run({"--metadata-only", "--json", samples::path("movie.mp4")});
    QVERIFY2(r.exitCode == 0, r.err.constData());
    const QList<QJsonObject> maps = r.named("metadata");
    QCOMPARE(maps.size(), 1);
    const QJsonObject map = maps.first().value("metadata").toObject();
    const QJsonObject resolution = map.value("Resolution").toObject();
    QCOMPARE(resolution.value("width").toInt(), 320);
    QCOMPARE(resolution.value("height").toInt(), 240);
    QCOMPARE(map.value("VideoFrameRate").toInt(), 25);
    QCOMPARE(map.value("VideoCodec").toString(), QStringLiteral("h264"));
    QCOMPARE(map.value("AudioCodec").toString(), QStringLiteral("aac"));
    QCOMPARE(map.value("AudioStreamCount").toInt(), 2);
    QCOMPARE(map.value("Language").toString(), QStringLiteral("eng"));
    QCOMPARE(map.value("SubtitleCount").toInt(), 1);
}

void tst_OrvicPlay::coverExport()
{
    const QString png = m_work.filePath("cover.png");
    const Run r = run({"--metadata-only", "--json", "--cover", png, samples::path("tagged-gbk.mp3")});
    QVERIFY2(r.exitCode == 0, r.err.constData());
    const QList<QJsonObject> covers = r.named("cover");
    QCOMPARE(covers.size(), 1);
    QVERIFY(covers.first().value("saved").toBool());
    const QImage image(png);
    QVERIFY(!image.isNull());
    // The 640x480 cover comes scaled to fit 512, keeping its aspect.
    QCOMPARE(image.size(), QSize(512, 384));
}

void tst_OrvicPlay::playToEnd()
{
    const Run r = run({"--json", "--volume", "30", samples::path("tagged-gbk.mp3")});
    QVERIFY2(r.exitCode == 0, r.err.constData());
    const QList<int> states = r.states();
    // Prepared, playing, then the stop at the end.
    const QList<int> expectedTail{5, 3, 2};
    QVERIFY2(states.size() >= 5, qPrintable(QString::number(states.size())));
    QCOMPARE(states.mid(states.size() - 3), expectedTail);
    QVERIFY(states.indexOf(3) < states.indexOf(4));
    QVERIFY(states.indexOf(4) < states.indexOf(5));
    QCOMPARE(r.named("end").size(), 1);
    QVERIFY(r.named("error").isEmpty());
    QCOMPARE(r.named("volume").last().value("value").toInt(), 30);
    QVERIFY(!r.named("progress").isEmpty());
}

// A film with a Korean CP949 film.srt beside it, and no system codec
// configured: --subtitles shows its lines, in order, as the right text.
void tst_OrvicPlay::subtitlesBesideTheFilm()
{
    QTemporaryDir folder;
    QVERIFY(folder.isValid());
    const QString film = folder.filePath("film.mp4");
    QProcess ff;
    ff.start("ffmpeg", {"-hide_banner", "-loglevel", "error", "-nostdin", "-y", "-f", "lavfi", "-i",
                        "testsrc=size=160x120:rate=25:duration=3", "-f", "lavfi", "-i", "sine=frequency=440:duration=3",
                        "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p", "-c:a", "aac", film});
    QVERIFY(ff.waitForFinished(kRunTimeoutMs));
    QCOMPARE(ff.exitCode(), 0);
    const QStringList lines = {QStringLiteral("안녕하세요, 만나서 반갑습니다."), QStringLiteral("오늘 날씨가 정말 좋네요.")};
    const QString srt = QStringLiteral("1\r\n00:00:00,300 --> 00:00:00,900\r\n%1\r\n\r\n"
                                       "2\r\n00:00:01,200 --> 00:00:01,800\r\n%2\r\n\r\n").arg(lines[0], lines[1]);
    QFile file(folder.filePath("film.srt"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    const QByteArray bytes = QTextCodec::codecForName("CP949")->fromUnicode(srt);
    QVERIFY(!bytes.isEmpty());
    QCOMPARE(file.write(bytes), qint64(bytes.size()));
    file.close();

    const auto shown = [](const Run &r) {
        QStringList texts;
        for (const QJsonObject &e : r.named("subtitle"))
            texts.append(e.value("text").toString());
        return texts;
    };
    const Run on = run({"--json", "--subtitles", film});
    QVERIFY2(on.exitCode == 0, on.err.constData());
    QCOMPARE(shown(on), QStringList({lines[0], QString(), lines[1], QString()}));
    QVERIFY(on.named("error").isEmpty());

    // Without the option the lines stay off.
    const Run off = run({"--json", film});
    QVERIFY2(off.exitCode == 0, off.err.constData());
    QCOMPARE(shown(off), QStringList());
}

void tst_OrvicPlay::damagedFiles_data()
{
    QTest::addColumn<QString>("medium");
    QTest::newRow("zero bytes") << samples::path("hostile/zero.mp3");
    QTest::newRow("text named mp3") << samples::path("hostile/garbage.mp3");
    QTest::newRow("corrupt movie") << samples::path("hostile/corrupt.mp4");
    QTest::newRow("missing") << m_work.filePath("does-not-exist.mp4");
}

void tst_OrvicPlay::damagedFiles()
{
    QFETCH(QString, medium);
    const Run r = run({"--json", medium});
    QVERIFY(r.exitCode != 0);
    QVERIFY(r.exitCode != -1);
    const QList<QJsonObject> errors = r.named("error");
    QVERIFY(!errors.isEmpty());
    QVERIFY(r.err.contains("error "));
    QVERIFY(r.err.contains(errors.first().value("text").toString().toUtf8()));
}

namespace {
// Reads the pty until `pattern` shows up or the time runs out.
bool readUntil(int fd, QByteArray &seen, const QByteArray &pattern, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    const int from = seen.size();
    while (clock.elapsed() < timeoutMs) {
        if (seen.indexOf(pattern, from) >= 0)
            return true;
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, 100) > 0) {
            char buf[4096];
            const ssize_t n = ::read(fd, buf, sizeof buf);
            if (n <= 0)
                return seen.indexOf(pattern, from) >= 0;
            seen.append(buf, int(n));
        }
    }
    return seen.indexOf(pattern, from) >= 0;
}
} // namespace

void tst_OrvicPlay::interactiveKeys()
{
    int master = -1;
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    QVERIFY(pid >= 0);
    if (pid == 0) {
        setenv("ORVIC_RUNTIME_DIR", qPrintable(m_runtime.path()), 1);
        const QByteArray player = m_player.toLocal8Bit();
        const QByteArray medium = m_longMedium.toLocal8Bit();
        execl(player.constData(), player.constData(), medium.constData(), static_cast<char *>(nullptr));
        _exit(127);
    }
    QByteArray seen;
    auto send = [master](const char *keys) { QVERIFY(::write(master, keys, strlen(keys)) > 0); };

    QVERIFY2(readUntil(master, seen, "state Player_Play", 20000), seen.constData());
    send(" ");
    QVERIFY2(readUntil(master, seen, "state Player_Pause", 10000), seen.constData());
    send("\x1b[C");  // +5 s while paused
    QVERIFY2(readUntil(master, seen, "00:05.", 10000), seen.constData());
    send(" ");
    QVERIFY2(readUntil(master, seen, "state Player_Play", 10000), seen.constData());
    send("q");
    QVERIFY2(readUntil(master, seen, "state Player_Stop", 10000), seen.constData());

    int status = 0;
    QElapsedTimer clock;
    clock.start();
    pid_t done = 0;
    while ((done = waitpid(pid, &status, WNOHANG)) == 0 && clock.elapsed() < 10000) {
        char buf[256];
        pollfd p{master, POLLIN, 0};
        if (::poll(&p, 1, 50) > 0 && ::read(master, buf, sizeof buf) <= 0)
            continue;
    }
    if (done == 0) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        QFAIL("orvic-play did not end after q");
    }
    ::close(master);
    QVERIFY(WIFEXITED(status));
    QCOMPARE(WEXITSTATUS(status), 0);
}

namespace {
// Collects what the terminal shows for `ms`.
void drain(int fd, QByteArray &seen, int ms)
{
    const QByteArray never("\0", 1); // a terminal shows no NUL
    readUntil(fd, seen, never, ms);
}

// Starts orvic-play on a pseudo-terminal with `environment` added.
pid_t startOnTerminal(const QString &player, const QStringList &arguments,
                      const QList<QPair<QByteArray, QByteArray>> &environment, int *master)
{
    QList<QByteArray> args{player.toLocal8Bit()};
    for (const QString &a : arguments)
        args.append(a.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &a : args)
        argv.push_back(a.data());
    argv.push_back(nullptr);
    const pid_t pid = forkpty(master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        for (const auto &variable : environment)
            setenv(variable.first.constData(), variable.second.constData(), 1);
        execv(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

// Waits (bounded) for `pid` to end, draining the terminal; the exit code, or
// -1 when it did not end by itself (it is killed then).
int waitForEnd(pid_t pid, int master, QByteArray &seen, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    int status = 0;
    pid_t done = 0;
    while ((done = waitpid(pid, &status, WNOHANG)) == 0 && clock.elapsed() < timeoutMs)
        drain(master, seen, 50);
    drain(master, seen, 50);
    if (done == 0) {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
} // namespace

void tst_OrvicPlay::signalWhileServiceCannotStart_data()
{
    QTest::addColumn<bool>("typed");
    QTest::newRow("Ctrl-C typed") << true;
    QTest::newRow("SIGTERM") << false;
}

// The session's constructor waits for a service that cannot start: the
// cause is shown, and a signal ends the player all the same.
void tst_OrvicPlay::signalWhileServiceCannotStart()
{
    QFETCH(bool, typed);
    QTemporaryDir runtime;
    QVERIFY(runtime.isValid());
    const QByteArray missing = m_work.filePath("no-psserver-here").toLocal8Bit();
    int master = -1;
    const pid_t pid = startOnTerminal(m_player, {m_longMedium},
                                      {{"ORVIC_RUNTIME_DIR", runtime.path().toLocal8Bit()}, {"ORVIC_PSSERVER", missing}},
                                      &master);
    QVERIFY(pid > 0);
    QByteArray seen;
    const QByteArray cause = "orvic property service: psserver did not start: " + missing
            + " is not executable: No such file or directory (log: " + runtime.path().toLocal8Bit()
            + "/psserver.log)\r\n";
    QVERIFY2(readUntil(master, seen, cause, 20000), seen.constData());
    if (typed)
        QVERIFY(::write(master, "\x03", 1) == 1);
    else
        QCOMPARE(kill(pid, SIGTERM), 0);
    const int code = waitForEnd(pid, master, seen, 10000);
    ::close(master);
    QCOMPARE(code, 130);
    QVERIFY2(seen.contains("orvic-play: interrupted while waiting for the playback service\r\n"), seen.constData());
}

void tst_OrvicPlay::signalWhileCommandBlocksTheLoop_data()
{
    QTest::addColumn<bool>("twice");
    QTest::newRow("once: ends after the grace") << false;
    QTest::newRow("twice: ends at once") << true;
}

// The open of a network medium whose server never answers blocks the event
// loop in the preparation. The first signal asks for a clean stop, which
// cannot happen: the player ends after the grace period, or at once on a
// second signal.
void tst_OrvicPlay::signalWhileCommandBlocksTheLoop()
{
    QFETCH(bool, twice);
    // Listening without ever accepting: the kernel completes the connection,
    // the request is never answered.
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    QVERIFY(server >= 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    QCOMPARE(::bind(server, reinterpret_cast<sockaddr *>(&address), length), 0);
    QCOMPARE(::listen(server, 4), 0);
    QCOMPARE(::getsockname(server, reinterpret_cast<sockaddr *>(&address), &length), 0);
    const QString url = QStringLiteral("http://127.0.0.1:%1/silent.mp3").arg(ntohs(address.sin_port));

    int master = -1;
    const pid_t pid = startOnTerminal(m_player, {url}, {{"ORVIC_RUNTIME_DIR", m_runtime.path().toLocal8Bit()}},
                                      &master);
    QVERIFY(pid > 0);
    // The engine's connection shows that the open is under way.
    QByteArray seen;
    pollfd p{server, POLLIN, 0};
    QElapsedTimer clock;
    clock.start();
    while (::poll(&p, 1, 100) == 0 && clock.elapsed() < 20000)
        drain(master, seen, 10);
    QVERIFY2(p.revents & POLLIN, seen.constData());

    QCOMPARE(kill(pid, SIGINT), 0);
    QVERIFY2(readUntil(master, seen, "orvic-play: stopping (Ctrl-C again ends at once)\r\n", 10000), seen.constData());
    if (twice)
        QCOMPARE(kill(pid, SIGINT), 0);
    const int code = waitForEnd(pid, master, seen, 10000);
    ::close(master);
    ::close(server);
    QCOMPARE(code, 130);
    if (twice) {
        QVERIFY2(seen.contains("orvic-play: ended\r\n"), seen.constData());
        QVERIFY2(!seen.contains("did not stop in time"), seen.constData());
    } else {
        QVERIFY2(seen.contains("orvic-play: the session did not stop in time, ended\r\n"), seen.constData());
    }
}

QTEST_GUILESS_MAIN(tst_OrvicPlay)
#include "tst_orvicplay.moc"
