#include "interrupts.h"

#include "terminal.h"

#include <QtCore/QMetaObject>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QObject>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace interrupts {

namespace {

enum class Phase { Starting, Running, Ending };

// Bytes on the pipe: a signal came, or the watcher is to end.
const char kSignalByte = 's';
const char kEndByte = 'x';

int g_pipe[2] = {-1, -1};
volatile sig_atomic_t g_signals = 0;
std::thread g_watcher;

QMutex g_mutex;
Phase g_phase = Phase::Starting;
QObject *g_context = nullptr;
std::function<void()> g_quit;

void say(const char *text)
{
    (void)!::write(STDERR_FILENO, text, std::strlen(text));
}

// Only async-signal-safe calls: it runs in the signal handler too.
[[noreturn]] void endNow(const char *why)
{
    Terminal::restoreNow();
    say(why);
    ::_exit(kInterruptedExitCode);
}

void onSignal(int)
{
    if (++g_signals >= 2)
        endNow("\norvic-play: ended\n");
    const int saved = errno;
    (void)!::write(g_pipe[1], &kSignalByte, 1);
    errno = saved;
}

// Waits for one byte up to `timeoutMs` (-1: no limit); 0 when none came.
char waitForByte(int timeoutMs)
{
    pollfd p{g_pipe[0], POLLIN, 0};
    for (;;) {
        const int ready = ::poll(&p, 1, timeoutMs);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return 0;
        char byte = 0;
        const ssize_t n = ::read(g_pipe[0], &byte, 1);
        if (n < 0 && errno == EINTR)
            continue;
        return n == 1 ? byte : kEndByte;
    }
}

void watch()
{
    bool noticeGiven = false;
    for (;;) {
        Phase phase;
        {
            QMutexLocker lock(&g_mutex);
            phase = g_phase;
        }
        const bool waitingForService = phase == Phase::Starting && !noticeGiven;
        const char byte = waitForByte(waitingForService ? kWaitNoticeMs : -1);
        if (byte == kEndByte)
            return;
        if (byte == 0) {
            noticeGiven = true;
            QMutexLocker lock(&g_mutex);
            if (g_phase == Phase::Starting)
                say("orvic-play: waiting for the playback service to start (Ctrl-C ends)\n");
            continue;
        }

        {
            // Held while posting: the loop's end (leaveEventLoop) waits for
            // it, so the context cannot go meanwhile; a quit posted to it is
            // dropped with it.
            QMutexLocker lock(&g_mutex);
            if (g_phase == Phase::Starting)
                endNow("\norvic-play: interrupted while waiting for the playback service\n");
            if (g_phase == Phase::Ending || !g_context)
                endNow("\norvic-play: interrupted\n");
            say("\norvic-play: stopping (Ctrl-C again ends at once)\n");
            QMetaObject::invokeMethod(g_context, g_quit, Qt::QueuedConnection);
        }
        if (waitForByte(kGraceMs) != kEndByte)
            endNow("orvic-play: the session did not stop in time, ended\n");
        return;
    }
}

} // namespace

bool install()
{
    if (::pipe2(g_pipe, O_CLOEXEC) != 0)
        return false;
    struct sigaction action{};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    // Blocking calls of the main thread are resumed; the watcher acts.
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
    g_watcher = std::thread(watch);
    return true;
}

void enterEventLoop(QObject *context, std::function<void()> quit)
{
    QMutexLocker lock(&g_mutex);
    g_phase = Phase::Running;
    g_context = context;
    g_quit = std::move(quit);
}

void leaveEventLoop()
{
    QMutexLocker lock(&g_mutex);
    g_phase = Phase::Ending;
    g_context = nullptr;
    g_quit = nullptr;
}

void uninstall()
{
    if (!g_watcher.joinable())
        return;
    (void)!::write(g_pipe[1], &kEndByte, 1);
    g_watcher.join();
}

} // namespace interrupts
