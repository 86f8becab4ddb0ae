// Where psserver and its clients meet on a PC: the per-user runtime
// directory, the files inside it, and the checks that tell whether a daemon is
// there and answering. Plain POSIX, no Qt: the property service uses it.
#ifndef PSSERVER_HOSTRUNTIME_H
#define PSSERVER_HOSTRUNTIME_H

#include <string>
#include <sys/socket.h>
#include <sys/types.h>

struct sockaddr_un;

namespace hostruntime {

// $ORVIC_RUNTIME_DIR if set, else $XDG_RUNTIME_DIR/orvic, else /tmp/orvic-<uid>.
std::string runtimeDirectory();
// Creates the runtime directory (mode 0700) when missing. False when it
// cannot be created or is not a directory owned by this user.
bool ensureRuntimeDirectory(const std::string &dir);

std::string instanceLockPath(const std::string &dir); // held by the running daemon
std::string controlLockPath(const std::string &dir);  // serialises start and stop
std::string logPath(const std::string &dir);          // the daemon's stdout/stderr
std::string propertyDirectory(const std::string &dir);

// Pid of the process holding the daemon's instance lock, 0 when nobody
// does. The lock goes away with the process, however it ends.
pid_t instanceLockHolder(const std::string &dir);

// True when process `pid` is stopped (SIGSTOP, or a tracer's stop): it will
// not run until continued.
bool isProcessStopped(pid_t pid);
// The state letter of process `pid` in /proc ('R', 'S', 'T' stopped by a
// signal, 't' stopped by a tracer, ...), 0 when it is not there.
char processState(pid_t pid);

// The service's socket has an abstract name (no file): a socket path in the
// runtime directory would not fit a Unix socket address (107 bytes) once the
// directory is a few folders deep. The name is derived from the user and the
// canonical runtime directory, so the service and its clients agree on it
// whatever the spelling of the directory; it reads "@orvic-psserver-..." here.
std::string socketName(const std::string &dir);
// A listening socket under that name (close-on-exec, blocking), or -1 with
// the reason in `error`.
int listenOnServiceSocket(const std::string &dir, std::string *error);
// The Unix socket address of the abstract name `name` ("@..." as the names
// above read; a leading NUL, no terminator) in `address`; returns its length.
socklen_t abstractAddress(const std::string &name, sockaddr_un *address);
// A listening Unix socket of `type` (SOCK_STREAM, SOCK_SEQPACKET, with
// SOCK_NONBLOCK where wanted; always close-on-exec) on the abstract name
// `name`, or -1 with the reason in `error`. Every socket of the service
// listens through it.
int listenOnAbstractSocket(const std::string &name, int type, std::string *error);
// A socket connected to the service (close-on-exec, blocking), or -1. Waits at
// most `timeoutMs` for room in a full listen queue. A listener of another
// user under our name is not talked to.
int connectToServiceSocket(const std::string &dir, int timeoutMs);
// True when the process at the other end of the Unix socket `fd` runs as
// this user: the abstract namespace has no file permissions to keep other
// users out.
bool peerIsThisUser(int fd);

enum class PingResult { Answered, NoListener, NoAnswer };
// Connects to the service of runtime directory `dir` and exchanges one
// ping, waiting at most `timeoutMs` for the answer.
PingResult ping(const std::string &dir, int timeoutMs);

} // namespace hostruntime

#endif // PSSERVER_HOSTRUNTIME_H
