/*
 * libZyBodyTracking: follows up to 30 bodies through a stream of NV21 camera frames.
 *
 * Calling order: CreateKoTrackingAlgo, StartKoTrackingAlgo, then ProcessKoTrackingAlgo once
 * per frame (the first frame after Start or Reset must have isFirstFrame set), with
 * ResetKoTrackingAlgo allowed between frames, and DestroyKoTrackingAlgo last. Nothing is
 * locked: one handle is driven by one thread at a time; distinct handles may be driven from
 * distinct threads.
 *
 * Ownership: the caller owns ParamIn, ParamOut and their body arrays; the library owns the
 * handle and everything in it. Record layouts are fixed byte offsets for 64-bit targets
 * (arm64, x86-64); bytes named reserved belong to the caller and are never read or written.
 */
#ifndef ZY_BODY_TRACKING_H
#define ZY_BODY_TRACKING_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define ZY_EXPORT
#else
#define ZY_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Most bodies per frame, tracker slots per handle, and identities 1..30. */
#define MAX_INPLACE_NUM 30

/* A box in frame pixels with inclusive corners. */
typedef struct BodyRoi {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
} BodyRoi;

/* One body: 28 bytes, seven 32-bit words. */
typedef struct BodyInfo {
  int32_t classId; /* the caller's class; bodies of different classes are never matched */
  int32_t bodyId;  /* identity, written by the library: 1..30 until the queue runs dry (see
                      ProcessKoTrackingAlgo), then possibly any value and shared */
  BodyRoi roi;     /* the box */
  uint32_t extra;  /* the caller's word, copied to the output unchanged */
} BodyInfo;

/* Input of ProcessKoTrackingAlgo. */
typedef struct ParamIn {
  int32_t width;          /*   0: frame width in pixels; bound for box widths on re-initialisation */
  int32_t height;         /*   4: frame height in rows */
  int32_t stride;         /*   8: bytes per luma row; the trackers treat it as the image width */
  uint8_t reserved0[12];  /*  12 */
  const uint8_t* image;   /*  24: height rows of stride luma bytes, then height/2 rows of V,U pairs */
  uint8_t reserved1[368]; /*  32 */
  BodyInfo* bodies;       /* 400: this frame's bodies; bodyId is written on re-initialisation */
  int32_t bodyNum;        /* 408: entries in bodies, at most MAX_INPLACE_NUM */
  uint8_t reserved2[45];  /* 412 */
  uint8_t isFirstFrame;   /* 457: non-zero re-initialises every tracker from bodies */
  uint8_t reserved3[6];   /* 458 */
} ParamIn;

/* Output of ProcessKoTrackingAlgo. */
typedef struct ParamOut {
  uint8_t reserved0[40]; /*  0 */
  BodyInfo* bodies;      /* 40: room for MAX_INPLACE_NUM entries, filled by the library */
  int32_t bodyNum;       /* 48: valid entries, written by the library */
  uint8_t reserved1[4];  /* 52 */
} ParamOut;

/* The library's handle; opaque to the caller. */
typedef struct AlgoHandle AlgoHandle;

/* Builds a handle into *out. 0 success, 2 out of memory or runtime start failure,
 * 6 a tracker could not be allocated. Every create (re)starts the worker pool, which belongs
 * to the process, not to the handle. */
ZY_EXPORT int32_t CreateKoTrackingAlgo(AlgoHandle** out);
/* Gives every tracker its buffers. 0 success, 1 null handle. */
ZY_EXPORT int32_t StartKoTrackingAlgo(AlgoHandle* handle);
/* Processes one frame. 0 success, also for a frame refused with an error line (height or
 * stride not positive, stride x height x 3/2 bytes past 2^31 - 1, a body count outside 0..30
 * on re-initialisation), which changes nothing. 1 for a null handle, in, out or image, or a null
 * body array the frame would read or write (a re-initialisation of 0 bodies needs neither).
 * The width is only the bound for box sizes on re-initialisation: at width 0 or below every
 * box is skipped, and a stride below the width is accepted.
 *
 * Hazards:
 * - Tracked boxes are bounded by the stride, not the width: with padded rows a box may lie
 *   (partly) in the padding, right up to stride - 1.
 * - A body skipped at re-initialisation (width or height 0 or below, or larger than the
 *   frame's) gets an identity written into in->bodies but no output entry: out->bodies keeps
 *   what it held, yet counts in out->bodyNum. Its slot keeps the tracker of whatever body it
 *   followed before, which moves on tracking frames and is returned with the class and
 *   identity that entry held (0 and 0 from a cleared array).
 * - With 30 bodies the identity assignment is refused on every re-initialisation after the
 *   first, so even unmoved bodies take new identities.
 * - Once the identity queue runs dry (30 bodies, as above), a new body keeps the bodyId it
 *   came with (often 0). Such values go back to the queue when the body is lost and are
 *   handed out later like identities: bodyId may then be outside 1..30, and one value may
 *   be on several bodies. */
ZY_EXPORT int32_t ProcessKoTrackingAlgo(AlgoHandle* handle, ParamIn* in, ParamOut* out);
/* Forgets all bodies; the next frame must re-initialise. 0 success, -1 failure. */
ZY_EXPORT int32_t ResetKoTrackingAlgo(AlgoHandle* handle);
/* Releases everything and sets *handle to NULL. 0 success, -1 failure.
 * Hazard: it stops the process-wide worker pool for every live handle; their frames then run
 * on the caller's thread alone (same results, slower) until the next CreateKoTrackingAlgo. */
ZY_EXPORT int32_t DestroyKoTrackingAlgo(AlgoHandle** handle);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* The caller contract's byte offsets, checked wherever the header is compiled. */
#if defined(__cplusplus)
#define ZY_STATIC_ASSERT(c, m) static_assert(c, m)
#else
#define ZY_STATIC_ASSERT(c, m) _Static_assert(c, m)
#endif
ZY_STATIC_ASSERT(sizeof(BodyRoi) == 16, "BodyRoi is 16 bytes");
ZY_STATIC_ASSERT(sizeof(BodyInfo) == 28, "BodyInfo is 28 bytes");
ZY_STATIC_ASSERT(offsetof(BodyInfo, classId) == 0, "BodyInfo.classId");
ZY_STATIC_ASSERT(offsetof(BodyInfo, bodyId) == 4, "BodyInfo.bodyId");
ZY_STATIC_ASSERT(offsetof(BodyInfo, roi) == 8, "BodyInfo.roi");
ZY_STATIC_ASSERT(offsetof(BodyInfo, extra) == 24, "BodyInfo.extra");
#if UINTPTR_MAX == 0xffffffffffffffffu
ZY_STATIC_ASSERT(offsetof(ParamIn, width) == 0, "ParamIn.width");
ZY_STATIC_ASSERT(offsetof(ParamIn, height) == 4, "ParamIn.height");
ZY_STATIC_ASSERT(offsetof(ParamIn, stride) == 8, "ParamIn.stride");
ZY_STATIC_ASSERT(offsetof(ParamIn, image) == 24, "ParamIn.image");
ZY_STATIC_ASSERT(offsetof(ParamIn, bodies) == 400, "ParamIn.bodies");
ZY_STATIC_ASSERT(offsetof(ParamIn, bodyNum) == 408, "ParamIn.bodyNum");
ZY_STATIC_ASSERT(offsetof(ParamIn, isFirstFrame) == 457, "ParamIn.isFirstFrame");
ZY_STATIC_ASSERT(sizeof(ParamIn) == 464, "ParamIn is 464 bytes");
ZY_STATIC_ASSERT(offsetof(ParamOut, bodies) == 40, "ParamOut.bodies");
ZY_STATIC_ASSERT(offsetof(ParamOut, bodyNum) == 48, "ParamOut.bodyNum");
ZY_STATIC_ASSERT(sizeof(ParamOut) == 56, "ParamOut is 56 bytes");
#endif
#undef ZY_STATIC_ASSERT

#endif /* ZY_BODY_TRACKING_H */
