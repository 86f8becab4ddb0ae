#include "instantpolls.h"

#include "qorvicplayersession_p.h"

#include <QtCore/QMutexLocker>

#include <atomic>

namespace orvictest {

namespace {
std::atomic<InstantPolls *> g_current{nullptr};
} // namespace

InstantPolls::InstantPolls()
    : m_previous(QOrvicPlayerSessionPrivate::pollSleep)
{
    InstantPolls *expected = nullptr;
    if (!g_current.compare_exchange_strong(expected, this))
        qFatal("InstantPolls: only one at a time");
    QOrvicPlayerSessionPrivate::pollSleep = &InstantPolls::pause;
}

InstantPolls::~InstantPolls()
{
    QOrvicPlayerSessionPrivate::pollSleep = m_previous;
    g_current.store(nullptr);
}

// Polls may run on any thread (init and reset block their caller, whichever it is).
void InstantPolls::pause(unsigned long ms)
{
    if (InstantPolls *self = g_current.load()) {
        QMutexLocker lock(&self->m_mutex);
        self->m_pauses.append(ms);
    }
}

QList<unsigned long> InstantPolls::pauses() const
{
    QMutexLocker lock(&m_mutex);
    return m_pauses;
}

void InstantPolls::clear()
{
    QMutexLocker lock(&m_mutex);
    m_pauses.clear();
}

} // namespace orvictest
