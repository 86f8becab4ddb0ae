#include "propertystore.h"

#include <hostruntime.h>

#include <cutils/properties.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace hostcutils {

namespace {

std::string propertyFile(const std::string &dir, const std::string &key)
{
    return hostruntime::propertyDirectory(dir) + "/" + key;
}

bool writeAll(int fd, const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += size_t(n);
    }
    return true;
}

} // namespace

bool isValidKey(const std::string &key)
{
    if (key.empty() || key.size() >= PROPERTY_KEY_MAX || key[0] == '.')
        return false;
    for (char c : key) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
                || c == '.' || c == '_' || c == '-' || c == ':' || c == '@';
        if (!ok)
            return false;
    }
    return true;
}

bool readProperty(const std::string &dir, const std::string &key, std::string *value)
{
    if (!isValidKey(key))
        return false;
    const int fd = ::open(propertyFile(dir, key).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    char buffer[PROPERTY_VALUE_MAX];
    ssize_t n;
    while ((n = ::read(fd, buffer, sizeof buffer - 1)) < 0 && errno == EINTR) {
    }
    ::close(fd);
    if (n < 0)
        return false;
    value->assign(buffer, size_t(n));
    return true;
}

int writeProperty(const std::string &dir, const std::string &key, const std::string &value)
{
    if (!isValidKey(key) || value.size() >= PROPERTY_VALUE_MAX)
        return -1;
    if (!hostruntime::ensureRuntimeDirectory(dir))
        return -1;
    const std::string properties = hostruntime::propertyDirectory(dir);
    if (::mkdir(properties.c_str(), 0700) != 0 && errno != EEXIST)
        return -1;
    std::string existing;
    if (key.compare(0, 3, "ro.") == 0 && readProperty(dir, key, &existing))
        return -1;

    // Readers in other processes see the old value or the new one, never a
    // partly written file.
    char suffix[48];
    std::snprintf(suffix, sizeof suffix, ".tmp.%d.%lx", int(::getpid()), long(::gettid()));
    const std::string target = propertyFile(dir, key);
    const std::string temporary = target + suffix;
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return -1;
    const bool written = writeAll(fd, value);
    ::close(fd);
    if (!written || ::rename(temporary.c_str(), target.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return -1;
    }
    return 0;
}

} // namespace hostcutils
