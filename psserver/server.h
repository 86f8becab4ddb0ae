// psserver's socket side: accepts client players on the local socket,
// answers liveness pings at once and hands calls to one engine per client.
#ifndef PSSERVER_SERVER_H
#define PSSERVER_SERVER_H

#include "playbinengine.h"
#include "psprotocol.h"

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QPointer>

#include <string>

class QLocalServer;
class QLocalSocket;
class QThread;

class ClientConnection : public QObject
{
    Q_OBJECT

public:
    ClientConnection(QLocalSocket *socket, const SinkConfig &sinks, QObject *parent);
    ~ClientConnection() override;

    // Ends the engine; `wait`: until its thread has finished.
    void endEngine(bool wait);

Q_SIGNALS:
    void closed(ClientConnection *connection);

private:
    void readFrames();
    void handleFrame(const psprotocol::Frame &frame);
    void ensureEngine();
    void send(const psprotocol::Frame &frame);
    void flushAnswers();

    QLocalSocket *m_socket;
    SinkConfig m_sinks;
    psprotocol::FrameReader m_reader;
    PlaybinEngine *m_engine = nullptr;
    QThread *m_engineThread = nullptr;
    // Calls handed to the engine thread and not answered yet. Only while
    // there are none does the socket thread answer calls itself: an answer
    // never overtakes an earlier call's.
    int m_inFlight = 0;
};

class Server : public QObject
{
    Q_OBJECT

public:
    // Serves the clients of runtime directory `runtimeDir`.
    Server(const std::string &runtimeDir, const SinkConfig &sinks, QObject *parent = nullptr);
    ~Server() override;

    // False, with the reason logged, when the socket cannot be had.
    bool listen();
    // Closes the socket and ends every engine, waiting for each.
    void shutdown();

private:
    void acceptConnections();

    std::string m_runtimeDir;
    SinkConfig m_sinks;
    QLocalServer *m_server;
    QList<QPointer<ClientConnection>> m_connections;
};

#endif // PSSERVER_SERVER_H
