#include "server.h"

#include "hostruntime.h"

#include <QtCore/QThread>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

ClientConnection::ClientConnection(QLocalSocket *socket, const SinkConfig &sinks, QObject *parent)
    : QObject(parent),
      m_socket(socket),
      m_sinks(sinks)
{
    m_socket->setParent(this);
    connect(m_socket, &QLocalSocket::readyRead, this, &ClientConnection::readFrames);
    connect(m_socket, &QLocalSocket::disconnected, this, [this] { Q_EMIT closed(this); });
}

ClientConnection::~ClientConnection()
{
    endEngine(false);
}

void ClientConnection::endEngine(bool wait)
{
    if (!m_engine)
        return;
    disconnect(m_engine, nullptr, this, nullptr);
    QThread *thread = m_engineThread;
    // Deleted on its own thread (the pipeline is torn down there), then the
    // thread ends and goes.
    m_engine->deleteLater();
    m_engine = nullptr;
    m_engineThread = nullptr;
    m_inFlight = 0;
    thread->quit();
    if (wait) {
        thread->wait();
        delete thread;
    } else {
        connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    }
}

void ClientConnection::readFrames()
{
    bool ok = true;
    const QList<psprotocol::Frame> frames = m_reader.read(m_socket, &ok);
    for (const psprotocol::Frame &frame : frames)
        handleFrame(frame);
    flushAnswers();
    if (!ok) {
        qWarning("dropping a client that broke the framing");
        m_socket->abort();
    }
}

void ClientConnection::handleFrame(const psprotocol::Frame &frame)
{
    switch (frame.kind) {
    case pswire::FramePing:
        send(psprotocol::pong(frame.sequence));
        break;
    case pswire::FrameCall: {
        ensureEngine();
        PlaybinEngine *engine = m_engine;
        PlaybinEngine::StoredAnswer stored;
        if (m_inFlight == 0 && engine->answerFromStore(frame.code, frame.arguments, &stored)) {
            for (const auto &event : stored.events)
                send(psprotocol::event(pswire::Event(event.first), event.second));
            send(psprotocol::reply(frame.sequence, stored.result, stored.output));
            if (stored.afterwards) {
                // Still before any later call of this client reaches the engine.
                flushAnswers();
                stored.afterwards();
            }
            break;
        }
        ++m_inFlight;
        QMetaObject::invokeMethod(engine, [engine, frame] {
            engine->handleCall(frame.sequence, frame.code, frame.arguments);
        }, Qt::QueuedConnection);
        break;
    }
    default:
        break;
    }
}

void ClientConnection::ensureEngine()
{
    if (m_engine)
        return;
    m_engineThread = new QThread;
    m_engineThread->setObjectName(QStringLiteral("engine"));
    m_engine = new PlaybinEngine(m_sinks);
    m_engine->moveToThread(m_engineThread);
    connect(m_engine, &PlaybinEngine::replyReady, this,
            [this](quint32 sequence, const QVariant &result, const QByteArray &output) {
                if (m_inFlight > 0)
                    --m_inFlight;
                send(psprotocol::reply(sequence, result, output));
                flushAnswers();
            });
    connect(m_engine, &PlaybinEngine::eventReady, this,
            [this](quint32 event, const QVariantList &arguments) {
                send(psprotocol::event(pswire::Event(event), arguments));
            });
    m_engineThread->start();
}

// A written frame otherwise waits for the next pass of the event loop; an
// answer (with the events before it, in the same write) goes out at once.
// Events alone keep going out with that pass, several in one write.
void ClientConnection::flushAnswers()
{
    if (m_socket->state() == QLocalSocket::ConnectedState)
        m_socket->flush();
}

void ClientConnection::send(const psprotocol::Frame &frame)
{
    if (m_socket->state() == QLocalSocket::ConnectedState)
        m_socket->write(psprotocol::encode(frame));
}

Server::Server(const std::string &runtimeDir, const SinkConfig &sinks, QObject *parent)
    : QObject(parent),
      m_runtimeDir(runtimeDir),
      m_sinks(sinks),
      m_server(new QLocalServer(this))
{
    connect(m_server, &QLocalServer::newConnection, this, &Server::acceptConnections);
}

Server::~Server()
{
    shutdown();
}

bool Server::listen()
{
    const std::string name = hostruntime::socketName(m_runtimeDir);
    std::string error;
    const int fd = hostruntime::listenOnServiceSocket(m_runtimeDir, &error);
    if (fd < 0) {
        qWarning("cannot listen on %s: %s", name.c_str(), error.c_str());
        return false;
    }
    if (!m_server->listen(qintptr(fd))) {
        qWarning("cannot listen on %s: %s", name.c_str(), qPrintable(m_server->errorString()));
        return false;
    }
    return true;
}

void Server::shutdown()
{
    m_server->close();
    const QList<QPointer<ClientConnection>> connections = m_connections;
    m_connections.clear();
    for (const QPointer<ClientConnection> &connection : connections) {
        if (connection) {
            disconnect(connection.data(), nullptr, this, nullptr);
            connection->endEngine(true);
            delete connection.data();
        }
    }
}

void Server::acceptConnections()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        // Anyone on the machine can reach an abstract socket name.
        if (!hostruntime::peerIsThisUser(int(socket->socketDescriptor()))) {
            qWarning("refusing a client of another user");
            delete socket;
            continue;
        }
        auto *connection = new ClientConnection(socket, m_sinks, this);
        connect(connection, &ClientConnection::closed, this, [this](ClientConnection *c) {
            m_connections.removeAll(c);
            c->deleteLater();
        });
        m_connections.append(connection);
    }
}
