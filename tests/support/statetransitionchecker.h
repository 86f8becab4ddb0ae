// Oracle of a session's state machine. It watches the announcements
// (stateChanged), the failures that store Player_Stop without one (an error
// "video format not support" follows the store at once), and the stored state
// itself, and records every step the session's transition table does not allow.
//
// Given the test's log capture, it also knows which operation each step comes
// from: the last line the session logged on the announcing thread names the
// operation (setMedia, play, pause, stop, setPlaybackRate, init, the engine
// sink's stateChanged). The stored state is then compared with the last
// announced one at every line the session logs and at the end, so a state
// stored without an announcement is caught too. Without a log capture it
// checks the announcements against the table's union over all operations,
// and the stored state at each announcement, failure and at the end.
//
// The transition table, by cause (X -> X is a re-announcement):
//   init (construction, service restart)  any -> Initialized; stores Idle on the way
//   open  (setMedia, openMetadata)        any -> Preparing (a busy engine is reset, or preparing starts)
//                                         Preparing -> Prepared
//                                         silently -> Stop from Idle, Initialized, Stop, Preparing (failed open)
//   play                                  Prepared, FF .. Pause -> Play; X -> X (refused or failed)
//                                         silently -> Stop from Prepared, FF .. Pause (failed engine play)
//   pause                                 any -> Pause; X -> X (failed)
//   stop                                  any -> Preparing; Preparing -> Stop
//   rate (setPlaybackRate)                any -> Play, FF, FB, SF
//   engine event (reports playing)        any -> Play; it may arrive at any moment, on any thread
// SB and Idle are never announced but as a re-announcement.
#ifndef ORVICTEST_STATETRANSITIONCHECKER_H
#define ORVICTEST_STATETRANSITIONCHECKER_H

#include "qorvicplayersession.h"

#include <QtCore/QStringList>

#include <memory>

namespace orvictest {

class LogCapture;
struct LogEntry;

class StateTransitionChecker
{
public:
    using State = QOrvicPlayerSession::PlayerState;
    enum class Cause { Unknown, Init, Open, Play, Pause, Stop, Rate, EngineEvent };

    // Starts from the session's current state. With `log`, operations are
    // told apart and the stored state is watched at every session log line.
    explicit StateTransitionChecker(QOrvicPlayerSession *session, LogCapture *log = nullptr);
    ~StateTransitionChecker();

    // Whether `cause` may announce `to` after `from`; Unknown: any cause may.
    static bool allowed(State from, State to, Cause cause);
    static bool allowed(State from, State to) { return allowed(from, to, Cause::Unknown); }
    // Whether `cause` may store Player_Stop without announcing it, after `from`.
    static bool silentStop(State from, Cause cause);
    // The operation a session log line of `function` belongs to (Unknown for
    // helpers and bookkeeping).
    static Cause causeOf(const QString &function);
    static QString name(Cause cause);

    // Feed one announcement, or one failure that stored Player_Stop (also
    // used by the checker's own test).
    void observe(State to, Cause cause = Cause::Unknown);
    void observeSilentStop(Cause cause = Cause::Unknown);

    // In order: "5->2 (play)" for a forbidden announcement ("5->2" when the
    // cause is unknown), "unannounced 4->2 (open)" for a stored state that
    // was never announced; ends with a check of the stored state.
    QStringList violations() const;
    // Every step seen, in order: "3->4", and "4->2 silently" for a failure.
    QStringList transitions() const;

    struct Shared;

private:
    std::shared_ptr<Shared> m;
};

} // namespace orvictest

#endif // ORVICTEST_STATETRANSITIONCHECKER_H
