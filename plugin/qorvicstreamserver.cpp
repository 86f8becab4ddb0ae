#include "qorvicstreamserver.h"

#include <QtCore/QIODevice>
#include <QtCore/QRegularExpression>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

namespace {
// Bytes handed to a socket at a time; more follow as it drains.
const qint64 kChunk = 64 * 1024;
} // namespace

QOrvicStreamServer::QOrvicStreamServer(QIODevice *device, QObject *parent)
    : QObject(parent),
      m_device(device),
      m_server(new QTcpServer(this))
{
    connect(m_server, &QTcpServer::newConnection, this, &QOrvicStreamServer::onConnection);
    if (m_server->listen(QHostAddress::LocalHost))
        m_url = QStringLiteral("http://127.0.0.1:%1/stream").arg(m_server->serverPort());
    if (m_device && m_device->isSequential()) {
        connect(m_device, &QIODevice::readyRead, this, &QOrvicStreamServer::pumpSequential);
        connect(m_device, &QIODevice::readChannelFinished, this, [this]() {
            m_sequentialFinished = true;
            pumpSequential();
        });
    }
}

QOrvicStreamServer::~QOrvicStreamServer()
{
    for (auto it = m_clients.cbegin(); it != m_clients.cend(); ++it)
        it.key()->abort();
}

void QOrvicStreamServer::onConnection()
{
    while (QTcpSocket *socket = m_server->nextPendingConnection()) {
        socket->setParent(this);
        m_clients.insert(socket, Client());
        connect(socket, &QTcpSocket::readyRead, this, [this, socket]() { onReadyRead(socket); });
        connect(socket, &QTcpSocket::bytesWritten, this, [this, socket]() { pump(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket]() {
            m_clients.remove(socket);
            if (socket == m_sequentialClient)
                m_sequentialClient = nullptr;
            socket->deleteLater();
        });
    }
}

void QOrvicStreamServer::onReadyRead(QTcpSocket *socket)
{
    auto it = m_clients.find(socket);
    if (it == m_clients.end() || it->answered)
        return;
    it->request += socket->readAll();
    if (!it->request.contains("\r\n\r\n")) {
        if (it->request.size() > 16 * 1024)
            socket->abort();
        return;
    }
    it->answered = true;
    answer(socket, *it);
}

void QOrvicStreamServer::answer(QTcpSocket *socket, Client &client)
{
    const auto refuse = [socket](const QByteArray &status) {
        socket->write("HTTP/1.1 " + status + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        socket->disconnectFromHost();
    };
    if (!m_device || !m_device->isOpen() || !m_device->isReadable()) {
        refuse("404 Not Found");
        return;
    }
    if (m_device->isSequential()) {
        // Its bytes can be read once only: one client, no ranges.
        if (m_sequentialTaken) {
            refuse("404 Not Found");
            return;
        }
        m_sequentialTaken = true;
        m_sequentialClient = socket;
        socket->write("HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\n"
                      "Accept-Ranges: none\r\nConnection: close\r\n\r\n");
        pumpSequential();
        return;
    }
    const qint64 size = m_device->size();
    const QRegularExpressionMatch range = QRegularExpression(QStringLiteral("(?i)\\r\\nrange:\\s*bytes=(\\d*)-(\\d*)"))
                                                  .match(QString::fromLatin1(client.request));
    qint64 from = 0;
    qint64 to = size - 1;
    if (range.hasMatch()) {
        if (!range.captured(1).isEmpty()) {
            from = range.captured(1).toLongLong();
            if (!range.captured(2).isEmpty())
                to = qMin(to, range.captured(2).toLongLong());
        } else if (!range.captured(2).isEmpty()) { // the last n bytes
            from = qMax<qint64>(0, size - range.captured(2).toLongLong());
        }
        if (from >= size || from > to) {
            socket->write("HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */"
                          + QByteArray::number(size) + "\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
            socket->disconnectFromHost();
            return;
        }
    }
    QByteArray head = range.hasMatch() ? "HTTP/1.1 206 Partial Content\r\n" : "HTTP/1.1 200 OK\r\n";
    head += "Content-Type: application/octet-stream\r\nAccept-Ranges: bytes\r\nConnection: close\r\n";
    head += "Content-Length: " + QByteArray::number(to - from + 1) + "\r\n";
    if (range.hasMatch())
        head += "Content-Range: bytes " + QByteArray::number(from) + '-' + QByteArray::number(to) + '/'
                + QByteArray::number(size) + "\r\n";
    socket->write(head + "\r\n");
    client.offset = from;
    client.end = to + 1;
    pump(socket);
}

void QOrvicStreamServer::pump(QTcpSocket *socket)
{
    if (socket == m_sequentialClient) {
        pumpSequential();
        return;
    }
    auto it = m_clients.find(socket);
    if (it == m_clients.end() || !it->answered || it->end < 0 || !m_device)
        return;
    if (socket->bytesToWrite() > kChunk)
        return;
    if (it->offset >= it->end) {
        socket->disconnectFromHost();
        return;
    }
    // Several clients may read the same device: place it for each read.
    if (!m_device->seek(it->offset)) {
        socket->abort();
        return;
    }
    const QByteArray data = m_device->read(qMin(kChunk, it->end - it->offset));
    if (data.isEmpty()) {
        socket->abort();
        return;
    }
    it->offset += data.size();
    socket->write(data);
}

void QOrvicStreamServer::pumpSequential()
{
    QTcpSocket *socket = m_sequentialClient;
    if (!socket || !m_device)
        return;
    while (socket->bytesToWrite() <= kChunk) {
        const QByteArray data = m_device->read(kChunk);
        if (data.isEmpty())
            break;
        socket->write(data);
    }
    // Sockets and processes deliver more later until they say they are
    // finished; other sequential devices end where reading ends.
    const bool live = m_device->inherits("QAbstractSocket") || m_device->inherits("QLocalSocket")
            || m_device->inherits("QProcess");
    const bool ended = m_device->bytesAvailable() <= 0 && m_device->atEnd() && (!live || m_sequentialFinished);
    if (ended && socket->bytesToWrite() == 0)
        socket->disconnectFromHost();
}
