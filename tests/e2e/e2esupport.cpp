#include "e2esupport.h"

#include <hostruntime.h>

#include <cutils/properties.h>

#include <QtCore/QFile>
#include <QtCore/QMutexLocker>
#include <QtCore/QThread>
#include <QtTest/QTest>

#include <csignal>

namespace orvice2e {

QString mediaPath(const QString &name)
{
    return QStringLiteral(ORVIC_E2E_MEDIA_DIR "/") + name;
}

RuntimeDir::RuntimeDir()
    : m_dir(QStringLiteral("/tmp/orvic-e2e-XXXXXX")),
      m_previous(qgetenv("ORVIC_RUNTIME_DIR")),
      m_hadPrevious(qEnvironmentVariableIsSet("ORVIC_RUNTIME_DIR"))
{
    qputenv("ORVIC_RUNTIME_DIR", m_dir.path().toUtf8());
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
    QFile log(QString::fromStdString(hostruntime::logPath(m_dir.path().toStdString())));
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
