// Host build of the playback engine library.
// Default engine: the player is a client of the playback service psserver
// (GStreamer); the metadata reader reads the file itself in this process.
#include "clientplayer.h"
#include "filemetadata.h"

#include <hostplatform/hostplatform.h>

#include <QtCore/QMutex>
#include <QtCore/QMutexLocker>
#include <QtCore/QSet>

#include <atomic>

namespace {

// Every client player alive in the process. A session gives up a player of a
// stuck service without destroying it (calling into it could block); such a
// player stays reachable here, and its threads end with the process.
class PlayerRegistry
{
public:
    void add(playback::SPPlayer *player)
    {
        QMutexLocker lock(&m_mutex);
        m_players.insert(player);
    }
    bool remove(playback::SPPlayer *player)
    {
        QMutexLocker lock(&m_mutex);
        return m_players.remove(player);
    }

private:
    QMutex m_mutex;
    QSet<playback::SPPlayer *> m_players;
};

PlayerRegistry &players()
{
    static PlayerRegistry *registry = new PlayerRegistry; // never destroyed: see above
    return *registry;
}

class DefaultFactory : public hostplatform::EngineFactory
{
public:
    playback::SPPlayer *createPlayer(const char *name, playback::SPPlayer::CallBack *callBack) override
    {
        auto *player = new hostplayback::ClientPlayer(name, callBack);
        players().add(player);
        return player;
    }
    void destroyPlayer(playback::SPPlayer *player) override
    {
        if (players().remove(player))
            delete static_cast<hostplayback::ClientPlayer *>(player);
    }
    playback::SPMetaData *createMetaData(const char *name, const char *config) override
    {
        return hostplatform::createFileMetaData(name, config);
    }
    void destroyMetaData(playback::SPMetaData *metaData) override
    {
        hostplatform::destroyFileMetaData(metaData);
    }
};

DefaultFactory &defaultFactory()
{
    static DefaultFactory factory;
    return factory;
}

std::atomic<hostplatform::EngineFactory *> g_installed{nullptr};

hostplatform::EngineFactory &factory()
{
    hostplatform::EngineFactory *f = g_installed.load();
    return f ? *f : defaultFactory();
}

} // namespace

namespace hostplatform {
EngineFactory *installEngineFactory(EngineFactory *f)
{
    return g_installed.exchange(f);
}
} // namespace hostplatform

namespace playback {

SPPlayer *SPPlayer::create(const char *name, CallBack *callBack)
{
    return factory().createPlayer(name, callBack);
}

void SPPlayer::destroy(SPPlayer *player)
{
    if (player)
        factory().destroyPlayer(player);
}

SPMetaData *SPMetaData::create(const char *name, const char *config)
{
    return factory().createMetaData(name, config);
}

void SPMetaData::destroy(SPMetaData *metaData)
{
    if (metaData)
        factory().destroyMetaData(metaData);
}

} // namespace playback
