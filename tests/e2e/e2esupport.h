// Shared pieces of the end-to-end tests, which run the real host platform:
// psserver started through the property service, GStreamer, generated media.
#ifndef ORVICE2E_E2ESUPPORT_H
#define ORVICE2E_E2ESUPPORT_H

#include <playback/spplayer.h>

#include <QtCore/QByteArray>
#include <QtCore/QMutex>
#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

#include <sys/types.h>

class QThread;

namespace orvice2e {

class HttpWorker;

// A small HTTP server on 127.0.0.1 for network media, on a thread of its
// own (the client's calls block the test's thread). Serves one file at a
// fixed pace; with `cutAfter` set, the first answer breaks off after that
// many bytes and every later request is answered 404, as when a server goes
// away in the middle of a stream.
class HttpFileServer
{
public:
    HttpFileServer(const QString &file, int bytesPerSecond, qint64 cutAfter = -1);
    ~HttpFileServer();
    HttpFileServer(const HttpFileServer &) = delete;
    HttpFileServer &operator=(const HttpFileServer &) = delete;

    // http://127.0.0.1:<port>/<file name>; empty when the server did not start.
    QByteArray url() const;

private:
    QThread *m_thread;
    HttpWorker *m_worker;
    QByteArray m_url;
};

// Generated media of the e2e fixture.
QString mediaPath(const QString &name);

// A runtime directory of its own for one test (ORVIC_RUNTIME_DIR), so that
// tests running side by side never share a daemon. The daemon started in it
// is stopped when the object goes.
class RuntimeDir
{
public:
    // With `length` > 0 the directory's path is exactly that many characters
    // long (nested folders inside a temporary one), as deep in a build tree.
    explicit RuntimeDir(int length = 0);
    ~RuntimeDir();
    RuntimeDir(const RuntimeDir &) = delete;
    RuntimeDir &operator=(const RuntimeDir &) = delete;

    QString path() const { return m_path; }
    bool isValid() const { return m_dir.isValid() && !m_path.isEmpty(); }
    // The daemon's log, for failure messages.
    QByteArray daemonLog() const;

private:
    QTemporaryDir m_dir;
    QString m_path;
    QByteArray m_previous;
    bool m_hadPrevious;
};

QByteArray serviceStatus();
int startService();
int stopService();
// True when a sanitizer wrote a report into a daemon's log (it does so as
// the daemon exits: stop the service first).
bool hasSanitizerReport(const QByteArray &daemonLog);
// Pid of the daemon of the current runtime directory, 0 when none.
pid_t daemonPid();
// ctl.start and a bounded wait for "running".
bool startServiceAndWait(int timeoutMs = 20000);
// Sends `sig` to the daemon; false when there is none.
bool signalDaemon(int sig);

// Records the engine's callbacks as text ("stateChanged(5)", "subtitleChanged(First line,1)")
// in arrival order, with the thread they came on.
class RecordingCallBack : public playback::SPPlayer::CallBack
{
public:
    QStringList events() const;
    QStringList eventsNamed(const QString &name) const;
    void clear();
    // Bounded wait until `event` was recorded (exact text).
    bool waitFor(const QString &event, int timeoutMs = 5000) const;
    bool waitForNamed(const QString &name, int count = 1, int timeoutMs = 5000) const;
    // True when any callback came on the thread that created this object.
    bool calledOnCreatingThread() const;

    void durationChanged(long long duration) override;
    void positionChanged(long long position) override;
    void stateChanged(playback::SPPlayer::state_e state) override;
    void volumeChanged(int volume) override;
    void bufferingProgessChanged(int percent) override;
    void streamChanged(playback::SPPlayer::stream_type_e type, int index) override;
    void seekableChanged(bool seekable) override;
    void error(int no) override;
    void speedChanged(double rate) override;
    void prepared() override;
    void playbackFinish() override;
    void aboutToFinish() override;
    void mediaAvailableChanged(playback::SPPlayer::stream_type_e type, int index) override;
    void subtitleChanged(char *text, char type, int length) override;
    void resumeDataChanged(void *data, int length) override;

private:
    void record(const QString &event);

    mutable QMutex m_mutex;
    QStringList m_events;
    bool m_onCreatingThread = false;
    const void *m_creatingThread = currentThreadId();
    static const void *currentThreadId();
};

} // namespace orvice2e

#endif // ORVICE2E_E2ESUPPORT_H
