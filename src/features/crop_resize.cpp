// Crop geometry and the two drivers of the crop. The drivers do the geometry once (rectangles,
// packed column list, row bases); the rows in yuv_rows.* only do pixels.
#include "features/crop_resize.h"

#include <cmath>
#include <cstring>

#include "common/zy_alloc.h"
#include "common/zy_convert.h"
#include "common/zy_log.h"
#include "common/zy_memops.h"
#include "features/yuv_rows.h"

namespace {

constexpr uint32_t kFail = 9;

// Column offsets of up to this many used columns live on the stack; the tracker's 72 fit,
// so the frame path never allocates.
constexpr int32_t kColumnListCapacity = 256;

// Index arithmetic of the crop is 32-bit on every architecture: it wraps modulo 2^32 and is
// read back as signed, so arm64 and x86-64 name the same bytes. Every byte it names is
// bounds-checked before it is read.
inline int32_t Wrap32(int64_t v) {
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(v)));
}

// float -> int32 toward minus infinity, saturating, NaN -> 0.
inline int32_t FloorToInt32(float f) { return zy::TruncToInt32Sat(std::floor(f)); }

inline uint8_t Avg2(uint8_t a, uint8_t b) { return static_cast<uint8_t>((a + b + 1) >> 1); }

// Byte `index` of a frame of `size` bytes; anything outside the frame reads as 0.
inline uint8_t SafeByte(const uint8_t* frame, int64_t size, int64_t index) {
  return (index >= 0 && index < size) ? frame[index] : 0;
}

// Bytes the caller's NV21 frame holds: the luma plane and height / 2 chroma rows.
inline int64_t Nv21Bytes(uint32_t width, int64_t height) {
  if (height <= 0) return 0;
  return static_cast<int64_t>(width) * height + static_cast<int64_t>(width) * (height / 2);
}

// One axis of the crop rectangles: frame span [lo, hi) and crop span [start, end).
struct Span {
  int32_t lo, hi, start, end;
};

Span MapSpan(int32_t pos, int32_t len, uint32_t limit) {
  Span s;
  if (pos <= 0) {
    s.lo = 0;
    s.start = Wrap32(-static_cast<int64_t>(pos));
  } else {
    s.lo = pos;
    s.start = 0;
  }
  if (static_cast<int64_t>(pos) + len <= static_cast<int64_t>(limit)) {
    s.hi = Wrap32(static_cast<int64_t>(pos) + len);
    s.end = len;
  } else {
    s.hi = Wrap32(limit);
    s.end = Wrap32(static_cast<int64_t>(limit) - pos);
  }
  return s;
}

// Where one crop row reads: the two luma rows and the two chroma rows.
struct RowBases {
  int32_t y0, y1, c0, c1;
};

// True when every byte the row's entries read (luma pairs and chroma quads at offsets in
// [omin, omax]) lies inside the frame, so the row can be gathered without per-byte checks.
bool RowInsideFrame(const RowBases& rb, int32_t omin, int32_t omax, int64_t frameBytes) {
  if (frameBytes > INT32_MAX) return false;  // offsets could wrap; take the checked gather
  const int64_t lo = omin, hi = omax;
  return rb.y0 + lo >= 0 && rb.y1 + lo >= 0 && rb.c0 + lo >= 0 && rb.c1 + lo >= 0 &&
         rb.y0 + hi + 2 <= frameBytes && rb.y1 + hi + 2 <= frameBytes &&
         rb.c0 + hi + 4 <= frameBytes && rb.c1 + hi + 4 <= frameBytes;
}

// Copies n bytes starting at frame index base + o into out, reading outside bytes as 0.
template <bool kInside>
inline void Fetch(const uint8_t* frame, int64_t frameBytes, int32_t base, int32_t o, int n,
                  uint8_t* out) {
  if (kInside) {
    std::memcpy(out, frame + (static_cast<int64_t>(base) + o), static_cast<size_t>(n));
  } else {
    const int64_t at = Wrap32(static_cast<int64_t>(base) + o);
    for (int t = 0; t < n; ++t) out[t] = SafeByte(frame, frameBytes, at + t);
  }
}

template <bool kInside>
void GatherGroup(const uint8_t* frame, int64_t frameBytes, const RowBases& rb, const int32_t* offs,
                 Nv21Group8* g) {
#pragma GCC unroll 8
  for (int i = 0; i < 8; ++i) {
    Fetch<kInside>(frame, frameBytes, rb.y0, offs[i], 2, g->lumaTop + 2 * i);
    Fetch<kInside>(frame, frameBytes, rb.y1, offs[i], 2, g->lumaBottom + 2 * i);
    Fetch<kInside>(frame, frameBytes, rb.c0, offs[i], 4, g->chromaTop + 4 * i);
    Fetch<kInside>(frame, frameBytes, rb.c1, offs[i], 4, g->chromaBottom + 4 * i);
  }
}

// One pixel of the one-at-a-time tail.
template <bool kInside>
void ConvertOne(const uint8_t* frame, int64_t frameBytes, const RowBases& rb, int32_t o,
                uint8_t rgb[3]) {
  uint8_t lt[2], lb[2], ct[4], cb[4];
  Fetch<kInside>(frame, frameBytes, rb.y0, o, 2, lt);
  Fetch<kInside>(frame, frameBytes, rb.y1, o, 2, lb);
  Fetch<kInside>(frame, frameBytes, rb.c0, o, 4, ct);
  Fetch<kInside>(frame, frameBytes, rb.c1, o, 4, cb);
  const uint8_t ya = Avg2(Avg2(lt[0], lt[1]), Avg2(lb[0], lb[1]));
  const uint8_t va = Avg2(Avg2(ct[0], ct[2]), Avg2(cb[0], cb[2]));
  const uint8_t ua = Avg2(Avg2(ct[1], ct[3]), Avg2(cb[1], cb[3]));
  YuvToRgbOne(ya, ua, va, rgb);
}

// Load plans of a crop's whole groups of eight (up to the stack list's capacity) and how far
// past its offsets the planned loads of any group read.
struct GroupPlans {
  static constexpr int32_t kGroups = kColumnListCapacity / 8;
  bool ok[kGroups];
  Nv21LoadPlan8 plan[kGroups];
  int32_t loadEnd;  // largest planned load offset + kLoadPlanReach; INT32_MIN when none
};

// Plans the whole groups of the n entries (n at most the stack list's capacity); entries past
// them are never read.
void MakeGroupPlans(const int32_t* list, int32_t n, GroupPlans* p) {
  p->loadEnd = INT32_MIN;
  for (int32_t g = 0; g < n / 8; ++g) {
    const int32_t k = 8 * g;
    p->ok[g] = MakeNv21LoadPlan8(list + k, &p->plan[g]);
    if (p->ok[g] && list[k] > INT32_MAX - kLoadPlanReach) p->ok[g] = false;
    if (p->ok[g] && list[k] + kLoadPlanReach > p->loadEnd) p->loadEnd = list[k] + kLoadPlanReach;
  }
}

// True when the planned loads of a row inside the frame stay inside it too.
bool PlanLoadsInsideFrame(const RowBases& rb, const GroupPlans& p, int64_t frameBytes) {
  const int64_t end = p.loadEnd;
  return rb.y0 + end <= frameBytes && rb.y1 + end <= frameBytes && rb.c0 + end <= frameBytes &&
         rb.c1 + end <= frameBytes;
}

inline bool AboveMax(int32_t base, int32_t o, int32_t maxIndex) {
  return Wrap32(static_cast<int64_t>(base) + o) > maxIndex;
}

// The vector rows of `form` for `groups` whole groups of eight read straight from the frame.
inline void VectorGroups(CropForm form, const uint8_t* frame, const int32_t bases[4],
                         const int32_t* list, int32_t groups, const Nv21LoadPlan8* plan,
                         const bool* planned, uint8_t* r, uint8_t* g, uint8_t* b) {
#if ZY_HAVE_AVX2_ROWS
  if (form == CropForm::kAvx2) {
    Nv21RowToRgb_AVX2(frame, bases, list, groups, r, g, b);
    return;
  }
#endif
  (void)form;
#if ZY_HAVE_NEON
  Nv21RowToRgb_NEON(frame, bases, list, groups, plan, planned, r, g, b);
#else
  (void)frame, (void)bases, (void)list, (void)groups, (void)plan, (void)planned, (void)r, (void)g,
      (void)b;
#endif
}

// Converts one crop row: entries in whole groups of eight with the eight-wide form, the rest
// one at a time. Returns false (after logging) when an entry's index passes maxIndex; the
// *written entries before it stay written. `form` is the reference unless the row lies inside
// the frame far enough for the form's reads; `plans`, when given, lets the NEON form read the
// planned groups by whole loads (the caller checks that they stay inside the frame).
template <bool kInside>
bool ConvertRow(CropForm form, const uint8_t* frame, int64_t frameBytes, const RowBases& rb,
                const int32_t* list, int32_t n, int32_t maxIndex, bool belowMax,
                const GroupPlans* plans, uint8_t* rowR, uint8_t* rowG, uint8_t* rowB,
                int32_t* written) {
  int32_t k = 0;
  const bool vector = kInside && form != CropForm::kReference;
  const int32_t bases[4] = {rb.y0, rb.y1, rb.c0, rb.c1};
  const Nv21LoadPlan8* plan = plans != nullptr ? plans->plan : nullptr;
  const bool* planned = plans != nullptr ? plans->ok : nullptr;
  if (vector && belowMax) {
    // No entry can fail its index test: all whole groups in one call.
    k = 8 * (n / 8);
    VectorGroups(form, frame, bases, list, n / 8, plan, planned, rowR, rowG, rowB);
  }
  for (; k + 8 <= n; k += 8) {
    for (int i = 0; i < 8 && !belowMax; ++i) {
      const int32_t o = list[k + i];
      if (AboveMax(rb.y0, o, maxIndex) || AboveMax(rb.y1, o, maxIndex) ||
          AboveMax(rb.c0, o, maxIndex) || AboveMax(rb.c1, o, maxIndex)) {
        ZY_LOGE("Index out of yuv range!");
        *written = k;
        return false;
      }
    }
    if (vector) {
      // Inside the frame the vector forms gather their bytes themselves.
      VectorGroups(form, frame, bases, list + k, 1, plan != nullptr ? plan + k / 8 : nullptr,
                   planned != nullptr ? planned + k / 8 : nullptr, rowR + k, rowG + k, rowB + k);
      continue;
    }
    Nv21Group8 g;
    GatherGroup<kInside>(frame, frameBytes, rb, list + k, &g);
    Nv21Group8ToRgb_C(g, rowR + k, rowG + k, rowB + k);
  }
#if ZY_HAVE_AVX2_ROWS
  if (vector && belowMax && form == CropForm::kAvx2) {
    if (k < n) Nv21OneFormToRgb_AVX2(frame, bases, list + k, n - k, rowR + k, rowG + k, rowB + k);
    *written = n;
    return true;
  }
#endif
#if ZY_HAVE_NEON
  if (vector && belowMax && n - k >= 4) {
    // The tail four at a time, the last four overlapping the first when fewer than eight
    // remain (the same form gives the overlapped pixels the same values).
    for (; k + 4 <= n; k += 4) Nv21OneFormToRgb4_NEON(frame, bases, list + k, rowR + k, rowG + k, rowB + k);
    if (k < n) Nv21OneFormToRgb4_NEON(frame, bases, list + n - 4, rowR + n - 4, rowG + n - 4, rowB + n - 4);
    *written = n;
    return true;
  }
#endif
  for (; k < n; ++k) {
    const int32_t o = list[k];
    // The one-at-a-time form checks the luma rows only.
    if (!belowMax && (AboveMax(rb.y0, o, maxIndex) || AboveMax(rb.y1, o, maxIndex))) {
      ZY_LOGE("Index out of yuv range!");
      *written = k;
      return false;
    }
    uint8_t rgb[3];
    ConvertOne<kInside>(frame, frameBytes, rb, o, rgb);
    rowR[k] = rgb[0];
    rowG[k] = rgb[1];
    rowB[k] = rgb[2];
  }
  *written = n;
  return true;
}

// Clears bytes [from, outW) of output row r in each of the three planes.
inline void ClearRowFrom(uint8_t* dst, size_t plane, int32_t outW, uint32_t r, int32_t from) {
  if (from >= outW) return;
  const auto count = static_cast<size_t>(outW - from);
  uint8_t* p = dst + static_cast<size_t>(r) * static_cast<size_t>(outW) + static_cast<size_t>(from);
  for (int ch = 0; ch < 3; ++ch, p += plane) {
    if (count == 1) {
      *p = 0;
    } else {
      std::memset(p, 0, count);
    }
  }
}

// Clears output rows [r, outH) of each of the three planes.
inline void ClearRowsFrom(uint8_t* dst, size_t plane, int32_t outW, uint32_t outH, uint32_t r) {
  if (r >= outH) return;
  const size_t at = static_cast<size_t>(r) * static_cast<size_t>(outW);
  for (size_t ch = 0; ch < 3; ++ch) std::memset(dst + ch * plane + at, 0, plane - at);
}

// The three-channel path. With clearUnwritten, dst (outW * outH * 3 bytes, not null) ends
// exactly as if it had been cleared before the call: every byte the path does not write is
// set to 0, and only those.
uint32_t ProcThreeChannel(CropForm form, const uint8_t* frame, uint32_t width, int32_t height,
                          uint8_t* dst, int32_t outW, uint32_t outH, const int32_t imageRect[4],
                          const int32_t validRect[4], float scale, bool clearUnwritten) {
  const size_t plane =
      outW > 0 ? static_cast<size_t>(outW) * static_cast<size_t>(outH) : 0;
  if (frame == nullptr || dst == nullptr || imageRect == nullptr || validRect == nullptr) {
    if (clearUnwritten) ClearRowsFrom(dst, plane, outW, outH, 0);
    ZY_LOGE("%s: invalid input!", "ProcThreeChannelData");
    return kFail;
  }
  const int32_t left = imageRect[0];
  const int32_t top = imageRect[1];
  const int32_t bottom = imageRect[3];
  const int32_t startX = validRect[0];
  const int32_t startY = validRect[1];
  const int32_t endX = validRect[2];
  const int32_t endY = validRect[3];
  // When the crop touches the frame's last row its last four crop rows are dropped.
  const int64_t rowLimit = bottom < height ? endY : static_cast<int64_t>(endY) - 4;

  // Packed column list: entry k is written to output column k. Offsets are even so that luma
  // pairs and chroma V,U pairs stay aligned.
  int32_t stackList[kColumnListCapacity];
  int32_t* heapList = nullptr;
  int32_t* list = stackList;
  if (outW > kColumnListCapacity) {
    heapList = zy::NewArray<int32_t>(static_cast<size_t>(outW));
    if (heapList == nullptr) {
      if (clearUnwritten) ClearRowsFrom(dst, plane, outW, outH, 0);
      return kFail;
    }
    list = heapList;
  }
  int32_t n = 0;
  int32_t omin = INT32_MAX;
  int32_t omax = INT32_MIN;
  for (int32_t c = 0; c < outW; ++c) {
    const int32_t sx = FloorToInt32(static_cast<float>(c) * scale);
    if (sx < startX || sx >= static_cast<int64_t>(endX) - 1) continue;
    const int32_t o = Wrap32(static_cast<int64_t>(
        static_cast<uint32_t>(Wrap32(static_cast<int64_t>(sx) - startX)) & ~1u));
    list[n++] = o;
    omin = o < omin ? o : omin;
    omax = o > omax ? o : omax;
  }

  uint32_t result = 0;
  if (outH >= 1 && n > 0) {
    const int64_t frameBytes = Nv21Bytes(width, height);
    const int32_t maxIndex =
        static_cast<int32_t>(width * static_cast<uint32_t>(height) * 3u) / 2 - 2;
    const int32_t lumaBase =
        Wrap32(left + static_cast<int64_t>(static_cast<uint32_t>(top) * width));
    const int32_t chromaBase = Wrap32(
        static_cast<int64_t>(left) + static_cast<uint32_t>(width * static_cast<uint32_t>(height)) +
        zy::TruncToInt32Sat(static_cast<float>(top) * 0.5f * static_cast<float>(width)));
    // Columns close together (windows up to about four times the output) are read by whole
    // loads in the NEON form; the plans are made once for all rows.
    GroupPlans plans;
    const bool planned =
        kLoadPlansPay && form == CropForm::kNeon && n <= kColumnListCapacity;
    if (planned) MakeGroupPlans(list, n, &plans);
    for (uint32_t r = 0; r < outH; ++r) {
      const int32_t sy = FloorToInt32(static_cast<float>(r) * scale);
      if (sy < startY || sy >= rowLimit - 1) {
        if (clearUnwritten) ClearRowFrom(dst, plane, outW, r, 0);
        continue;
      }
      const int32_t dy = Wrap32(static_cast<int64_t>(sy) - startY);
      RowBases rb;
      rb.y0 = Wrap32(lumaBase + static_cast<int64_t>(static_cast<uint32_t>(dy) * width));
      rb.y1 = Wrap32(static_cast<int64_t>(rb.y0) + width);
      rb.c0 = Wrap32(chromaBase + static_cast<int64_t>(static_cast<uint32_t>(dy >> 1) * width));
      rb.c1 = Wrap32(static_cast<int64_t>(rb.c0) + width);
      uint8_t* rowR = dst + static_cast<size_t>(r) * static_cast<size_t>(outW);
      const bool inside = RowInsideFrame(rb, omin, omax, frameBytes);
      // Inside the frame no index wraps, so one test at the largest offset stands for the
      // index tests of every entry of the row.
      const bool belowMax = inside && !AboveMax(rb.y0, omax, maxIndex) && !AboveMax(rb.y1, omax, maxIndex) &&
                            !AboveMax(rb.c0, omax, maxIndex) && !AboveMax(rb.c1, omax, maxIndex);
      // The AVX2 rows read luma pairs as 32-bit words: two bytes more than the pairs.
      const bool formReaches =
          form != CropForm::kAvx2 ||
          (rb.y0 + static_cast<int64_t>(omax) + kAvx2LumaReach <= frameBytes &&
           rb.y1 + static_cast<int64_t>(omax) + kAvx2LumaReach <= frameBytes);
      const CropForm rowForm = inside && formReaches ? form : CropForm::kReference;
      const GroupPlans* rowPlans =
          planned && inside && PlanLoadsInsideFrame(rb, plans, frameBytes) ? &plans : nullptr;
      int32_t written = 0;
      const bool ok =
          inside ? ConvertRow<true>(rowForm, frame, frameBytes, rb, list, n, maxIndex, belowMax,
                                    rowPlans, rowR, rowR + plane, rowR + 2 * plane, &written)
                 : ConvertRow<false>(rowForm, frame, frameBytes, rb, list, n, maxIndex, false,
                                     nullptr, rowR, rowR + plane, rowR + 2 * plane, &written);
      if (clearUnwritten) ClearRowFrom(dst, plane, outW, r, written);
      if (!ok) {
        if (clearUnwritten) ClearRowsFrom(dst, plane, outW, outH, r + 1);
        result = kFail;
        break;
      }
    }
  } else if (clearUnwritten) {
    ClearRowsFrom(dst, plane, outW, outH, 0);
  }
  delete[] heapList;
  return result;
}

}  // namespace

bool CropFormRuns(CropForm form) {
  switch (form) {
    case CropForm::kReference:
      return true;
    case CropForm::kNeon:
      return ZY_HAVE_NEON != 0;
    case CropForm::kAvx2:
#if ZY_HAVE_AVX2_ROWS
      return CpuHasAvx2();
#else
      return false;
#endif
  }
  return false;
}

CropForm FastCropForm() {
  if (CropFormRuns(CropForm::kAvx2)) return CropForm::kAvx2;
  return ZY_HAVE_NEON ? CropForm::kNeon : CropForm::kReference;
}

namespace {
CropForm FormOf(KernelChoice choice) {
  return UseFastKernels(choice) ? FastCropForm() : CropForm::kReference;
}
// A form that does not run here falls back to the reference.
CropForm Runnable(CropForm form) { return CropFormRuns(form) ? form : CropForm::kReference; }
}  // namespace

uint32_t ProcThreeChannelDataForm(CropForm form, const uint8_t* frame, uint32_t width,
                                  int32_t height, uint8_t* dst, int32_t outW, uint32_t outH,
                                  const int32_t imageRect[4], const int32_t validRect[4],
                                  float scale) {
  return ProcThreeChannel(Runnable(form), frame, width, height, dst, outW, outH, imageRect,
                          validRect, scale, false);
}

uint32_t ProcThreeChannelDataWith(KernelChoice choice, const uint8_t* frame, uint32_t width,
                                  int32_t height, uint8_t* dst, int32_t outW, uint32_t outH,
                                  const int32_t imageRect[4], const int32_t validRect[4],
                                  float scale) {
  return ProcThreeChannel(FormOf(choice), frame, width, height, dst, outW, outH, imageRect,
                          validRect, scale, false);
}

uint32_t ProcThreeChannelData(const uint8_t* frame, uint32_t width, int32_t height, uint8_t* dst,
                              int32_t outW, uint32_t outH, const int32_t imageRect[4],
                              const int32_t validRect[4], float scale) {
  return ProcThreeChannelDataWith(kDefaultCropKernels, frame, width, height, dst, outW, outH,
                                  imageRect, validRect, scale);
}

void ProcOneChannelDataBounded(const uint8_t* frame, uint64_t frameBytes, uint32_t width,
                               uint8_t* dst, int32_t outW, int32_t outH, const int32_t imageRect[4],
                               const int32_t validRect[4], float scale) {
  if (frame == nullptr || dst == nullptr || imageRect == nullptr || validRect == nullptr ||
      outW < 1 || outH < 1) {
    return;
  }
  const int64_t size = frameBytes > INT64_MAX ? INT64_MAX : static_cast<int64_t>(frameBytes);
  const int32_t left = imageRect[0];
  const int32_t top = imageRect[1];
  const int32_t startX = validRect[0];
  const int32_t startY = validRect[1];
  const int64_t colEnd = static_cast<int64_t>(validRect[2]) - 1;
  const int64_t rowEnd = static_cast<int64_t>(validRect[3]) - 1;
  for (int32_t r = 0; r < outH; ++r) {
    const int32_t sy = FloorToInt32(static_cast<float>(r) * scale);
    if (sy < startY || sy >= rowEnd) continue;
    const uint32_t rowBase =
        static_cast<uint32_t>(static_cast<int64_t>(top) + sy - startY) * width +
        static_cast<uint32_t>(left);
    uint8_t* out = dst + static_cast<size_t>(r) * static_cast<size_t>(outW);
    for (int32_t c = 0; c < outW; ++c) {
      const int32_t sx = FloorToInt32(static_cast<float>(c) * scale);
      if (sx < startX || sx >= colEnd) continue;
      // The column is written in place (unlike the packed three-channel list).
      const int64_t p = Wrap32(rowBase + static_cast<uint32_t>(static_cast<int64_t>(sx) - startX));
      const uint8_t top2 = Avg2(SafeByte(frame, size, p), SafeByte(frame, size, p + 1));
      const uint8_t bot2 =
          Avg2(SafeByte(frame, size, p + width), SafeByte(frame, size, p + width + 1));
      out[c] = Avg2(top2, bot2);
    }
  }
}

void ProcOneChannelData(const uint8_t* frame, uint32_t width, uint8_t* dst, int32_t outW,
                        int32_t outH, const int32_t imageRect[4], const int32_t validRect[4],
                        float scale) {
  // Without the frame's height the readable extent is taken from the rectangle: the luma
  // rows above its bottom edge (every read of a rectangle built by the crop stays there).
  const int64_t rows = imageRect != nullptr && imageRect[3] > 0 ? imageRect[3] : 0;
  ProcOneChannelDataBounded(frame, static_cast<uint64_t>(rows) * width, width, dst, outW, outH,
                            imageRect, validRect, scale);
}

uint32_t CropResizeYuv2rgbAccForm(CropForm form, const uint8_t* frame, uint32_t width,
                                  uint32_t height, uint8_t* dst, const float roi[4], int32_t outW,
                                  uint32_t outH, uint32_t channels) {
  form = Runnable(form);
  if (outW == 0) return kFail;
  if (roi == nullptr) return kFail;  // nothing to cut; dst untouched

  const int32_t x = zy::TruncToInt32Sat(roi[0]);
  const int32_t y = zy::TruncToInt32Sat(roi[1]);
  const int32_t w = zy::TruncToInt32Sat(roi[2]);
  const int32_t h = zy::TruncToInt32Sat(roi[3]);

  int32_t imageRect[4];  // left, top, right, bottom: frame pixels read (right, bottom exclusive)
  int32_t validRect[4];  // startX, startY, endX, endY: the same in crop coordinates
  bool clearInPath = false;
  const int clearImage = zy::memset_s(imageRect, sizeof imageRect, 0, sizeof imageRect);
  const int clearValid = zy::memset_s(validRect, sizeof validRect, 0, sizeof validRect);
  if (clearImage == 0 && clearValid == 0) {
    const Span sx = MapSpan(x, w, width);
    const Span sy = MapSpan(y, h, height);
    // Chroma pairs start at even pixels: an odd edge moves one pixel left or up, while the
    // crop coordinates stay as they were (the crop shifts by that pixel).
    imageRect[0] = sx.lo - (sx.lo & 1);
    imageRect[1] = sy.lo - (sy.lo & 1);
    imageRect[2] = sx.hi;
    imageRect[3] = sy.hi;
    validRect[0] = sx.start;
    validRect[1] = sy.start;
    validRect[2] = sx.end;
    validRect[3] = sy.end;
    // Padding: whatever the paths below do not write stays 0. A size that memset_s refuses
    // (0, or above 2^31 - 1) leaves dst as it is. The three-channel path clears just the
    // bytes it does not write (nearly all of them it does).
    const uint64_t dstBytes = outW > 0 ? static_cast<uint64_t>(outW) * outH * channels : 0;
    clearInPath = channels == 3 && dst != nullptr && dstBytes != 0 && dstBytes <= INT32_MAX;
    if (!clearInPath) {
      (void)zy::memset_s(dst, static_cast<size_t>(dstBytes), 0, static_cast<size_t>(dstBytes));
    }
  }

  // One scale for both axes, from the width alone: callers pass a region whose aspect ratio
  // is outW : outH.
  const float scale = static_cast<float>(w) / static_cast<float>(outW);
  if (channels == 3) {
    if (ProcThreeChannel(form, frame, width, static_cast<int32_t>(height), dst, outW, outH,
                         imageRect, validRect, scale, clearInPath) != 0) {
      ZY_LOGE("%s: ProcThreeChannelData failed!", "CropResizeYuv2rgbAcc");
      return kFail;
    }
    return 0;
  }
  // dst holds outW * outH * channels bytes: with no channels there is no plane to write.
  if (channels != 0) {
    ProcOneChannelDataBounded(frame, static_cast<uint64_t>(Nv21Bytes(width, height)), width, dst,
                              outW, static_cast<int32_t>(outH), imageRect, validRect, scale);
  }
  return 0;
}

uint32_t CropResizeYuv2rgbAccWith(KernelChoice choice, const uint8_t* frame, uint32_t width,
                                  uint32_t height, uint8_t* dst, const float roi[4], int32_t outW,
                                  uint32_t outH, uint32_t channels) {
  return CropResizeYuv2rgbAccForm(FormOf(choice), frame, width, height, dst, roi, outW, outH,
                                  channels);
}

uint32_t CropResizeYuv2rgbAcc(const uint8_t* frame, uint32_t width, uint32_t height, uint8_t* dst,
                              const float roi[4], int32_t outW, uint32_t outH, uint32_t channels) {
  return CropResizeYuv2rgbAccWith(kDefaultCropKernels, frame, width, height, dst, roi, outW, outH,
                                  channels);
}
