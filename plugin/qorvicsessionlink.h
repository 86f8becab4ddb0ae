#ifndef QORVICSESSIONLINK_H
#define QORVICSESSIONLINK_H

#include "qorvicsessionhost.h"

#include <QtCore/QObject>
#include <QtCore/QThread>

// The player-thread side of a QOrvicSessionHost: starts its thread and
// session, hands it commands in order, and keeps the generation counter of
// the media. Shared by the controls of one service.
class QOrvicSessionLink : public QObject
{
    Q_OBJECT
public:
    explicit QOrvicSessionLink(QObject *parent = nullptr);
    ~QOrvicSessionLink() override;

    QOrvicSessionHost *host() const { return m_host; }
    bool serviceRunning() const { return m_serviceRunning; }

    int generation() const { return m_generation; }
    // A new engine pipeline is coming (open or stop): news of the previous
    // one is stale from now on.
    int newGeneration() { return ++m_generation; }
    // Queues a command for the session; returns its serial number.
    quint64 post(QOrvicSessionHost::Command command, const QVariant &param = QVariant());

    // Signal emission in progress: a receiver may delete the player, and
    // with it this service, from inside a slot; the service is then deleted
    // later instead (see the plugin's release()).
    bool isBusy() const { return m_busy > 0; }
    void enter() { ++m_busy; }
    void leave() { --m_busy; }

private:
    QThread m_thread;
    QOrvicSessionHost *m_host;
    int m_generation = 0;
    quint64 m_serial = 0;
    int m_busy = 0;
    bool m_serviceRunning = false;
};

// Marks a control's handler as running (see QOrvicSessionLink::isBusy()).
class QOrvicBusyScope
{
public:
    explicit QOrvicBusyScope(QOrvicSessionLink *link) : m_link(link) { m_link->enter(); }
    ~QOrvicBusyScope() { m_link->leave(); }
    QOrvicBusyScope(const QOrvicBusyScope &) = delete;
    QOrvicBusyScope &operator=(const QOrvicBusyScope &) = delete;

private:
    QOrvicSessionLink *m_link;
};

#endif // QORVICSESSIONLINK_H
