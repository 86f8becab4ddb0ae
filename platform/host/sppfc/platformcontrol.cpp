// Host build of the platform control singleton.
// Default: vendor item 104, the system codec, from ORVIC_SYSTEM_CODEC, else
// from the "system_codec" line of the platform config file ($ORVIC_PLATFORM_CONFIG,
// else $XDG_CONFIG_HOME/orvic/platform.conf or ~/.config/orvic/platform.conf);
// empty when neither says. Every other item reads as empty.
//
// The config file holds "key = value" lines; '#' starts a comment.
#include <hostplatform/hostplatform.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <sys/stat.h>

namespace {

const int kSystemCodecItem = 104;
const char kSystemCodecKey[] = "system_codec";

std::string trimmed(const std::string &text)
{
    const char *blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos)
        return std::string();
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string configFilePath()
{
    if (const char *path = std::getenv("ORVIC_PLATFORM_CONFIG"))
        return path;
    if (const char *config = std::getenv("XDG_CONFIG_HOME")) {
        if (*config)
            return std::string(config) + "/orvic/platform.conf";
    }
    if (const char *home = std::getenv("HOME"))
        return std::string(home) + "/.config/orvic/platform.conf";
    return std::string();
}

// Parses the config file at `path` for `key`.
std::string readConfigValue(const std::string &path, const std::string &key)
{
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        const size_t comment = line.find('#');
        if (comment != std::string::npos)
            line.erase(comment);
        const size_t equals = line.find('=');
        if (equals != std::string::npos && trimmed(line.substr(0, equals)) == key)
            return trimmed(line.substr(equals + 1));
    }
    return std::string();
}

// The value of `key` in the config file; empty when the file or the key is missing.
// The codec is read for every tag text the session decodes: the parsed
// value is kept while the file (path, inode, size, modification time) stays
// the same, so a read costs one stat() instead of opening and parsing.
std::string configValue(const std::string &key)
{
    const std::string path = configFilePath();
    if (path.empty())
        return std::string();
    struct stat st{};
    if (::stat(path.c_str(), &st) != 0)
        return std::string();
    struct Cached
    {
        std::string path;
        std::string key;
        ino_t inode = 0;
        off_t size = -1;
        timespec modified{};
        std::string value;
    };
    static std::mutex cacheLock;
    static Cached cached;
    {
        const std::lock_guard<std::mutex> lock(cacheLock);
        if (cached.path == path && cached.key == key && cached.inode == st.st_ino && cached.size == st.st_size
            && cached.modified.tv_sec == st.st_mtim.tv_sec && cached.modified.tv_nsec == st.st_mtim.tv_nsec)
            return cached.value;
    }
    const std::string value = readConfigValue(path, key);
    const std::lock_guard<std::mutex> lock(cacheLock);
    cached = Cached{path, key, st.st_ino, st.st_size, st.st_mtim, value};
    return value;
}

std::string systemCodec()
{
    if (const char *text = std::getenv("ORVIC_SYSTEM_CODEC"))
        return text;
    return configValue(kSystemCodecKey);
}

class HostPlatformControl : public spplfctrl::SPPlatformControl
{
public:
    int Vendor_Data_Read_String(int item, int length, char *buffer) override
    {
        if (!buffer || length <= 0)
            return -1;
        const std::string text = item == kSystemCodecItem ? systemCodec() : std::string();
        std::strncpy(buffer, text.c_str(), size_t(length));
        return 0;
    }
};

class DefaultProvider : public hostplatform::PlatformControlProvider
{
public:
    spplfctrl::SPPlatformControl *getInstance() override { return &m_instance; }
    void releaseInstance(spplfctrl::SPPlatformControl *) override {}

private:
    HostPlatformControl m_instance;
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
