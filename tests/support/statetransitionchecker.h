// Watches a session's stateChanged() and records every announced transition
// that the session's state machine does not allow.
//
// Announced transitions (from the last announced state):
//   any -> Initialized        engine brought up (construction, service restart)
//   any -> Preparing          a stop starts, or an open starts or resets a busy engine
//   Preparing -> Prepared     the engine prepared the medium
//   Preparing -> Stop         a stop ends
//   any -> Play, FF, FB, SF   play, rate change, the engine reports playing
//   any -> Pause              pause at normal speed
//   X -> X                    the state re-announced after a refused or failed command
// A failed open (from Idle, Initialized, Stop or Preparing) and a failed play
// (from Prepared, FF .. Pause) store Stop without announcing it, so the next
// announcement may also start from Stop. Idle and SB are only ever
// re-announced, never entered by an announcement.
#ifndef ORVICTEST_STATETRANSITIONCHECKER_H
#define ORVICTEST_STATETRANSITIONCHECKER_H

#include "qorvicplayersession.h"

#include <QtCore/QMutex>
#include <QtCore/QStringList>

namespace orvictest {

class StateTransitionChecker
{
public:
    using State = QOrvicPlayerSession::PlayerState;

    // Starts from the session's current state.
    explicit StateTransitionChecker(QOrvicPlayerSession *session);
    ~StateTransitionChecker();

    // Whether an announcement of `to` may follow one of `from`.
    static bool allowed(State from, State to);

    // Feeds one announcement (also used by the checker's own test).
    void observe(State to);

    // "5->2" for every transition that was not allowed, in order.
    QStringList violations() const;
    // Every announcement seen, "3->4", in order.
    QStringList transitions() const;

private:
    static bool announced(State from, State to);
    static bool silentlyStops(State from);

    QMetaObject::Connection m_connection;
    mutable QMutex m_mutex;
    State m_last;
    QStringList m_transitions;
    QStringList m_violations;
};

} // namespace orvictest

#endif // ORVICTEST_STATETRANSITIONCHECKER_H
