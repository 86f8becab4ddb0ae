// Property values shared by all processes of one user: one small file per key
// in the runtime directory, replaced atomically on every write.
#ifndef HOSTCUTILS_PROPERTYSTORE_H
#define HOSTCUTILS_PROPERTYSTORE_H

#include <string>

namespace hostcutils {

// Keys: 1..31 characters of [A-Za-z0-9._-:@], not starting with a dot.
bool isValidKey(const std::string &key);

// False when the key has no value.
bool readProperty(const std::string &runtimeDir, const std::string &key, std::string *value);
// 0 on success. Values hold at most 31 bytes; "ro." keys are written once.
int writeProperty(const std::string &runtimeDir, const std::string &key, const std::string &value);

} // namespace hostcutils

#endif // HOSTCUTILS_PROPERTYSTORE_H
