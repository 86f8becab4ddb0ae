#include "statetransitionchecker.h"
#include "logcapture.h"
#include "sessionaccess.h"

#include <QtCore/QHash>
#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QPointer>
#include <QtCore/QSet>
#include <QtCore/QThread>

#include <mutex>

namespace orvictest {

using S = QOrvicPlayerSession;
using State = StateTransitionChecker::State;
using Cause = StateTransitionChecker::Cause;

namespace {
const char kSessionFile[] = "qorvicplayersession";
const char kFailedOpenOrPlay[] = "video format not support";

bool transportState(State s)   // FF .. Pause
{
    return s >= S::Player_FF && s <= S::Player_Pause;
}

bool byCause(State from, State to, Cause cause)
{
    switch (cause) {
    case Cause::Init:
        return to == S::Player_Initialized;
    case Cause::Open:
        return to == S::Player_Preparing || (to == S::Player_Prepared && from == S::Player_Preparing);
    case Cause::Play:
        return to == from
            || (to == S::Player_Play && (from == S::Player_Prepared || transportState(from)));
    case Cause::Pause:
        return to == S::Player_Pause || to == from;
    case Cause::Stop:
        return to == S::Player_Preparing || (to == S::Player_Stop && from == S::Player_Preparing);
    case Cause::Rate:
        return to == S::Player_Play || to == S::Player_FF || to == S::Player_FB || to == S::Player_SF;
    case Cause::EngineEvent:
        return to == S::Player_Play;
    case Cause::Unknown:
        for (Cause c : {Cause::Init, Cause::Open, Cause::Play, Cause::Pause, Cause::Stop, Cause::Rate,
                        Cause::EngineEvent}) {
            if (byCause(from, to, c))
                return true;
        }
        return false;
    }
    return false;
}
} // namespace

struct StateTransitionChecker::Shared {
    QPointer<QOrvicPlayerSession> session;
    bool causesKnown = false;
    LogCapture *log = nullptr;
    int observerId = -1;
    QMetaObject::Connection stateConnection;
    QMetaObject::Connection errorConnection;

    mutable QMutex mutex;
    State last = S::Player_Idle;
    QStringList transitions;
    QStringList violations;
    // Per thread: the operation of the last session line logged there, and
    // whether an announcement is under way (stored, not yet signalled).
    QHash<QThread *, Cause> causes;
    QSet<QThread *> announcing;
    // Threads inside an init: from its first line to its Initialized.
    QSet<QThread *> initialising;

    State stored() const { return session ? session->state() : last; }

    Cause causeHere() const   // with mutex held
    {
        return causesKnown ? causes.value(QThread::currentThread(), Cause::Unknown) : Cause::Unknown;
    }

    void announce(State to, Cause cause)   // with mutex held
    {
        const QString text = QStringLiteral("%1->%2").arg(int(last)).arg(int(to));
        transitions.append(text);
        if (!StateTransitionChecker::allowed(last, to, cause))
            violations.append(cause == Cause::Unknown ? text : text + QStringLiteral(" (%1)").arg(name(cause)));
        last = to;
    }

    void silentStop(Cause cause)   // with mutex held
    {
        transitions.append(QStringLiteral("%1->%2 silently").arg(int(last)).arg(int(S::Player_Stop)));
        if (!StateTransitionChecker::silentStop(last, cause))
            unannounced(S::Player_Stop, name(cause));
        last = S::Player_Stop;
    }

    void unannounced(State now, const QString &where)   // with mutex held
    {
        violations.append(QStringLiteral("unannounced %1->%2 (%3)").arg(int(last)).arg(int(now)).arg(where));
        last = now;
    }

    // The stored state must be the last announced one, except for the Idle
    // that an init stores on its way to Initialized (seen by any thread's
    // line while the init runs).
    void checkStored(State now, Cause cause)   // with mutex held
    {
        if (now == last || !announcing.isEmpty())
            return;
        if (now == S::Player_Idle && (cause == Cause::Init || !initialising.isEmpty()))
            return;
        unannounced(now, name(cause));
    }

    void onLine(const LogEntry &entry)
    {
        if (entry.file != QLatin1String(kSessionFile))
            return;
        const QString function = entry.functionName();
        const State now = stored();
        QMutexLocker lock(&mutex);
        if (function.endsWith(QLatin1String("::setState"))) {
            announcing.insert(entry.thread);
            return;
        }
        // Whatever announcement this thread made is over once it logs again.
        announcing.remove(entry.thread);
        const Cause cause = causeOf(function);
        causes.insert(entry.thread, cause);
        if (cause == Cause::Init)
            initialising.insert(entry.thread);
        if (now == last || !announcing.isEmpty() || !session) {
            checkStored(now, cause);
            return;
        }
        // Another thread may have stored a state and not yet logged its
        // announcement. The state lock spans both: once it is ours, the
        // stored state and the announced one are settled. Never waited for,
        // since this line's thread may hold a lock that a slot of that
        // announcement needs; a busy lock leaves the check to later lines
        // and to the end.
        lock.unlock();
        const std::unique_lock<QRecursiveMutex> stateLocker(*orvictest::stateLock(session), std::try_to_lock);
        if (!stateLocker.owns_lock())
            return;
        const State settled = stored();
        lock.relock();
        checkStored(settled, cause);
    }

    void onState(State to)
    {
        QMutexLocker lock(&mutex);
        announcing.remove(QThread::currentThread());
        if (to == S::Player_Initialized)
            initialising.remove(QThread::currentThread());
        announce(to, causeHere());
    }

    void onError(const QString &text)
    {
        const State now = stored();
        QMutexLocker lock(&mutex);
        const Cause cause = causeHere();
        if (text == QLatin1String(kFailedOpenOrPlay) && now == S::Player_Stop && last != S::Player_Stop)
            silentStop(cause);
        else
            checkStored(now, cause);
    }
};

StateTransitionChecker::StateTransitionChecker(QOrvicPlayerSession *session, LogCapture *log)
    : m(std::make_shared<Shared>())
{
    m->session = session;
    m->last = session->state();
    m->log = log;
    m->causesKnown = log != nullptr;
    Shared *shared = m.get();
    m->stateConnection = QObject::connect(session, &S::stateChanged, session,
                                          [shared](S::PlayerState to) { shared->onState(to); },
                                          Qt::DirectConnection);
    m->errorConnection = QObject::connect(session, &S::error, session,
                                          [shared](int, const QString &text) { shared->onError(text); },
                                          Qt::DirectConnection);
    if (log) {
        // The observer keeps the shared state alive for a line being handled
        // on another thread while this checker goes.
        std::weak_ptr<Shared> weak = m;
        m->observerId = log->addObserver([weak](const LogEntry &entry) {
            if (const std::shared_ptr<Shared> alive = weak.lock())
                alive->onLine(entry);
        });
    }
}

StateTransitionChecker::~StateTransitionChecker()
{
    QObject::disconnect(m->stateConnection);
    QObject::disconnect(m->errorConnection);
    if (m->log)
        m->log->removeObserver(m->observerId);
}

bool StateTransitionChecker::allowed(State from, State to, Cause cause)
{
    // The engine's report of playing is taken over whatever else runs.
    return byCause(from, to, Cause::EngineEvent) || byCause(from, to, cause);
}

bool StateTransitionChecker::silentStop(State from, Cause cause)
{
    switch (cause) {
    case Cause::Open:
        return from == S::Player_Idle || from == S::Player_Initialized || from == S::Player_Stop
            || from == S::Player_Preparing;
    case Cause::Play:
        return from == S::Player_Prepared || transportState(from);
    case Cause::Unknown:
        return silentStop(from, Cause::Open) || silentStop(from, Cause::Play);
    default:
        return false;
    }
}

Cause StateTransitionChecker::causeOf(const QString &function)
{
    static const QHash<QString, Cause> operations = {
        {QStringLiteral("QOrvicPlayerSessionPrivate::init"), Cause::Init},
        {QStringLiteral("QOrvicPlayerSessionPrivate::reset"), Cause::Init},
        {QStringLiteral("QOrvicPlayerSessionPrivate::release"), Cause::Init},
        {QStringLiteral("QOrvicPlayerSessionPrivate::setMedia"), Cause::Open},
        {QStringLiteral("QOrvicPlayerSessionPrivate::openMetadata"), Cause::Open},
        {QStringLiteral("QOrvicPlayerSessionPrivate::play"), Cause::Play},
        {QStringLiteral("QOrvicPlayerSessionPrivate::pause"), Cause::Pause},
        {QStringLiteral("QOrvicPlayerSessionPrivate::stop"), Cause::Stop},
        {QStringLiteral("QOrvicPlayerSessionPrivate::setPlaybackRate"), Cause::Rate},
        {QStringLiteral("MSPCBK_NavQueue::stateChanged"), Cause::EngineEvent},
    };
    return operations.value(function, Cause::Unknown);
}

QString StateTransitionChecker::name(Cause cause)
{
    switch (cause) {
    case Cause::Unknown: return QStringLiteral("?");
    case Cause::Init: return QStringLiteral("init");
    case Cause::Open: return QStringLiteral("open");
    case Cause::Play: return QStringLiteral("play");
    case Cause::Pause: return QStringLiteral("pause");
    case Cause::Stop: return QStringLiteral("stop");
    case Cause::Rate: return QStringLiteral("rate");
    case Cause::EngineEvent: return QStringLiteral("engine");
    }
    return QString();
}

void StateTransitionChecker::observe(State to, Cause cause)
{
    QMutexLocker lock(&m->mutex);
    m->announce(to, cause);
}

void StateTransitionChecker::observeSilentStop(Cause cause)
{
    QMutexLocker lock(&m->mutex);
    m->silentStop(cause);
}

QStringList StateTransitionChecker::violations() const
{
    const State now = m->stored();
    QMutexLocker lock(&m->mutex);
    QStringList out = m->violations;
    if (m->session && m->announcing.isEmpty() && now != m->last)
        out.append(QStringLiteral("unannounced %1->%2 (end)").arg(int(m->last)).arg(int(now)));
    return out;
}

QStringList StateTransitionChecker::transitions() const
{
    QMutexLocker lock(&m->mutex);
    return m->transitions;
}

} // namespace orvictest
