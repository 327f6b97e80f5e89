#!/usr/bin/python3
"""Tracks people through a video with zybodytracking: OpenCV's HOG people detector finds them
every 10 frames, the tracker follows them in between; writes an annotated video.

    python3 track_video.py [VIDEO] [--out annotated.mp4] [--reinit 10] [--max-frames N]

VIDEO defaults to opencv-doc's pedestrian footage.
"""
import argparse
import sys
import time

import cv2
import numpy as np

import zybodytracking as zbt

SAMPLE = "/usr/share/doc/opencv-doc/examples/data/vtest.avi"


def detect_people(hog, bgr):
    """The detector's boxes as (left, top, right, bottom), strongest first, at most 30."""
    scale = 2.0 if bgr.shape[0] < 800 else 1.0  # the 64 x 128 window misses smaller people
    found, weights = hog.detectMultiScale(cv2.resize(bgr, None, fx=scale, fy=scale), winStride=(8, 8),
                                          padding=(8, 8), scale=1.05)
    boxes = []
    for (x, y, w, h), weight in sorted(zip(found, np.ravel(weights)), key=lambda p: -p[1])[:zbt.MAX_BODIES]:
        # The window has a margin around the person: keep the middle two thirds, inside the frame.
        x, y, w, h = (int(v / scale) for v in (x, y, w, h))
        left, top = max(0, x + w // 6), max(0, y + h // 12)
        right, bottom = min(bgr.shape[1] - 1, left + w * 2 // 3 - 1), min(bgr.shape[0] - 1, top + h * 5 // 6 - 1)
        if right - left >= 8 and bottom - top >= 8:
            boxes.append((left, top, right, bottom))
    return np.array(boxes, np.int32).reshape(-1, 4)


def colour(identity):
    hsv = np.uint8([[[identity * 47 % 180, 220, 255]]])
    return tuple(int(c) for c in cv2.cvtColor(hsv, cv2.COLOR_HSV2BGR)[0, 0])


def main():
    p = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    p.add_argument("video", nargs="?", default=SAMPLE)
    p.add_argument("--out", default="annotated.mp4")
    p.add_argument("--reinit", type=int, default=10, help="frames between detections")
    p.add_argument("--max-frames", type=int, default=0)
    a = p.parse_args()
    capture = cv2.VideoCapture(a.video)
    if not capture.isOpened():
        sys.exit(f"track_video: {a.video} cannot be read")
    hog = cv2.HOGDescriptor()
    hog.setSVMDetector(cv2.HOGDescriptor_getDefaultPeopleDetector())
    writer, frames, tracking_s = None, 0, 0.0
    with zbt.BodyTracker() as tracker:
        while a.max_frames <= 0 or frames < a.max_frames:
            ok, bgr = capture.read()
            if not ok:
                break
            bgr = np.ascontiguousarray(bgr[:bgr.shape[0] & ~1, :bgr.shape[1] & ~1])  # NV21 needs even sizes
            if frames % a.reinit == 0:
                boxes = detect_people(hog, bgr)
                ids = tracker.reinit(bgr, boxes)
                shown = list(zip(ids, boxes))
            else:
                start = time.perf_counter()
                bodies = tracker.track(bgr)
                tracking_s += time.perf_counter() - start
                shown = [(b["bodyId"], (b["left"], b["top"], b["right"], b["bottom"])) for b in bodies]
            for identity, (left, top, right, bottom) in shown:
                c = colour(int(identity))
                cv2.rectangle(bgr, (int(left), int(top)), (int(right), int(bottom)), c, 2)
                cv2.putText(bgr, str(identity), (int(left) + 3, max(12, int(top) - 4)), cv2.FONT_HERSHEY_SIMPLEX, 0.6, c, 2)
            if writer is None:
                fps = capture.get(cv2.CAP_PROP_FPS) or 25
                writer = cv2.VideoWriter(a.out, cv2.VideoWriter_fourcc(*"mp4v"), fps, (bgr.shape[1], bgr.shape[0]))
            writer.write(bgr)
            frames += 1
    if writer is not None:
        writer.release()
    tracked = frames - (frames + a.reinit - 1) // a.reinit
    print(f"track_video: {frames} frames of {a.video}, {1000 * tracking_s / max(1, tracked):.2f} ms per tracking "
          f"frame (mean, BGR conversion included); annotated video in {a.out}")


if __name__ == "__main__":
    main()
