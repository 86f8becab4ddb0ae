// Host build of the device property service.
// Default service: an in-process store in which "ctl.start"/"ctl.stop" of a
// service name flip its "init.svc.<name>" status at once, so a session can be
// brought up on a PC without the device's init.
#include <hostplatform/hostplatform.h>

#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

namespace {

int copyValue(const std::string &text, char *value)
{
    const size_t n = std::min(text.size(), size_t(PROPERTY_VALUE_MAX - 1));
    std::memcpy(value, text.data(), n);
    value[n] = '\0';
    return int(n);
}

class InProcessPropertyService : public hostplatform::PropertyService
{
public:
    int init() override { return 0; }

    int get(const char *key, char *value, const char *defaultValue) override
    {
        if (!key || !value)
            return -1;
        std::lock_guard<std::mutex> lock(m_mutex);
        const auto it = m_values.find(key);
        if (it != m_values.end())
            return copyValue(it->second, value);
        return copyValue(defaultValue ? defaultValue : "", value);
    }

    int set(const char *key, const char *value) override
    {
        if (!key || !value)
            return -1;
        std::lock_guard<std::mutex> lock(m_mutex);
        if (std::strcmp(key, "ctl.start") == 0)
            m_values[std::string("init.svc.") + value] = "running";
        else if (std::strcmp(key, "ctl.stop") == 0)
            m_values[std::string("init.svc.") + value] = "stopped";
        else
            m_values[key] = value;
        return 0;
    }

private:
    std::mutex m_mutex;
    std::map<std::string, std::string> m_values;
};

InProcessPropertyService &defaultService()
{
    static InProcessPropertyService service;
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
