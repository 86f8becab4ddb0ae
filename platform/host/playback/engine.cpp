// Host build of the playback engine library.
// Default engine: a player and a metadata reader that exist but refuse every
// operation, so a session on a PC without an engine comes up and reports
// failures instead of crashing.
#include <hostplatform/hostplatform.h>
#include "filemetadata.h"

#include <atomic>

namespace {

class UnavailablePlayer : public playback::SPPlayer
{
public:
    int setUrl(const char *) override { return -1; }
    int setSubUrl(const char *) override { return -1; }
    int prepare(int, int) override { return -1; }
    int play() override { return -1; }
    int seekTo(long long) override { return -1; }
    int pause() override { return -1; }
    int stop() override { return -1; }
    int reset() override { return -1; }
    int getState() override { return STATE_IDLE; }
    long long getDuration() override { return 0; }
    long long getPosition() override { return 0; }
    int setSpeed(double) override { return -1; }
    double getSpeed() override { return 1.0; }
    bool isTrickPlaySupported() override { return false; }
    int getVolume() override { return 0; }
    int changeStream(int, int) override { return -1; }
    int getCurrentStream(int) override { return -1; }
    int setStreamVolume(int) override { return -1; }
    int setParameter(const char *, const char *, const void *, int) override { return -1; }
    int getParameter(const char *, const char *, void *, int) override { return -1; }
    int getSubtitleLanguage(int, char *) override { return -1; }
};

class UnavailableMetaData : public playback::SPMetaData
{
public:
    int setUrl(const char *) override { return -1; }
    int getMediaType() override { return 0; }
    long long getDuration() override { return 0; }
    int getProgramNum() override { return 0; }
    int getAudioStreamNum(int) override { return 0; }
    int getVideoStreamNum(int) override { return 0; }
    int getSubtitleStreamNum(int) override { return 0; }
    int getAudioAttribute(int, int, AudioAttribute &) override { return -1; }
    int getVideoAttribute(int, int, VideoAttribute &) override { return -1; }
    const char *getMetaString(const char *) override { return nullptr; }
    int getPicture(Picture &, int, int) override { return -1; }
    bool isTagV2() override { return false; }
};

class DefaultFactory : public hostplatform::EngineFactory
{
public:
    playback::SPPlayer *createPlayer(const char *, playback::SPPlayer::CallBack *) override
    {
        return new UnavailablePlayer;
    }
    void destroyPlayer(playback::SPPlayer *player) override
    {
        delete static_cast<UnavailablePlayer *>(player);
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
