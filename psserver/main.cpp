// psserver: the playback service. One GStreamer engine per connected client
// player, served on a local socket in the user's runtime directory.
//
//   psserver [--runtime-dir DIR]
//
// Started and stopped through the property service ("ctl.start"/"ctl.stop"
// of "psserver"); runs until SIGTERM/SIGINT, or until its instance lock file
// disappears (its runtime directory was removed).
#include "hostruntime.h"
#include "playbinengine.h"
#include "playbinpool.h"
#include "pluginwarmup.h"
#include "server.h"
#include "videoout.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <gst/gst.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

int g_signalPipe[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    (void)!::write(g_signalPipe[1], &byte, 1);
}

void logMessage(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    static const char levels[] = {'D', 'W', 'C', 'F', 'I'};
    const char level = type < int(sizeof levels) ? levels[type] : '?';
    std::fprintf(stderr, "%s %c/psserver[%d] %s\n",
                 qPrintable(QDateTime::currentDateTime().toString(QStringLiteral("HH:mm:ss.zzz"))),
                 level, int(::getpid()), qPrintable(message));
    std::fflush(stderr);
}

// Holds the instance lock for the life of the process; the lock is what tells
// the property service that a daemon is there. -1 when another daemon has it.
int takeInstanceLock(const std::string &dir)
{
    const int fd = ::open(hostruntime::instanceLockPath(dir).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return -1;
    struct flock lock{};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    if (::fcntl(fd, F_SETLK, &lock) != 0) {
        ::close(fd);
        return -1;
    }
    const std::string pid = std::to_string(::getpid()) + "\n";
    if (::ftruncate(fd, 0) == 0)
        (void)!::write(fd, pid.data(), pid.size());
    return fd;
}

ino_t inodeOf(const std::string &path)
{
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0 ? st.st_ino : 0;
}

} // namespace

int main(int argc, char *argv[])
{
    qInstallMessageHandler(logMessage);
    std::string dir;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--runtime-dir") == 0 && i + 1 < argc)
            dir = argv[++i];
    }
    if (dir.empty())
        dir = hostruntime::runtimeDirectory();
    if (!hostruntime::ensureRuntimeDirectory(dir)) {
        qCritical("runtime directory %s is not usable", dir.c_str());
        return 1;
    }
    const int lock = takeInstanceLock(dir);
    if (lock < 0) {
        qWarning("another psserver runs for %s", dir.c_str());
        return 1;
    }

    QCoreApplication app(argc, argv);
    gst_init(&argc, &argv);

    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalPipe) != 0)
        return 1;
    QSocketNotifier terminate(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&terminate, &QSocketNotifier::activated, &app, [&app] {
        qInfo("terminating on signal");
        app.quit();
    });
    struct sigaction action{};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    for (int sig : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(sig, &action, nullptr);
    ::signal(SIGPIPE, SIG_IGN);

    const SinkConfig sinks = SinkConfig::fromEnvironment();
    qInfo("audio sink: %s, video sink: %s",
          sinks.audioSink.isEmpty() ? "fakesink sync=true" : sinks.audioSink.constData(),
          sinks.videoSink.isEmpty() ? "fakesink sync=true" : sinks.videoSink.constData());
    Server server(dir, sinks);
    if (!server.listen())
        return 2;
    qInfo("listening on %s", hostruntime::socketName(dir).c_str());
    // Video to clients' surfaces; without it the service plays on, headless.
    VideoOutServer videoOut(dir);
    if (videoOut.listen())
        qInfo("video on %s", videowire::socketName(dir).c_str());
    // While the first clients connect and create their engines.
    PluginWarmup warmup;

    // A daemon whose runtime directory was removed (its lock file with it)
    // is out of reach of the property service: it ends instead of lingering
    // and holding the socket name.
    const std::string lockFile = hostruntime::instanceLockPath(dir);
    const ino_t locked = inodeOf(lockFile);
    QTimer lockCheck;
    QObject::connect(&lockCheck, &QTimer::timeout, &app, [&] {
        if (inodeOf(lockFile) != locked) {
            qWarning("lock file %s is gone", lockFile.c_str());
            app.quit();
        }
    });
    lockCheck.start(1000);

    const int result = app.exec();
    server.shutdown();
    warmup.wait(); // a stop right after the start may find it still loading
    playbinpool::clear(); // the engines are gone; their kept playbins go before GStreamer
    gst_deinit();
    ::close(lock);
    qInfo("exit");
    return result;
}
