// orvic-bench-video: plays one clip through QMediaPlayer onto a counting
// video surface and prints one JSON line: frames shown, frames per second
// of playback and CPU time per frame. The back end is Qt's choice
// (QT_MULTIMEDIA_PREFERRED_PLUGINS): scripts/bench-video.sh runs it once for
// the session's plugin and once for Qt's stock GStreamer back end. With the
// session's plugin the CPU of psserver (which decodes there) is added to
// this process's own.
#include <hostruntime.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTimer>
#include <QtMultimedia/QAbstractVideoSurface>
#include <QtMultimedia/QMediaPlayer>
#include <QtMultimedia/QMediaService>
#include <QtMultimedia/QVideoSurfaceFormat>

#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

namespace {

// CPU seconds (user + system) of this process.
double ownCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec
            + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// CPU seconds of process `pid` from /proc, 0 when it is gone.
double processCpuSeconds(pid_t pid)
{
    if (pid <= 0)
        return 0;
    QFile file(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!file.open(QIODevice::ReadOnly))
        return 0;
    const QByteArray stat = file.readAll();
    // Fields after the command name (which may hold blanks) in parentheses.
    const QList<QByteArray> fields = stat.mid(stat.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return 0;
    return (fields.at(11).toDouble() + fields.at(12).toDouble()) / double(sysconf(_SC_CLK_TCK));
}

// Takes what a widget's surface takes, and reads each frame's first row
// as a renderer would begin to.
class CountingSurface : public QAbstractVideoSurface
{
public:
    QList<QVideoFrame::PixelFormat> supportedPixelFormats(QAbstractVideoBuffer::HandleType type) const override
    {
        if (type != QAbstractVideoBuffer::NoHandle)
            return {};
        return {QVideoFrame::Format_YUV420P, QVideoFrame::Format_RGB32};
    }
    bool present(const QVideoFrame &frame) override
    {
        QVideoFrame mapped(frame);
        if (mapped.map(QAbstractVideoBuffer::ReadOnly)) {
            const uchar *row = mapped.bits();
            for (int i = 0; i < mapped.bytesPerLine(); ++i)
                m_checksum += row[i];
            mapped.unmap();
        }
        if (m_frames == 0)
            m_clock.start();
        ++m_frames;
        m_size = frame.size();
        m_lastMs = m_clock.elapsed();
        return true;
    }

    int frames() const { return m_frames; }
    qint64 spanMs() const { return m_lastMs; }
    QSize size() const { return m_size; }

private:
    QElapsedTimer m_clock;
    int m_frames = 0;
    qint64 m_lastMs = 0;
    QSize m_size;
    quint64 m_checksum = 0;
};

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("clip"), QStringLiteral("Video file to play once."));
    parser.process(app);
    if (parser.positionalArguments().size() != 1) {
        std::fprintf(stderr, "orvic-bench-video: give one clip\n");
        return 64;
    }
    const QString clip = parser.positionalArguments().first();

    QMediaPlayer player;
    CountingSurface surface;
    player.setVideoOutput(&surface);
    const QString backend = player.service() ? QString::fromLatin1(player.service()->metaObject()->className())
                                             : QStringLiteral("none");
    const bool ours = backend == QLatin1String("QOrvicMediaService");
    const pid_t service = ours ? hostruntime::instanceLockHolder(hostruntime::runtimeDirectory()) : 0;

    double cpuStart = 0;
    int exitCode = 0;
    QObject::connect(&player, &QMediaPlayer::mediaStatusChanged, &app, [&](QMediaPlayer::MediaStatus status) {
        if (status == QMediaPlayer::LoadedMedia && player.state() == QMediaPlayer::StoppedState) {
            cpuStart = ownCpuSeconds() + processCpuSeconds(service);
            player.play();
        } else if (status == QMediaPlayer::EndOfMedia || status == QMediaPlayer::InvalidMedia) {
            exitCode = status == QMediaPlayer::EndOfMedia ? 0 : 1;
            app.quit();
        }
    });
    QObject::connect(&player, QOverload<QMediaPlayer::Error>::of(&QMediaPlayer::error), &app, [&] {
        std::fprintf(stderr, "orvic-bench-video: %s\n", qPrintable(player.errorString()));
        exitCode = 1;
        app.quit();
    });
    // A bound on a stuck run; the clip itself decides how long it plays.
    QTimer::singleShot(120000, &app, [&] {
        exitCode = 1;
        app.quit();
    });
    player.setMedia(QUrl::fromLocalFile(QFileInfo(clip).absoluteFilePath()));
    app.exec();
    const double cpu = ownCpuSeconds() + processCpuSeconds(service) - cpuStart;

    const int frames = surface.frames();
    const double seconds = surface.spanMs() / 1000.0;
    QJsonObject row{{"backend", ours ? "orvic" : "stock"},
                    {"service", backend},
                    {"clip", QFileInfo(clip).fileName()},
                    {"width", surface.size().width()},
                    {"height", surface.size().height()},
                    {"frames", frames},
                    {"seconds", seconds},
                    {"fps", seconds > 0 ? (frames - 1) / seconds : 0.0},
                    {"cpuSeconds", cpu},
                    {"cpuMsPerFrame", frames > 0 ? cpu * 1000.0 / frames : 0.0}};
    std::printf("%s\n", QJsonDocument(row).toJson(QJsonDocument::Compact).constData());
    return exitCode != 0 || frames == 0 ? 1 : 0;
}
