// Device property service (libcutils.so.1).
#ifndef CUTILS_PROPERTIES_H
#define CUTILS_PROPERTIES_H

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 32

#ifdef __cplusplus
extern "C" {
#endif

// Writes the value of `key` (or `default_value`) into `value`, which holds
// PROPERTY_VALUE_MAX bytes. Returns the length, negative on failure.
int property_get(const char *key, char *value, const char *default_value);
int property_set(const char *key, const char *value);
int __system_properties_init(void);

#ifdef __cplusplus
}
#endif

#endif // CUTILS_PROPERTIES_H
