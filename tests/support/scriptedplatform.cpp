#include "scriptedplatform.h"

#include <QtCore/QMutexLocker>

#include <cstring>
#include <thread>

namespace orvictest {

// ------------------------------------------------------------ recorder ----

void CallRecorder::record(const QString &call)
{
    QMutexLocker lock(&m_mutex);
    m_calls.append(call);
}

QStringList CallRecorder::calls() const
{
    QMutexLocker lock(&m_mutex);
    return m_calls;
}

QStringList CallRecorder::callsNamed(const QString &name) const
{
    QMutexLocker lock(&m_mutex);
    QStringList out;
    for (const QString &c : m_calls) {
        if (c.section(QLatin1Char('('), 0, 0) == name)
            out.append(c);
    }
    return out;
}

int CallRecorder::count(const QString &name) const
{
    return callsNamed(name).size();
}

void CallRecorder::clear()
{
    QMutexLocker lock(&m_mutex);
    m_calls.clear();
}

// -------------------------------------------------------------- script ----

void Script::setDefault(const QString &op, const QVariant &value)
{
    QMutexLocker lock(&m_mutex);
    m_defaults.insert(op, value);
}

void Script::push(const QString &op, const QVariant &value)
{
    QMutexLocker lock(&m_mutex);
    m_queues[op].enqueue(value);
}

void Script::push(const QString &op, const QVariantList &values)
{
    QMutexLocker lock(&m_mutex);
    for (const QVariant &v : values)
        m_queues[op].enqueue(v);
}

QVariant Script::next(const QString &op, const QVariant &fallback)
{
    QMutexLocker lock(&m_mutex);
    auto it = m_queues.find(op);
    if (it != m_queues.end() && !it->isEmpty())
        return it->dequeue();
    return m_defaults.value(op, fallback);
}

bool Script::has(const QString &op) const
{
    QMutexLocker lock(&m_mutex);
    const auto it = m_queues.constFind(op);
    return (it != m_queues.constEnd() && !it->isEmpty()) || m_defaults.contains(op);
}

void Script::clear()
{
    QMutexLocker lock(&m_mutex);
    m_queues.clear();
    m_defaults.clear();
}

// -------------------------------------------------------------- player ----

namespace {
QString text(const char *s)
{
    return s ? QString::fromLatin1(s) : QStringLiteral("(null)");
}

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
    return answer("setUrl", QStringLiteral("setUrl(%1)").arg(text(url)), 0).toInt();
}

int ScriptedPlayer::setSubUrl(const char *url)
{
    return answer("setSubUrl", QStringLiteral("setSubUrl(%1)").arg(text(url)), 0).toInt();
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
                                      .arg(text(target), text(key))
                                      .arg(parameterValue(value, size))
                                      .arg(size),
                  0).toInt();
}

int ScriptedPlayer::getParameter(const char *target, const char *key, void *value, int size)
{
    const int status = answer("getParameter", QStringLiteral("getParameter(%1,%2,%3)")
                                                  .arg(text(target), text(key))
                                                  .arg(size),
                              0).toInt();
    const QString outKey = QStringLiteral("getParameter/") + text(key);
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

// ------------------------------------------------------------ metadata ----

ScriptedMetaData::ScriptedMetaData(const QString &name, const QString &config, CallRecorder *recorder)
    : m_name(name), m_config(config), m_recorder(recorder)
{
}

ScriptedMetaData::~ScriptedMetaData() = default;

void ScriptedMetaData::setAudioAttribute(int stream, const AudioAttribute &attr)
{
    QMutexLocker lock(&m_dataMutex);
    m_audio.insert(stream, attr);
}

void ScriptedMetaData::setVideoAttribute(int stream, const VideoAttribute &attr)
{
    QMutexLocker lock(&m_dataMutex);
    m_video.insert(stream, attr);
}

void ScriptedMetaData::setMetaString(const QByteArray &key, const QByteArray &bytes)
{
    QMutexLocker lock(&m_dataMutex);
    m_strings.insert(key, bytes);
}

void ScriptedMetaData::setPicture(const Picture &picture)
{
    QMutexLocker lock(&m_dataMutex);
    m_picture = picture;
}

QVariant ScriptedMetaData::answer(const QString &op, const QString &call, const QVariant &fallback)
{
    m_recorder->record(call);
    return m_script.next(op, fallback);
}

int ScriptedMetaData::setUrl(const char *url)
{
    return answer("setUrl", QStringLiteral("SPMetaData::setUrl(%1)").arg(text(url)), 0).toInt();
}

int ScriptedMetaData::getMediaType()
{
    return answer("getMediaType", QStringLiteral("getMediaType()"), 0).toInt();
}

long long ScriptedMetaData::getDuration()
{
    return answer("getDuration", QStringLiteral("SPMetaData::getDuration()"), 0).toLongLong();
}

int ScriptedMetaData::getProgramNum()
{
    return answer("getProgramNum", QStringLiteral("getProgramNum()"), 0).toInt();
}

int ScriptedMetaData::getAudioStreamNum(int program)
{
    return answer("getAudioStreamNum", QStringLiteral("getAudioStreamNum(%1)").arg(program), 0).toInt();
}

int ScriptedMetaData::getVideoStreamNum(int program)
{
    return answer("getVideoStreamNum", QStringLiteral("getVideoStreamNum(%1)").arg(program), 0).toInt();
}

int ScriptedMetaData::getSubtitleStreamNum(int program)
{
    return answer("getSubtitleStreamNum", QStringLiteral("getSubtitleStreamNum(%1)").arg(program), 0).toInt();
}

int ScriptedMetaData::getAudioAttribute(int program, int stream, AudioAttribute &attr)
{
    const int status = answer("getAudioAttribute",
                              QStringLiteral("getAudioAttribute(%1,%2)").arg(program).arg(stream), 0).toInt();
    QMutexLocker lock(&m_dataMutex);
    const auto it = m_audio.constFind(stream);
    if (it != m_audio.constEnd())
        attr = *it;
    return status;
}

int ScriptedMetaData::getVideoAttribute(int program, int stream, VideoAttribute &attr)
{
    const int status = answer("getVideoAttribute",
                              QStringLiteral("getVideoAttribute(%1,%2)").arg(program).arg(stream), 0).toInt();
    QMutexLocker lock(&m_dataMutex);
    const auto it = m_video.constFind(stream);
    if (it != m_video.constEnd())
        attr = *it;
    return status;
}

const char *ScriptedMetaData::getMetaString(const char *key)
{
    m_recorder->record(QStringLiteral("getMetaString(%1)").arg(text(key)));
    QMutexLocker lock(&m_dataMutex);
    const auto it = m_strings.constFind(QByteArray(key ? key : ""));
    return it == m_strings.constEnd() ? nullptr : it->constData();
}

int ScriptedMetaData::getPicture(Picture &picture, int index, int sizeLimit)
{
    const int status = answer("getPicture",
                              QStringLiteral("getPicture(%1,%2)").arg(index).arg(sizeLimit), 0).toInt();
    QMutexLocker lock(&m_dataMutex);
    picture = m_picture;
    return status;
}

bool ScriptedMetaData::isTagV2()
{
    return answer("isTagV2", QStringLiteral("isTagV2()"), false).toBool();
}

// -------------------------------------------------------------- engine ----

ScriptedEngine::ScriptedEngine()
    : m_previous(hostplatform::installEngineFactory(this))
{
}

ScriptedEngine::~ScriptedEngine()
{
    hostplatform::installEngineFactory(m_previous);
}

void ScriptedEngine::onNewPlayer(std::function<void(ScriptedPlayer *)> setup)
{
    QMutexLocker lock(&m_mutex);
    m_setupPlayer = std::move(setup);
}

void ScriptedEngine::onNewMetaData(std::function<void(ScriptedMetaData *)> setup)
{
    QMutexLocker lock(&m_mutex);
    m_setupMetaData = std::move(setup);
}

ScriptedPlayer *ScriptedEngine::lastPlayer() const
{
    QMutexLocker lock(&m_mutex);
    return m_players.empty() ? nullptr : m_players.back().get();
}

ScriptedMetaData *ScriptedEngine::lastMetaData() const
{
    QMutexLocker lock(&m_mutex);
    return m_readers.empty() ? nullptr : m_readers.back().get();
}

QList<ScriptedPlayer *> ScriptedEngine::livePlayers() const
{
    QMutexLocker lock(&m_mutex);
    QList<ScriptedPlayer *> out;
    for (const auto &p : m_players)
        out.append(p.get());
    return out;
}

int ScriptedEngine::createdPlayers() const
{
    QMutexLocker lock(&m_mutex);
    return m_created;
}

int ScriptedEngine::destroyedPlayers() const
{
    QMutexLocker lock(&m_mutex);
    return m_destroyed;
}

playback::SPPlayer *ScriptedEngine::createPlayer(const char *name, playback::SPPlayer::CallBack *callBack)
{
    m_recorder.record(QStringLiteral("SPPlayer::create(%1)").arg(text(name)));
    if (!m_script.next("create/player", true).toBool())
        return nullptr;
    auto player = std::make_unique<ScriptedPlayer>(text(name), callBack, &m_recorder);
    ScriptedPlayer *raw = player.get();
    std::function<void(ScriptedPlayer *)> setup;
    {
        QMutexLocker lock(&m_mutex);
        m_players.push_back(std::move(player));
        ++m_created;
        setup = m_setupPlayer;
    }
    if (setup)
        setup(raw);
    return raw;
}

void ScriptedEngine::destroyPlayer(playback::SPPlayer *player)
{
    m_recorder.record(QStringLiteral("SPPlayer::destroy"));
    QMutexLocker lock(&m_mutex);
    for (auto it = m_players.begin(); it != m_players.end(); ++it) {
        if (it->get() == player) {
            m_players.erase(it);  // deleted here, so a later use is caught by the sanitizers
            ++m_destroyed;
            return;
        }
    }
    qFatal("ScriptedEngine: destroy of a player it did not create");
}

playback::SPMetaData *ScriptedEngine::createMetaData(const char *name, const char *config)
{
    m_recorder.record(QStringLiteral("SPMetaData::create(%1,%2)").arg(text(name), text(config)));
    if (!m_script.next("create/metadata", true).toBool())
        return nullptr;
    auto reader = std::make_unique<ScriptedMetaData>(text(name), text(config), &m_recorder);
    ScriptedMetaData *raw = reader.get();
    std::function<void(ScriptedMetaData *)> setup;
    {
        QMutexLocker lock(&m_mutex);
        m_readers.push_back(std::move(reader));
        setup = m_setupMetaData;
    }
    if (setup)
        setup(raw);
    return raw;
}

void ScriptedEngine::destroyMetaData(playback::SPMetaData *metaData)
{
    m_recorder.record(QStringLiteral("SPMetaData::destroy"));
    QMutexLocker lock(&m_mutex);
    for (auto it = m_readers.begin(); it != m_readers.end(); ++it) {
        if (it->get() == metaData) {
            m_readers.erase(it);
            return;
        }
    }
    qFatal("ScriptedEngine: destroy of a reader it did not create");
}

// ---------------------------------------------------------- properties ----

ScriptedPropertyService::ScriptedPropertyService()
    : m_previous(hostplatform::installPropertyService(this))
{
}

ScriptedPropertyService::~ScriptedPropertyService()
{
    hostplatform::installPropertyService(m_previous);
}

void ScriptedPropertyService::scriptGet(const QByteArray &key, const QList<Answer> &answers)
{
    QMutexLocker lock(&m_mutex);
    QQueue<Answer> &q = m_scripts[key];
    q.clear();
    for (const Answer &a : answers)
        q.enqueue(a);
}

void ScriptedPropertyService::scriptGet(const QByteArray &key, const QList<QByteArray> &values)
{
    QList<Answer> answers;
    for (const QByteArray &v : values)
        answers.append({int(v.size()), v});
    scriptGet(key, answers);
}

void ScriptedPropertyService::scriptSetResult(int result)
{
    QMutexLocker lock(&m_mutex);
    m_setResult = result;
}

void ScriptedPropertyService::scriptInitResult(int result)
{
    QMutexLocker lock(&m_mutex);
    m_initResult = result;
}

void ScriptedPropertyService::onGet(const QByteArray &key, std::function<void(int)> observer)
{
    QMutexLocker lock(&m_mutex);
    m_observers.insert(key, std::move(observer));
}

QList<QPair<QByteArray, QByteArray>> ScriptedPropertyService::sets() const
{
    QMutexLocker lock(&m_mutex);
    return m_sets;
}

QList<QByteArray> ScriptedPropertyService::gets() const
{
    QMutexLocker lock(&m_mutex);
    return m_gets;
}

int ScriptedPropertyService::getCount(const QByteArray &key) const
{
    QMutexLocker lock(&m_mutex);
    return m_getCounts.value(key);
}

int ScriptedPropertyService::initCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_initCount;
}

QByteArray ScriptedPropertyService::storedValue(const QByteArray &key) const
{
    QMutexLocker lock(&m_mutex);
    return m_store.value(key);
}

void ScriptedPropertyService::clearLog()
{
    QMutexLocker lock(&m_mutex);
    m_sets.clear();
    m_gets.clear();
    m_getCounts.clear();
}

int ScriptedPropertyService::init()
{
    QMutexLocker lock(&m_mutex);
    ++m_initCount;
    return m_initResult;
}

int ScriptedPropertyService::get(const char *key, char *value, const char *defaultValue)
{
    std::function<void(int)> observer;
    int count;
    Answer answer;
    {
        QMutexLocker lock(&m_mutex);
        const QByteArray k(key ? key : "");
        m_gets.append(k);
        count = m_getCounts[k]++;
        observer = m_observers.value(k);
        auto it = m_scripts.find(k);
        if (it != m_scripts.end() && !it->isEmpty()) {
            answer = it->size() > 1 ? it->dequeue() : it->head();
        } else {
            const auto stored = m_store.constFind(k);
            const QByteArray v = stored != m_store.constEnd() ? *stored : QByteArray(defaultValue ? defaultValue : "");
            answer = {int(v.size()), v};
        }
    }
    if (value) {
        const int n = qMin(int(answer.value.size()), PROPERTY_VALUE_MAX - 1);
        std::memcpy(value, answer.value.constData(), size_t(n));
        value[n] = '\0';
    }
    if (observer)
        observer(count);
    return answer.result;
}

int ScriptedPropertyService::set(const char *key, const char *value)
{
    QMutexLocker lock(&m_mutex);
    const QByteArray k(key ? key : "");
    const QByteArray v(value ? value : "");
    m_sets.append(qMakePair(k, v));
    if (k == "ctl.start")
        m_store.insert("init.svc." + v, "running");
    else if (k == "ctl.stop")
        m_store.insert("init.svc." + v, "stopped");
    else
        m_store.insert(k, v);
    return m_setResult;
}

// ---------------------------------------------------- platform control ----

ScriptedPlatformControl::ScriptedPlatformControl()
    : m_previous(hostplatform::installPlatformControl(this))
{
}

ScriptedPlatformControl::~ScriptedPlatformControl()
{
    hostplatform::installPlatformControl(m_previous);
}

void ScriptedPlatformControl::setVendorText(int item, const QByteArray &text)
{
    QMutexLocker lock(&m_mutex);
    m_items.insert(item, text);
}

void ScriptedPlatformControl::setReadStatus(int status)
{
    QMutexLocker lock(&m_mutex);
    m_status = status;
}

void ScriptedPlatformControl::setNullInstance(bool null)
{
    QMutexLocker lock(&m_mutex);
    m_null = null;
}

int ScriptedPlatformControl::getInstanceCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_gets;
}

int ScriptedPlatformControl::releaseCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_releases;
}

int ScriptedPlatformControl::readCount() const
{
    QMutexLocker lock(&m_mutex);
    return m_reads.size();
}

QList<int> ScriptedPlatformControl::readItems() const
{
    QMutexLocker lock(&m_mutex);
    return m_reads;
}

spplfctrl::SPPlatformControl *ScriptedPlatformControl::getInstance()
{
    QMutexLocker lock(&m_mutex);
    ++m_gets;
    return m_null ? nullptr : this;
}

void ScriptedPlatformControl::releaseInstance(spplfctrl::SPPlatformControl *)
{
    QMutexLocker lock(&m_mutex);
    ++m_releases;
}

int ScriptedPlatformControl::Vendor_Data_Read_String(int item, int length, char *buffer)
{
    QMutexLocker lock(&m_mutex);
    m_reads.append(item);
    if (m_status != 0)
        return m_status;
    const QByteArray bytes = m_items.value(item);
    if (buffer && length > 0)
        std::memcpy(buffer, bytes.constData(), size_t(qMin(int(bytes.size()), length)));
    return 0;
}

// -------------------------------------------------------------- threads ---

void runOnEngineThread(const std::function<void()> &fn)
{
    std::thread t(fn);
    t.join();
}

} // namespace orvictest
