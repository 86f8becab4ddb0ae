// What the soak observes of its own process and of the service: the
// library's log lines that mark carried-out commands and watchdog recoveries,
// open descriptors and threads, and the daemon's pid.
#ifndef ORVICSOAK_SOAKPROBE_H
#define ORVICSOAK_SOAKPROBE_H

#include <QtCore/QString>

#include <sys/types.h>

namespace soakprobe {

enum Line {
    CarriedOut,       // a command reached the adaptor ("play session actMessage")
    WatchdogRestart,  // the watchdog restarted the service ("checkServer: orignal state")
    AlreadyBlockOnce, // the watchdog left a medium stopped on purpose
    StallRestart,     // the watchdog found the service stuck ("psserver is blocking")
    LineKinds
};

// Installs a Qt message handler that counts the lines above and drops the
// library's other debug lines; warnings still reach stderr.
void installLogProbe();
int count(Line line);

struct ProcessCounts {
    int descriptors;
    int threads;
};
ProcessCounts processCounts();
// For a report of growth: the threads' names and what the descriptors are.
QString threadNames();
QString descriptorTargets();

// Pid of the running psserver of this user's runtime directory, 0 when none.
pid_t daemonPid();

} // namespace soakprobe

#endif // ORVICSOAK_SOAKPROBE_H
