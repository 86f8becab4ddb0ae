#include "scriptedplatform.h"
#include "scriptedplatform_p.h"

#include <QtCore/QMutexLocker>

#include <cstring>

namespace orvictest {

// -------------------------------------------------------------- player ----

namespace {
int parameterValue(const void *value, int size)
{
    if (!value)
        return 0;
    if (size == 1)
        return *static_cast<const unsigned char *>(value);
    int v = 0;
    std::memcpy(&v, value, size_t(qMin(size, int(sizeof v))));
    return v;
}
} // namespace

ScriptedPlayer::ScriptedPlayer(const QString &name, CallBack *callBack, CallRecorder *recorder)
    : m_name(name), m_callBack(callBack), m_recorder(recorder)
{
}

ScriptedPlayer::~ScriptedPlayer() = default;

void ScriptedPlayer::setHook(const QString &op, std::function<void()> hook)
{
    QMutexLocker lock(&m_hookMutex);
    m_hooks.insert(op, std::move(hook));
}

QVariant ScriptedPlayer::answer(const QString &op, const QString &call, const QVariant &fallback)
{
    m_recorder->record(call);
    std::function<void()> hook;
    {
        QMutexLocker lock(&m_hookMutex);
        hook = m_hooks.value(op);
    }
    if (hook)
        hook();
    return m_script.next(op, fallback);
}

int ScriptedPlayer::setUrl(const char *url)
{
    return answer("setUrl", QStringLiteral("setUrl(%1)").arg(nameText(url)), 0).toInt();
}

int ScriptedPlayer::setSubUrl(const char *url)
{
    return answer("setSubUrl", QStringLiteral("setSubUrl(%1)").arg(nameText(url)), 0).toInt();
}

int ScriptedPlayer::prepare(int arg1, int arg2)
{
    return answer("prepare", QStringLiteral("prepare(%1,%2)").arg(arg1).arg(arg2), 0).toInt();
}

int ScriptedPlayer::play()
{
    return answer("play", QStringLiteral("play()"), 0).toInt();
}

int ScriptedPlayer::seekTo(long long positionMs)
{
    return answer("seekTo", QStringLiteral("seekTo(%1)").arg(positionMs), 0).toInt();
}

int ScriptedPlayer::pause()
{
    return answer("pause", QStringLiteral("pause()"), 0).toInt();
}

int ScriptedPlayer::stop()
{
    return answer("stop", QStringLiteral("stop()"), 0).toInt();
}

int ScriptedPlayer::reset()
{
    return answer("reset", QStringLiteral("reset()"), 0).toInt();
}

int ScriptedPlayer::getState()
{
    return answer("getState", QStringLiteral("getState()"), int(STATE_IDLE)).toInt();
}

long long ScriptedPlayer::getDuration()
{
    return answer("getDuration", QStringLiteral("getDuration()"), 0).toLongLong();
}

long long ScriptedPlayer::getPosition()
{
    return answer("getPosition", QStringLiteral("getPosition()"), 0).toLongLong();
}

int ScriptedPlayer::setSpeed(double speed)
{
    return answer("setSpeed", QStringLiteral("setSpeed(%1)").arg(speed), 0).toInt();
}

double ScriptedPlayer::getSpeed()
{
    return answer("getSpeed", QStringLiteral("getSpeed()"), 1.0).toDouble();
}

bool ScriptedPlayer::isTrickPlaySupported()
{
    return answer("isTrickPlaySupported", QStringLiteral("isTrickPlaySupported()"), false).toBool();
}

int ScriptedPlayer::getVolume()
{
    return answer("getVolume", QStringLiteral("getVolume()"), 0).toInt();
}

int ScriptedPlayer::changeStream(int streamType, int index)
{
    return answer("changeStream", QStringLiteral("changeStream(%1,%2)").arg(streamType).arg(index), 0).toInt();
}

int ScriptedPlayer::getCurrentStream(int streamType)
{
    return answer("getCurrentStream", QStringLiteral("getCurrentStream(%1)").arg(streamType), 0).toInt();
}

int ScriptedPlayer::setStreamVolume(int volume)
{
    return answer("setStreamVolume", QStringLiteral("setStreamVolume(%1)").arg(volume), 0).toInt();
}

int ScriptedPlayer::setParameter(const char *target, const char *key, const void *value, int size)
{
    return answer("setParameter", QStringLiteral("setParameter(%1,%2,%3,%4)")
                                      .arg(nameText(target), nameText(key))
                                      .arg(parameterValue(value, size))
                                      .arg(size),
                  0).toInt();
}

int ScriptedPlayer::getParameter(const char *target, const char *key, void *value, int size)
{
    const int status = answer("getParameter", QStringLiteral("getParameter(%1,%2,%3)")
                                                  .arg(nameText(target), nameText(key))
                                                  .arg(size),
                              0).toInt();
    const QString outKey = QStringLiteral("getParameter/") + nameText(key);
    if (value && size > 0 && m_script.has(outKey)) {
        const int out = m_script.next(outKey, 0).toInt();
        std::memcpy(value, &out, size_t(qMin(size, int(sizeof out))));
    }
    return status;
}

int ScriptedPlayer::getSubtitleLanguage(int index, char *language)
{
    const int status = answer("getSubtitleLanguage",
                              QStringLiteral("getSubtitleLanguage(%1)").arg(index), 0).toInt();
    const QString outKey = QStringLiteral("getSubtitleLanguage/%1").arg(index);
    if (language && m_script.has(outKey)) {
        const QByteArray bytes = m_script.next(outKey, QByteArray()).toByteArray();
        std::memcpy(language, bytes.constData(), size_t(qMin(bytes.size(), 8)));
    }
    return status;
}
} // namespace orvictest
