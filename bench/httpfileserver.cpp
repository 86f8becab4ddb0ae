#include "httpfileserver.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QRegularExpression>
#include <QtCore/QThread>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

namespace orvicbench {

class HttpWorker : public QObject
{
public:
    explicit HttpWorker(const QString &directory) : m_directory(directory) {}

    quint16 listen()
    {
        m_server = new QTcpServer(this);
        connect(m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server->nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readRequest(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        return m_server->listen(QHostAddress::LocalHost) ? m_server->serverPort() : 0;
    }

    void shutdown()
    {
        delete m_server;
        m_server = nullptr;
    }

private:
    void readRequest(QTcpSocket *socket)
    {
        QByteArray &request = m_requests[socket];
        request += socket->readAll();
        if (!request.contains("\r\n\r\n"))
            return;
        const QByteArray head = request;
        m_requests.remove(socket);
        const QList<QByteArray> words = head.left(head.indexOf("\r\n")).split(' ');
        // Only plain names inside the directory.
        const QString name = QString::fromUtf8(words.value(1)).mid(1);
        QFile file(QDir(m_directory).filePath(name));
        if (words.value(0) != "GET" || name.contains(QLatin1Char('/')) || !file.open(QIODevice::ReadOnly)) {
            socket->write("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
            return;
        }
        const QByteArray data = file.readAll();
        const qint64 size = data.size();
        const QRegularExpressionMatch range = QRegularExpression(QStringLiteral("(?i)range:\\s*bytes=(\\d+)-"))
                                                      .match(QString::fromLatin1(head));
        const qint64 from = range.hasMatch() ? qBound<qint64>(0, range.captured(1).toLongLong(), size) : 0;
        QByteArray answer = range.hasMatch() ? "HTTP/1.1 206 Partial Content\r\n" : "HTTP/1.1 200 OK\r\n";
        answer += "Content-Type: application/octet-stream\r\nAccept-Ranges: bytes\r\nConnection: close\r\n";
        answer += "Content-Length: " + QByteArray::number(size - from) + "\r\n";
        if (range.hasMatch())
            answer += "Content-Range: bytes " + QByteArray::number(from) + "-" + QByteArray::number(size - 1) + "/"
                      + QByteArray::number(size) + "\r\n";
        socket->write(answer + "\r\n");
        socket->write(data.constData() + from, size - from);
        socket->disconnectFromHost();
    }

    QString m_directory;
    QTcpServer *m_server = nullptr;
    QHash<QTcpSocket *, QByteArray> m_requests;
};

HttpFileServer::HttpFileServer(const QString &directory)
    : m_thread(new QThread), m_worker(new HttpWorker(directory))
{
    m_worker->moveToThread(m_thread);
    m_thread->start();
    quint16 port = 0;
    QMetaObject::invokeMethod(m_worker, [this, &port] { port = m_worker->listen(); }, Qt::BlockingQueuedConnection);
    m_port = port;
}

HttpFileServer::~HttpFileServer()
{
    HttpWorker *worker = m_worker;
    QMetaObject::invokeMethod(worker, [worker] {
        worker->shutdown();
        delete worker;
    }, Qt::BlockingQueuedConnection);
    m_thread->quit();
    m_thread->wait();
    delete m_thread;
}

QString HttpFileServer::url(const QString &name) const
{
    return m_port ? QStringLiteral("http://127.0.0.1:%1/%2").arg(m_port).arg(name) : QString();
}

} // namespace orvicbench
