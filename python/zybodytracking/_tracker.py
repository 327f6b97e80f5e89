"""BodyTracker: one handle of the tracking library, driven through its five C exports."""
import ctypes
import os
import threading

import numpy as np

from ._records import MAX_BODIES, BodyInfo, ParamIn, ParamOut

LIBRARY_ENV = "ZYBODYTRACKING_LIBRARY"
_BUNDLED = os.path.join(os.path.dirname(os.path.abspath(__file__)), "libZyBodyTracking.so.1")

# One record per body, byte for byte the C BodyInfo (28 bytes), so that numpy arrays of it are
# handed to the library as they are.
BODY_DTYPE = np.dtype([("classId", "<i4"), ("bodyId", "<i4"), ("left", "<i4"), ("top", "<i4"),
                       ("right", "<i4"), ("bottom", "<i4"), ("extra", "<u4")])
assert BODY_DTYPE.itemsize == ctypes.sizeof(BodyInfo)

_INT32 = (-2**31, 2**31 - 1)
_UINT32 = (0, 2**32 - 1)


class TrackingError(RuntimeError):
    """The library returned a non-zero code; `code` holds it, `call` the export's name."""

    def __init__(self, call, code):
        super().__init__(f"{call} returned {code}")
        self.call, self.code = call, code


def library_path():
    """The shared library this package loads: $ZYBODYTRACKING_LIBRARY when set, else the copy
    bundled next to this file when the package was built."""
    return os.environ.get(LIBRARY_ENV) or _BUNDLED


_lib = None
_lib_lock = threading.Lock()


def _library():
    global _lib
    with _lib_lock:
        if _lib is None:
            path = library_path()
            try:
                # CDLL (not PyDLL): the interpreter lock is released for every call, so trackers
                # in different threads process their frames at the same time.
                lib = ctypes.CDLL(path)
            except OSError as e:
                raise OSError(f"zybodytracking: cannot load the tracking library {path!r} ({e}); "
                              f"set {LIBRARY_ENV} to its path") from e
            handle_p = ctypes.POINTER(ctypes.c_void_p)
            for name, args in (("CreateKoTrackingAlgo", [handle_p]),
                               ("StartKoTrackingAlgo", [ctypes.c_void_p]),
                               ("ProcessKoTrackingAlgo", [ctypes.c_void_p, ctypes.POINTER(ParamIn),
                                                          ctypes.POINTER(ParamOut)]),
                               ("ResetKoTrackingAlgo", [ctypes.c_void_p]),
                               ("DestroyKoTrackingAlgo", [handle_p])):
                fn = getattr(lib, name)
                fn.argtypes, fn.restype = args, ctypes.c_int32
            _lib = lib
    return _lib


def bgr_to_nv21(bgr):
    """A BGR image (H, W, 3) uint8, H and W even, as NV21 of shape (H*3/2, W).

    BT.601 studio range in integers, exactly:
      Y = ((66 R + 129 G + 25 B + 128) >> 8) + 16
      U = ((-38 R - 74 G + 112 B + 128) >> 8) + 128
      V = ((112 R - 94 G - 18 B + 128) >> 8) + 128
    (>> rounds towards minus infinity), then U and V of each 2 x 2 block averaged as
    (a + b + c + d + 2) >> 2 and stored as V,U pairs after the luma rows.
    """
    bgr = _checked_array(bgr, "bgr")
    if bgr.ndim != 3 or bgr.shape[2] != 3:
        raise ValueError(f"a BGR image has shape (H, W, 3); got {bgr.shape}")
    h, w = bgr.shape[:2]
    _check_even(w, h)
    out = np.empty((h * 3 // 2, w), np.uint8)
    vu = out[h:].reshape(h // 2, w // 2, 2)

    def half(c):
        return (c[0::2, 0::2] + c[0::2, 1::2] + c[1::2, 0::2] + c[1::2, 1::2] + 2) >> 2

    # In bands of rows whose int32 temporaries stay small: whole-frame temporaries are fresh
    # mappings from the allocator each time, and their page faults cost more than the arithmetic.
    band = max(2, 16384 // w * 2)
    for top in range(0, h, band):
        end = min(h, top + band)
        b, g, r = (bgr[top:end, :, k].astype(np.int32) for k in range(3))
        out[top:end] = ((66 * r + 129 * g + 25 * b + 128) >> 8) + 16
        vu[top // 2:end // 2, :, 0] = half(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128)
        vu[top // 2:end // 2, :, 1] = half(((-38 * r - 74 * g + 112 * b + 128) >> 8) + 128)
    return out


def xywh_to_ltrb(boxes):
    """(x, y, width, height) boxes as (left, top, right, bottom) with inclusive corners."""
    b = np.array(boxes, copy=True)
    if b.ndim != 2 or b.shape[1] != 4:
        raise ValueError(f"boxes must have shape (N, 4); got {b.shape}")
    b[:, 2:] += b[:, :2] - 1
    return b


def ltrb_to_xywh(boxes):
    """(left, top, right, bottom) inclusive boxes, or a body array, as (x, y, width, height)."""
    if isinstance(boxes, np.ndarray) and boxes.dtype == BODY_DTYPE:
        boxes = np.stack([boxes[k] for k in ("left", "top", "right", "bottom")], axis=-1)
    b = np.array(boxes, copy=True).reshape(-1, 4)
    b[:, 2:] -= b[:, :2] - 1
    return b


def _checked_array(a, what):
    if not isinstance(a, np.ndarray):
        raise TypeError(f"{what} must be a numpy array; got {type(a).__name__}")
    if a.dtype != np.uint8:
        raise TypeError(f"{what} must be uint8; got {a.dtype}")
    if not a.flags.c_contiguous:
        raise ValueError(f"{what} must be C-contiguous (np.ascontiguousarray makes a copy that is)")
    return a


def _check_even(width, height):
    if width <= 0 or height <= 0 or width % 2 or height % 2:
        raise ValueError(f"frame width and height must be positive and even; got {width} x {height}")


def _frame(frame, width, height, stride):
    """(array the library reads, width, height, stride) for one frame, or raises."""
    _checked_array(frame, "frame")
    if frame.ndim != 1 and (width, height, stride) != (None, None, None):
        raise ValueError("width, height and stride are given only with a flat NV21 buffer")
    if frame.ndim == 3:
        return bgr_to_nv21(frame), frame.shape[1], frame.shape[0], frame.shape[1]
    if frame.ndim == 2:
        rows, w = frame.shape
        if rows % 3:
            raise ValueError(f"an NV21 frame has shape (H*3/2, W); {rows} rows is not a multiple of 3")
        _check_even(w, rows // 3 * 2)
        return frame, w, rows // 3 * 2, w
    if frame.ndim != 1:
        raise ValueError(f"a frame is (H*3/2, W) NV21, (H, W, 3) BGR or a flat NV21 buffer; got shape {frame.shape}")
    if width is None or height is None:
        raise ValueError("a flat NV21 buffer needs width and height (and stride when rows are padded)")
    stride = width if stride is None else stride
    for name, v in (("width", width), ("height", height), ("stride", stride)):
        if not isinstance(v, (int, np.integer)) or isinstance(v, bool) or not 0 < v < 2**15:
            raise ValueError(f"{name} must be a whole number from 1 to 32767; got {v!r}")
    _check_even(width, height)
    if stride < width or stride % 2:
        raise ValueError(f"stride must be even and at least the width; got {stride} for width {width}")
    need = stride * height * 3 // 2
    if frame.size < need:
        raise ValueError(f"a {width} x {height} NV21 frame with stride {stride} needs {need} bytes; got {frame.size}")
    return frame, int(width), int(height), int(stride)


def _whole(values, what, bounds, shape):
    """values as a whole-number array of `shape` (-1: any length) within bounds, or raises."""
    a = np.asarray(values)
    if a.size == 0:
        a = a.reshape([max(d, 0) for d in shape])
    if a.ndim != len(shape) or any(d not in (-1, n) for d, n in zip(shape, a.shape)):
        want = "(" + ", ".join("N" if d == -1 else str(d) for d in shape) + ("," if len(shape) == 1 else "") + ")"
        raise ValueError(f"{what} must have shape {want}; got {a.shape}")
    if a.dtype.kind == "f":
        if not np.all(np.isfinite(a)):
            raise ValueError(f"{what} must be finite")
        if np.any(a != np.floor(a)):
            raise ValueError(f"{what} must be whole numbers")
    elif a.dtype.kind not in "iu":
        raise TypeError(f"{what} must be integers; got {a.dtype}")
    if a.size and (a.min() < bounds[0] or a.max() > bounds[1]):
        raise ValueError(f"{what} must lie in {bounds[0]}..{bounds[1]}")
    return a


class BodyTracker:
    """One tracking handle: up to 30 bodies, each with an identity kept across re-initialisations.

    Identities are 1..30 while the library has free ones; once all 30 are in use a new body
    keeps the bodyId it came with (0 here), so 0 and repeated values can then occur.

    reinit(frame, boxes) hands over a detector's boxes and returns their identities; track(frame)
    moves them on the next frames. A tracker is meant for one thread at a time (calls on one
    tracker from several threads wait for each other); distinct trackers run in parallel.
    """

    def __init__(self):
        self._lib = _library()
        handle = ctypes.c_void_p()
        rc = self._lib.CreateKoTrackingAlgo(ctypes.byref(handle))
        if rc != 0:
            raise TrackingError("CreateKoTrackingAlgo", rc)
        rc = self._lib.StartKoTrackingAlgo(handle)
        if rc != 0:
            self._lib.DestroyKoTrackingAlgo(ctypes.byref(handle))
            raise TrackingError("StartKoTrackingAlgo", rc)
        self._handle = handle
        self._lock = threading.Lock()
        self._bodies = np.zeros(MAX_BODIES, BODY_DTYPE)  # the last re-initialisation's list
        self._count = 0
        self._started = False  # a re-initialisation since creation or reset
        self._out = np.zeros(MAX_BODIES, BODY_DTYPE)

    def close(self):
        """Destroys the handle; later calls raise. Closing twice is harmless."""
        lock = getattr(self, "_lock", None)
        if lock is None:
            return
        with lock:
            if self._handle is not None:
                rc = self._lib.DestroyKoTrackingAlgo(ctypes.byref(self._handle))
                self._handle = None
                if rc != 0:
                    raise TrackingError("DestroyKoTrackingAlgo", rc)

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        try:
            self.close()
        except Exception:  # nothing can be reported from a finaliser
            pass

    @property
    def closed(self):
        return self._handle is None

    def _check_open(self):
        if self._handle is None:
            raise ValueError("the tracker is closed")

    def reinit(self, frame, boxes, classes=None, extras=None, *, width=None, height=None, stride=None):
        """Re-initialises every body from `boxes`, (N, 4) as (left, top, right, bottom) inclusive,
        N <= 30, with optional per-body class ids (int32; default 1) and extra words (uint32,
        default 0, returned unchanged by track). Returns the identities as int32 (N,)."""
        self._check_open()
        boxes = _whole(boxes, "boxes", _INT32, (-1, 4))
        n = boxes.shape[0]
        if n > MAX_BODIES:
            raise ValueError(f"at most {MAX_BODIES} bodies per frame; got {n}")
        classes = np.ones(n, np.int32) if classes is None else _whole(classes, "classes", _INT32, (n,))
        extras = np.zeros(n, np.uint32) if extras is None else _whole(extras, "extras", _UINT32, (n,))
        bodies = np.zeros(MAX_BODIES, BODY_DTYPE)
        bodies["classId"][:n] = classes
        for k, name in enumerate(("left", "top", "right", "bottom")):
            bodies[name][:n] = boxes[:, k]
        bodies["extra"][:n] = extras
        with self._lock:
            self._process(frame, bodies, n, True, width, height, stride)
            self._bodies, self._count, self._started = bodies, n, True
            return bodies["bodyId"][:n].astype(np.int32)

    def track(self, frame, *, width=None, height=None, stride=None):
        """Moves the bodies of the last re-initialisation onto this frame. Returns a structured
        array (dtype BODY_DTYPE: classId, bodyId, left, top, right, bottom, extra), one entry per
        body the library returned."""
        self._check_open()
        if not self._started:
            raise ValueError("reinit() must come first after the tracker is made or reset")
        with self._lock:
            return self._process(frame, self._bodies, self._count, False, width, height, stride)

    def reset(self):
        """Forgets every body; the next frame must be a reinit()."""
        self._check_open()
        with self._lock:
            rc = self._lib.ResetKoTrackingAlgo(self._handle)
            if rc != 0:
                raise TrackingError("ResetKoTrackingAlgo", rc)
            self._bodies, self._count, self._started = np.zeros(MAX_BODIES, BODY_DTYPE), 0, False

    def _process(self, frame, bodies, count, first, width, height, stride):
        self._check_open()  # closed by another thread while this one waited
        image, w, h, s = _frame(frame, width, height, stride)
        pin, pout = ParamIn(), ParamOut()
        pin.width, pin.height, pin.stride = w, h, s
        pin.image = image.ctypes.data
        pin.bodies = ctypes.cast(bodies.ctypes.data, ctypes.POINTER(BodyInfo))
        pin.bodyNum = count
        pin.isFirstFrame = 1 if first else 0
        self._out[:] = 0
        pout.bodies = ctypes.cast(self._out.ctypes.data, ctypes.POINTER(BodyInfo))
        rc = self._lib.ProcessKoTrackingAlgo(self._handle, ctypes.byref(pin), ctypes.byref(pout))
        if rc != 0:
            raise TrackingError("ProcessKoTrackingAlgo", rc)
        return self._out[:max(0, min(MAX_BODIES, pout.bodyNum))].copy()
