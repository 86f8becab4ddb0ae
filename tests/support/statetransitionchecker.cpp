#include "statetransitionchecker.h"

#include <QtCore/QMutexLocker>

namespace orvictest {

using S = QOrvicPlayerSession;

StateTransitionChecker::StateTransitionChecker(QOrvicPlayerSession *session)
    : m_last(session->state())
{
    m_connection = QObject::connect(session, &S::stateChanged, session,
                                    [this](S::PlayerState to) { observe(to); }, Qt::DirectConnection);
}

StateTransitionChecker::~StateTransitionChecker()
{
    QObject::disconnect(m_connection);
}

bool StateTransitionChecker::announced(State from, State to)
{
    if (from == to)
        return true;   // re-announced after a refused or failed command
    switch (to) {
    case S::Player_Initialized:
    case S::Player_Preparing:
    case S::Player_Play:
    case S::Player_FF:
    case S::Player_FB:
    case S::Player_SF:
    case S::Player_Pause:
        return true;
    case S::Player_Prepared:
    case S::Player_Stop:
        return from == S::Player_Preparing;
    case S::Player_Idle:
    case S::Player_SB:
        return false;
    }
    return false;
}

bool StateTransitionChecker::silentlyStops(State from)
{
    switch (from) {
    case S::Player_Idle:
    case S::Player_Initialized:
    case S::Player_Stop:
    case S::Player_Preparing:   // failed open
    case S::Player_Prepared:
    case S::Player_FF:
    case S::Player_FB:
    case S::Player_SF:
    case S::Player_SB:
    case S::Player_Pause:       // failed play
        return true;
    case S::Player_Play:
        return false;
    }
    return false;
}

bool StateTransitionChecker::allowed(State from, State to)
{
    return announced(from, to) || (silentlyStops(from) && announced(S::Player_Stop, to));
}

void StateTransitionChecker::observe(State to)
{
    QMutexLocker lock(&m_mutex);
    const QString text = QStringLiteral("%1->%2").arg(int(m_last)).arg(int(to));
    m_transitions.append(text);
    if (!allowed(m_last, to))
        m_violations.append(text);
    m_last = to;
}

QStringList StateTransitionChecker::violations() const
{
    QMutexLocker lock(&m_mutex);
    return m_violations;
}

QStringList StateTransitionChecker::transitions() const
{
    QMutexLocker lock(&m_mutex);
    return m_transitions;
}

} // namespace orvictest
