#include "sessionqueuefixture.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtTest/QtTest>

namespace orvictest {
namespace sessionqueue {

Session::MessageId msg(int id)
{
    return static_cast<Session::MessageId>(id);
}

bool spinUntil(const std::function<bool()> &condition, int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QThread::yieldCurrentThread();
    }
    return true;
}

const QString kLock = QStringLiteral("D/OPSession listLock(#):list lock!(#)");
const QString kUnlock = QStringLiteral("D/OPSession listUnlock(#):list unlock!(#)");

QString sendLine(int id) { return QStringLiteral("D/OPSession manageActList(#):send msg %1 ").arg(id); }
QString addLine(int id) { return QStringLiteral("D/OPSession manageActList(#):add list %1 ").arg(id); }
QString addDoneLine() { return QStringLiteral("D/OPSession manageActList(#):add list  done"); }
QString handleLine(int id) { return QStringLiteral("D/OPSession handleMessage(#):play session handleMessage %1").arg(id); }
QString actLine(int id) { return QStringLiteral("D/OPSession actMessage(#):play session actMessage %1").arg(id); }
QString ackLine() { return QStringLiteral("D/OPSession actMessage(#):recieve signal,ack"); }
QString doneLine(int id) { return QStringLiteral("D/OPSession actMessage(#):handle mesage done  %1 check list").arg(id); }

QStringList receivedLines(int id)
{
    return {handleLine(id), actLine(id), ackLine(), doneLine(id), kLock, kUnlock};
}

QStringList directLines(int id)
{
    return QStringList{kLock, kUnlock, sendLine(id)} + receivedLines(id);
}

const QStringList kIdleEngineStop = {QStringLiteral("V/OPSession stop(#) called"),
                                     QStringLiteral("D/OPSession setState(#):emit state 3"),
                                     QStringLiteral("D/OPSession stop(#):dCurrentState 0"),
                                     QStringLiteral("D/OPSession setState(#):emit state 2")};

bool isFrontLine(const LogEntry &e)
{
    const QString name = e.functionName();
    return name.startsWith(QLatin1String("QOrvicPlayerSession::"))
           || name == QLatin1String("QOrvicPlayerSessionPrivate::listLock")
           || name == QLatin1String("QOrvicPlayerSessionPrivate::listUnlock");
}

void SessionQueueFixture::setUp()
{
    m_engine.reset(new ScriptedEngine);
    m_properties.reset(new ScriptedPropertyService);
    m_log.reset(new LogCapture);
    m_session.reset(new Session(QMediaPlayer::Flags{}));
    d = QOrvicPlayerSessionPrivate::get(m_session.get());
    m_checker.reset(new StateTransitionChecker(m_session.get(), m_log.get()));
    m_log->clear();
    m_engine->recorder().clear();
}

void SessionQueueFixture::tearDown()
{
    m_log->setObserver(nullptr);
    const QStringList violations = m_checker->violations();
    m_checker.reset();
    m_session.reset();
    d = nullptr;
    QCOMPARE(violations, QStringList());
    // No warnings of Qt's own (unqueueable arguments, mutexes destroyed locked...).
    for (const LogEntry &e : m_log->entries())
        QVERIFY2(e.type == QtDebugMsg, qPrintable(e.text));
    m_log.reset();
    m_properties.reset();
    m_engine.reset();
}

QStringList SessionQueueFixture::frontLines() const
{
    QStringList out;
    for (const LogEntry &e : m_log->entries()) {
        if (isFrontLine(e))
            out.append(e.text);
    }
    return out;
}

QStringList SessionQueueFixture::adaptorOperations() const
{
    static const QRegularExpression name(QStringLiteral("^QOrvicPlayerSessionPrivate::(~?\\w+)$"));
    QStringList out;
    for (const LogEntry &e : m_log->entries()) {
        const QRegularExpressionMatch m = name.match(e.functionName());
        if (!m.hasMatch() || isFrontLine(e))
            continue;
        if (out.isEmpty() || out.constLast() != m.captured(1))
            out.append(m.captured(1));
    }
    return out;
}

void SessionQueueFixture::expectIdle()
{
    QCOMPARE(d->mDispatchState.loadAcquire(), 0);
    QCOMPARE(pendingCount(m_session.get()), 0);
    QVERIFY(!d->mIsStopping.loadAcquire());
    QVERIFY(d->mAckLock.tryLock());
    d->mAckLock.unlock();
}

} // namespace sessionqueue
} // namespace orvictest
