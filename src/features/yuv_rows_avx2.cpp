// The crop's rows in 256-bit lanes for x86-64 CPUs with AVX2, chosen at run time. They must
// equal Nv21Group8ToRgb_C (whole groups) and the one-at-a-time form (tails) bit for bit.
//
// Each pixel's bytes are fetched with one 32-bit gather per frame row: the luma pair in bytes
// 0..1 of its word, the chroma quad V, U, V next, U next in all four. Sixteen pixels per step:
// the even-numbered pixels in one gather, the odd-numbered in another, so that after the pair
// and quad averages one blend puts every pixel in its own 16-bit lane. The eight-wide form's
// constant multiplies and shifts are folded into exact high-half multiplies:
//   74 y' + (y' >> 1)            = floor(149 y / 2) - 1192        (y' = y - 16)
//   102 v' + (v' >> 3)           = floor(v' * 102.125)            (v' = v - 128)
//   52 v' + (v' >> 4)            = floor(v' * 52.0625)
//   129 u' + (u' >> 3)           = 256 u' + floor(u' * -126.875)
// each floor(x * c) taken as the high 16 bits of (x * 256) * (c * 256), which is exact, and
// every sum wraps modulo 2^16 as the form requires.
#include "features/yuv_rows.h"

#if ZY_HAVE_AVX2_ROWS

#include <immintrin.h>

#include <cstring>

#include "common/zy_bt601.h"

namespace {

#define ZY_AVX2 __attribute__((target("avx2")))

struct RowPointers {
  const uint8_t* y0;
  const uint8_t* y1;
  const uint8_t* c0;
  const uint8_t* c1;
};

ZY_AVX2 inline RowPointers Rows(const uint8_t* frame, const int32_t bases[4]) {
  return {frame + static_cast<int64_t>(bases[0]), frame + static_cast<int64_t>(bases[1]),
          frame + static_cast<int64_t>(bases[2]), frame + static_cast<int64_t>(bases[3])};
}

ZY_AVX2 inline __m256i Gather(const uint8_t* row, __m256i offsets) {
  return _mm256_i32gather_epi32(reinterpret_cast<const int*>(row), offsets, 1);
}

// Luma pair averages of one row: the even pixels' pairs in the low halves of the 32-bit lanes,
// the odd pixels' moved to the high halves; the high byte of each 16-bit lane then gets
// avg2(first, second) (the low byte is don't-care).
ZY_AVX2 inline __m256i PairAverages(const uint8_t* row, __m256i even, __m256i odd) {
  const __m256i pairs =
      _mm256_blend_epi16(Gather(row, even), _mm256_slli_epi32(Gather(row, odd), 16), 0xAA);
  return _mm256_avg_epu8(pairs, _mm256_slli_epi16(pairs, 8));
}

// Chroma quad averages of one row: per 16-bit lane (pixel), avg2 of the two V in the low
// byte and of the two U in the high byte.
ZY_AVX2 inline __m256i QuadAverages(const uint8_t* row, __m256i even, __m256i odd) {
  const __m256i e = Gather(row, even);
  const __m256i o = Gather(row, odd);
  return _mm256_blend_epi16(_mm256_avg_epu8(e, _mm256_srli_epi32(e, 16)),
                            _mm256_avg_epu8(o, _mm256_slli_epi32(o, 16)), 0xAA);
}

// Sixteen pixels in the eight-wide form. 16-bit lane 2i holds the pixel whose offset is lane
// i of `even`, lane 2i + 1 the one of `odd`. Returns R in bytes 0..15 and G in 16..31 of *rg,
// B in *b, each in the lane order written above after the dword permutation.
ZY_AVX2 inline void Convert16(const RowPointers& p, __m256i even, __m256i odd, __m256i* rg,
                              __m128i* b) {
  const __m256i lowByte = _mm256_set1_epi16(0x00FF);
  // Pairs first, then the two rows: luma * 256 (low byte cleared).
  const __m256i y8 = _mm256_andnot_si256(
      lowByte, _mm256_avg_epu8(PairAverages(p.y0, even, odd), PairAverages(p.y1, even, odd)));
  // V - 128 and U - 128 as signed bytes, then each * 256 in its lane.
  const __m256i vu = _mm256_xor_si256(
      _mm256_avg_epu8(QuadAverages(p.c0, even, odd), QuadAverages(p.c1, even, odd)),
      _mm256_set1_epi8(static_cast<char>(0x80)));
  const __m256i v8 = _mm256_slli_epi16(vu, 8);
  const __m256i u8 = _mm256_andnot_si256(lowByte, vu);

  const __m256i yc = _mm256_sub_epi16(_mm256_mulhi_epu16(y8, _mm256_set1_epi16(19072)),
                                      _mm256_set1_epi16(1192));
  const __m256i rs = _mm256_add_epi16(yc, _mm256_mulhi_epi16(v8, _mm256_set1_epi16(26144)));
  const __m256i gs =
      _mm256_sub_epi16(_mm256_sub_epi16(yc, _mm256_mulhi_epi16(v8, _mm256_set1_epi16(13328))),
                       _mm256_mulhi_epi16(u8, _mm256_set1_epi16(6400)));
  const __m256i bs = _mm256_add_epi16(_mm256_add_epi16(yc, u8),
                                      _mm256_mulhi_epi16(u8, _mm256_set1_epi16(-32480)));

  // clamp(x, 0, 16383) >> 6: an arithmetic shift, then unsigned saturation to bytes. The packs
  // work per 128-bit half; the dword permutation puts pixels 0..15 in order.
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  *rg = _mm256_permutevar8x32_epi32(
      _mm256_packus_epi16(_mm256_srai_epi16(rs, 6), _mm256_srai_epi16(gs, 6)), order);
  const __m256i bb = _mm256_srai_epi16(bs, 6);
  *b = _mm256_castsi256_si128(_mm256_permutevar8x32_epi32(_mm256_packus_epi16(bb, bb), order));
}

// Even and odd offsets of sixteen entries a[0..7], b[0..7] in the lane order Convert16 wants:
// even = a0 a2 b0 b2 | a4 a6 b4 b6, odd = a1 a3 b1 b3 | a5 a7 b5 b7, so that the 16-bit lanes
// hold pixels 0-3, 8-11 | 4-7, 12-15 (undone by the permutation in Convert16).
ZY_AVX2 inline void SplitOffsets(__m256i a, __m256i b, __m256i* even, __m256i* odd) {
  const __m256 fa = _mm256_castsi256_ps(a);
  const __m256 fb = _mm256_castsi256_ps(b);
  *even = _mm256_castps_si256(_mm256_shuffle_ps(fa, fb, _MM_SHUFFLE(2, 0, 2, 0)));
  *odd = _mm256_castps_si256(_mm256_shuffle_ps(fa, fb, _MM_SHUFFLE(3, 1, 3, 1)));
}

// Per byte of each gathered 32-bit word: avg2 of it and the byte `shift` / 8 places above.
ZY_AVX2 inline __m256i ShiftAverages(const uint8_t* row, __m256i offsets, int shift) {
  const __m256i w = Gather(row, offsets);
  return _mm256_avg_epu8(w, _mm256_srli_epi32(w, shift));
}

// Stores the low `count` (0..8) bytes of v at p.
inline void StoreBytes(uint8_t* p, uint64_t v, int32_t count) {
  if (count & 4) {
    const auto w = static_cast<uint32_t>(v);
    std::memcpy(p, &w, 4);
    p += 4;
    v >>= 32;
  }
  if (count & 2) {
    const auto h = static_cast<uint16_t>(v);
    std::memcpy(p, &h, 2);
    p += 2;
    v >>= 16;
  }
  if (count & 1) *p = static_cast<uint8_t>(v);
  if (count & 8) std::memcpy(p, &v, 8);
}

}  // namespace

ZY_AVX2 void Nv21RowToRgb_AVX2(const uint8_t* frame, const int32_t bases[4], const int32_t* list,
                               int32_t groups, uint8_t* r, uint8_t* g, uint8_t* b) {
  if (groups < 1) return;
  const RowPointers p = Rows(frame, bases);
  __m256i even, odd, rg;
  __m128i bv;
  if (groups == 1) {
    // Eight pixels: both halves of the split take the same entries; the low eight bytes of
    // each colour hold pixels 0..7.
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(list));
    SplitOffsets(a, a, &even, &odd);
    Convert16(p, even, odd, &rg, &bv);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(r), _mm256_castsi256_si128(rg));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(g), _mm256_extracti128_si256(rg, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(b), bv);
    return;
  }
  const int32_t n = 8 * groups;
  for (int32_t k = 0;; k += 16) {
    // An odd group count ends with a step moved back by eight: its first eight pixels get the
    // same values again.
    if (k > n - 16) k = n - 16;
    SplitOffsets(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(list + k)),
                 _mm256_loadu_si256(reinterpret_cast<const __m256i*>(list + k + 8)), &even, &odd);
    Convert16(p, even, odd, &rg, &bv);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(r + k), _mm256_castsi256_si128(rg));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(g + k), _mm256_extracti128_si256(rg, 1));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(b + k), bv);
    if (k + 16 >= n) break;
  }
}

ZY_AVX2 void Nv21OneFormToRgb_AVX2(const uint8_t* frame, const int32_t bases[4],
                                   const int32_t* list, int32_t count, uint8_t* r, uint8_t* g,
                                   uint8_t* b) {
  if (count < 1) return;
  if (count > 8) count = 8;
  const RowPointers p = Rows(frame, bases);
  // Entries past count repeat the last one, so every gathered word is one the row reads.
  const __m256i live = _mm256_cmpgt_epi32(_mm256_set1_epi32(count), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
  const __m256i offsets = _mm256_blendv_epi8(_mm256_set1_epi32(list[count - 1]),
                                             _mm256_maskload_epi32(list, live), live);
  const __m256i lowByte = _mm256_set1_epi32(0xFF);
  // Byte 0 of each 32-bit lane: avg2 of the pair (luma) or of the two V (chroma), byte 1 of
  // the two U; the two rows after.
  const __m256i ya = _mm256_and_si256(
      _mm256_avg_epu8(ShiftAverages(p.y0, offsets, 8), ShiftAverages(p.y1, offsets, 8)), lowByte);
  const __m256i c =
      _mm256_avg_epu8(ShiftAverages(p.c0, offsets, 16), ShiftAverages(p.c1, offsets, 16));

  // 10 fractional bits in 32-bit lanes, luma limited up to 16 first; no sum leaves int32.
  using namespace zy::bt601;
  const __m256i zero = _mm256_set1_epi32(kChromaZero);
  const __m256i vp = _mm256_sub_epi32(_mm256_and_si256(c, lowByte), zero);
  const __m256i up = _mm256_sub_epi32(_mm256_and_si256(_mm256_srli_epi32(c, 8), lowByte), zero);
  const __m256i floor16 = _mm256_set1_epi32(kLumaFloor);
  const __m256i yc = _mm256_mullo_epi32(_mm256_sub_epi32(_mm256_max_epi32(ya, floor16), floor16),
                                        _mm256_set1_epi32(kLumaScale));
  const __m256i rs = _mm256_add_epi32(yc, _mm256_mullo_epi32(vp, _mm256_set1_epi32(kVToR)));
  const __m256i gs =
      _mm256_sub_epi32(_mm256_sub_epi32(yc, _mm256_mullo_epi32(vp, _mm256_set1_epi32(kVToG))),
                       _mm256_mullo_epi32(up, _mm256_set1_epi32(kUToG)));
  const __m256i bs = _mm256_add_epi32(yc, _mm256_mullo_epi32(up, _mm256_set1_epi32(kUToB)));
  // clamp(x, 0, kFixedMax) >> kFracBits: an arithmetic shift, then unsigned saturation to 16
  // and to 8 bits (kFixedMax >> kFracBits is 255). Bytes R 0..7, G 0..7, B 0..7 after the
  // permutation.
  const __m256i rgw = _mm256_packus_epi32(_mm256_srai_epi32(rs, kFracBits), _mm256_srai_epi32(gs, kFracBits));
  const __m256i bbw = _mm256_packus_epi32(_mm256_srai_epi32(bs, kFracBits), _mm256_srai_epi32(bs, kFracBits));
  const __m256i rgb = _mm256_permutevar8x32_epi32(_mm256_packus_epi16(rgw, bbw),
                                                  _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
  const __m128i lo = _mm256_castsi256_si128(rgb);
  StoreBytes(r, static_cast<uint64_t>(_mm_cvtsi128_si64(lo)), count);
  StoreBytes(g, static_cast<uint64_t>(_mm_extract_epi64(lo, 1)), count);
  StoreBytes(b, static_cast<uint64_t>(_mm_cvtsi128_si64(_mm256_extracti128_si256(rgb, 1))), count);
}

#endif  // ZY_HAVE_AVX2_ROWS
