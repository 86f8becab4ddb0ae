#include "scriptedplatform.h"
#include "scriptedplatform_p.h"

#include <QtCore/QMutexLocker>

#include <thread>

namespace orvictest {

// ------------------------------------------------------------ recorder ----

void CallRecorder::record(const QString &call)
{
    QMutexLocker lock(&m_mutex);
    m_calls.append(call);
}

QStringList CallRecorder::calls() const
{
    QMutexLocker lock(&m_mutex);
    return m_calls;
}

QStringList CallRecorder::callsNamed(const QString &name) const
{
    QMutexLocker lock(&m_mutex);
    QStringList out;
    for (const QString &c : m_calls) {
        if (c.section(QLatin1Char('('), 0, 0) == name)
            out.append(c);
    }
    return out;
}

int CallRecorder::count(const QString &name) const
{
    return callsNamed(name).size();
}

void CallRecorder::clear()
{
    QMutexLocker lock(&m_mutex);
    m_calls.clear();
}

// -------------------------------------------------------------- script ----

void Script::setDefault(const QString &op, const QVariant &value)
{
    QMutexLocker lock(&m_mutex);
    m_defaults.insert(op, value);
}

void Script::push(const QString &op, const QVariant &value)
{
    QMutexLocker lock(&m_mutex);
    m_queues[op].enqueue(value);
}

void Script::push(const QString &op, const QVariantList &values)
{
    QMutexLocker lock(&m_mutex);
    for (const QVariant &v : values)
        m_queues[op].enqueue(v);
}

QVariant Script::next(const QString &op, const QVariant &fallback)
{
    QMutexLocker lock(&m_mutex);
    auto it = m_queues.find(op);
    if (it != m_queues.end() && !it->isEmpty())
        return it->dequeue();
    return m_defaults.value(op, fallback);
}

bool Script::has(const QString &op) const
{
    QMutexLocker lock(&m_mutex);
    const auto it = m_queues.constFind(op);
    return (it != m_queues.constEnd() && !it->isEmpty()) || m_defaults.contains(op);
}

void Script::clear()
{
    QMutexLocker lock(&m_mutex);
    m_queues.clear();
    m_defaults.clear();
}

QString nameText(const char *s)
{
    return s ? QString::fromLatin1(s) : QStringLiteral("(null)");
}

// -------------------------------------------------------------- threads ---

void runOnEngineThread(const std::function<void()> &fn)
{
    std::thread t(fn);
    t.join();
}

} // namespace orvictest
