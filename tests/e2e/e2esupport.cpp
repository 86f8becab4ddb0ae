#include "e2esupport.h"

#include <hostruntime.h>

#include <cutils/properties.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QMutexLocker>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>
#include <QtTest/QTest>

#include <csignal>

namespace orvice2e {

QString mediaPath(const QString &name)
{
    return QStringLiteral(ORVIC_E2E_MEDIA_DIR "/") + name;
}

RuntimeDir::RuntimeDir(int length)
    : m_dir(QStringLiteral("/tmp/orvic-e2e-XXXXXX")),
      m_path(m_dir.path()),
      m_previous(qgetenv("ORVIC_RUNTIME_DIR")),
      m_hadPrevious(qEnvironmentVariableIsSet("ORVIC_RUNTIME_DIR"))
{
    if (length > 0 && m_dir.isValid()) {
        const QString folder = QStringLiteral("/a-folder-of-a-deep-build-tree");
        while (m_path.size() < length)
            m_path += folder.left(length - m_path.size());
        if (m_path.endsWith(QLatin1Char('/')))
            m_path[m_path.size() - 1] = QLatin1Char('x');
        if (!QDir().mkpath(m_path))
            m_path.clear();
    }
    qputenv("ORVIC_RUNTIME_DIR", m_path.toUtf8());
}

RuntimeDir::~RuntimeDir()
{
    stopService();
    if (m_hadPrevious)
        qputenv("ORVIC_RUNTIME_DIR", m_previous);
    else
        qunsetenv("ORVIC_RUNTIME_DIR");
}

QByteArray RuntimeDir::daemonLog() const
{
    QFile log(QString::fromStdString(hostruntime::logPath(m_path.toStdString())));
    return log.open(QIODevice::ReadOnly) ? log.readAll() : QByteArray();
}

QByteArray serviceStatus()
{
    char value[PROPERTY_VALUE_MAX] = {};
    property_get("init.svc.psserver", value, "");
    return QByteArray(value);
}

int startService()
{
    return property_set("ctl.start", "psserver");
}

int stopService()
{
    return property_set("ctl.stop", "psserver");
}

bool hasSanitizerReport(const QByteArray &daemonLog)
{
    return daemonLog.contains("Sanitizer:") || daemonLog.contains("runtime error:");
}

pid_t daemonPid()
{
    return hostruntime::instanceLockHolder(hostruntime::runtimeDirectory());
}

bool startServiceAndWait(int timeoutMs)
{
    if (startService() != 0)
        return false;
    return QTest::qWaitFor([] { return serviceStatus() == "running"; }, timeoutMs);
}

bool signalDaemon(int sig)
{
    const pid_t pid = daemonPid();
    return pid > 0 && ::kill(pid, sig) == 0;
}

// ---------------------------------------------------------- http server ----

class HttpWorker : public QObject
{
public:
    HttpWorker(const QString &file, int bytesPerSecond, qint64 cutAfter)
        : m_bytesPerSecond(bytesPerSecond), m_cutAfter(cutAfter)
    {
        QFile f(file);
        if (f.open(QIODevice::ReadOnly))
            m_data = f.readAll();
    }

    quint16 listen()
    {
        m_server = new QTcpServer(this);
        connect(m_server, &QTcpServer::newConnection, this, &HttpWorker::accept);
        return m_server->listen(QHostAddress::LocalHost) ? m_server->serverPort() : 0;
    }

    void shutdown()
    {
        delete m_server;
        m_server = nullptr;
        const QList<QTcpSocket *> sockets = findChildren<QTcpSocket *>();
        for (QTcpSocket *socket : sockets)
            socket->abort();
        qDeleteAll(findChildren<QTimer *>());
    }

private:
    // Chunks go out every this many ms, at the configured pace.
    static constexpr int kChunkIntervalMs = 50;

    void accept()
    {
        while (QTcpSocket *socket = m_server->nextPendingConnection()) {
            socket->setParent(this);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readRequest(socket); });
        }
    }

    void readRequest(QTcpSocket *socket)
    {
        QByteArray &request = m_requests[socket];
        request += socket->readAll();
        if (!request.contains("\r\n\r\n"))
            return;
        qint64 from = 0;
        const QRegularExpressionMatch range =
                QRegularExpression(QStringLiteral("(?i)range:\\s*bytes=(\\d+)-")).match(QString::fromLatin1(request));
        if (range.hasMatch())
            from = range.captured(1).toLongLong();
        m_requests.remove(socket);

        if (m_cutAfter >= 0 && m_served) {
            socket->write("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
            return;
        }
        m_served = true;
        const qint64 size = m_data.size();
        from = qBound<qint64>(0, from, size);
        QByteArray head = range.hasMatch() ? "HTTP/1.1 206 Partial Content\r\n" : "HTTP/1.1 200 OK\r\n";
        head += "Content-Type: video/mp4\r\nAccept-Ranges: bytes\r\nConnection: close\r\n";
        head += "Content-Length: " + QByteArray::number(size - from) + "\r\n";
        if (range.hasMatch())
            head += "Content-Range: bytes " + QByteArray::number(from) + "-" + QByteArray::number(size - 1) + "/"
                    + QByteArray::number(size) + "\r\n";
        socket->write(head + "\r\n");
        send(socket, from);
    }

    void send(QTcpSocket *socket, qint64 offset)
    {
        auto *timer = new QTimer(this);
        timer->setInterval(kChunkIntervalMs);
        const qint64 chunk = qMax<qint64>(1, qint64(m_bytesPerSecond) * kChunkIntervalMs / 1000);
        connect(socket, &QObject::destroyed, timer, &QObject::deleteLater);
        connect(timer, &QTimer::timeout, socket, [this, socket, timer, chunk, offset]() mutable {
            qint64 end = qMin<qint64>(offset + chunk, m_data.size());
            const bool cut = m_cutAfter >= 0 && end >= m_cutAfter;
            if (cut)
                end = m_cutAfter;
            socket->write(m_data.constData() + offset, end - offset);
            offset = end;
            if (cut) {
                socket->flush();
                socket->abort(); // the server goes away in the middle
                timer->deleteLater();
            } else if (offset >= m_data.size()) {
                socket->disconnectFromHost();
                timer->deleteLater();
            }
        });
        timer->start();
    }

    QByteArray m_data;
    int m_bytesPerSecond;
    qint64 m_cutAfter;
    bool m_served = false;
    QTcpServer *m_server = nullptr;
    QHash<QTcpSocket *, QByteArray> m_requests;
};

HttpFileServer::HttpFileServer(const QString &file, int bytesPerSecond, qint64 cutAfter)
    : m_thread(new QThread),
      m_worker(new HttpWorker(file, bytesPerSecond, cutAfter))
{
    m_worker->moveToThread(m_thread);
    m_thread->start();
    quint16 port = 0;
    QMetaObject::invokeMethod(m_worker, [this, &port] { port = m_worker->listen(); },
                              Qt::BlockingQueuedConnection);
    if (port)
        m_url = "http://127.0.0.1:" + QByteArray::number(port) + "/" + QFileInfo(file).fileName().toUtf8();
}

HttpFileServer::~HttpFileServer()
{
    QMetaObject::invokeMethod(m_worker, [this] { m_worker->shutdown(); }, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
    delete m_worker;
    delete m_thread;
}

QByteArray HttpFileServer::url() const
{
    return m_url;
}

// ------------------------------------------------------------ callback ----

const void *RecordingCallBack::currentThreadId()
{
    return QThread::currentThreadId();
}

void RecordingCallBack::record(const QString &event)
{
    QMutexLocker lock(&m_mutex);
    m_events.append(event);
    if (currentThreadId() == m_creatingThread)
        m_onCreatingThread = true;
}

QStringList RecordingCallBack::events() const
{
    QMutexLocker lock(&m_mutex);
    return m_events;
}

QStringList RecordingCallBack::eventsNamed(const QString &name) const
{
    QStringList out;
    for (const QString &e : events()) {
        if (e.section(QLatin1Char('('), 0, 0) == name)
            out.append(e);
    }
    return out;
}

void RecordingCallBack::clear()
{
    QMutexLocker lock(&m_mutex);
    m_events.clear();
}

bool RecordingCallBack::waitFor(const QString &event, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return events().contains(event); }, timeoutMs);
}

bool RecordingCallBack::waitForNamed(const QString &name, int count, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return eventsNamed(name).size() >= count; }, timeoutMs);
}

bool RecordingCallBack::calledOnCreatingThread() const
{
    QMutexLocker lock(&m_mutex);
    return m_onCreatingThread;
}

void RecordingCallBack::durationChanged(long long duration)
{
    record(QStringLiteral("durationChanged(%1)").arg(duration));
}

void RecordingCallBack::positionChanged(long long position)
{
    record(QStringLiteral("positionChanged(%1)").arg(position));
}

void RecordingCallBack::stateChanged(playback::SPPlayer::state_e state)
{
    record(QStringLiteral("stateChanged(%1)").arg(int(state)));
}

void RecordingCallBack::volumeChanged(int volume)
{
    record(QStringLiteral("volumeChanged(%1)").arg(volume));
}

void RecordingCallBack::bufferingProgessChanged(int percent)
{
    record(QStringLiteral("bufferingProgessChanged(%1)").arg(percent));
}

void RecordingCallBack::streamChanged(playback::SPPlayer::stream_type_e type, int index)
{
    record(QStringLiteral("streamChanged(%1,%2)").arg(int(type)).arg(index));
}

void RecordingCallBack::seekableChanged(bool seekable)
{
    record(QStringLiteral("seekableChanged(%1)").arg(int(seekable)));
}

void RecordingCallBack::error(int no)
{
    record(QStringLiteral("error(%1)").arg(no));
}

void RecordingCallBack::speedChanged(double rate)
{
    record(QStringLiteral("speedChanged(%1)").arg(rate));
}

void RecordingCallBack::prepared()
{
    record(QStringLiteral("prepared()"));
}

void RecordingCallBack::playbackFinish()
{
    record(QStringLiteral("playbackFinish()"));
}

void RecordingCallBack::aboutToFinish()
{
    record(QStringLiteral("aboutToFinish()"));
}

void RecordingCallBack::mediaAvailableChanged(playback::SPPlayer::stream_type_e type, int index)
{
    record(QStringLiteral("mediaAvailableChanged(%1,%2)").arg(int(type)).arg(index));
}

void RecordingCallBack::subtitleChanged(char *text, char type, int length)
{
    record(QStringLiteral("subtitleChanged(%1,%2)")
                   .arg(QString::fromUtf8(text, length)).arg(int(type)));
}

void RecordingCallBack::resumeDataChanged(void *, int length)
{
    record(QStringLiteral("resumeDataChanged(%1)").arg(length));
}

} // namespace orvice2e
