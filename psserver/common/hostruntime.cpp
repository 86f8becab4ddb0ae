#include "hostruntime.h"
#include "pswire.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

namespace hostruntime {

namespace {

std::string envOrEmpty(const char *name)
{
    const char *value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

long long monotonicMs()
{
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<long long>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void putWord(unsigned char *out, uint32_t value)
{
    out[0] = static_cast<unsigned char>(value >> 24);
    out[1] = static_cast<unsigned char>(value >> 16);
    out[2] = static_cast<unsigned char>(value >> 8);
    out[3] = static_cast<unsigned char>(value);
}

uint32_t getWord(const unsigned char *in)
{
    return (uint32_t(in[0]) << 24) | (uint32_t(in[1]) << 16) | (uint32_t(in[2]) << 8) | uint32_t(in[3]);
}

// RAII for a file descriptor.
class Fd
{
public:
    explicit Fd(int fd) : m_fd(fd) {}
    ~Fd()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

// FNV-1a: stable across processes and builds, which std::hash is not.
uint64_t fnv1a(const std::string &text)
{
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char c : text) {
        hash ^= c;
        hash *= 1099511628211ull;
    }
    return hash;
}

} // namespace

std::string runtimeDirectory()
{
    std::string dir = envOrEmpty("ORVIC_RUNTIME_DIR");
    if (!dir.empty())
        return dir;
    const std::string xdg = envOrEmpty("XDG_RUNTIME_DIR");
    if (!xdg.empty())
        return xdg + "/orvic";
    return "/tmp/orvic-" + std::to_string(getuid());
}

bool ensureRuntimeDirectory(const std::string &dir)
{
    if (dir.empty())
        return false;
    if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)
        return false;
    struct stat st{};
    if (::lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
        return false;
    // Somebody else's directory under a shared /tmp must not be used.
    return st.st_uid == getuid();
}

std::string instanceLockPath(const std::string &dir) { return dir + "/psserver.lock"; }
std::string controlLockPath(const std::string &dir) { return dir + "/psserver.ctl"; }
std::string logPath(const std::string &dir) { return dir + "/psserver.log"; }
std::string propertyDirectory(const std::string &dir) { return dir + "/properties"; }

pid_t instanceLockHolder(const std::string &dir)
{
    Fd fd(::open(instanceLockPath(dir).c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0)
        return 0;
    struct flock query{};
    query.l_type = F_WRLCK;
    query.l_whence = SEEK_SET;
    query.l_start = 0;
    query.l_len = 0;
    if (::fcntl(fd.get(), F_GETLK, &query) != 0 || query.l_type == F_UNLCK)
        return 0;
    return query.l_pid;
}

bool isProcessStopped(pid_t pid)
{
    const char state = processState(pid);
    return state == 'T' || state == 't';
}

char processState(pid_t pid)
{
    const std::string path = "/proc/" + std::to_string(pid) + "/stat";
    Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0)
        return 0;
    char stat[512];
    const ssize_t n = ::read(fd.get(), stat, sizeof stat - 1);
    if (n <= 0)
        return 0;
    stat[n] = '\0';
    // "pid (comm) S ...": the state follows the last ')' (comm may hold any byte).
    const char *close = std::strrchr(stat, ')');
    return close && close[1] == ' ' ? close[2] : 0;
}

std::string socketName(const std::string &dir)
{
    // "/a/b", "/a/b/" and "/a/./b" are one directory.
    std::string canonical = dir;
    if (char *resolved = ::realpath(dir.c_str(), nullptr)) {
        canonical = resolved;
        std::free(resolved);
    }
    char hash[17];
    std::snprintf(hash, sizeof hash, "%016llx", static_cast<unsigned long long>(fnv1a(canonical)));
    return "@orvic-psserver-" + std::to_string(getuid()) + "-" + hash;
}

socklen_t abstractAddress(const std::string &name, sockaddr_un *address)
{
    const std::string bare = name.substr(1); // without the '@'
    *address = sockaddr_un{};
    address->sun_family = AF_UNIX;
    std::memcpy(address->sun_path + 1, bare.data(), bare.size());
    return socklen_t(offsetof(sockaddr_un, sun_path) + 1 + bare.size());
}

int listenOnAbstractSocket(const std::string &name, int type, std::string *error)
{
    sockaddr_un address;
    const socklen_t length = abstractAddress(name, &address);
    const int fd = ::socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = std::strerror(errno);
        return -1;
    }
    if (::bind(fd, reinterpret_cast<const sockaddr *>(&address), length) != 0
        || ::listen(fd, SOMAXCONN) != 0) {
        *error = std::strerror(errno);
        ::close(fd);
        return -1;
    }
    return fd;
}

int listenOnServiceSocket(const std::string &dir, std::string *error)
{
    return listenOnAbstractSocket(socketName(dir), SOCK_STREAM, error);
}

int connectToServiceSocket(const std::string &dir, int timeoutMs)
{
    sockaddr_un address;
    const socklen_t length = abstractAddress(socketName(dir), &address);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    // A Unix socket connects at once unless the listen queue is full; then
    // the send timeout bounds the wait.
    timeval limit{timeoutMs / 1000, (timeoutMs % 1000) * 1000};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    int result;
    while ((result = ::connect(fd, reinterpret_cast<const sockaddr *>(&address), length)) != 0
           && errno == EINTR) {
    }
    if (result == 0 && !peerIsThisUser(fd)) {
        result = -1;
        errno = ECONNREFUSED;
    }
    if (result != 0) {
        const int error = errno; // for the caller, past close()
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

bool peerIsThisUser(int fd)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == getuid();
}

PingResult ping(const std::string &dir, int timeoutMs)
{
    Fd fd(connectToServiceSocket(dir, timeoutMs));
    if (fd.get() < 0)
        return errno == EAGAIN ? PingResult::NoAnswer : PingResult::NoListener;

    const uint32_t sequence = 1;
    unsigned char frame[12];
    putWord(frame, 8);
    putWord(frame + 4, pswire::FramePing);
    putWord(frame + 8, sequence);
    if (::send(fd.get(), frame, sizeof frame, MSG_NOSIGNAL) != ssize_t(sizeof frame))
        return PingResult::NoAnswer;

    unsigned char answer[12];
    size_t received = 0;
    const long long deadline = monotonicMs() + timeoutMs;
    while (received < sizeof answer) {
        const long long left = deadline - monotonicMs();
        if (left <= 0)
            return PingResult::NoAnswer;
        pollfd p{fd.get(), POLLIN, 0};
        const int ready = ::poll(&p, 1, int(left));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0)
            return PingResult::NoAnswer;
        const ssize_t n = ::recv(fd.get(), answer + received, sizeof answer - received, 0);
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (n <= 0)
            return PingResult::NoAnswer;
        received += size_t(n);
    }
    const bool pong = getWord(answer) == 8 && getWord(answer + 4) == pswire::FramePong
            && getWord(answer + 8) == sequence;
    return pong ? PingResult::Answered : PingResult::NoAnswer;
}

} // namespace hostruntime
