// What the command-queue tests share: the queue's own log lines, a spin-wait
// on a condition, and a fixture that gives each test a fresh session on the
// scripted platform and checks on teardown that every announced state
// followed the state machine and that Qt itself warned of nothing.
#ifndef ORVICTEST_SESSIONQUEUEFIXTURE_H
#define ORVICTEST_SESSIONQUEUEFIXTURE_H

#include "logcapture.h"
#include "scriptedplatform.h"
#include "sessionaccess.h"
#include "statetransitionchecker.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <memory>

namespace orvictest {
namespace sessionqueue {

using Session = QOrvicPlayerSession;

const int kWaitMs = 30000;

Session::MessageId msg(int id);

// Spins (without running any event loop) until `condition` holds or the
// deadline passes; the condition is the synchronisation, not the time.
bool spinUntil(const std::function<bool()> &condition, int timeoutMs = kWaitMs);

// The queue's own log lines ("#" = any number).
extern const QString kLock;
extern const QString kUnlock;

QString sendLine(int id);
QString addLine(int id);
QString addDoneLine();
QString handleLine(int id);
QString actLine(int id);
QString ackLine();
QString doneLine(int id);

// The queue's own lines for one command received and worked off, up to and
// including the pending-list check that ends it.
QStringList receivedLines(int id);

// The queue's own lines for a command given on an idle queue from the owner thread.
QStringList directLines(int id);

// The adaptor's lines of a stop on an engine that holds no medium: the
// transitional state, the engine state read back, the stopped state.
extern const QStringList kIdleEngineStop;

// The queue's own lines: the session object's, and the list mutex's.
// Decided on the function's name: adaptor operations may carry the session's
// types in their parameters ("setState(QOrvicPlayerSession::PlayerState)").
bool isFrontLine(const LogEntry &e);

// A fresh session per test; setUp() from the test's init(), tearDown() from
// its cleanup().
class SessionQueueFixture
{
protected:
    void setUp();
    void tearDown();

    QStringList frontLines() const;
    // Names of the adaptor operations that logged, in order, without repeats
    // in a row (listLock/listUnlock are the queue's own).
    QStringList adaptorOperations() const;
    // Nothing in flight, nothing waiting, acknowledge free, not stopping.
    void expectIdle();

    std::unique_ptr<ScriptedEngine> m_engine;
    std::unique_ptr<ScriptedPropertyService> m_properties;
    std::unique_ptr<LogCapture> m_log;
    std::unique_ptr<Session> m_session;
    QOrvicPlayerSessionPrivate *d = nullptr;
    // Every state the commands announce must follow the session's state machine.
    std::unique_ptr<StateTransitionChecker> m_checker;
};

} // namespace sessionqueue
} // namespace orvictest

#endif // ORVICTEST_SESSIONQUEUEFIXTURE_H
