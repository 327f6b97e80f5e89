// Cells of size 4 for x86-64 CPUs with AVX2 (chosen at run time; these functions alone are
// compiled for it), the same additions as the NEON form: a pixel's four values, to its own
// cell and the vertical, horizontal and diagonal neighbours, are one vector of products
// (r * wx) * wy, added in one instruction to the four bins gathered into a vector (four
// different histograms, so nothing is lost) and stored back lane by lane. Two pixels' values
// are formed at once in the two 128-bit halves.
#include <cstring>

#include "features/hog_cells.h"
#include "features/hog_rows.h"

#if ZY_HAVE_AVX2_ROWS

#include <immintrin.h>

namespace {

#define ZY_AVX2 __attribute__((target("avx2")))

template <int kLane>
ZY_AVX2 inline void StoreLane(float* p, __m128 t) {
  const int bits = _mm_extract_ps(t, kLane);
  std::memcpy(p, &bits, sizeof bits);
}

// Adds lanes own, vertical, horizontal, diagonal of `value` to p[0], q[0], p[h], q[h] (q is
// p's bin in the vertical neighbour). Lane writes into a vector load straight into the lanes.
ZY_AVX2 inline void AddFour(float* p, float* q, ptrdiff_t h, __m128 value) {
  __m128 t = _mm_load_ss(p);
  t[1] = q[0];
  t[2] = p[h];
  t[3] = q[h];
  t = _mm_add_ps(t, value);
  _mm_store_ss(p, t);
  StoreLane<1>(q, t);
  StoreLane<2>(p + h, t);
  StoreLane<3>(q + h, t);
}

struct Weights {
  __m256 wx[2];       // offsets jj = 0, 1 and 2, 3: wx0, wx0, wx1, wx1 per half
  __m256 wy[4];       // offset ii: wy0, wy1, wy0, wy1 in both halves
  __m256i spread[2];  // magnitudes 0, 1 and 2, 3 of a row, each over its half
};

template <uint32_t F>
ZY_AVX2 inline void AddPixel(float* own, float* vert, const uint32_t* b, ptrdiff_t h,
                             __m128 value) {
  AddFour(own + b[0], vert + b[0], h, value);
  if (F == 27) AddFour(own + 9 + b[1], vert + 9 + b[1], h, value);
}

// One cell; kFull: all 16 pixels, else `rows` x `cols` of them.
template <uint32_t F, bool kFull>
ZY_AVX2 inline __attribute__((always_inline)) void Cell(const Weights& W, size_t width,
                                                        ptrdiff_t up, ptrdiff_t down,
                                                        const float* mag, const uint32_t* bins,
                                                        float* own, int32_t rows, int32_t cols) {
  constexpr ptrdiff_t kSide = static_cast<ptrdiff_t>(F);
#pragma GCC unroll 4
  for (int32_t ii = 0; ii < 4; ++ii) {
    if (!kFull && ii >= rows) break;
    const __m256 r =
        _mm256_broadcast_ps(reinterpret_cast<const __m128*>(mag + static_cast<size_t>(ii) * width));
    const uint32_t* b = bins + 2 * static_cast<size_t>(ii) * width;
    float* vert = own + (ii < 2 ? up : down);
#pragma GCC unroll 2
    for (int32_t pair = 0; pair < 2; ++pair) {
      const int32_t jj = 2 * pair;
      if (!kFull && jj >= cols) break;
      const ptrdiff_t h = pair == 0 ? -kSide : kSide;
      const __m256 values = _mm256_mul_ps(
          _mm256_mul_ps(_mm256_permutevar8x32_ps(r, W.spread[pair]), W.wx[pair]), W.wy[ii]);
      AddPixel<F>(own, vert, b + 2 * jj, h, _mm256_castps256_ps128(values));
      if (!kFull && jj + 1 >= cols) break;
      AddPixel<F>(own, vert, b + 2 * jj + 2, h, _mm256_extractf128_ps(values, 1));
    }
  }
}

template <uint32_t F>
ZY_AVX2 void Row(const CellRow4& R) {
  Weights W;
  const float* w = R.weights;
  for (int t = 0; t < 4; ++t)
    W.wy[t] = _mm256_setr_ps(w[2 * t], w[2 * t + 1], w[2 * t], w[2 * t + 1], w[2 * t], w[2 * t + 1],
                             w[2 * t], w[2 * t + 1]);
  for (int p = 0; p < 2; ++p) {
    const float* a = w + 4 * p;
    W.wx[p] = _mm256_setr_ps(a[0], a[0], a[1], a[1], a[2], a[2], a[3], a[3]);
    const int s = 2 * p;
    W.spread[p] = _mm256_setr_epi32(s, s, s, s, s + 1, s + 1, s + 1, s + 1);
  }
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

ZY_AVX2 inline __m256i Load8(const uint32_t* p) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
}

// Four pixels' bins (unsigned, signed interleaved) per 256-bit maximum; the unsigned lanes
// must stay below 9 and, with 27 features, the signed ones below 18.
ZY_AVX2 bool CellBinsFit_AVX2(const uint32_t* bins, int32_t rows, int32_t cols, size_t width,
                              uint32_t featuresPerCell) {
  const uint32_t limitS = featuresPerCell == 27 ? 17u : 0xffffffffu;
  __m256i maxBins = _mm256_setzero_si256();
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
    // Steps of eight and four pixels, then the row's last four (overlapping is harmless).
    int32_t x = 0;
    for (; x + 8 < cols; x += 8) {
      maxBins = _mm256_max_epu32(maxBins, Load8(b + 2 * x));
      maxBins = _mm256_max_epu32(maxBins, Load8(b + 2 * x + 8));
    }
    if (x + 4 < cols) maxBins = _mm256_max_epu32(maxBins, Load8(b + 2 * x));
    maxBins = _mm256_max_epu32(maxBins, Load8(b + 2 * (cols - 4)));
  }
  const __m256i limit = _mm256_setr_epi32(8, static_cast<int>(limitS), 8, static_cast<int>(limitS),
                                          8, static_cast<int>(limitS), 8, static_cast<int>(limitS));
  const __m256i within = _mm256_cmpeq_epi32(_mm256_max_epu32(maxBins, limit), limit);
  return _mm256_movemask_epi8(within) == -1 && tailU <= 8 && tailS <= limitS;
}

ZY_AVX2 void CellRow4_AVX2(uint32_t featuresPerCell, const CellRow4& row) {
  if (featuresPerCell == 27) {
    Row<27>(row);
  } else {
    Row<9>(row);
  }
}

#endif
