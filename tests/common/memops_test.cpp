#include <gtest/gtest.h>

#include <cstring>

#include "common/zy_memops.h"

namespace {

TEST(MemOps, CopyResultsAndClearing) {
  unsigned char dst[8];
  const unsigned char src[8] = {1, 2, 3, 4, 5, 6, 7, 8};

  std::memset(dst, 0xAA, sizeof dst);
  EXPECT_EQ(zy::memcpy_s(dst, 8, src, 8), 0);
  EXPECT_EQ(std::memcmp(dst, src, 8), 0);

  EXPECT_EQ(zy::memcpy_s(nullptr, 8, src, 8), 22);
  EXPECT_EQ(zy::memcpy_s(dst, 0, src, 8), 34);
  EXPECT_EQ(zy::memcpy_s(dst, size_t{0x80000000u}, src, 8), 34);
  EXPECT_EQ(zy::memcpy_s(dst, size_t{0x7fffffffu}, src, 8), 0);  // the largest size accepted

  // Failures after the destination checks clear the whole destination.
  std::memset(dst, 0xAA, sizeof dst);
  EXPECT_EQ(zy::memcpy_s(dst, 8, nullptr, 4), 150);
  EXPECT_EQ(dst[7], 0);
  std::memset(dst, 0xAA, sizeof dst);
  EXPECT_EQ(zy::memcpy_s(dst, 4, src, 8), 162);
  EXPECT_EQ(dst[0], 0);
  EXPECT_EQ(dst[3], 0);
  EXPECT_EQ(dst[4], 0xAA);  // only destMax bytes belong to the destination
}

TEST(MemOps, OverlapIsRefusedButSelfCopySucceeds) {
  unsigned char buf[16];
  for (int i = 0; i < 16; ++i) buf[i] = static_cast<unsigned char>(i + 1);
  EXPECT_EQ(zy::memcpy_s(buf, 16, buf, 16), 0);  // onto itself
  EXPECT_EQ(buf[15], 16);

  EXPECT_EQ(zy::memcpy_s(buf + 2, 8, buf, 8), 182);  // source runs into destination
  EXPECT_EQ(buf[2], 0);
  EXPECT_EQ(buf[9], 0);
  EXPECT_EQ(buf[10], 11);  // outside the destination: untouched

  for (int i = 0; i < 16; ++i) buf[i] = static_cast<unsigned char>(i + 1);
  EXPECT_EQ(zy::memcpy_s(buf, 8, buf + 4, 8), 182);  // destination runs into source
  // Adjacent areas do not overlap.
  for (int i = 0; i < 16; ++i) buf[i] = static_cast<unsigned char>(i + 1);
  EXPECT_EQ(zy::memcpy_s(buf, 8, buf + 8, 8), 0);
  EXPECT_EQ(buf[0], 9);
}

TEST(MemOps, SetResults) {
  unsigned char dst[8];
  std::memset(dst, 0xAA, sizeof dst);
  EXPECT_EQ(zy::memset_s(dst, 8, 0x11, 8), 0);
  EXPECT_EQ(dst[7], 0x11);
  EXPECT_EQ(zy::memset_s(nullptr, 8, 0, 8), 22);
  EXPECT_EQ(zy::memset_s(dst, 0, 0, 0), 34);
  EXPECT_EQ(zy::memset_s(dst, 4, 0x22, 8), 162);
  EXPECT_EQ(dst[0], 0);  // cleared, not filled
  EXPECT_EQ(dst[4], 0x11);
}

}  // namespace
