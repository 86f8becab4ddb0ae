#include "servicecontrol.h"

#include <hostruntime.h>
#include <pswire.h>

#include <string>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

namespace hostcutils {

namespace {

// A daemon gets this long to end on SIGTERM before it is killed.
const int kStopGraceMs = 300;
// Upper bounds of the waits for a started daemon to answer (its GStreamer
// start-up included, slow under load or sanitizers) and for a killed one to
// let go of its lock.
const int kStartWaitMs = 10000;
// Daemons that end without a word before they answer (killed or crashed
// while starting) are replaced this many times in one start.
const int kMaxSpawns = 3;
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

// What the starting side learns through the status pipe: the daemon's pid
// (from the intermediate child), or why exec failed (from the daemon). Each
// record is written whole (far below PIPE_BUF).
struct SpawnRecord
{
    enum Kind : int { DaemonPid = 1, ExecError = 2 };
    int kind;
    int value;
};

// Starts `argv[0]` as a daemon of its own session, re-parented away from the
// caller (double fork) so that the caller never has to reap it. Only
// async-signal-safe calls happen between fork and exec: the caller may be a
// multi-threaded Qt application. Returns the daemon's pid, or 0 with the
// reason in `error`.
pid_t spawnDetached(char *const argv[], const char *logFile, std::string *error)
{
    int status[2];
    if (::pipe2(status, O_CLOEXEC) != 0) {
        *error = std::string("no pipe: ") + std::strerror(errno);
        return 0;
    }
    const pid_t child = ::fork();
    if (child < 0) {
        *error = std::string("cannot fork: ") + std::strerror(errno);
        ::close(status[0]);
        ::close(status[1]);
        return 0;
    }
    if (child == 0) {
        ::setsid();
        const pid_t daemon = ::fork();
        if (daemon != 0) {
            const SpawnRecord record{SpawnRecord::DaemonPid, int(daemon)};
            (void)!::write(status[1], &record, sizeof record);
            ::_exit(daemon < 0 ? 1 : 0);
        }
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
        const SpawnRecord record{SpawnRecord::ExecError, errno};
        (void)!::write(status[1], &record, sizeof record);
        ::_exit(127);
    }
    ::close(status[1]);
    int waitStatus = 0;
    while (::waitpid(child, &waitStatus, 0) < 0 && errno == EINTR) {
    }
    pid_t daemon = 0;
    int execError = 0;
    SpawnRecord record;
    ssize_t n;
    // Until every write end is gone: the daemon's closes on exec.
    while ((n = ::read(status[0], &record, sizeof record)) != 0) {
        if (n < 0 && errno == EINTR)
            continue;
        if (n != ssize_t(sizeof record))
            break;
        if (record.kind == SpawnRecord::DaemonPid)
            daemon = pid_t(record.value);
        else
            execError = record.value;
    }
    ::close(status[0]);
    if (execError != 0) {
        *error = std::string("cannot execute ") + argv[0] + ": " + std::strerror(execError);
        return 0;
    }
    if (!WIFEXITED(waitStatus) || WEXITSTATUS(waitStatus) != 0 || daemon <= 0) {
        *error = "cannot fork the daemon";
        return 0;
    }
    return daemon;
}

// Alive, not a zombie waiting to be reaped by whoever adopted it.
bool processAlive(pid_t pid)
{
    if (::kill(pid, 0) != 0 && errno == ESRCH)
        return false;
    const std::string path = "/proc/" + std::to_string(pid) + "/stat";
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char stat[512];
    const ssize_t n = ::read(fd, stat, sizeof stat - 1);
    ::close(fd);
    if (n <= 0)
        return false;
    stat[n] = '\0';
    const char *close = std::strrchr(stat, ')');
    return close && close[1] == ' ' && close[2] != 'Z' && close[2] != 'X';
}

off_t fileSize(const std::string &path)
{
    struct stat st{};
    return ::stat(path.c_str(), &st) == 0 ? st.st_size : 0;
}

// The last line that the daemon logged after `offset` in its own format,
// without its time and tag ("12:00:00.000 W/psserver[42] "); else the last
// line of any other kind (a runtime's report); empty when nothing came.
// Lines of other kinds may follow the daemon's last word, e.g. a sanitizer's
// statistics at exit.
std::string lastLoggedLine(const std::string &path, off_t offset)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return std::string();
    std::string text;
    char buffer[4096];
    ssize_t n;
    if (::lseek(fd, offset, SEEK_SET) == offset) {
        while ((n = ::read(fd, buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR)) {
            if (n > 0)
                text.append(buffer, size_t(n));
        }
    }
    ::close(fd);
    std::string other;
    size_t end = text.size();
    while (end > 0) {
        const size_t newline = text.rfind('\n', end - 1);
        const size_t begin = newline == std::string::npos ? 0 : newline + 1;
        std::string line = text.substr(begin, end - begin);
        end = newline == std::string::npos ? 0 : newline;
        while (!line.empty() && (line.back() == ' ' || line.back() == '\r'))
            line.pop_back();
        if (line.empty())
            continue;
        const size_t tag = line.find("/psserver[");
        const size_t tagEnd = tag == std::string::npos ? tag : line.find("] ", tag);
        if (tagEnd != std::string::npos) {
            // Start-up news ("listening on ...") is no reason to give up: a
            // daemon that said only such things and ended was killed.
            const char level = tag > 0 ? line[tag - 1] : '?';
            if (level == 'I' || level == 'D')
                continue;
            return line.substr(tagEnd + 2);
        }
        if (other.empty())
            other = line;
    }
    return other;
}

// The one line that tells whoever asked for the service why it is not there.
void reportNotStarted(const std::string &cause, const std::string &logFile)
{
    std::string line = "orvic property service: psserver did not start: " + cause;
    if (!logFile.empty())
        line += " (log: " + logFile + ")";
    line += "\n";
    (void)!::write(STDERR_FILENO, line.data(), line.size());
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
    if (!hostruntime::ensureRuntimeDirectory(dir)) {
        reportNotStarted("runtime directory " + dir + " is not usable (not a directory of this user)",
                         std::string());
        return -1;
    }
    ControlLock lock(dir);
    if (!lock.held()) {
        reportNotStarted(std::string("cannot open ") + hostruntime::controlLockPath(dir) + ": "
                         + std::strerror(errno), std::string());
        return -1;
    }
    const std::string log = hostruntime::logPath(dir);
    const long long deadline = monotonicMs() + kStartWaitMs;
    pid_t spawned = 0;
    int spawns = 0;
    off_t logOffset = 0;
    std::string cause;
    for (;;) {
        const pid_t holder = hostruntime::instanceLockHolder(dir);
        if (holder != 0) {
            // A daemon frozen by SIGSTOP is there all the same; ending it is
            // ctl.stop's business. One stopped by a tracer is waited for: a
            // leak checker stops a sanitized daemon that way on its way out.
            if (hostruntime::processState(holder) == 'T'
                || hostruntime::ping(dir, kPingTimeoutMs) == hostruntime::PingResult::Answered)
                return 0;
            // Still starting, or on its way out: a killed daemon holds its
            // lock until its threads and memory are torn down. Returning now
            // would leave the caller waiting for "running" from a daemon that
            // is gone the next moment.
            if (monotonicMs() >= deadline) {
                if (spawned == 0)
                    return 0;
                reportNotStarted("no answer within " + std::to_string(kStartWaitMs / 1000)
                                 + " s, it may still come up", log);
                return 0;
            }
            sleepMs(kPollStepMs);
            continue;
        }
        if (spawned != 0) {
            if (processAlive(spawned)) {
                if (monotonicMs() < deadline) {
                    sleepMs(kPollStepMs); // not at its lock yet
                    continue;
                }
                cause = "it did not take its instance lock within " + std::to_string(kStartWaitMs / 1000) + " s";
                break;
            }
            // It ended before it answered. A daemon that gives up says why
            // in its log; one that ends without a word was killed or crashed
            // and is started again.
            cause = lastLoggedLine(log, logOffset);
            if (!cause.empty())
                break;
            cause = "it ended before it answered (killed or crashed)";
            spawned = 0;
        }
        if (spawns == kMaxSpawns || monotonicMs() >= deadline)
            break;

        std::string executable = serviceExecutable();
        if (::access(executable.c_str(), X_OK) != 0) {
            cause = executable + " is not executable: " + std::strerror(errno);
            break;
        }
        std::string option = "--runtime-dir";
        std::string directory = dir;
        char *const argv[] = {&executable[0], &option[0], &directory[0], nullptr};
        logOffset = fileSize(log);
        ++spawns;
        spawned = spawnDetached(argv, log.c_str(), &cause);
        if (spawned == 0)
            break;
    }
    reportNotStarted(cause, log);
    return -1;
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
    switch (hostruntime::ping(dir, kPingTimeoutMs)) {
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
