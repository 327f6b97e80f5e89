// The bounded copy and fill: result codes, and exactly which bytes each call writes.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <vector>

#include "common/zy_memops.h"

namespace {

enum Effect { kNone, kCopied, kCleared, kFilled };

TEST(MemOps, ResultCodesAndTheBytesWritten) {
  // dest and src: offsets into a 32-byte buffer, -1 for null; for memset_s src is the value.
  struct Case { bool set; int dest; size_t destMax; int src; size_t count; int result; Effect effect; };
  const Case cases[] = {
      {false, 0, 8, 16, 8, 0, kCopied},     {false, 0, 8, 8, 8, 0, kCopied},  // adjacent, destination first
      {false, 8, 8, 0, 8, 0, kCopied},      // adjacent, source first
      {false, 0, 16, 0, 16, 0, kNone},      // onto itself
      {false, 2, 8, 0, 8, 182, kCleared},   // source runs into destination
      {false, 0, 8, 4, 8, 182, kCleared},   // destination runs into source
      {false, -1, 8, 16, 8, 22, kNone},     {false, 0, 0, 16, 8, 34, kNone},
      {false, 0, size_t{0x80000000u}, 16, 8, 34, kNone},
      {false, 0, size_t{0x7fffffffu}, 16, 8, 0, kCopied},  // the largest size accepted
      {false, 0, 8, -1, 4, 150, kCleared},  {false, 0, 4, 16, 8, 162, kCleared},
      {true, 0, 8, 0x11, 6, 0, kFilled},    {true, -1, 8, 0, 8, 22, kNone},  {true, 0, 0, 0, 0, 34, kNone},
      {true, 0, 4, 0x22, 8, 162, kCleared},  // cleared, not filled
  };
  for (const Case& c : cases) {
    std::vector<unsigned char> buf(32);
    std::iota(buf.begin(), buf.end(), 1);
    std::vector<unsigned char> want = buf;
    unsigned char* d = c.dest < 0 ? nullptr : buf.data() + c.dest;
    const int got = c.set ? zy::memset_s(d, c.destMax, c.src, c.count)
                          : zy::memcpy_s(d, c.destMax, c.src < 0 ? nullptr : buf.data() + c.src, c.count);
    EXPECT_EQ(got, c.result) << &c - cases;
    if (c.effect == kCopied) std::memmove(want.data() + c.dest, want.data() + c.src, c.count);
    if (c.effect == kCleared) std::memset(want.data() + c.dest, 0, c.destMax);
    if (c.effect == kFilled) std::memset(want.data() + c.dest, c.src, c.count);
    EXPECT_EQ(buf, want) << &c - cases;
  }
}

}  // namespace
