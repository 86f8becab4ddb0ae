#ifndef QORVICSTREAMSERVER_H
#define QORVICSTREAMSERVER_H

#include <QtCore/QHash>
#include <QtCore/QObject>
#include <QtCore/QPointer>

class QIODevice;
class QTcpServer;
class QTcpSocket;

// Offers the bytes of an application's QIODevice to the playback service
// as an HTTP resource on the loopback interface. The service opens URLs and
// runs in another process; HTTP needs no change of it, and its engine reads
// HTTP already. A random-access device is served with byte ranges (the
// engine can seek and find an index at the end); a sequential device is
// served once, from where it stands, without ranges.
//
// Lives on the thread of the device (the player's thread): the device is
// read there only.
class QOrvicStreamServer : public QObject
{
    Q_OBJECT
public:
    explicit QOrvicStreamServer(QIODevice *device, QObject *parent = nullptr);
    ~QOrvicStreamServer() override;

    // http://127.0.0.1:<port>/stream; empty when listening failed.
    QString url() const { return m_url; }

private:
    struct Client {
        QByteArray request;
        bool answered = false;
        qint64 offset = 0; // next byte of the device to send
        qint64 end = -1;   // one past the last byte to send; -1: to the end
    };

    void onConnection();
    void onReadyRead(QTcpSocket *socket);
    void answer(QTcpSocket *socket, Client &client);
    void pump(QTcpSocket *socket);
    void pumpSequential();

    QPointer<QIODevice> m_device;
    QTcpServer *m_server;
    QHash<QTcpSocket *, Client> m_clients;
    QString m_url;
    bool m_sequentialTaken = false;
    bool m_sequentialFinished = false;
    QTcpSocket *m_sequentialClient = nullptr;
};

#endif // QORVICSTREAMSERVER_H
