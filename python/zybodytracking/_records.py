"""The C records of ZyBodyTracking.h as ctypes structures (64-bit targets).

Reserved bytes belong to the caller; they are spelled out so that every field lands on the
header's byte offset (the tests compare these offsets with the compiled header's).
"""
import ctypes

MAX_BODIES = 30  # MAX_INPLACE_NUM


class BodyRoi(ctypes.Structure):
    _fields_ = [("left", ctypes.c_int32), ("top", ctypes.c_int32),
                ("right", ctypes.c_int32), ("bottom", ctypes.c_int32)]


class BodyInfo(ctypes.Structure):
    _fields_ = [("classId", ctypes.c_int32), ("bodyId", ctypes.c_int32),
                ("roi", BodyRoi), ("extra", ctypes.c_uint32)]


class ParamIn(ctypes.Structure):
    _fields_ = [("width", ctypes.c_int32), ("height", ctypes.c_int32), ("stride", ctypes.c_int32),
                ("reserved0", ctypes.c_uint8 * 12),
                ("image", ctypes.c_void_p),
                ("reserved1", ctypes.c_uint8 * 368),
                ("bodies", ctypes.POINTER(BodyInfo)),
                ("bodyNum", ctypes.c_int32),
                ("reserved2", ctypes.c_uint8 * 45),
                ("isFirstFrame", ctypes.c_uint8),
                ("reserved3", ctypes.c_uint8 * 6)]


class ParamOut(ctypes.Structure):
    _fields_ = [("reserved0", ctypes.c_uint8 * 40),
                ("bodies", ctypes.POINTER(BodyInfo)),
                ("bodyNum", ctypes.c_int32),
                ("reserved1", ctypes.c_uint8 * 4)]


def offsets():
    """{'Record.field': byte offset, 'sizeof(Record)': size} for the fields the header fixes."""
    out = {}
    for rec, names in ((BodyInfo, ("classId", "bodyId", "roi", "extra")),
                       (ParamIn, ("width", "height", "stride", "image", "bodies", "bodyNum",
                                  "isFirstFrame")),
                       (ParamOut, ("bodies", "bodyNum"))):
        for name in names:
            out[f"{rec.__name__}.{name}"] = getattr(rec, name).offset
        out[f"sizeof({rec.__name__})"] = ctypes.sizeof(rec)
    out["sizeof(BodyRoi)"] = ctypes.sizeof(BodyRoi)
    return out
