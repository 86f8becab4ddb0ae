// Host-only injection point of the PC builds of the platform libraries.
// A test (or a host tool) installs its own property service, platform control
// or engine factory here; with nothing installed each library uses its default.
// Not part of the device platform: never include it from library code.
#ifndef HOSTPLATFORM_HOSTPLATFORM_H
#define HOSTPLATFORM_HOSTPLATFORM_H

#include <cutils/properties.h>
#include <playback/spmetadata.h>
#include <playback/spplayer.h>
#include <spplfctrl/spplatformcontrol.h>

namespace hostplatform {

// libcutils.so.1
class PropertyService
{
public:
    virtual ~PropertyService() {}
    virtual int init() = 0;
    // `value` holds PROPERTY_VALUE_MAX bytes.
    virtual int get(const char *key, char *value, const char *defaultValue) = 0;
    virtual int set(const char *key, const char *value) = 0;
};
// Installs `service` (not owned); nullptr restores the default. Returns the previous one.
PropertyService *installPropertyService(PropertyService *service);

// libsppfc.so
class PlatformControlProvider
{
public:
    virtual ~PlatformControlProvider() {}
    virtual spplfctrl::SPPlatformControl *getInstance() = 0;
    virtual void releaseInstance(spplfctrl::SPPlatformControl *instance) = 0;
};
PlatformControlProvider *installPlatformControl(PlatformControlProvider *provider);

// libplayback.so
class EngineFactory
{
public:
    virtual ~EngineFactory() {}
    virtual playback::SPPlayer *createPlayer(const char *name, playback::SPPlayer::CallBack *callBack) = 0;
    virtual void destroyPlayer(playback::SPPlayer *player) = 0;
    virtual playback::SPMetaData *createMetaData(const char *name, const char *config) = 0;
    virtual void destroyMetaData(playback::SPMetaData *metaData) = 0;
};
EngineFactory *installEngineFactory(EngineFactory *factory);

} // namespace hostplatform

#endif // HOSTPLATFORM_HOSTPLATFORM_H
