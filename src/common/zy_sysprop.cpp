#include "common/zy_sysprop.h"

#include <strings.h>

#include "common/zy_log.h"
#include "common/zy_memops.h"

void getDebugFlag(int* flag, const char* name) {
  // The platform may return up to PROP_VALUE_MAX bytes; only the first character matters.
  char value[PROP_VALUE_MAX];
  if (zy::memset_s(value, sizeof(value), 0, sizeof(value)) != 0) {
    ZY_LOG_MEM_ERROR("getDebugFlag", 17);
  }
  const int len = __system_property_get(name, value);
  *flag = (len >= 1 && strncasecmp(value, "1", 1) == 0) ? 1 : 0;
}
