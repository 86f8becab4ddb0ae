#include "runner.h"

#include "benchcore.h"
#include "httpfileserver.h"
#include "report.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QProcess>
#include <QtCore/QStandardPaths>
#include <QtCore/QTemporaryDir>
#include <QtCore/QTextStream>
#include <QtCore/QThread>

#include <cstdio>

namespace orvicbench {

namespace {

const int kWorkerTimeoutMs = 240000;

struct Plan
{
    int rounds;
    int openReps;
    int transportReps;
    int commandReps;
    int detectReps;
    int recoveryReps;
    int concurrentReps;
};

void progress(const QString &text)
{
    std::fprintf(stderr, "bench: %s\n", qPrintable(text));
    std::fflush(stderr);
}

QString loadAverage()
{
    QFile f(QStringLiteral("/proc/loadavg"));
    return f.open(QIODevice::ReadOnly) ? QString::fromLatin1(f.readAll()).section(QLatin1Char(' '), 0, 2)
                                       : QString();
}

// Runs one measurement set in a process of its own and adds its samples.
bool runWorker(const QStringList &arguments, Samples *samples)
{
    QProcess worker;
    worker.setProcessChannelMode(QProcess::SeparateChannels);
    worker.start(QCoreApplication::applicationFilePath(), QStringList{QStringLiteral("worker")} + arguments);
    if (!worker.waitForStarted(10000) || !worker.waitForFinished(kWorkerTimeoutMs)) {
        worker.kill();
        worker.waitForFinished(5000);
        progress(QStringLiteral("%1: did not finish").arg(arguments.join(QLatin1Char(' '))));
        return false;
    }
    const QList<QByteArray> lines = worker.readAllStandardOutput().split('\n');
    int count = 0;
    for (const QByteArray &line : lines) {
        const QList<QByteArray> fields = line.split('\t');
        if (fields.value(0) == "sample" && fields.size() == 3) {
            (*samples)[QString::fromUtf8(fields.at(1))].append(fields.at(2).toDouble());
            ++count;
        } else if (fields.value(0) == "note") {
            progress(QString::fromUtf8(line.mid(5)));
        }
    }
    const bool ok = worker.exitStatus() == QProcess::NormalExit && worker.exitCode() == 0;
    if (!ok) {
        const QByteArray err = worker.readAllStandardError();
        progress(QStringLiteral("%1: exit %2, %3 samples; last output: %4")
                         .arg(arguments.join(QLatin1Char(' ')))
                         .arg(worker.exitCode())
                         .arg(count)
                         .arg(QString::fromUtf8(err.right(600))));
    }
    return ok;
}

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(data) == data.size();
}

} // namespace

int runBenchmarks(const RunOptions &options)
{
    const Plan plan = options.smoke ? Plan{1, 1, 1, 5, 1, 1, 1} : Plan{3, 5, 3, 100, 10, 3, 1};
    QDir media(options.mediaDir);
    QDir().mkpath(options.outDir);

    // A runtime directory of the run's own, so that the run never meets a
    // service of anybody else's; short, for the socket's path.
    QTemporaryDir runtime(QStringLiteral("/tmp/orvic-bench-XXXXXX"));
    if (!runtime.isValid()) {
        progress(QStringLiteral("no runtime directory"));
        return 2;
    }
    qputenv("ORVIC_RUNTIME_DIR", runtime.path().toUtf8());
    // Headless, and the library's log lines off: a command's cost is
    // measured without them.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("QT_LOGGING_RULES", "default.debug=false");

    HttpFileServer http(media.path());
    const QVector<Medium> mediaList = {
        {QStringLiteral("mp3"), QStringLiteral("MP3, tagged, with cover")},
        {QStringLiteral("mp4"), QStringLiteral("MP4, H.264 + 2 AAC + subtitles")},
        {QStringLiteral("mkv"), QStringLiteral("MKV, H.264 + AAC + subtitles")},
        {QStringLiteral("ogg"), QStringLiteral("Ogg Vorbis")},
        {QStringLiteral("wav"), QStringLiteral("WAV")},
        {QStringLiteral("http"), QStringLiteral("HTTP on loopback, MP4")},
    };
    const QMap<QString, QString> urls = {
        {QStringLiteral("mp3"), media.filePath(QStringLiteral("tagged-gbk.mp3"))},
        {QStringLiteral("mp4"), media.filePath(QStringLiteral("movie.mp4"))},
        {QStringLiteral("mkv"), media.filePath(QStringLiteral("movie.mkv"))},
        {QStringLiteral("ogg"), media.filePath(QStringLiteral("audio.ogg"))},
        {QStringLiteral("wav"), media.filePath(QStringLiteral("audio.wav"))},
        {QStringLiteral("http"), http.url(QStringLiteral("movie.mp4"))},
    };
    for (auto it = urls.cbegin(); it != urls.cend(); ++it) {
        if (it.key() != QLatin1String("http") && !QFileInfo::exists(it.value())) {
            progress(QStringLiteral("missing medium %1").arg(it.value()));
            return 2;
        }
    }
    const QString movie = urls.value(QStringLiteral("mp4"));
    const QString loadBefore = loadAverage();
    const QDateTime started = QDateTime::currentDateTimeUtc();

    Samples samples;
    int failedWorkers = 0;
    auto run = [&](const QStringList &arguments) {
        progress(arguments.join(QLatin1Char(' ')));
        if (!runWorker(arguments, &samples))
            ++failedWorkers;
    };
    const QString rounds = QString::number(plan.rounds);
    for (int round = 0; round < plan.rounds; ++round) {
        progress(QStringLiteral("round %1 of %2").arg(round + 1).arg(rounds));
        // Which player goes first alternates from round to round; the Qt
        // back end (ours through QMediaPlayer) takes its turn among them.
        const QStringList players = round % 2 ? QStringList{QStringLiteral("stock"), QStringLiteral("ours")}
                                              : QStringList{QStringLiteral("ours"), QStringLiteral("stock")};
        QStringList withQt = players;
        withQt.insert(round % 3 == 2 ? 0 : round % 3 == 1 ? 1 : 2, QStringLiteral("qt"));
        for (const Medium &m : mediaList) {
            for (const QString &player : withQt)
                run({QStringLiteral("open"), player, urls.value(m.tag), m.tag, QString::number(plan.openReps)});
        }
        for (const QString &player : withQt)
            run({QStringLiteral("transport"), player, movie, QStringLiteral("mp4"), QString::number(plan.transportReps)});
        run({QStringLiteral("command"), QStringLiteral("ours"), movie, QStringLiteral("mp4"),
             QString::number(plan.commandReps)});
        run({QStringLiteral("detect"), QStringLiteral("ours"), QString(), QString(), QString::number(plan.detectReps)});
        for (const QString &sig : {QStringLiteral("kill"), QStringLiteral("stop")})
            run({QStringLiteral("recovery"), sig, movie, QStringLiteral("mp4"), QString::number(plan.recoveryReps)});
        for (const QString &count : {QStringLiteral("1"), QStringLiteral("4"), QStringLiteral("16")})
            run({QStringLiteral("concurrent"), QStringLiteral("ours"), movie, count, QString::number(plan.concurrentReps)});
        for (const QString &player : players)
            run({QStringLiteral("memory"), player, movie, QStringLiteral("mp4"), QStringLiteral("1")});
    }
    stopService();

    const Report report(samples, mediaList);
    const QString table = report.markdown();
    QJsonObject json = report.json();
    json.insert(QStringLiteral("mode"), options.smoke ? QStringLiteral("smoke") : QStringLiteral("full"));
    json.insert(QStringLiteral("started_utc"), started.toString(Qt::ISODate));
    json.insert(QStringLiteral("cores"), QThread::idealThreadCount());
    json.insert(QStringLiteral("load_before"), loadBefore);
    json.insert(QStringLiteral("load_after"), loadAverage());
    json.insert(QStringLiteral("failed_workers"), failedWorkers);

    const QDir out(options.outDir);
    bool written = writeFile(out.filePath(QStringLiteral("bench.md")), table.toUtf8())
            && writeFile(out.filePath(QStringLiteral("bench.json")), QJsonDocument(json).toJson())
            && writeFile(out.filePath(QStringLiteral("open-latency.dat")), report.plotData().toUtf8())
            && writeFile(out.filePath(QStringLiteral("open-latency.gp")),
                         Report::plotScript(out.filePath(QStringLiteral("open-latency.dat")),
                                            out.filePath(QStringLiteral("open-latency.png")))
                                 .toUtf8());
    if (!written)
        progress(QStringLiteral("could not write the results into %1").arg(out.path()));

    std::printf("%s\n", qPrintable(QStringLiteral("%1 cores, load average %2 before, %3 after; %4 run, %5 UTC")
                                           .arg(QThread::idealThreadCount())
                                           .arg(loadBefore, loadAverage(),
                                                options.smoke ? QStringLiteral("smoke") : QStringLiteral("full"),
                                                started.toString(QStringLiteral("yyyy-MM-dd HH:mm")))));
    std::printf("\n%s", table.toUtf8().constData());
    std::fflush(stdout);

    const QStringList missing = report.missingRows();
    if (!missing.isEmpty()) {
        progress(QStringLiteral("rows without a number: %1").arg(missing.join(QStringLiteral(", "))));
        return 1;
    }
    return written ? 0 : 1;
}

} // namespace orvicbench
