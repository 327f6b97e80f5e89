#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "common/zy_memops.h"

namespace {

TEST(MemOps, CopyResultsAndClearing) {
  unsigned char dst[8];
  const unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  EXPECT_EQ(zy::memcpy_s(dst, 8, src, 8), 0);
  EXPECT_EQ(std::memcmp(dst, src, 8), 0);
  EXPECT_EQ(zy::memcpy_s(nullptr, 8, src, 8), 22);
  EXPECT_EQ(zy::memcpy_s(dst, 0, src, 8), 34);
  EXPECT_EQ(zy::memcpy_s(dst, size_t{0x80000000u}, src, 8), 34);
  EXPECT_EQ(zy::memcpy_s(dst, size_t{0x7fffffffu}, src, 8), 0);  // the largest size accepted

  // Failures after the destination checks clear the destination, destMax bytes of it.
  std::memset(dst, 0xAA, sizeof dst);
  EXPECT_EQ(zy::memcpy_s(dst, 8, nullptr, 4), 150);
  EXPECT_EQ(dst[7], 0);
  std::memset(dst, 0xAA, sizeof dst);
  EXPECT_EQ(zy::memcpy_s(dst, 4, src, 8), 162);
  EXPECT_EQ(dst[3], 0);
  EXPECT_EQ(dst[4], 0xAA);

  EXPECT_EQ(zy::memset_s(dst, 8, 0x11, 8), 0);
  EXPECT_EQ(dst[7], 0x11);
  EXPECT_EQ(zy::memset_s(nullptr, 8, 0, 8), 22);
  EXPECT_EQ(zy::memset_s(dst, 0, 0, 0), 34);
  EXPECT_EQ(zy::memset_s(dst, 4, 0x22, 8), 162);
  EXPECT_EQ(dst[0], 0);  // cleared, not filled
  EXPECT_EQ(dst[4], 0x11);
}

TEST(MemOps, OverlapIsRefusedButSelfAndAdjacentCopiesSucceed) {
  unsigned char buf[16];
  std::iota(buf, buf + 16, 1);
  EXPECT_EQ(zy::memcpy_s(buf, 16, buf, 16), 0);
  EXPECT_EQ(zy::memcpy_s(buf + 2, 8, buf, 8), 182);  // source runs into destination
  EXPECT_EQ(buf[9], 0);
  EXPECT_EQ(buf[10], 11);  // outside the destination: untouched
  std::iota(buf, buf + 16, 1);
  EXPECT_EQ(zy::memcpy_s(buf, 8, buf + 4, 8), 182);  // destination runs into source
  std::iota(buf, buf + 16, 1);
  EXPECT_EQ(zy::memcpy_s(buf, 8, buf + 8, 8), 0);
  EXPECT_EQ(buf[0], 9);
}

}  // namespace
