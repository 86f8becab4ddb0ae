// Host build of the platform control singleton.
// Default: vendor item 104 (the system codec) comes from ORVIC_SYSTEM_CODEC and
// is empty when that is unset; every other item reads as empty.
#include <hostplatform/hostplatform.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

class EnvironmentPlatformControl : public spplfctrl::SPPlatformControl
{
public:
    int Vendor_Data_Read_String(int item, int length, char *buffer) override
    {
        if (!buffer || length <= 0)
            return -1;
        const char *text = item == 104 ? std::getenv("ORVIC_SYSTEM_CODEC") : nullptr;
        if (!text)
            text = "";
        std::strncpy(buffer, text, size_t(length));
        return 0;
    }
};

class DefaultProvider : public hostplatform::PlatformControlProvider
{
public:
    spplfctrl::SPPlatformControl *getInstance() override { return &m_instance; }
    void releaseInstance(spplfctrl::SPPlatformControl *) override {}

private:
    EnvironmentPlatformControl m_instance;
};

DefaultProvider &defaultProvider()
{
    static DefaultProvider provider;
    return provider;
}

std::atomic<hostplatform::PlatformControlProvider *> g_installed{nullptr};

hostplatform::PlatformControlProvider &provider()
{
    hostplatform::PlatformControlProvider *p = g_installed.load();
    return p ? *p : defaultProvider();
}

} // namespace

namespace hostplatform {
PlatformControlProvider *installPlatformControl(PlatformControlProvider *p)
{
    return g_installed.exchange(p);
}
} // namespace hostplatform

namespace spplfctrl {

SPPlatformControl *SPPlatformControl::GetInstance()
{
    return provider().getInstance();
}

void SPPlatformControl::ReleaseInstance(SPPlatformControl *instance)
{
    provider().releaseInstance(instance);
}

} // namespace spplfctrl
