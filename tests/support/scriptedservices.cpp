#include "scriptedplatform.h"
#include "scriptedplatform_p.h"

#include <QtCore/QMutexLocker>

#include <cstring>

namespace orvictest {

// ---------------------------------------------------------- properties ----

ScriptedPropertyService::ScriptedPropertyService()
    : m_previous(hostplatform::installPropertyService(this))
{
}

ScriptedPropertyService::~ScriptedPropertyService()
{
    hostplatform::installPropertyService(m_previous);
}

void ScriptedPropertyService::scriptGet(const QByteArray &key, const QList<Answer> &answers)
{
    QMutexLocker lock(&m_mutex);
    QQueue<Answer> &q = m_scripts[key];
    q.clear();
    for (const Answer &a : answers)
        q.enqueue(a);
}

void ScriptedPropertyService::scriptGet(const QByteArray &key, const QList<QByteArray> &values)
{
    QList<Answer> answers;
    for (const QByteArray &v : values)
        answers.append({int(v.size()), v});
    scriptGet(key, answers);
}

void ScriptedPropertyService::scriptSetResult(int result)
{
    QMutexLocker lock(&m_mutex);
    m_setResult = result;
}

void ScriptedPropertyService::scriptInitResult(int result)
{
    QMutexLocker lock(&m_mutex);
    m_initResult = result;
}

void ScriptedPropertyService::onGet(const QByteArray &key, std::function<void(int)> observer)
{
    QMutexLocker lock(&m_mutex);
    m_observers.insert(key, std::move(observer));
}

QList<QPair<QByteArray, QByteArray>> ScriptedPropertyService::sets() const
{
    QMutexLocker lock(&m_mutex);
    return m_sets;
}

QList<QByteArray> ScriptedPropertyService::gets() const
{
    QMutexLocker lock(&m_mutex);
    return m_gets;
}

int ScriptedPropertyService::getCount(const QByteArray &key) const
{
    QMutexLocker lock(&m_mutex);
    return m_getCounts.value(key);
}

int ScriptedPropertyService::initCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_initCount;
}

QByteArray ScriptedPropertyService::storedValue(const QByteArray &key) const
{
    QMutexLocker lock(&m_mutex);
    return m_store.value(key);
}

void ScriptedPropertyService::clearLog()
{
    QMutexLocker lock(&m_mutex);
    m_sets.clear();
    m_gets.clear();
    m_getCounts.clear();
}

int ScriptedPropertyService::init()
{
    QMutexLocker lock(&m_mutex);
    ++m_initCount;
    return m_initResult;
}

int ScriptedPropertyService::get(const char *key, char *value, const char *defaultValue)
{
    std::function<void(int)> observer;
    int count;
    Answer answer;
    {
        QMutexLocker lock(&m_mutex);
        const QByteArray k(key ? key : "");
        m_gets.append(k);
        count = m_getCounts[k]++;
        observer = m_observers.value(k);
        auto it = m_scripts.find(k);
        if (it != m_scripts.end() && !it->isEmpty()) {
            answer = it->size() > 1 ? it->dequeue() : it->head();
        } else {
            const auto stored = m_store.constFind(k);
            const QByteArray v = stored != m_store.constEnd() ? *stored : QByteArray(defaultValue ? defaultValue : "");
            answer = {int(v.size()), v};
        }
    }
    if (value) {
        const int n = qMin(int(answer.value.size()), PROPERTY_VALUE_MAX - 1);
        std::memcpy(value, answer.value.constData(), size_t(n));
        value[n] = '\0';
    }
    if (observer)
        observer(count);
    return answer.result;
}

int ScriptedPropertyService::set(const char *key, const char *value)
{
    QMutexLocker lock(&m_mutex);
    const QByteArray k(key ? key : "");
    const QByteArray v(value ? value : "");
    m_sets.append(qMakePair(k, v));
    if (k == "ctl.start")
        m_store.insert("init.svc." + v, "running");
    else if (k == "ctl.stop")
        m_store.insert("init.svc." + v, "stopped");
    else
        m_store.insert(k, v);
    return m_setResult;
}

// ---------------------------------------------------- platform control ----

ScriptedPlatformControl::ScriptedPlatformControl()
    : m_previous(hostplatform::installPlatformControl(this))
{
}

ScriptedPlatformControl::~ScriptedPlatformControl()
{
    hostplatform::installPlatformControl(m_previous);
}

void ScriptedPlatformControl::setVendorText(int item, const QByteArray &text)
{
    QMutexLocker lock(&m_mutex);
    m_items.insert(item, text);
}

void ScriptedPlatformControl::setReadStatus(int status)
{
    QMutexLocker lock(&m_mutex);
    m_status = status;
}

void ScriptedPlatformControl::setNullInstance(bool null)
{
    QMutexLocker lock(&m_mutex);
    m_null = null;
}

int ScriptedPlatformControl::getInstanceCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_gets;
}

int ScriptedPlatformControl::releaseCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_releases;
}

int ScriptedPlatformControl::readCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_reads.size();
}

QList<int> ScriptedPlatformControl::readItems() const
{
    QMutexLocker lock(&m_mutex);
    return m_reads;
}

spplfctrl::SPPlatformControl *ScriptedPlatformControl::getInstance()
{
    QMutexLocker lock(&m_mutex);
    ++m_gets;
    return m_null ? nullptr : this;
}

void ScriptedPlatformControl::releaseInstance(spplfctrl::SPPlatformControl *)
{
    QMutexLocker lock(&m_mutex);
    ++m_releases;
}

int ScriptedPlatformControl::Vendor_Data_Read_String(int item, int length, char *buffer)
{
    QMutexLocker lock(&m_mutex);
    m_reads.append(item);
    if (m_status != 0)
        return m_status;
    const QByteArray bytes = m_items.value(item);
    if (buffer && length > 0)
        std::memcpy(buffer, bytes.constData(), size_t(qMin(int(bytes.size()), length)));
    return 0;
}
} // namespace orvictest
