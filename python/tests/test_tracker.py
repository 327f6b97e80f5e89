import subprocess
import threading
import time

import numpy as np
import pytest

import zybodytracking as zbt
from conftest import scene
from zybodytracking import _records, _tracker

REINIT_EVERY = 8


def detections(truth, f):
    """A detector's view of frame f: the true boxes, each with a class and an extra word."""
    n = len(truth[f])
    return truth[f], np.arange(1, n + 1) % 2 + 1, 1000 + 10 * f + np.arange(n)


def run_package(frames, truth, **geometry):
    """The package over the scene, as lines in the reference caller's format."""
    lines = []
    with zbt.BodyTracker() as t:
        for f, frame in enumerate(frames):
            if f % REINIT_EVERY == 0:
                boxes, classes, extras = detections(truth, f)
                ids = t.reinit(frame, boxes, classes, extras, **geometry)
                assert ids.dtype == np.int32
                lines.append(f"{f} R " + " ".join(map(str, ids)))
                out = t._out[:len(boxes)]  # a re-initialisation's own output records
            else:
                out = t.track(frame, **geometry)
            lines += [f"{f} " + " ".join(str(v) for v in rec) for rec in out.tolist()]
    return lines


def run_reference(caller, tmp_path, frames, truth, width, height, stride):
    (tmp_path / "frames.nv21").write_bytes(b"".join(f.tobytes() for f in frames))
    with open(tmp_path / "boxes.txt", "w") as out:
        for f in range(0, len(frames), REINIT_EVERY):
            for box, c, e in zip(*detections(truth, f)):
                out.write(f"{f} {c} {' '.join(map(str, box))} {e}\n")
    args = [str(caller), str(tmp_path / "frames.nv21"), str(width), str(height), str(stride), str(len(frames)),
            str(tmp_path / "boxes.txt")]
    return subprocess.run(args, check=True, capture_output=True, text=True).stdout.splitlines()


def test_record_offsets_are_the_headers(reference_caller):
    out = subprocess.run([str(reference_caller), "offsets"], check=True, capture_output=True, text=True).stdout
    header = {name: int(value) for name, value in (line.split() for line in out.splitlines())}
    assert header == _records.offsets()


@pytest.mark.parametrize("form", ["nv21 2-D", "flat buffer, padded rows", "bgr"])
def test_same_boxes_and_identities_as_the_c_interface(reference_caller, tmp_path, form):
    width, height = 320, 240
    stride = 352 if form.startswith("flat") else width
    frames, truth = scene(width, height, stride)
    if form == "bgr":  # converted here; the C caller gets the package's own conversion
        import cv2
        bgr = [cv2.cvtColor(f.reshape(-1, width), cv2.COLOR_YUV2BGR_NV21) for f in frames]
        frames = [zbt.bgr_to_nv21(b) for b in bgr]
    expected = run_reference(reference_caller, tmp_path, frames, truth, width, height, stride)
    if form == "nv21 2-D":
        got = run_package([f.reshape(-1, width) for f in frames], truth)
    elif form == "bgr":
        got = run_package(bgr, truth)
    else:
        got = run_package(frames, truth, width=width, height=height, stride=stride)
    assert len(expected) == 3 + 24 * 4  # the ids of 3 re-initialisations, 4 records a frame
    assert got == expected


def test_bgr_to_nv21_is_the_documented_integer_formula():
    # Rows: white, black, red, a 2 x 2 block of blue and green (chroma averaged over the block).
    bgr = np.array([[[255, 255, 255]] * 2, [[255, 255, 255]] * 2, [[0, 0, 0]] * 2, [[0, 0, 0]] * 2,
                    [[0, 0, 255]] * 2, [[0, 0, 255]] * 2, [[255, 0, 0], [0, 255, 0]], [[255, 0, 0], [0, 255, 0]]],
                   np.uint8)
    nv = zbt.bgr_to_nv21(bgr)
    assert nv[:8].tolist() == [[235, 235], [235, 235], [16, 16], [16, 16], [82, 82], [82, 82], [41, 144], [41, 144]]
    # V,U: white and black (128, 128); red (240, 90); blue (110, 240) with green (34, 54): (72, 147).
    assert nv[8:].tolist() == [[128, 128], [128, 128], [240, 90], [72, 147]]


def frame_640():
    return scene(640, 360, frames=2)[0][0].reshape(-1, 640)


GOOD = frame_640()
BOXES = [[100, 80, 139, 159], [300, 100, 339, 179]]
BAD_INPUTS = [  # (what, call on a tracker, exception, words of the message)
    ("float frame", lambda t: t.track(GOOD.astype(np.float32)), TypeError, "must be uint8"),
    ("list frame", lambda t: t.track(GOOD.tolist()), TypeError, "numpy array"),
    ("non-contiguous", lambda t: t.track(GOOD[:, ::2]), ValueError, "C-contiguous"),
    ("rows not H*3/2", lambda t: t.track(GOOD[:-1]), ValueError, "multiple of 3"),
    ("odd width", lambda t: t.track(np.ascontiguousarray(GOOD[:, :-1])), ValueError, "even"),
    ("odd height", lambda t: t.track(GOOD.ravel(), width=640, height=359), ValueError, "even"),
    ("4-D frame", lambda t: t.track(GOOD[None, :, :, None]), ValueError, "a frame is"),
    ("bgr with 4 channels", lambda t: t.track(np.zeros((360, 640, 4), np.uint8)), ValueError, "(H, W, 3)"),
    ("flat without size", lambda t: t.track(GOOD.ravel()), ValueError, "needs width and height"),
    ("flat too short", lambda t: t.track(GOOD.ravel()[:-1], width=640, height=360), ValueError, "needs 345600"),
    ("stride below width", lambda t: t.track(GOOD.ravel(), width=640, height=360, stride=320), ValueError, "stride"),
    ("size with 2-D frame", lambda t: t.track(GOOD, width=640, height=360), ValueError, "only with a flat"),
    ("31 bodies", lambda t: t.reinit(GOOD, [[0, 0, 9, 9]] * 31), ValueError, "at most 30"),
    ("boxes of 3", lambda t: t.reinit(GOOD, [[0, 0, 9]]), ValueError, "shape (N, 4)"),
    ("nan box", lambda t: t.reinit(GOOD, [[0, 0, np.nan, 9]]), ValueError, "finite"),
    ("inf box", lambda t: t.reinit(GOOD, [[0, 0, np.inf, 9]]), ValueError, "finite"),
    ("fractional box", lambda t: t.reinit(GOOD, [[0.5, 0, 9, 9]]), ValueError, "whole numbers"),
    ("text box", lambda t: t.reinit(GOOD, [["0", "0", "9", "9"]]), TypeError, "integers"),
    ("box past int32", lambda t: t.reinit(GOOD, [[0, 0, 2**31, 9]]), ValueError, "must lie in"),
    ("classes too few", lambda t: t.reinit(GOOD, BOXES, classes=[1]), ValueError, "classes must have shape (2,)"),
    ("negative extra", lambda t: t.reinit(GOOD, BOXES, extras=[-1, 0]), ValueError, "extras must lie in"),
]


@pytest.mark.parametrize("what,call,error,words", BAD_INPUTS, ids=[b[0] for b in BAD_INPUTS])
def test_bad_input_is_refused_and_the_tracker_goes_on(what, call, error, words):
    frames = [f.reshape(-1, 640) for f in scene(640, 360, frames=4)[0]]
    with zbt.BodyTracker() as clean, zbt.BodyTracker() as t:
        expected = [clean.reinit(frames[0], BOXES).tolist()] + [clean.track(f).tolist() for f in frames[1:]]
        t.reinit(frames[0], BOXES)
        with pytest.raises(error, match=words.replace("(", r"\(").replace(")", r"\)")):
            call(t)
        t.reset()  # the same sequence again, from the start, after the refusal
        got = [t.reinit(frames[0], BOXES).tolist()]
        with pytest.raises(error):
            call(t)
        got += [t.track(f).tolist() for f in frames[1:]]
    assert got[1:] == expected[1:]


def test_bad_input_never_reaches_the_library(stub_library, monkeypatch):
    # The stand-in library fails every frame with 99: a refusal of the package's own comes first.
    monkeypatch.setenv(zbt.LIBRARY_ENV, str(stub_library))
    monkeypatch.setenv("STUB_PROCESS", "99")
    monkeypatch.setattr(_tracker, "_lib", None)
    with zbt.BodyTracker() as t:
        t._started = True
        for what, call, error, words in BAD_INPUTS:
            with pytest.raises(error):
                call(t)
        with pytest.raises(zbt.TrackingError, match="ProcessKoTrackingAlgo returned 99") as e:
            t.track(GOOD)
        assert e.value.code == 99
    t.close()  # twice is harmless
    for call in (lambda: t.track(GOOD), lambda: t.reinit(GOOD, BOXES), t.reset):
        with pytest.raises(ValueError, match="the tracker is closed"):
            call()
    for name, code in (("STUB_CREATE", 6), ("STUB_START", 1)):
        monkeypatch.setenv(name, str(code))
        with pytest.raises(zbt.TrackingError, match=f"returned {code}"):
            zbt.BodyTracker()
        monkeypatch.delenv(name)
    monkeypatch.setattr(_tracker, "_lib", None)
    monkeypatch.setenv(zbt.LIBRARY_ENV, "/nonexistent/libZyBodyTracking.so")
    with pytest.raises(OSError, match="/nonexistent/libZyBodyTracking.so"):
        zbt.BodyTracker()
    monkeypatch.setattr(_tracker, "_lib", None)


def test_two_trackers_in_two_threads_run_at_once():
    frames, truth = scene(1280, 720, frames=40, bodies=4)
    frames = [f.reshape(-1, 1280) for f in frames]
    both_ready = threading.Barrier(2)

    def follow(results, spans, ready=None):
        with zbt.BodyTracker() as t:
            results.append(t.reinit(frames[0], truth[0]).tolist())
            if ready:
                ready.wait()
            for f in frames[1:]:
                start = time.perf_counter()
                results.append(t.track(f).tolist())
                spans.append((start, time.perf_counter()))

    alone, spans = [], [[], []]
    follow(alone, [])
    results = [[], []]
    threads = [threading.Thread(target=follow, args=(results[k], spans[k], both_ready)) for k in range(2)]
    for th in threads:
        th.start()
    for th in threads:
        th.join()
    assert results[0] == alone and results[1] == alone
    # With the interpreter lock held through a call the two threads' calls could not overlap.
    overlap = sum(max(0.0, min(a1, b1) - max(a0, b0)) for a0, a1 in spans[0] for b0, b1 in spans[1])
    busy = sum(b - a for a, b in spans[0])
    assert overlap > 0.3 * busy


def test_box_helpers_round_trip():
    xywh = np.array([[10, 20, 40, 80]])
    assert zbt.xywh_to_ltrb(xywh).tolist() == [[10, 20, 49, 99]]
    bodies = np.zeros(1, zbt.BODY_DTYPE)
    bodies[["left", "top", "right", "bottom"]] = (10, 20, 49, 99)
    assert zbt.ltrb_to_xywh(bodies).tolist() == xywh.tolist()
