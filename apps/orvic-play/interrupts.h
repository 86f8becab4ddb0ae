// Ends orvic-play on Ctrl-C (SIGINT) or SIGTERM at any moment.
//
// While the event loop runs, the first signal asks the player to stop
// cleanly; when the clean stop has not ended the program within a grace
// period (a command of the session blocks the loop), it ends at once.
// Outside the event loop (the session's constructor waits for the playback
// service for as long as that takes, or the program is already on its way
// out) the first signal ends it at once. A second signal always ends it at
// once. Signals are watched on a thread of their own, so a blocked main
// thread does not keep them from acting.
#ifndef ORVICPLAY_INTERRUPTS_H
#define ORVICPLAY_INTERRUPTS_H

#include <functional>

class QObject;

namespace interrupts {

// Exit code of a program ended by a signal.
constexpr int kInterruptedExitCode = 130;
// How long a clean stop may take after the first signal.
constexpr int kGraceMs = 3000;
// After this long without an event loop, the user is told what the program
// waits for.
constexpr int kWaitNoticeMs = 3000;

// Installs the handlers of SIGINT and SIGTERM and starts the watching thread.
bool install();
// From now on the first signal runs `quit` in the thread of `context`.
void enterEventLoop(QObject *context, std::function<void()> quit);
// The event loop has ended: a signal ends the program at once.
void leaveEventLoop();
// Ends the watching thread; the program ends normally.
void uninstall();

} // namespace interrupts

#endif // ORVICPLAY_INTERRUPTS_H
