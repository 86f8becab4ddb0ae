// Starts, stops and reports the playback service psserver on a PC, with the
// semantics of the device's init: "ctl.start" brings the daemon up once (also
// when several processes ask at the same moment), "ctl.stop" ends it (SIGTERM,
// then SIGKILL after a short grace so that a frozen daemon goes too) and
// "init.svc.psserver" tells whether it is there and answering.
#ifndef HOSTCUTILS_SERVICECONTROL_H
#define HOSTCUTILS_SERVICECONTROL_H

#include <string>

namespace hostcutils {

constexpr const char kServiceName[] = "psserver";

// 0 when the daemon runs (or was already running) afterwards, -1 otherwise.
int startService(const std::string &runtimeDir);
// 0 when no daemon runs afterwards, -1 otherwise.
int stopService(const std::string &runtimeDir);
// "running", "stopped", "starting" or "unresponsive".
std::string serviceStatus(const std::string &runtimeDir);

// The daemon executable: $ORVIC_PSSERVER, else "psserver" next to this library.
std::string serviceExecutable();

} // namespace hostcutils

#endif // HOSTCUTILS_SERVICECONTROL_H
