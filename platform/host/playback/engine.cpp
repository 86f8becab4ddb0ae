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

// The engine objects alive in the process. A session gives up the player and
// the reader of a stuck service without destroying them (calling into them
// could block); they stay reachable here, and the player's threads end with
// the process.
template <typename T>
class Registry
{
public:
    void add(T *object)
    {
        QMutexLocker lock(&m_mutex);
        m_objects.insert(object);
    }
    bool contains(T *object)
    {
        QMutexLocker lock(&m_mutex);
        return m_objects.contains(object);
    }
    // False for an object this registry does not hold.
    bool remove(T *object)
    {
        QMutexLocker lock(&m_mutex);
        return m_objects.remove(object);
    }

private:
    QMutex m_mutex;
    QSet<T *> m_objects;
};

Registry<playback::SPPlayer> &players()
{
    static auto *registry = new Registry<playback::SPPlayer>; // never destroyed: see above
    return *registry;
}

Registry<playback::SPMetaData> &readers()
{
    static auto *registry = new Registry<playback::SPMetaData>; // never destroyed: see above
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
        playback::SPMetaData *reader = hostplatform::createFileMetaData(name, config);
        if (reader)
            readers().add(reader);
        return reader;
    }
    void destroyMetaData(playback::SPMetaData *metaData) override
    {
        if (readers().remove(metaData))
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

namespace hostplayback {
// Players of the default factory are ClientPlayers; scripted ones are not.
bool isClientPlayer(playback::SPPlayer *player)
{
    return players().contains(player);
}
} // namespace hostplayback

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
