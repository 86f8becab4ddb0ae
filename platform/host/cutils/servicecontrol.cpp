#include "servicecontrol.h"

#include <hostruntime.h>
#include <pswire.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace hostcutils {

namespace {

// A daemon gets this long to end on SIGTERM before it is killed.
const int kStopGraceMs = 300;
// Upper bounds of the waits for a started daemon to take its instance lock
// and for a killed one to let go of it.
const int kStartWaitMs = 5000;
const int kKillWaitMs = 2000;
// An answering daemon replies in well under a millisecond; this bounds the
// status check of a hung one.
const int kPingTimeoutMs = 150;
const int kPollStepMs = 2;

void sleepMs(int ms)
{
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

long long monotonicMs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Exclusive hold of the control lock: starts and stops of all processes of
// the user run one at a time.
class ControlLock
{
public:
    explicit ControlLock(const std::string &dir)
        : m_fd(::open(hostruntime::controlLockPath(dir).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600))
    {
        if (m_fd >= 0) {
            while (::flock(m_fd, LOCK_EX) != 0 && errno == EINTR) {
            }
        }
    }
    ~ControlLock()
    {
        if (m_fd >= 0)
            ::close(m_fd); // releases the lock
    }
    ControlLock(const ControlLock &) = delete;
    ControlLock &operator=(const ControlLock &) = delete;
    bool held() const { return m_fd >= 0; }

private:
    int m_fd;
};

// Waits until `done()` holds or `timeoutMs` passed.
template <typename Predicate>
bool waitFor(Predicate done, int timeoutMs)
{
    const long long deadline = monotonicMs() + timeoutMs;
    while (!done()) {
        if (monotonicMs() >= deadline)
            return done();
        sleepMs(kPollStepMs);
    }
    return true;
}

// Starts `argv[0]` as a daemon of its own session, re-parented away from the
// caller (double fork) so that the caller never has to reap it. Only
// async-signal-safe calls happen between fork and exec: the caller may be a
// multi-threaded Qt application.
bool spawnDetached(char *const argv[], const char *logFile)
{
    int status[2];
    if (::pipe2(status, O_CLOEXEC) != 0)
        return false;
    const pid_t child = ::fork();
    if (child < 0) {
        ::close(status[0]);
        ::close(status[1]);
        return false;
    }
    if (child == 0) {
        ::setsid();
        const pid_t daemon = ::fork();
        if (daemon != 0)
            ::_exit(daemon < 0 ? 1 : 0);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        struct sigaction dfl{};
        dfl.sa_handler = SIG_DFL;
        for (int sig : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGCHLD})
            ::sigaction(sig, &dfl, nullptr);
        // The daemon keeps no directory of the starting application busy.
        if (::chdir("/") != 0)
            ::_exit(127);
        const int in = ::open("/dev/null", O_RDONLY);
        const int out = ::open(logFile, O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (in >= 0)
            ::dup2(in, 0);
        if (out >= 0) {
            ::dup2(out, 1);
            ::dup2(out, 2);
        }
        // Descriptors of the starting application stay with it.
        if (status[1] > 3)
            ::close_range(3, unsigned(status[1]) - 1, 0);
        ::close_range(unsigned(status[1]) + 1, ~0u, 0);
        ::execv(argv[0], argv);
        const int error = errno;
        (void)!::write(status[1], &error, sizeof error);
        ::_exit(127);
    }
    ::close(status[1]);
    int waitStatus = 0;
    while (::waitpid(child, &waitStatus, 0) < 0 && errno == EINTR) {
    }
    int execError = 0;
    ssize_t n;
    while ((n = ::read(status[0], &execError, sizeof execError)) < 0 && errno == EINTR) {
    }
    ::close(status[0]);
    return WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == 0 && n == 0;
}

bool daemonPresent(const std::string &dir)
{
    return hostruntime::instanceLockHolder(dir) != 0;
}

} // namespace

std::string serviceExecutable()
{
    if (const char *configured = std::getenv("ORVIC_PSSERVER")) {
        if (*configured)
            return configured;
    }
    Dl_info info{};
    if (::dladdr(reinterpret_cast<void *>(&serviceExecutable), &info) && info.dli_fname) {
        std::string library = info.dli_fname;
        const size_t slash = library.rfind('/');
        const std::string dir = slash == std::string::npos ? std::string(".") : library.substr(0, slash);
        return dir + "/" + kServiceName;
    }
    return kServiceName;
}

int startService(const std::string &dir)
{
    if (!hostruntime::ensureRuntimeDirectory(dir))
        return -1;
    ControlLock lock(dir);
    if (!lock.held())
        return -1;
    if (daemonPresent(dir))
        return 0;

    std::string executable = serviceExecutable();
    if (::access(executable.c_str(), X_OK) != 0)
        return -1;
    std::string option = "--runtime-dir";
    std::string directory = dir;
    char *const argv[] = {&executable[0], &option[0], &directory[0], nullptr};
    const std::string log = hostruntime::logPath(dir);
    if (!spawnDetached(argv, log.c_str()))
        return -1;
    // The daemon takes its instance lock first thing; once it holds it, a
    // start waiting behind ours sees it and does not start another one.
    return waitFor([&] { return daemonPresent(dir); }, kStartWaitMs) ? 0 : -1;
}

int stopService(const std::string &dir)
{
    ControlLock lock(dir);
    if (!lock.held())
        return -1;
    const pid_t pid = hostruntime::instanceLockHolder(dir);
    if (pid == 0)
        return 0;
    ::kill(pid, SIGTERM);
    // A stopped process cannot act on SIGTERM: no grace for it.
    if (!hostruntime::isProcessStopped(pid)
        && waitFor([&] { return !daemonPresent(dir); }, kStopGraceMs))
        return 0;
    // Still there: hung, or stopped with SIGSTOP (SIGTERM stays pending then).
    ::kill(pid, SIGKILL);
    return waitFor([&] { return !daemonPresent(dir); }, kKillWaitMs) ? 0 : -1;
}

std::string serviceStatus(const std::string &dir)
{
    const pid_t pid = hostruntime::instanceLockHolder(dir);
    if (pid == 0)
        return pswire::kStatusStopped;
    if (hostruntime::isProcessStopped(pid))
        return pswire::kStatusUnresponsive;
    switch (hostruntime::ping(hostruntime::socketPath(dir), kPingTimeoutMs)) {
    case hostruntime::PingResult::Answered:
        return pswire::kStatusRunning;
    case hostruntime::PingResult::NoListener:
        return pswire::kStatusStarting;
    case hostruntime::PingResult::NoAnswer:
        break;
    }
    // The daemon may have gone while we waited for its answer.
    return daemonPresent(dir) ? pswire::kStatusUnresponsive : pswire::kStatusStopped;
}

} // namespace hostcutils
