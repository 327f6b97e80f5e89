// Feature map assembly: search window -> planar RGB patch -> per-cell gradient histograms ->
// block normalisation and truncation -> reduction -> cosine window -> complex planes.
#include <cmath>
#include <cstring>

#include "common/zy_alloc.h"
#include "common/zy_log.h"
#include "common/zy_memops.h"
#include "common/zy_neon.h"
#include "features/crop_resize.h"
#include "features/hog_features.h"
#include "tracker/tracker_ops.h"

namespace {

// Added to every block norm so that a flat block divides by a tiny number, not by zero.
constexpr float kNormEpsilon = 1.1920929e-7f;
// Normalised values are truncated at this level.
constexpr float kTruncation = 0.2f;
// Weight of the four texture sums of the full reduction: 1 / sqrt(18).
constexpr float kTextureWeight = 0.23570228f;

// Cells per side of the normalised map: the template side in cells, taken from the template
// size with the fixed cell size of 4.
int32_t NormCells(int32_t templateSize) { return static_cast<int32_t>(static_cast<float>(templateSize) * 0.25f); }

float SumSquares9(const float* v) {
  float s = 0.f;
  for (int o = 0; o < 9; ++o) s += v[o] * v[o];
  return s;
}

// The four block normalisers of interior cell (i, j) of the bordered grid of side g.
void BlockFactors(const float* energy, int32_t g, int32_t i, int32_t j, float n[4]) {
  auto E = [&](int32_t r, int32_t c) { return energy[r * g + c]; };
  n[0] = 1.0f / (std::sqrt(E(i, j) + E(i, j + 1) + E(i + 1, j) + E(i + 1, j + 1)) + kNormEpsilon);
  n[1] = 1.0f / (std::sqrt(E(i, j) + E(i, j + 1) + E(i - 1, j) + E(i - 1, j + 1)) + kNormEpsilon);
  n[2] = 1.0f / (std::sqrt(E(i, j) + E(i, j - 1) + E(i + 1, j) + E(i + 1, j - 1)) + kNormEpsilon);
  n[3] = 1.0f / (std::sqrt(E(i, j) + E(i, j - 1) + E(i - 1, j) + E(i - 1, j - 1)) + kNormEpsilon);
}

#if ZY_HAVE_NEON
// v > 0.2 ? 0.2 : v per lane, a NaN staying the same NaN. v is always a product, so a NaN in
// it is quiet: arm64's minimum returns a quiet NaN first operand unchanged; minps returns its
// second operand when either is NaN; elsewhere a bitwise select keeps v's bits.
inline float32x4_t TruncateLanes(float32x4_t v) {
#if defined(__aarch64__)
  return vminq_f32(v, vdupq_n_f32(kTruncation));
#elif defined(SIMDE_X86_SSE_NATIVE)
  return simde_float32x4_from_m128(_mm_min_ps(_mm_set1_ps(kTruncation), simde_float32x4_to_m128(v)));
#else
  const float32x4_t limit = vdupq_n_f32(kTruncation);
  return vbslq_f32(vcgtq_f32(v, limit), limit, v);
#endif
}

// The four block factors of BlockFactors in the lanes of one vector: the same sums in the same
// order, the IEEE square root and division.
inline float32x4_t BlockFactors4(const float* energy, int32_t g, int32_t i, int32_t j) {
  auto E = [&](int32_t r, int32_t c) { return energy[r * g + c]; };
  const float side[4] = {E(i, j + 1), E(i, j + 1), E(i, j - 1), E(i, j - 1)};
  const float vert[4] = {E(i + 1, j), E(i - 1, j), E(i + 1, j), E(i - 1, j)};
  const float diag[4] = {E(i + 1, j + 1), E(i - 1, j + 1), E(i + 1, j - 1), E(i - 1, j - 1)};
  const float32x4_t sum = vaddq_f32(
      vaddq_f32(vaddq_f32(vdupq_n_f32(E(i, j)), vld1q_f32(side)), vld1q_f32(vert)), vld1q_f32(diag));
  return zy::DivF32x4(vdupq_n_f32(1.0f), vaddq_f32(zy::SqrtF32x4(sum), vdupq_n_f32(kNormEpsilon)));
}

// One cell of nine values scaled by the four factors and truncated: 36 outputs, block b at
// out[9b .. 9b + 8].
inline void ScaleTruncate9x4(const float* in, float32x4_t factors, float* out) {
  const float32x4_t lo = vld1q_f32(in);
  const float32x4_t hi = vld1q_f32(in + 4);
  const float32x4_t last = TruncateLanes(vmulq_f32(vdupq_n_f32(in[8]), factors));
  float n[4];
  vst1q_f32(n, factors);
#pragma GCC unroll 4
  for (int b = 0; b < 4; ++b) {
    vst1q_f32(out + 9 * b, TruncateLanes(vmulq_n_f32(lo, n[b])));
    vst1q_f32(out + 9 * b + 4, TruncateLanes(vmulq_n_f32(hi, n[b])));
  }
  vst1q_lane_f32(out + 8, last, 0);
  vst1q_lane_f32(out + 17, last, 1);
  vst1q_lane_f32(out + 26, last, 2);
  vst1q_lane_f32(out + 35, last, 3);
}
#endif

void Truncate(float* v, int64_t count) {
  for (int64_t q = 0; q < count; ++q) v[q] = v[q] > kTruncation ? kTruncation : v[q];
}

// out[o] = in[o] * factor truncated at 0.2, for o < count: the scaling and the truncation of
// one block in one pass. Products and comparisons are the scalar ones lane by lane (a
// NaN stays NaN, as with the scalar comparison), so the values are identical.
void ScaleTruncate(const float* in, int32_t count, float factor, float* out) {
  int32_t o = 0;
#if ZY_HAVE_NEON
  for (; o + 4 <= count; o += 4) vst1q_f32(out + o, TruncateLanes(vmulq_n_f32(vld1q_f32(in + o), factor)));
#endif
  for (; o < count; ++o) {
    const float v = in[o] * factor;
    out[o] = v > kTruncation ? kTruncation : v;
  }
}

// Shared body of the two normalisers: F input values per bordered cell, the first 9 giving
// the energies; output cells of 4 x F values laid out as 4 blocks of the first 9, then 4
// blocks of the remaining F - 9.
template <bool kFused>
void NormalizeAndTruncateT(int32_t templateSize, int32_t F, float* cellFeat, float* blockNorm,
                           float* normFeat) {
  const int32_t k = NormCells(templateSize);
  if (k < 1 || cellFeat == nullptr || blockNorm == nullptr || normFeat == nullptr) return;
  const int32_t g = k + 2;
  for (int32_t c = 0; c < g * g; ++c) blockNorm[c] = SumSquares9(cellFeat + static_cast<int64_t>(c) * F);
  const int32_t rest = F - 9;
  const int32_t outF = 4 * F;
  for (int32_t i = 1; i <= k; ++i) {
    for (int32_t j = 1; j <= k; ++j) {
      const float* in = cellFeat + (static_cast<int64_t>(i) * g + j) * F;
      float* out = normFeat + (static_cast<int64_t>(i - 1) * k + (j - 1)) * outF;
#if ZY_HAVE_NEON
      if (kFused && F == 9) {
        ScaleTruncate9x4(in, BlockFactors4(blockNorm, g, i, j), out);
        continue;
      }
#endif
      float n[4];
      BlockFactors(blockNorm, g, i, j, n);
      for (int b = 0; b < 4; ++b) {
        if (kFused) {
          ScaleTruncate(in, 9, n[b], out + b * 9);
          ScaleTruncate(in + 9, rest, n[b], out + 36 + b * rest);
        } else {
          for (int o = 0; o < 9; ++o) out[b * 9 + o] = in[o] * n[b];
          for (int o = 0; o < rest; ++o) out[36 + b * rest + o] = in[9 + o] * n[b];
        }
      }
    }
  }
  const int64_t count = static_cast<int64_t>(k) * k * outF;
  if (!kFused) Truncate(normFeat, count);
  const size_t bytes = static_cast<size_t>(count) * sizeof(float);
  zy::memcpy_s(cellFeat, bytes, normFeat, bytes);  // result deliberately unchecked
}

// The normalisers run the fused vector form where NEON (or SIMDe) is built.
void NormalizeAndTruncate(int32_t templateSize, int32_t F, float* cellFeat, float* blockNorm,
                          float* normFeat) {
  NormalizeAndTruncateT<ZY_HAVE_NEON != 0>(templateSize, F, cellFeat, blockNorm, normFeat);
}

#if ZY_HAVE_NEON
// The block factors of cells j .. j + 3 of interior row i, four cells to a vector: lane l of
// n[b] is factor b of cell j + l, the sums of BlockFactors in its order.
inline void BlockFactorRow4(const float* energy, int32_t g, int32_t i, int32_t j, float32x4_t n[4]) {
  const float* up = energy + (i - 1) * g + j;
  const float* mid = energy + i * g + j;
  const float* down = energy + (i + 1) * g + j;
  const float32x4_t e = vld1q_f32(mid);
  const float32x4_t right = vaddq_f32(e, vld1q_f32(mid + 1));
  const float32x4_t left = vaddq_f32(e, vld1q_f32(mid - 1));
  const float32x4_t sums[4] = {
      vaddq_f32(vaddq_f32(right, vld1q_f32(down)), vld1q_f32(down + 1)),
      vaddq_f32(vaddq_f32(right, vld1q_f32(up)), vld1q_f32(up + 1)),
      vaddq_f32(vaddq_f32(left, vld1q_f32(down)), vld1q_f32(down - 1)),
      vaddq_f32(vaddq_f32(left, vld1q_f32(up)), vld1q_f32(up - 1))};
  for (int b = 0; b < 4; ++b) {
    n[b] = zy::DivF32x4(vdupq_n_f32(1.0f), vaddq_f32(zy::SqrtF32x4(sums[b]), vdupq_n_f32(kNormEpsilon)));
  }
}

// blockNorm[c] = SumSquares9 of cell c, for `count` cells: four cells at a time, their
// squares transposed so that each lane sums one cell's nine squares in order from 0.
inline void CellEnergies9(const float* cellFeat, int32_t count, float* energy) {
  int32_t c = 0;
  for (; c + 4 <= count; c += 4) {
    const float* v = cellFeat + static_cast<int64_t>(c) * 9;
    float32x4_t sq[8];
    for (int l = 0; l < 4; ++l) {
      const float32x4_t lo = vld1q_f32(v + 9 * l), hi = vld1q_f32(v + 9 * l + 4);
      sq[l] = vmulq_f32(lo, lo);
      sq[4 + l] = vmulq_f32(hi, hi);
    }
    float32x4_t sum = vdupq_n_f32(0.f);
    for (int h = 0; h < 2; ++h) {
      const float32x4_t* q = sq + 4 * h;
      const float32x4_t a = vzip1q_f32(q[0], q[1]), b = vzip2q_f32(q[0], q[1]);
      const float32x4_t e = vzip1q_f32(q[2], q[3]), d = vzip2q_f32(q[2], q[3]);
      // Column o of the four cells' values 4h .. 4h + 3, added in order.
      sum = vaddq_f32(sum, vcombine_f32(vget_low_f32(a), vget_low_f32(e)));
      sum = vaddq_f32(sum, vcombine_f32(vget_high_f32(a), vget_high_f32(e)));
      sum = vaddq_f32(sum, vcombine_f32(vget_low_f32(b), vget_low_f32(d)));
      sum = vaddq_f32(sum, vcombine_f32(vget_high_f32(b), vget_high_f32(d)));
    }
    const float last[4] = {v[8], v[17], v[26], v[35]};
    const float32x4_t l8 = vld1q_f32(last);
    vst1q_f32(energy + c, vaddq_f32(sum, vmulq_f32(l8, l8)));
  }
  for (; c < count; ++c) energy[c] = SumSquares9(cellFeat + static_cast<int64_t>(c) * 9);
}

// (v0, 0) and (v1, 0) of two adjacent values of a vector, to two planes.
inline void StoreComplexPair(float32x4_t pairs, Complex* a, Complex* b) {
  vst1_f32(reinterpret_cast<float*>(a), vget_low_f32(pairs));
  vst1_f32(reinterpret_cast<float*>(b), vget_high_f32(pairs));
}

// The light path's normalisation, reduction and window in one pass over the cells, with the
// same values as normalise-9, reduce-9 and the windowing loop one after the other: each
// normalised value is the same product truncated the same way, each reduced value the same
// sum of the four blocks in block order, each windowed value the same product. What the
// separate steps leave in cellFeat for the next extraction's histograms (which add onto it) is
// left there too: the reduced cells, then the normalised values that the copy-back put past
// them, up to the end of the bordered map. The rest of the copy-back is never read again and is
// not written. Needs k >= 4 (whole vectors of cells), sx = sy = k and nine channels.
void NormaliseReduceWindow9(int32_t k, float* cellFeat, float* blockNorm, float* normFeat,
                            const float* hann, Complex* out, float* energyOut) {
  const int32_t g = k + 2;
  CellEnergies9(cellFeat, g * g, blockNorm);
  const int64_t cells = static_cast<int64_t>(k) * k;
  // Squares of the windowed values, cell by cell, for the energy (past the kept values).
  float* squares = normFeat + 27 * cells;
  // The normalised values the copy-back leaves past the reduced cells and the next
  // extraction's histograms read: flat positions [keepBegin, keepEnd) of the normalised map.
  const int64_t keepBegin = cells * 9;
  const int64_t mapEnd = static_cast<int64_t>(g) * g * 9;
  const int64_t keepEnd = mapEnd < cells * 36 ? mapEnd : cells * 36;
  const float32x4_t half = vdupq_n_f32(0.5f);
  const float32x4_t zero = vdupq_n_f32(0.0f);
  for (int32_t i = 1; i <= k; ++i) {
    for (int32_t j = 1; j <= k; j += 4) {
      float32x4_t n[4];
      BlockFactorRow4(blockNorm, g, i, j, n);
      // Transposed: cellFactors[l] holds the four factors of cell j + l.
      const float32x4_t n01a = vzip1q_f32(n[0], n[1]), n01b = vzip2q_f32(n[0], n[1]);
      const float32x4_t n23a = vzip1q_f32(n[2], n[3]), n23b = vzip2q_f32(n[2], n[3]);
      const float32x4_t cellFactors[4] = {vcombine_f32(vget_low_f32(n01a), vget_low_f32(n23a)),
                                          vcombine_f32(vget_high_f32(n01a), vget_high_f32(n23a)),
                                          vcombine_f32(vget_low_f32(n01b), vget_low_f32(n23b)),
                                          vcombine_f32(vget_high_f32(n01b), vget_high_f32(n23b))};
#pragma GCC unroll 4
      for (int32_t l = 0; l < 4; ++l) {
        // Read before the reduced cell is stored: it lies at or before this input cell.
        const float* in = cellFeat + (static_cast<int64_t>(i) * g + j + l) * 9;
        const float32x4_t lo = vld1q_f32(in);
        const float32x4_t hi = vld1q_f32(in + 4);
        const float32x4_t f = cellFactors[l];
        const float32x4_t last = TruncateLanes(vmulq_f32(vdupq_n_f32(in[8]), f));
        const float32x4_t tLo[4] = {TruncateLanes(vmulq_laneq_f32(lo, f, 0)), TruncateLanes(vmulq_laneq_f32(lo, f, 1)),
                                    TruncateLanes(vmulq_laneq_f32(lo, f, 2)), TruncateLanes(vmulq_laneq_f32(lo, f, 3))};
        const float32x4_t tHi[4] = {TruncateLanes(vmulq_laneq_f32(hi, f, 0)), TruncateLanes(vmulq_laneq_f32(hi, f, 1)),
                                    TruncateLanes(vmulq_laneq_f32(hi, f, 2)), TruncateLanes(vmulq_laneq_f32(hi, f, 3))};
        const int64_t cell = static_cast<int64_t>(i - 1) * k + (j - 1 + l);
        if (36 * cell + 36 > keepBegin && 36 * cell < keepEnd) {
          float* norm = normFeat + 36 * cell;
          for (int b = 0; b < 4; ++b) {
            vst1q_f32(norm + 9 * b, tLo[b]);
            vst1q_f32(norm + 9 * b + 4, tHi[b]);
          }
          vst1q_lane_f32(norm + 8, last, 0);
          vst1q_lane_f32(norm + 17, last, 1);
          vst1q_lane_f32(norm + 26, last, 2);
          vst1q_lane_f32(norm + 35, last, 3);
        }
        const float32x4_t redLo = vmulq_f32(half, vaddq_f32(vaddq_f32(vaddq_f32(tLo[0], tLo[1]), tLo[2]), tLo[3]));
        const float32x4_t redHi = vmulq_f32(half, vaddq_f32(vaddq_f32(vaddq_f32(tHi[0], tHi[1]), tHi[2]), tHi[3]));
        const float red8 = 0.5f * (((vgetq_lane_f32(last, 0) + vgetq_lane_f32(last, 1)) + vgetq_lane_f32(last, 2)) +
                                   vgetq_lane_f32(last, 3));
        float* reduced = cellFeat + cell * 9;
        vst1q_f32(reduced, redLo);
        vst1q_f32(reduced + 4, redHi);
        reduced[8] = red8;
        const float w = hann[cell];
        const float32x4_t vLo = vmulq_n_f32(redLo, w);
        const float32x4_t vHi = vmulq_n_f32(redHi, w);
        Complex* at = out + cell;
        StoreComplexPair(vzip1q_f32(vLo, zero), at, at + cells);
        StoreComplexPair(vzip2q_f32(vLo, zero), at + 2 * cells, at + 3 * cells);
        StoreComplexPair(vzip1q_f32(vHi, zero), at + 4 * cells, at + 5 * cells);
        StoreComplexPair(vzip2q_f32(vHi, zero), at + 6 * cells, at + 7 * cells);
        const float v8 = red8 * w;
        at[8 * cells] = Complex{v8, 0.f};
        float* sq = squares + cell * 9;
        vst1q_f32(sq, vmulq_f32(vLo, vLo));
        vst1q_f32(sq + 4, vmulq_f32(vHi, vHi));
        sq[8] = v8 * v8;
      }
    }
  }
  int64_t kept = keepBegin;
  for (; kept + 4 <= keepEnd; kept += 4) vst1q_f32(cellFeat + kept, vld1q_f32(normFeat + kept));
  for (; kept < keepEnd; ++kept) cellFeat[kept] = normFeat[kept];
  // The energy in the windowing loop's order: channel by channel, cells in order.
  float energy = 0.f;
  for (int32_t c = 0; c < 9; ++c) {
    const float* sq = squares + c;
#pragma GCC unroll 8
    for (int64_t q = 0; q < cells; ++q) energy += sq[9 * q];
  }
  *energyOut = energy;
}
#endif

}  // namespace

bool normaliseReduceWindow9(int32_t templateSize, float* cellFeat, float* blockNorm, float* normFeat,
                            const float* hann, Complex* out, float* energyOut) {
#if ZY_HAVE_NEON
  const int32_t k = NormCells(templateSize);
  if (k < 4 || k % 4 != 0 || cellFeat == nullptr || blockNorm == nullptr || normFeat == nullptr ||
      hann == nullptr || out == nullptr || energyOut == nullptr) {
    return false;
  }
  NormaliseReduceWindow9(k, cellFeat, blockNorm, normFeat, hann, out, energyOut);
  return true;
#else
  (void)templateSize, (void)cellFeat, (void)blockNorm, (void)normFeat, (void)hann, (void)out, (void)energyOut;
  return false;
#endif
}

void normalizeAndTruncateReference(int32_t templateSize, int32_t F, float* cellFeat, float* blockNorm,
                                   float* normFeat) {
  NormalizeAndTruncateT<false>(templateSize, F, cellFeat, blockNorm, normFeat);
}

void normalizeAndTruncate9(int32_t templateSize, float* cellFeat, float* blockNorm, float* normFeat) {
  NormalizeAndTruncate(templateSize, 9, cellFeat, blockNorm, normFeat);
}

void normalizeAndTruncate27(int32_t templateSize, float* cellFeat, float* blockNorm, float* normFeat) {
  NormalizeAndTruncate(templateSize, 27, cellFeat, blockNorm, normFeat);
}

void reduceFeatures9Reference(int32_t templateSize, float* cellFeat) {
  const int32_t k = NormCells(templateSize);
  if (k < 1 || cellFeat == nullptr) return;
  // Cell by cell in order: each output cell lies at or before its input cell.
  for (int64_t cell = 0; cell < static_cast<int64_t>(k) * k; ++cell) {
    const float* in = cellFeat + cell * 36;
    float out[9];
    for (int o = 0; o < 9; ++o) out[o] = 0.5f * (in[o] + in[9 + o] + in[18 + o] + in[27 + o]);
    std::memcpy(cellFeat + cell * 9, out, sizeof out);
  }
}

void reduceFeatures9(int32_t templateSize, float* cellFeat) {
#if ZY_HAVE_NEON
  const int32_t k = NormCells(templateSize);
  if (k < 1 || cellFeat == nullptr) return;
  const float32x4_t half = vdupq_n_f32(0.5f);
  for (int64_t cell = 0; cell < static_cast<int64_t>(k) * k; ++cell) {
    const float* in = cellFeat + cell * 36;
    // Values 0..3 and 4..7 four at a time, value 8 alone; all read before any is stored.
    float32x4_t sum[2];
    for (int h = 0; h < 2; ++h) {
      const float* v = in + 4 * h;
      sum[h] = vmulq_f32(half, vaddq_f32(vaddq_f32(vaddq_f32(vld1q_f32(v), vld1q_f32(v + 9)), vld1q_f32(v + 18)),
                                         vld1q_f32(v + 27)));
    }
    const float last = 0.5f * (in[8] + in[17] + in[26] + in[35]);
    float* out = cellFeat + cell * 9;
    vst1q_f32(out, sum[0]);
    vst1q_f32(out + 4, sum[1]);
    out[8] = last;
  }
#else
  reduceFeatures9Reference(templateSize, cellFeat);
#endif
}

void reduceFeatures27(int32_t templateSize, float* cellFeat) {
  const int32_t k = NormCells(templateSize);
  if (k < 1 || cellFeat == nullptr) return;
  for (int64_t cell = 0; cell < static_cast<int64_t>(k) * k; ++cell) {
    const float* in = cellFeat + cell * 108;
    // All 31 values are formed before any is stored: the first output cell overlaps its input.
    float out[31];
    for (int o = 0; o < 18; ++o) out[o] = 0.5f * (in[36 + o] + in[54 + o] + in[72 + o] + in[90 + o]);
    for (int o = 0; o < 9; ++o) out[18 + o] = 0.5f * (in[o] + in[9 + o] + in[18 + o] + in[27 + o]);
    for (int n = 0; n < 4; ++n) {
      float s = 0.f;
      for (int o = 0; o < 18; ++o) s += in[36 + 18 * n + o];
      out[27 + n] = kTextureWeight * s;
    }
    std::memcpy(cellFeat + cell * 31, out, sizeof out);
  }
}

void buildHann(TrackingInp& t, uint32_t cols, uint32_t rows) {
  if (cols == 0) cols = 1;
  if (rows == 0) rows = 1;
  if (t.hann == nullptr) return;
  // The window must fit the record's S x S buffer.
  const TrackerSizes s = ComputeTrackerSizes(t);
  if (static_cast<int64_t>(cols) * rows > static_cast<int64_t>(s.S) * s.S) return;
  float* wRows = zy::NewArray<float>(rows);
  float* wCols = zy::NewArray<float>(cols);
  if (wRows == nullptr || wCols == nullptr) {
    delete[] wRows;
    delete[] wCols;
    return;
  }
  std::memset(wRows, 0, rows * sizeof(float));
  std::memset(wCols, 0, cols * sizeof(float));
  auto fill = [](float* w, uint32_t n) {
    const float d = n > 2 ? static_cast<float>(n - 1) : 1.0f;
    for (uint32_t q = 0; q < n; ++q) w[q] = 0.5f * (1.0f - std::cos(6.2831855f * static_cast<float>(q) / d));
  };
  fill(wRows, rows);
  fill(wCols, cols);
  for (uint32_t i = 0; i < rows; ++i) {
    for (uint32_t j = 0; j < cols; ++j) t.hann[i * cols + j] = wRows[i] * wCols[j];
  }
  delete[] wRows;
  delete[] wCols;
}

void getFeatures(TrackingInp& t, Complex* out, float* energyOut, float scaleAdjust) {
  const TrackerSizes s = ComputeTrackerSizes(t);
  // The patch and the cell maps must fit the buffers sized when the tracker started.
  if (t.tmplWidth < 1 || t.tmplHeight < 1 || t.tmplWidth > s.P || t.tmplHeight > s.P ||
      t.frameChannels > 3 || t.patchRgb == nullptr) {
    return;
  }
  const float sc = t.scale * scaleAdjust;
  const float w = static_cast<float>(t.tmplWidth) * sc;
  const float h = static_cast<float>(t.tmplHeight) * sc;
  const float box[4] = {t.roi.x + t.roi.width / 2 - w / 2, t.roi.y + t.roi.height / 2 - h / 2, w, h};
  if (CropResizeYuv2rgbAcc(t.frameData, t.frameWidth, t.frameHeight, t.patchRgb, box, t.tmplWidth,
                           static_cast<uint32_t>(t.tmplHeight), t.frameChannels) != 0) {
    ZY_LOGE("CropResizeYuv2rgbAcc failed");
  }
  const FeatureImage image{t.tmplHeight, t.tmplWidth, t.patchRgb, static_cast<int32_t>(t.frameChannels)};
  const uint32_t cellSize = static_cast<uint32_t>(t.cellSize);
  if (t.lightFeatures) {
    ComputeCellHistogramsLight(&image, cellSize, t.cellFeat, t.gradBufA, t.gradBufB, t.gradMag, t.gradBins);
    // The tracker's own geometry (a k x k map of nine channels in the record's buffers) takes
    // the one-pass form where it is built; anything else the steps one by one.
    const int32_t k = NormCells(t.templateSize);
    if (k == s.S && t.sizeX == k && t.sizeY == k && t.numChannels == 9 &&
        normaliseReduceWindow9(t.templateSize, t.cellFeat, t.blockNorm, t.normFeat, t.hann, out, energyOut)) {
      return;
    }
    normalizeAndTruncate9(t.templateSize, t.cellFeat, t.blockNorm, t.normFeat);
    reduceFeatures9(t.templateSize, t.cellFeat);
  } else {
    ComputeCellHistograms(&image, cellSize, t.cellFeat, t.gradBufA, t.gradBufB, t.gradMag, t.gradBins);
    normalizeAndTruncate27(t.templateSize, t.cellFeat, t.blockNorm, t.normFeat);
    reduceFeatures27(t.templateSize, t.cellFeat);
  }
  if (energyOut == nullptr || t.cellFeat == nullptr || out == nullptr || t.hann == nullptr) return;

  const int32_t sx = t.sizeX;
  const int32_t sy = t.sizeY;
  const int32_t m = t.numChannels;
  float energy = 0.f;
  if (sx >= 1 && sy >= 1 && m >= 1 && sx <= s.S && sy <= s.S && m <= s.M) {
    for (int32_t c = 0; c < m; ++c) {
      Complex* plane = out + static_cast<int64_t>(c) * sx * sy;
      for (int32_t i = 0; i < sy; ++i) {
        for (int32_t j = 0; j < sx; ++j) {
          const float v = t.cellFeat[(static_cast<int64_t>(i) * sx + j) * m + c] * t.hann[i * sx + j];
          plane[i * sx + j] = Complex{v, 0.f};
          energy += v * v;
        }
      }
    }
  }
  *energyOut = energy;
}
