#include "fuzz_driver.h"

#include <android/log.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "ZyBodyTracking.h"
#include "support/nv21_frames.h"

namespace {

[[noreturn]] void Violation(const char* what, long detail) {
  std::fprintf(stderr, "zy_fuzz: violated: %s (%ld)\n", what, detail);
  std::abort();
}
#define ZY_FUZZ_CHECK(cond, detail) ((cond) ? (void)0 : Violation(#cond, static_cast<long>(detail)))

constexpr int kSlots = 2;                     // handles alive at once
constexpr int kMaxOps = 40;                   // calls per input
constexpr int kTrackerBudget = 160;           // body updates per input, to keep executions fast
constexpr int kSceneMax = 33;                 // a few more bodies than a frame may carry
constexpr int64_t kHeapFrameMax = 1 << 20;    // larger frames are mapped, not allocated
constexpr int64_t kDumpFrameMax = 128 << 10;  // the dump converts the whole frame: keep it small
constexpr uint8_t kReservedFill = 0xA5;
constexpr uint8_t kOutFill = 0x5A;

// Reads the input front to back; past its end every read gives 0.
class ByteReader {
 public:
  ByteReader(const uint8_t* p, size_t n) : p_(p), n_(n) {}
  bool Empty() const { return n_ == 0; }
  uint8_t U8() { return n_ == 0 ? uint8_t{0} : (--n_, *p_++); }
  uint32_t Bits(int bytes) {
    uint32_t v = 0;
    for (int i = 0; i < bytes; ++i) v |= static_cast<uint32_t>(U8()) << (8 * i);
    return v;
  }
  int32_t I32() { return static_cast<int32_t>(Bits(4)); }
  int32_t In(int32_t lo, int32_t hi) {  // lo..hi inclusive
    const uint64_t span = static_cast<uint64_t>(static_cast<int64_t>(hi) - lo) + 1;
    const uint32_t v = span > 256 ? (span > 65536 ? Bits(4) : Bits(2)) : U8();
    return static_cast<int32_t>(lo + static_cast<int64_t>(v % span));
  }

 private:
  const uint8_t* p_;
  size_t n_;
};

struct Geometry {
  int32_t width = 64, height = 48, stride = 64;
};

// Bytes of the frame the geometry describes, or -1 when the geometry itself is invalid. The
// width never addresses the frame (it only bounds boxes on re-initialisation), so any width
// goes, a stride below it included.
int64_t FrameBytes(const Geometry& g) {
  if (g.height <= 0 || g.stride <= 0) return -1;
  return static_cast<int64_t>(g.stride) * g.height + static_cast<int64_t>(g.stride) * (g.height / 2);
}
bool GeometryAccepted(const Geometry& g) { return FrameBytes(g) >= 0 && FrameBytes(g) <= INT32_MAX; }

// A geometry of at most maxBytes bytes of frame (a default one when the choice is larger);
// invalid geometry is always allowed, the library must refuse it.
Geometry ChooseGeometry(ByteReader& r, int64_t maxBytes) {
  Geometry g;
  const uint8_t kind = r.U8() % 16;
  if (kind == 10 || kind == 11) {  // tiny
    g.width = r.In(1, 8);
    g.height = r.In(1, 8);
    g.stride = g.width + r.In(0, 3);
  } else if (kind == 12) {  // anything
    g.width = r.I32();
    g.height = r.I32();
    g.stride = r.I32();
  } else if (kind == 13) {  // small numbers around the refusals
    g.width = r.In(-3, 40);
    g.height = r.In(-3, 40);
    g.stride = r.In(-3, 48);
  } else if (kind == 14) {  // byte counts at the 32-bit limit
    g.height = r.In(1, 65535);
    const int64_t stride = int64_t{INT32_MAX / (g.height + g.height / 2)} + r.In(-1, 1);
    g.stride = static_cast<int32_t>(std::min<int64_t>(stride, INT32_MAX));
    g.width = g.stride - r.In(0, 7);
  } else if (kind == 15) {  // very wide and very short
    g.height = r.In(1, 3);
    g.stride = r.In(1 << 20, static_cast<int32_t>(INT32_MAX / (g.height + g.height / 2)));
    g.width = g.stride - r.In(0, 3);
  } else {  // ordinary
    g.width = r.In(2, 256);
    g.height = r.In(2, 192);
    g.stride = g.width + r.In(0, 24);
  }
  return FrameBytes(g) > maxBytes ? Geometry{} : g;
}

// Exactly `bytes` bytes of frame: on the heap when small, else at the end of a mapping whose
// last page is followed by an inaccessible one, so a read past the end faults.
class FrameBuffer {
 public:
  ~FrameBuffer() { Release(); }
  uint8_t* Make(int64_t bytes) {
    Release();
    if (bytes <= kHeapFrameMax) return heap_ = static_cast<uint8_t*>(std::malloc(bytes > 0 ? static_cast<size_t>(bytes) : 1));
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t body = (static_cast<size_t>(bytes) + page - 1) / page * page;
    void* m = mmap(nullptr, body + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (m == MAP_FAILED) return nullptr;
    map_ = static_cast<uint8_t*>(m);
    mapBytes_ = body + 2 * page;
    if (mprotect(map_ + page, body, PROT_READ | PROT_WRITE) != 0) return Release(), nullptr;
    return map_ + page + (body - static_cast<size_t>(bytes));
  }
  bool OnHeap() const { return heap_ != nullptr; }

 private:
  void Release() {
    std::free(heap_);
    if (map_ != nullptr) munmap(map_, mapBytes_);
    heap_ = map_ = nullptr;
  }
  uint8_t* heap_ = nullptr;
  uint8_t* map_ = nullptr;
  size_t mapBytes_ = 0;
};

struct SceneBody {
  float x, y, w, h, vx, vy;
  uint32_t seed;
  int32_t classId;
  uint32_t extra;
};

struct Scene {
  SceneBody body[kSceneMax];
  int n = 0;
  uint32_t background = 1;
  uint8_t content = 0;  // 0 textured, 1 flat, 2 noise
};

// Keeps scene coordinates where float -> int conversions in the driver are defined.
float Bounded(float v) { return std::clamp(v, -1e6f, 1e6f); }
int32_t Round(float v) { return static_cast<int32_t>(std::lround(Bounded(v))); }

// Textured: the test background with textured bodies; flat: one grey; noise: every byte random.
void Render(uint8_t* frame, const Geometry& g, const Scene& s) {
  const Nv21View f{std::min(g.stride, std::max(g.width, 1)), g.height, g.stride, frame};
  const size_t total = static_cast<size_t>(g.stride) * static_cast<size_t>(g.height + g.height / 2);
  if (s.content == 2) {
    for (size_t i = 0; i < total; ++i) frame[i] = static_cast<uint8_t>(Hash32(s.background + static_cast<uint32_t>(i)));
    return;
  }
  FillFlat(f, static_cast<uint8_t>(s.background));  // also the bytes between width and stride
  if (s.content == 1) return;
  FillBackground(f, s.background);
  for (int k = 0; k < s.n; ++k) DrawBody(f, s.body[k].x, s.body[k].y, s.body[k].w, s.body[k].h, s.body[k].seed);
}

// A side for bodies: the frame's when it is sensible, else a default.
float Side(int32_t v, int32_t limit, int32_t fallback) { return static_cast<float>(v > 0 && v < limit ? v : fallback); }

void AddBody(Scene& s, ByteReader& r, const Geometry& g) {
  if (s.n >= kSceneMax) return;
  const int32_t W = static_cast<int32_t>(Side(g.width, 4096, 256)), H = static_cast<int32_t>(Side(g.height, 4096, 192));
  SceneBody& b = s.body[s.n++];
  b.w = static_cast<float>(r.In(1, W));
  b.h = static_cast<float>(r.In(1, H));
  b.x = static_cast<float>(r.In(-W / 4, W));
  b.y = static_cast<float>(r.In(-H / 4, H));
  b.vx = static_cast<float>(r.In(-8, 8)) * 0.75f;
  b.vy = static_cast<float>(r.In(-8, 8)) * 0.75f;
  b.seed = r.Bits(4) | 1u;
  b.classId = r.In(0, 3);
  b.extra = r.Bits(4);
}

// Puts a body at, on or past one of the frame's edges, or sets it racing.
void PushToEdge(Scene& s, ByteReader& r, const Geometry& g) {
  if (s.n == 0) return;
  SceneBody& b = s.body[r.In(0, s.n - 1)];
  const float W = Side(g.width, 1 << 24, 256), H = Side(g.height, 1 << 24, 192);
  switch (r.U8() % 8) {
    case 0: b.x = 1 - b.w; break;
    case 1: b.x = W - 1; break;
    case 2: b.y = 1 - b.h; break;
    case 3: b.y = H - 1; break;
    case 4: b.x = b.y = 0; break;
    case 5: b.x = -3 * b.w; break;
    case 6: b = SceneBody{0, 0, W, H, b.vx, b.vy, b.seed, b.classId, b.extra}; break;
    default:
      b.vx = static_cast<float>(r.In(-60, 60));
      b.vy = static_cast<float>(r.In(-60, 60));
  }
}

// A coordinate a careless or hostile caller might send.
int32_t WildCoordinate(ByteReader& r, int32_t limit) {
  switch (r.U8() % 8) {
    case 0: return r.I32();
    case 1: return INT32_MIN;
    case 2: return INT32_MAX;
    case 3: return -1;
    case 4: return limit;
    case 5: return limit - 1;
    default: return r.In(-64, 512);
  }
}

struct Slot {
  AlgoHandle* handle = nullptr;
  bool dump = false;
  int32_t bodies = 0;              // bodies the handle tracks now, as the caller sees it
  BodyInfo last[MAX_INPLACE_NUM];  // the previous accepted frame's output
  ParamOut* out = nullptr;         // exactly one record, exactly 30 entries behind it
};

class Driver {
 public:
  explicit Driver(ByteReader& r) : r_(r) {
    dumpAllowed_ = access("/data/vendor/camera/img", F_OK) != 0;  // never litter a real device path
    for (Slot& s : slots_) {
      s.out = static_cast<ParamOut*>(std::malloc(sizeof(ParamOut)));
      std::memset(s.out, kReservedFill, sizeof(ParamOut));
      s.out->bodies = static_cast<BodyInfo*>(std::malloc(sizeof(BodyInfo) * MAX_INPLACE_NUM));
      std::memset(s.out->bodies, kOutFill, sizeof(BodyInfo) * MAX_INPLACE_NUM);
      s.out->bodyNum = -99;
      std::memset(s.last, 0, sizeof s.last);
    }
    in_ = static_cast<ParamIn*>(std::calloc(1, sizeof(ParamIn)));
  }
  ~Driver() {
    for (Slot& s : slots_) {
      if (s.handle != nullptr) ZY_FUZZ_CHECK(DestroyKoTrackingAlgo(&s.handle) == 0, 0);
      std::free(s.out->bodies);
      std::free(s.out);
    }
    std::free(in_);
    std::free(inBodies_);
    unsetenv("vendor.zyObjectTracking.dumpimg");
    unsetenv("vendor.zyObjectTracking.printlog");
  }

  void Run() {
    SetGeometry(ChooseGeometry(r_, INT64_MAX));
    scene_.background = r_.Bits(4);
    for (int k = r_.In(0, 4); k > 0; --k) AddBody(scene_, r_, geometry_);
    for (int op = 0; op < kMaxOps && !r_.Empty(); ++op) {
      Slot& s = slots_[r_.U8() % kSlots];
      switch (r_.U8() % 12) {
        case 0: Create(s); break;
        case 1: Check(StartKoTrackingAlgo(s.handle) == (s.handle != nullptr ? 0 : 1)); break;
        case 2:
          Check(ResetKoTrackingAlgo(s.handle) == (s.handle != nullptr ? 0 : -1));
          if (s.handle != nullptr) s.bodies = 0;
          break;
        case 3: Destroy(s); break;
        case 4:
        case 5: SceneFrame(s, true); break;
        case 6:
        case 7: SceneFrame(s, false); break;
        case 8: WildFrame(s); break;
        case 9: NullFrame(s); break;
        case 10: SetGeometry(ChooseGeometry(r_, slots_[0].dump || slots_[1].dump ? kDumpFrameMax : INT64_MAX)); break;
        default: EditScene(); break;
      }
    }
  }

 private:
  static void Check(bool ok) { ZY_FUZZ_CHECK(ok, 0); }

  void SetGeometry(const Geometry& g) {
    geometry_ = g;
    // Geometry the library refuses gets a token buffer: nothing may be read from it.
    image_ = frame_.Make(GeometryAccepted(g) ? FrameBytes(g) : 1);
    rendered_ = false;
  }

  void EditScene() {
    switch (r_.U8() % 5) {
      case 0:
      case 1: AddBody(scene_, r_, geometry_); break;
      case 2:
        if (scene_.n > 0) scene_.body[r_.In(0, scene_.n - 1)] = scene_.body[scene_.n - 1], --scene_.n;
        break;
      case 3: PushToEdge(scene_, r_, geometry_); break;
      default:
        scene_.content = static_cast<uint8_t>(r_.U8() % 3);
        scene_.background = r_.Bits(4);
    }
    rendered_ = false;
  }

  void Create(Slot& s) {
    if (r_.U8() % 16 == 0) return Check(CreateKoTrackingAlgo(nullptr) == 1);
    if (s.handle != nullptr) return;  // a real caller keeps its handle
    const uint8_t switches = r_.U8();
    s.dump = dumpAllowed_ && (switches & 1) != 0 && FrameBytes(geometry_) <= kDumpFrameMax;
    setenv("vendor.zyObjectTracking.dumpimg", s.dump ? "1" : "0", 1);
    setenv("vendor.zyObjectTracking.printlog", (switches & 2) ? "1" : "0", 1);
    Check(CreateKoTrackingAlgo(&s.handle) == 0 && s.handle != nullptr);
    s.bodies = 0;
  }

  void Destroy(Slot& s) {
    if (r_.U8() % 8 == 0) return Check(DestroyKoTrackingAlgo(nullptr) == -1);
    const int32_t expected = s.handle != nullptr ? 0 : -1;
    Check(DestroyKoTrackingAlgo(&s.handle) == expected && s.handle == nullptr);
    s.dump = false;
    s.bodies = 0;
  }

  // The caller's body array: exactly `entries` records.
  BodyInfo* MakeBodies(int32_t entries) {
    std::free(inBodies_);
    inEntries_ = entries;
    return inBodies_ = static_cast<BodyInfo*>(std::malloc(sizeof(BodyInfo) * static_cast<size_t>(entries)));
  }

  // A frame built from the scene: re-initialisation from its (jittered) boxes, or tracking
  // after moving it.
  void SceneFrame(Slot& s, bool first) {
    for (int k = 0; k < scene_.n && !first; ++k) {
      scene_.body[k].x = Bounded(scene_.body[k].x + scene_.body[k].vx);
      scene_.body[k].y = Bounded(scene_.body[k].y + scene_.body[k].vy);
    }
    rendered_ = rendered_ && first;
    BodyInfo* bodies = MakeBodies(scene_.n);
    for (int32_t i = 0; i < scene_.n; ++i) {
      const SceneBody& b = scene_.body[i];
      const int32_t jitter = r_.In(-2, 2);
      bodies[i] = BodyInfo{b.classId, r_.In(-1, 31),
                           {Round(b.x) + jitter, Round(b.y) - jitter, Round(b.x + b.w) - 1, Round(b.y + b.h) - 1},
                           b.extra ^ static_cast<uint32_t>(frameCount_)};
    }
    Frame(s, first ? 1 : 0, scene_.n, -1);
  }

  // A frame whose body count and boxes come straight from the input.
  void WildFrame(Slot& s) {
    const uint8_t flag = r_.U8() % 4 == 0 ? 0 : r_.U8();
    const int32_t n = r_.U8() % 4 == 0 ? r_.I32() : r_.In(-3, 33);
    // The array holds what the count promises, up to the most any frame may use plus a few.
    const int32_t entries = std::clamp(n, 0, kSceneMax);
    BodyInfo* bodies = MakeBodies(entries);
    // Braced initialisers are evaluated in order: class, identity, left, top, right, bottom, extra.
    for (int32_t i = 0; i < entries; ++i) {
      bodies[i] = BodyInfo{r_.In(-1, 3), r_.I32(),
                           {WildCoordinate(r_, geometry_.width), WildCoordinate(r_, geometry_.height),
                            WildCoordinate(r_, geometry_.width), WildCoordinate(r_, geometry_.height)},
                           r_.Bits(4)};
    }
    Frame(s, flag, n, -1);
  }

  // A frame with one null pointer where the interface wants a valid one.
  void NullFrame(Slot& s) {
    std::memset(MakeBodies(scene_.n), 0, sizeof(BodyInfo) * static_cast<size_t>(scene_.n));
    const uint8_t flag = r_.U8() & 1;
    Frame(s, flag, scene_.n, r_.U8() % 6);
  }

  // Calls Process and checks what must hold. nullWhich: -1 none, 0 handle, 1 in, 2 out,
  // 3 image, 4 input bodies, 5 output bodies.
  void Frame(Slot& s, uint8_t flag, int32_t n, int nullWhich) {
    const bool geometryOk = GeometryAccepted(geometry_) && (flag == 0 || (n >= 0 && n <= MAX_INPLACE_NUM));
    // Work is budgeted; refused frames cost nothing and always run.
    const int32_t work = flag ? n : s.bodies;
    if (geometryOk && nullWhich < 0 && s.handle != nullptr && work > 0) {
      if (budget_ < work) return;
      budget_ -= work;
    }
    if (!rendered_ && image_ != nullptr && frame_.OnHeap() && GeometryAccepted(geometry_)) Render(image_, geometry_, scene_);
    rendered_ = true;
    uint8_t* const reserved[][2] = {{in_->reserved0, std::end(in_->reserved0)}, {in_->reserved1, std::end(in_->reserved1)},
                                    {in_->reserved2, std::end(in_->reserved2)}, {in_->reserved3, std::end(in_->reserved3)},
                                    {s.out->reserved0, std::end(s.out->reserved0)},
                                    {s.out->reserved1, std::end(s.out->reserved1)}};
    for (const auto& r : reserved) std::fill(r[0], r[1], kReservedFill);
    in_->width = geometry_.width;
    in_->height = geometry_.height;
    in_->stride = geometry_.stride;
    in_->image = image_;
    in_->bodies = inBodies_;
    in_->bodyNum = n;
    in_->isFirstFrame = flag;
    BodyInfo* outBodies = s.out->bodies;
    ParamOut outBefore;
    std::memcpy(&outBefore, s.out, sizeof outBefore);
    BodyInfo outBodiesBefore[MAX_INPLACE_NUM], inBefore[kSceneMax];
    std::memcpy(outBodiesBefore, outBodies, sizeof outBodiesBefore);
    const size_t inBytes = sizeof(BodyInfo) * static_cast<size_t>(inEntries_);
    std::memcpy(inBefore, inBodies_, inBytes);
    AlgoHandle* handle = nullWhich == 0 ? nullptr : s.handle;
    ParamIn* in = nullWhich == 1 ? nullptr : in_;
    ParamOut* out = nullWhich == 2 ? nullptr : s.out;
    if (nullWhich == 3) in_->image = nullptr;
    if (nullWhich == 4) in_->bodies = nullptr;
    if (nullWhich == 5) s.out->bodies = nullptr;
    // Body arrays matter only for the entries the frame reads or writes.
    const int32_t written = flag ? n : (s.bodies <= MAX_INPLACE_NUM ? s.bodies : 0);
    const int32_t read = flag ? n : std::min(written, n);
    const bool nulled = handle == nullptr || in == nullptr || out == nullptr || in_->image == nullptr ||
                        (read > 0 && in_->bodies == nullptr) || (written > 0 && s.out->bodies == nullptr);
    const int32_t rc = ProcessKoTrackingAlgo(handle, in, out);
    ++frameCount_;
    s.out->bodies = outBodies;  // put back what a null variant took away
    ZY_FUZZ_CHECK(rc == (nulled ? 1 : 0), rc);
    for (const auto& r : reserved) {
      ZY_FUZZ_CHECK(std::all_of(r[0], r[1], [](uint8_t b) { return b == kReservedFill; }), &r - reserved);
    }
    const bool inKept = std::memcmp(inBefore, inBodies_, inBytes) == 0;
    if (nulled || !geometryOk) {
      ZY_FUZZ_CHECK(std::memcmp(&outBefore, s.out, sizeof outBefore) == 0, flag);
      ZY_FUZZ_CHECK(std::memcmp(outBodiesBefore, outBodies, sizeof outBodiesBefore) == 0, flag);
      ZY_FUZZ_CHECK(inKept, flag);
      return;
    }
    ZY_FUZZ_CHECK(flag != 0 || inKept, 0);
    if (flag != 0) s.bodies = n;
    ZY_FUZZ_CHECK(s.out->bodyNum == s.bodies, s.out->bodyNum);
    for (int32_t i = 0; i < MAX_INPLACE_NUM; ++i) {
      const BodyInfo& o = outBodies[i];
      if (flag != 0) {  // a valid body is copied, a skipped or absent entry keeps what it held
        bool copied = false;
        if (i < n) {
          const BodyRoi& b = inBodies_[i].roi;
          const float w = static_cast<float>(b.right) - static_cast<float>(b.left);
          const float h = static_cast<float>(b.bottom) - static_cast<float>(b.top);
          copied = !(w <= 0 || h <= 0 || w > static_cast<float>(geometry_.width) || h > static_cast<float>(geometry_.height));
        }
        ZY_FUZZ_CHECK(std::memcmp(&o, copied ? &inBodies_[i] : &outBodiesBefore[i], sizeof(BodyInfo)) == 0, i);
      } else if (i >= s.bodies) {
        ZY_FUZZ_CHECK(std::memcmp(&o, &outBodiesBefore[i], sizeof(BodyInfo)) == 0, i);
      } else {  // tracked: inside the frame (stride x height), class, identity and extra carried over
        ZY_FUZZ_CHECK(o.roi.left >= 0 && o.roi.left < geometry_.stride, o.roi.left);
        ZY_FUZZ_CHECK(o.roi.right >= 0 && o.roi.right < geometry_.stride, o.roi.right);
        ZY_FUZZ_CHECK(o.roi.top >= 0 && o.roi.top < geometry_.height, o.roi.top);
        ZY_FUZZ_CHECK(o.roi.bottom >= 0 && o.roi.bottom < geometry_.height, o.roi.bottom);
        ZY_FUZZ_CHECK(o.classId == s.last[i].classId && o.bodyId == s.last[i].bodyId, i);
        ZY_FUZZ_CHECK(o.extra == (i < n ? inBodies_[i].extra : s.last[i].extra), i);
      }
    }
    if (s.bodies > 0) std::memcpy(s.last, outBodies, sizeof(BodyInfo) * static_cast<size_t>(s.bodies));
  }

  ByteReader& r_;
  Slot slots_[kSlots];
  ParamIn* in_ = nullptr;
  BodyInfo* inBodies_ = nullptr;
  int32_t inEntries_ = 0;
  Geometry geometry_;
  FrameBuffer frame_;
  uint8_t* image_ = nullptr;
  bool rendered_ = false, dumpAllowed_ = false;
  Scene scene_;
  int budget_ = kTrackerBudget, frameCount_ = 0;
};

void DropLine(const __android_logger_data*, const char*) {}

}  // namespace

void ZyFuzzQuietLog(bool on) {
  __android_log_set_logger(on ? DropLine : __android_log_stderr_logger);
  __android_log_set_minimum_priority(on ? ANDROID_LOG_VERBOSE : ANDROID_LOG_INFO);
}

int ZyFuzzOneInput(const uint8_t* data, size_t size) {
  ByteReader r(data, size);
  Driver(r).Run();
  return 0;
}
