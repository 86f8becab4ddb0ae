// Timing helpers shared by the measurement workers: one monotonic clock per
// process, waiting on the event loop with a bounded time, and the sample
// lines a worker hands back to the runner.
#ifndef ORVICBENCH_BENCHCORE_H
#define ORVICBENCH_BENCHCORE_H

#include <QtCore/QString>

#include <functional>
#include <sys/types.h>

namespace orvicbench {

// Milliseconds on the process's monotonic clock, to the nanosecond.
double nowMs();

// Runs the event loop until `holds()` is true, looking at it every `pollMs`
// (a precise timer) and after every event; returns nowMs() at the first look
// that found it true, or -1 after `timeoutMs`.
double waitFor(const std::function<bool()> &holds, int timeoutMs, int pollMs = 1);
// Like waitFor, but asks every `intervalUs` microseconds, handling the
// thread's events between the questions; returns nowMs() at the first
// question answered true, or -1 after `timeoutMs`. A 1 ms poll that starts
// when a call returns sees a change only at whole milliseconds after that
// return, which favours whichever player returns later; this one sees it
// within `intervalUs` whatever the call did.
double waitForFine(const std::function<bool()> &holds, int timeoutMs, int intervalUs);

// One measured value of the row `key`, as a line on stdout:
// "sample<TAB>key<TAB>value".
void emitSample(const QString &key, double value);
// A line the runner shows but does not measure ("note<TAB>text").
void emitNote(const QString &text);

// Resident set size of a process in MiB (VmRSS), -1 when unknown.
double residentMiB(pid_t pid);
// CPU time (user + system) a process has used, in ms, -1 when unknown.
double cpuTimeMs(pid_t pid);

// The playback service of this runtime directory: its pid (0 when none),
// and a stop through the property service.
pid_t servicePid();
void stopService();

} // namespace orvicbench

#endif // ORVICBENCH_BENCHCORE_H
