// Host build of the device property service.
// Default service: properties shared by all processes of the user through
// the runtime directory; "ctl.start"/"ctl.stop" of "psserver" really start
// and stop the playback daemon and "init.svc.psserver" reports it live.
#include "propertystore.h"
#include "servicecontrol.h"

#include <hostplatform/hostplatform.h>
#include <hostruntime.h>

#include <atomic>
#include <cstring>
#include <string>

namespace {

const char kStatusPrefix[] = "init.svc.";

int copyValue(const std::string &text, char *value)
{
    const size_t n = std::min(text.size(), size_t(PROPERTY_VALUE_MAX - 1));
    std::memcpy(value, text.data(), n);
    value[n] = '\0';
    return int(n);
}

class RuntimeDirPropertyService : public hostplatform::PropertyService
{
public:
    int init() override
    {
        return hostruntime::ensureRuntimeDirectory(hostruntime::runtimeDirectory()) ? 0 : -1;
    }

    int get(const char *key, char *value, const char *defaultValue) override
    {
        if (!key || !value)
            return -1;
        // The directory is looked up on every call: a process (a test) may
        // point ORVIC_RUNTIME_DIR somewhere else between calls.
        const std::string dir = hostruntime::runtimeDirectory();
        if (std::strcmp(key, statusKey().c_str()) == 0)
            return copyValue(hostcutils::serviceStatus(dir), value);
        std::string stored;
        if (hostcutils::readProperty(dir, key, &stored))
            return copyValue(stored, value);
        return copyValue(defaultValue ? defaultValue : "", value);
    }

    int set(const char *key, const char *value) override
    {
        if (!key || !value)
            return -1;
        const std::string dir = hostruntime::runtimeDirectory();
        const bool start = std::strcmp(key, "ctl.start") == 0;
        if (start || std::strcmp(key, "ctl.stop") == 0) {
            if (std::strcmp(value, hostcutils::kServiceName) != 0)
                return -1; // no other service is known here
            return start ? hostcutils::startService(dir) : hostcutils::stopService(dir);
        }
        // Service states belong to the controller.
        if (std::strncmp(key, kStatusPrefix, sizeof kStatusPrefix - 1) == 0)
            return -1;
        return hostcutils::writeProperty(dir, key, value);
    }

private:
    static std::string statusKey() { return std::string(kStatusPrefix) + hostcutils::kServiceName; }
};

RuntimeDirPropertyService &defaultService()
{
    static RuntimeDirPropertyService service;
    return service;
}

std::atomic<hostplatform::PropertyService *> g_installed{nullptr};

hostplatform::PropertyService &service()
{
    hostplatform::PropertyService *s = g_installed.load();
    return s ? *s : defaultService();
}

} // namespace

namespace hostplatform {
PropertyService *installPropertyService(PropertyService *s)
{
    return g_installed.exchange(s);
}
} // namespace hostplatform

extern "C" {

int property_get(const char *key, char *value, const char *default_value)
{
    return service().get(key, value, default_value);
}

int property_set(const char *key, const char *value)
{
    return service().set(key, value);
}

int __system_properties_init(void)
{
    return service().init();
}

} // extern "C"
