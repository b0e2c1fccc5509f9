/*
 * Host stand-in for the device's system property interface. On the device the
 * same header comes from the platform; on the host the values come from the
 * key=value file named by RUX_PROPERTY_FILE and from values set by tests
 * (rux/platform/host.h), the latter taking precedence.
 */
#ifndef RUX_HOST_CUTILS_PROPERTIES_H
#define RUX_HOST_CUTILS_PROPERTIES_H

#include <stdint.h>

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

#ifdef __cplusplus
extern "C" {
#endif

/* Copies the value of `key` (or `default_value` when unset; "" when that is null)
 * into `value`, which holds PROPERTY_VALUE_MAX bytes. Returns the length copied. */
int property_get(const char* key, char* value, const char* default_value);

/* "1", "y", "yes", "on", "true" read as 1; "0", "n", "no", "off", "false" as 0;
 * anything else, or an unset key, gives `default_value`. */
int8_t property_get_bool(const char* key, int8_t default_value);

#ifdef __cplusplus
}
#endif

#endif
