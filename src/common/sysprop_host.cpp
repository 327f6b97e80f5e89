// Host stand-in for bionic's __system_property_get: the property is the environment variable
// of the same name. Copies at most PROP_VALUE_MAX - 1 characters plus a NUL and returns the
// length, 0 when unset, as bionic does.
#include <cstdlib>
#include <cstring>

#include "common/zy_sysprop.h"

extern "C" int __system_property_get(const char* name, char* value) {
  if (value == nullptr) return 0;
  value[0] = '\0';
  if (name == nullptr) return 0;
  const char* v = std::getenv(name);
  if (v == nullptr) return 0;
  size_t n = std::strlen(v);
  if (n > PROP_VALUE_MAX - 1) n = PROP_VALUE_MAX - 1;
  std::memcpy(value, v, n);
  value[n] = '\0';
  return static_cast<int>(n);
}
