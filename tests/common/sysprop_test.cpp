#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "common/zy_sysprop.h"

namespace {

constexpr const char* kProp = "vendor.zyObjectTracking.printlog";

TEST(DebugFlag, OnlyALeadingOneSwitchesOnAndLongValuesAreTruncated) {
  const std::string longValue = "1" + std::string(400, 'x');
  for (auto [value, flag] : {std::pair{"1", 1}, {"1abc", 1}, {longValue.c_str(), 1}, {"0", 0}, {"true", 0}, {"", 0},
                             {" 1", 0}, {nullptr, 0}}) {
    if (value) setenv(kProp, value, 1);
    int got = -1;
    getDebugFlag(&got, kProp);
    unsetenv(kProp);
    EXPECT_EQ(got, flag) << (value ? value : "(unset)");
  }
  char value[PROP_VALUE_MAX];
  setenv(kProp, longValue.c_str(), 1);
  EXPECT_EQ(__system_property_get(kProp, value), PROP_VALUE_MAX - 1);
  EXPECT_EQ(value[PROP_VALUE_MAX - 1], '\0');
  unsetenv(kProp);
}

}  // namespace
