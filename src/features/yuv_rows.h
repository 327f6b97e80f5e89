// Pixel rows of the crop: the two fixed-point colour forms and the eight-pixel group kernel,
// each as a plain scalar reference with its NEON counterpart beside it. Internal to the library.
#pragma once

#include <cstdint>

#include "features/kernel_choice.h"

// One pixel in the one-at-a-time form: 10 fractional bits in 32-bit arithmetic, luma clamped
// up to 16 first. Writes rgb[0..2] = R, G, B.
void YuvToRgbOne(uint8_t y, uint8_t u, uint8_t v, uint8_t rgb[3]);

// One pixel in the eight-wide form: 6 fractional bits, every sum wrapping in 16-bit two's
// complement before the clamp (luma 255 with U 250 gives B = 0 here, 255 in the other form).
// This is the reference the vector kernel must match.
void YuvToRgbWide(uint8_t y, uint8_t u, uint8_t v, uint8_t rgb[3]);

// The frame bytes of eight output pixels, gathered at their column offsets o[i]:
// luma pairs P[y + o[i]], P[y + o[i] + 1] and chroma quads V, U, V, U from P[c + o[i]].
struct Nv21Group8 {
  uint8_t lumaTop[16];
  uint8_t lumaBottom[16];
  uint8_t chromaTop[32];
  uint8_t chromaBottom[32];
};

// A group whose columns lie close together read with one 32-byte load per frame row, at its
// first offset o[0], instead of a fetch per pixel. luma picks out of a row's load the first
// byte of each pixel's pair (bytes 0..7) and the second byte (8..15); chroma[0] picks each
// pixel's V (bytes 0..7) and U (8..15), chroma[1] the next V and U. Built only when
// o[7] - o[0] <= 28, so that every quad lies inside the load.
struct Nv21LoadPlan8 {
  uint8_t luma[16];
  uint8_t chroma[2][16];
};
constexpr int32_t kLoadPlanReach = 32;  // bytes read from the load offset
// The plans pay where their byte-table lookup is one instruction: arm64, and x86-64 with
// SSSE3 (the default x86-64-v2 builds). Without SSSE3 SIMDe looks up byte by byte, and the
// per-pixel gather is the faster form.
#if defined(__aarch64__) || defined(__SSSE3__)
constexpr bool kLoadPlansPay = true;
#else
constexpr bool kLoadPlansPay = false;
#endif
// Fills *plan for offsets o[0..7] (non-decreasing); false when the columns lie too far apart.
bool MakeNv21LoadPlan8(const int32_t o[8], Nv21LoadPlan8* plan);

// Averages each pixel's 2x2 luma and its two V and two U pairs (rounding halving averages,
// pairs first) and converts them in the eight-wide form into r[0..7], g[0..7], b[0..7].
void Nv21Group8ToRgb_C(const Nv21Group8& s, uint8_t* r, uint8_t* g, uint8_t* b);
#if ZY_HAVE_NEON
void Nv21Group8ToRgb_NEON(const Nv21Group8& s, uint8_t* r, uint8_t* g, uint8_t* b);
// Four pixels of a crop row's tail in the one-at-a-time form (YuvToRgbOne of each pixel's
// averaged 2x2 luma and chroma pairs), gathered like the groups at offsets o[0..3]; writes
// r[0..3], g[0..3], b[0..3]. Every byte read must lie inside the frame.
void Nv21OneFormToRgb4_NEON(const uint8_t* frame, const int32_t bases[4], const int32_t o[4],
                            uint8_t* r, uint8_t* g, uint8_t* b);
// Whole groups 0 .. groups - 1 of a crop row gathered straight from the frame into vectors:
// bases = the top and bottom luma rows and chroma rows; entry i (pixel i) reads its luma
// pairs at frame[bases[0..1] + list[i]] and its chroma quads at frame[bases[2..3] + list[i]].
// Group k with planned[k] (planned may be null) is read by plans[k]'s loads, kLoadPlanReach
// bytes from bases[0..3] + list[8k]. Every byte read must lie inside the
// frame (the caller checks the row).
void Nv21RowToRgb_NEON(const uint8_t* frame, const int32_t bases[4], const int32_t* list,
                       int32_t groups, const Nv21LoadPlan8* plans, const bool* planned, uint8_t* r,
                       uint8_t* g, uint8_t* b);
#endif

#if ZY_HAVE_AVX2_ROWS
// The crop rows in 256-bit lanes, for x86-64 CPUs with AVX2 (chosen at run time; only these
// functions are compiled for AVX2). Same contracts as the NEON rows above, except that each
// luma pair is read as a 32-bit word: frame[bases[0..1] + list[i] + 0..3] must lie inside the
// frame as well. Sixteen pixels per step, whole groups only.
void Nv21RowToRgb_AVX2(const uint8_t* frame, const int32_t bases[4], const int32_t* list,
                       int32_t groups, uint8_t* r, uint8_t* g, uint8_t* b);
// count (1..8) pixels of a row's tail in the one-at-a-time form, gathered at list[0..count-1].
void Nv21OneFormToRgb_AVX2(const uint8_t* frame, const int32_t bases[4], const int32_t* list,
                           int32_t count, uint8_t* r, uint8_t* g, uint8_t* b);
#endif
constexpr int32_t kAvx2LumaReach = 4;  // bytes the AVX2 rows read from each luma offset

// The kernel forms of the crop: every form gives the reference's bytes.
enum class CropForm {
  kReference,  // the plain scalar rows
  kNeon,       // the NEON rows (real NEON on arm64, SIMDe on other hosts)
  kAvx2,       // the 256-bit rows of x86-64 CPUs with AVX2
};
// True when `form` is built into this library and the CPU can run it.
bool CropFormRuns(CropForm form);
// The fastest form that runs here: what KernelChoice::kFast selects.
CropForm FastCropForm();

// The crop with a chosen kernel set; the public functions run it with kDefaultCropKernels.
uint32_t CropResizeYuv2rgbAccWith(KernelChoice choice, const uint8_t* frame, uint32_t width,
                                  uint32_t height, uint8_t* dst, const float roi[4], int32_t outW,
                                  uint32_t outH, uint32_t channels);
uint32_t ProcThreeChannelDataWith(KernelChoice choice, const uint8_t* frame, uint32_t width,
                                  int32_t height, uint8_t* dst, int32_t outW, uint32_t outH,
                                  const int32_t imageRect[4], const int32_t validRect[4],
                                  float scale);

// The same with a chosen form; a form that does not run here runs as the reference.
uint32_t CropResizeYuv2rgbAccForm(CropForm form, const uint8_t* frame, uint32_t width,
                                  uint32_t height, uint8_t* dst, const float roi[4], int32_t outW,
                                  uint32_t outH, uint32_t channels);
uint32_t ProcThreeChannelDataForm(CropForm form, const uint8_t* frame, uint32_t width,
                                  int32_t height, uint8_t* dst, int32_t outW, uint32_t outH,
                                  const int32_t imageRect[4], const int32_t validRect[4],
                                  float scale);

// The one-channel path reading only bytes [0, frameBytes) of the frame; anything outside
// reads as 0.
void ProcOneChannelDataBounded(const uint8_t* frame, uint64_t frameBytes, uint32_t width,
                               uint8_t* dst, int32_t outW, int32_t outH, const int32_t imageRect[4],
                               const int32_t validRect[4], float scale);
