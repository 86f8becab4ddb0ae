// The files of one directory over HTTP on 127.0.0.1, as fast as the socket
// takes them, with byte ranges; on a thread of its own so that it answers
// while the runner waits for its workers.
#ifndef ORVICBENCH_HTTPFILESERVER_H
#define ORVICBENCH_HTTPFILESERVER_H

#include <QtCore/QString>

class QThread;

namespace orvicbench {

class HttpWorker;

class HttpFileServer
{
public:
    explicit HttpFileServer(const QString &directory);
    ~HttpFileServer();
    HttpFileServer(const HttpFileServer &) = delete;
    HttpFileServer &operator=(const HttpFileServer &) = delete;

    // http://127.0.0.1:<port>/<name>; empty when the server did not start.
    QString url(const QString &name) const;

private:
    QThread *m_thread;
    HttpWorker *m_worker;
    quint16 m_port = 0;
};

} // namespace orvicbench

#endif // ORVICBENCH_HTTPFILESERVER_H
