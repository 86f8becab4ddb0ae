#include "scriptedplatform.h"
#include "scriptedplatform_p.h"

#include <QtCore/QMutexLocker>

namespace orvictest {

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
    m_recorder.record(QStringLiteral("SPPlayer::create(%1)").arg(nameText(name)));
    if (!m_script.next("create/player", true).toBool())
        return nullptr;
    auto player = std::make_unique<ScriptedPlayer>(nameText(name), callBack, &m_recorder);
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
    m_recorder.record(QStringLiteral("SPMetaData::create(%1,%2)").arg(nameText(name), nameText(config)));
    if (!m_script.next("create/metadata", true).toBool())
        return nullptr;
    auto reader = std::make_unique<ScriptedMetaData>(nameText(name), nameText(config), &m_recorder);
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
} // namespace orvictest
