// Cells of size 4 in NEON (SIMDe on x86-64 hosts): a pixel's four additions, to its own cell
// and the vertical, horizontal and diagonal neighbours, go to four different histograms, so
// they are made as one vector addition on the four gathered bins: the same sums, each bin
// still taking its additions in pixel order. The four values come from one broadcast of the
// magnitude: (r * wx) * wy per lane with the products as the reference forms them.
#include "features/hog_cells.h"

#if ZY_HAVE_NEON

namespace {

// Adds lanes own, vertical, horizontal, diagonal of `value` to p[0], p[v], p[h], p[v + h].
#if defined(__aarch64__)
// On arm64 each lane load and store steps the address on to the next bin itself (post-
// indexed: p, p + h, p + h + v, p + v and back), so the four addresses cost nothing beyond
// p. Volatile with a memory clobber: its results are the stores, which the compiler must
// neither drop nor move across other accesses to the histograms.
inline void AddFour(float* p, ptrdiff_t v, ptrdiff_t h, float32x4_t value) {
  const int64_t hb = 4 * h, vb = 4 * v, nhb = -hb, nvb = -vb;
  float32x4_t t;
  asm volatile(
      "ld1 {%0.s}[0], [%1], %3\n\t"
      "ld1 {%0.s}[2], [%1], %4\n\t"
      "ld1 {%0.s}[3], [%1], %5\n\t"
      "ld1 {%0.s}[1], [%1]\n\t"
      "fadd %0.4s, %0.4s, %2.4s\n\t"
      "st1 {%0.s}[1], [%1], %6\n\t"
      "st1 {%0.s}[0], [%1], %3\n\t"
      "st1 {%0.s}[2], [%1], %4\n\t"
      "st1 {%0.s}[3], [%1]"
      : "=&w"(t), "+r"(p)
      : "w"(value), "r"(hb), "r"(vb), "r"(nhb), "r"(nvb)
      : "memory");
}
#else
inline void AddFour(float* p, ptrdiff_t v, ptrdiff_t h, float32x4_t value) {
  float32x4_t t = vld1q_dup_f32(p);
  t = vld1q_lane_f32(p + v, t, 1);
  t = vld1q_lane_f32(p + h, t, 2);
  t = vld1q_lane_f32(p + v + h, t, 3);
  t = vaddq_f32(t, value);
  vst1q_lane_f32(p, t, 0);
  vst1q_lane_f32(p + v, t, 1);
  vst1q_lane_f32(p + h, t, 2);
  vst1q_lane_f32(p + v + h, t, 3);
}
#endif

// Named members, no arrays, passed by value: the weights stay in registers.
struct Weights {
  float32x4_t wx0, wx1, wx2, wx3;  // offset jj: wx0, wx0, wx1, wx1
  float32x4_t wy0, wy1, wy2, wy3;  // offset ii: wy0, wy1, wy0, wy1
};

// One cell; kFull: all 16 pixels, else `rows` x `cols` of them.
template <uint32_t F, bool kFull>
inline __attribute__((always_inline)) void Cell(const Weights W, size_t width, ptrdiff_t up,
                                                ptrdiff_t down, const float* mag,
                                                const uint32_t* bins, float* own, int32_t rows,
                                                int32_t cols) {
  constexpr ptrdiff_t kSide = static_cast<ptrdiff_t>(F);
#pragma GCC unroll 4
  for (int32_t ii = 0; ii < 4; ++ii) {
    if (!kFull && ii >= rows) break;
    const float32x4_t r = vld1q_f32(mag + static_cast<size_t>(ii) * width);
    const uint32_t* b = bins + 2 * static_cast<size_t>(ii) * width;
    const ptrdiff_t v = ii < 2 ? up : down;
#pragma GCC unroll 4
    for (int32_t jj = 0; jj < 4; ++jj) {
      if (!kFull && jj >= cols) break;
      const ptrdiff_t h = jj < 2 ? -kSide : kSide;
      float32x4_t value;
      switch (jj) {
        case 0:
          value = vmulq_laneq_f32(W.wx0, r, 0);
          break;
        case 1:
          value = vmulq_laneq_f32(W.wx1, r, 1);
          break;
        case 2:
          value = vmulq_laneq_f32(W.wx2, r, 2);
          break;
        default:
          value = vmulq_laneq_f32(W.wx3, r, 3);
          break;
      }
      value = vmulq_f32(value, ii == 0 ? W.wy0 : ii == 1 ? W.wy1 : ii == 2 ? W.wy2 : W.wy3);
      AddFour(own + b[2 * jj], v, h, value);
      if (F == 27) AddFour(own + 9 + b[2 * jj + 1], v, h, value);
    }
  }
}

template <uint32_t F>
void Row(const CellRow4& R) {
  float32x4_t wx[4], wy[4];
  for (int t = 0; t < 4; ++t) {
    const float w0 = R.weights[2 * t], w1 = R.weights[2 * t + 1];
    const float x[4] = {w0, w0, w1, w1};
    const float y[4] = {w0, w1, w0, w1};
    wx[t] = vld1q_f32(x);
    wy[t] = vld1q_f32(y);
  }
  const Weights W{wx[0], wx[1], wx[2], wx[3], wy[0], wy[1], wy[2], wy[3]};
  const float* mag = R.mag;
  const uint32_t* bins = R.bins;
  float* own = R.own;
  const size_t width = R.width;
  const ptrdiff_t up = R.up, down = R.down;
  const int32_t full = R.rows < 4 ? 0 : R.lastCols < 4 ? R.cells - 1 : R.cells;
  for (int32_t j = 0; j < full; ++j, mag += 4, bins += 8, own += F) {
    Cell<F, true>(W, width, up, down, mag, bins, own, 4, 4);
  }
  for (int32_t j = full; j < R.cells; ++j, mag += 4, bins += 8, own += F) {
    Cell<F, false>(W, width, up, down, mag, bins, own, R.rows, j + 1 < R.cells ? 4 : R.lastCols);
  }
}

}  // namespace

namespace {

template <bool kSigned>
inline void Take(const uint32_t* b, uint32x4_t& maxU, uint32x4_t& maxS) {
  const uint32x4x2_t us = vld2q_u32(b);
  maxU = vmaxq_u32(maxU, us.val[0]);
  if (kSigned) maxS = vmaxq_u32(maxS, us.val[1]);
}

template <bool kSigned>
bool BinsFit(const uint32_t* bins, int32_t rows, int32_t cols, size_t width) {
  uint32x4_t maxU = vdupq_n_u32(0), maxS = vdupq_n_u32(0);
  uint32_t tailU = 0, tailS = 0;
  for (int32_t y = 0; y < rows; ++y) {
    const uint32_t* b = bins + 2 * static_cast<size_t>(y) * width;
    if (cols < 4) {
      for (int32_t x = 0; x < cols; ++x) {
        tailU = b[2 * x] > tailU ? b[2 * x] : tailU;
        tailS = b[2 * x + 1] > tailS ? b[2 * x + 1] : tailS;
      }
      continue;
    }
    // Steps of four pixels, then the row's last four (overlapping is harmless).
    for (int32_t x = 0; x + 4 < cols; x += 4) Take<kSigned>(b + 2 * x, maxU, maxS);
    Take<kSigned>(b + 2 * (cols - 4), maxU, maxS);
  }
  return vmaxvq_u32(maxU) < 9 && tailU < 9 && (!kSigned || (vmaxvq_u32(maxS) < 18 && tailS < 18));
}

}  // namespace

bool CellBinsFit_NEON(const uint32_t* bins, int32_t rows, int32_t cols, size_t width,
                      uint32_t featuresPerCell) {
  return featuresPerCell == 27 ? BinsFit<true>(bins, rows, cols, width)
                               : BinsFit<false>(bins, rows, cols, width);
}

void CellRow4_NEON(uint32_t featuresPerCell, const CellRow4& row) {
  if (featuresPerCell == 27) {
    Row<27>(row);
  } else {
    Row<9>(row);
  }
}

#endif
