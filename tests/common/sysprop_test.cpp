#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "common/zy_alloc.h"
#include "common/zy_sysprop.h"

namespace {

constexpr const char* kProp = "vendor.zyObjectTracking.printlog";

int FlagFor(const char* value) {
  if (value == nullptr) {
    unsetenv(kProp);
  } else {
    setenv(kProp, value, 1);
  }
  int flag = -1;
  getDebugFlag(&flag, kProp);
  unsetenv(kProp);
  return flag;
}

TEST(DebugFlag, OnlyALeadingOneSwitchesOn) {
  EXPECT_EQ(FlagFor("1"), 1);
  EXPECT_EQ(FlagFor("1abc"), 1);
  EXPECT_EQ(FlagFor("0"), 0);
  EXPECT_EQ(FlagFor("true"), 0);
  EXPECT_EQ(FlagFor(""), 0);
  EXPECT_EQ(FlagFor(nullptr), 0);
  EXPECT_EQ(FlagFor(" 1"), 0);
}

TEST(DebugFlag, LongValuesAreTruncatedNotOverrun) {
  const std::string longValue = "1" + std::string(400, 'x');
  EXPECT_EQ(FlagFor(longValue.c_str()), 1);
  char value[PROP_VALUE_MAX];
  setenv(kProp, longValue.c_str(), 1);
  EXPECT_EQ(__system_property_get(kProp, value), PROP_VALUE_MAX - 1);
  EXPECT_EQ(value[PROP_VALUE_MAX - 1], '\0');
  unsetenv(kProp);
}

TEST(AllocHook, FailsExactlyTheKthAllocationOnce) {
  zy::FailNthAllocation(3);
  int* a = zy::NewArray<int>(4);
  int* b = zy::NewArray<int>(4);
  int* c = zy::NewArray<int>(4);
  int* d = zy::NewArray<int>(4);
  EXPECT_NE(a, nullptr);
  EXPECT_NE(b, nullptr);
  EXPECT_EQ(c, nullptr);
  EXPECT_NE(d, nullptr);  // fired once, then disarmed
  delete[] a;
  delete[] b;
  delete[] d;
  zy::FailNthAllocation(0);
  void* m = zy::Malloc(16);
  EXPECT_NE(m, nullptr);
  std::free(m);
}

}  // namespace
