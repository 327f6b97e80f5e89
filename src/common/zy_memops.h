// Bounds-checked memory operations used for every clearing and copying of handle and
// tracker buffers.
#pragma once
#include <cstddef>

namespace zy {

// Result codes shared by memcpy_s and memset_s.
enum MemResult : int {
  kMemOk = 0,
  kMemNullDest = 22,      // destination is null
  kMemBadDestSize = 34,   // destination size is 0 or larger than 2^31 - 1
  kMemNullSrc = 150,      // source is null (destination cleared)
  kMemCountTooBig = 162,  // count larger than destination size (destination cleared)
  kMemOverlap = 182,      // source and destination overlap (destination cleared)
};

// Copies count bytes; a copy of an area onto itself succeeds without touching it.
int memcpy_s(void* dest, size_t destMax, const void* src, size_t count);
// Fills count bytes with the low byte of c.
int memset_s(void* dest, size_t destMax, int c, size_t count);

}  // namespace zy
