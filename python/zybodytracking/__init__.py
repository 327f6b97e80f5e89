"""zybodytracking: follows up to 30 bodies through camera frames with libZyBodyTracking.

    import zybodytracking as zbt
    with zbt.BodyTracker() as tracker:
        ids = tracker.reinit(frame, [[100, 80, 159, 199]])   # (left, top, right, bottom) inclusive
        bodies = tracker.track(next_frame)                    # structured array, one row per body

Frames are NV21 (H*3/2, W) uint8, BGR (H, W, 3) uint8 (converted here, see bgr_to_nv21), or a
flat NV21 buffer with width=, height= and stride=.
"""
from ._records import MAX_BODIES
from ._tracker import (BODY_DTYPE, LIBRARY_ENV, BodyTracker, TrackingError, bgr_to_nv21,
                       library_path, ltrb_to_xywh, xywh_to_ltrb)

__all__ = ["BODY_DTYPE", "LIBRARY_ENV", "MAX_BODIES", "BodyTracker", "TrackingError", "bgr_to_nv21",
           "library_path", "ltrb_to_xywh", "xywh_to_ltrb"]
__version__ = "1.0.3"
