// Where psserver and its clients meet on a PC: the per-user runtime
// directory, the files inside it, and the checks that tell whether a daemon is
// there and answering. Plain POSIX, no Qt: the property service uses it.
#ifndef PSSERVER_HOSTRUNTIME_H
#define PSSERVER_HOSTRUNTIME_H

#include <string>
#include <sys/types.h>

namespace hostruntime {

// $ORVIC_RUNTIME_DIR if set, else $XDG_RUNTIME_DIR/orvic, else /tmp/orvic-<uid>.
std::string runtimeDirectory();
// Creates the runtime directory (mode 0700) when missing. False when it
// cannot be created or is not a directory owned by this user.
bool ensureRuntimeDirectory(const std::string &dir);

std::string socketPath(const std::string &dir);       // the service's listening socket
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

enum class PingResult { Answered, NoListener, NoAnswer };
// Connects to the service socket and exchanges one ping, waiting at most
// `timeoutMs` for the answer.
PingResult ping(const std::string &socket, int timeoutMs);

} // namespace hostruntime

#endif // PSSERVER_HOSTRUNTIME_H
