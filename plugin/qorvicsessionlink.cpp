#include "qorvicsessionlink.h"

QOrvicSessionLink::QOrvicSessionLink(QObject *parent)
    : QObject(parent),
      m_host(new QOrvicSessionHost)
{
    m_thread.setObjectName(QStringLiteral("orvic-session"));
    m_host->moveToThread(&m_thread);
    m_thread.start();
    // The session starts the playback service in its constructor; the
    // player is usable only once that is done.
    QMetaObject::invokeMethod(m_host, &QOrvicSessionHost::start, Qt::BlockingQueuedConnection);
    m_serviceRunning = m_host->serviceRunning();
}

QOrvicSessionLink::~QOrvicSessionLink()
{
    QMetaObject::invokeMethod(m_host, &QOrvicSessionHost::shutdown, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    delete m_host;
}

quint64 QOrvicSessionLink::post(QOrvicSessionHost::Command command, const QVariant &param)
{
    const quint64 serial = ++m_serial;
    const int generation = m_generation;
    QOrvicSessionHost *host = m_host;
    QMetaObject::invokeMethod(host, [host, serial, generation, command, param]() {
        host->run(serial, generation, command, param);
    }, Qt::QueuedConnection);
    return serial;
}
