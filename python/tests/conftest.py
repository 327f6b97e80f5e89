"""Shared pieces of the package tests: a synthetic NV21 scene and C programs built on the fly
against the same shared library the package loads."""
import os
import pathlib
import subprocess

import numpy as np
import pytest

import zybodytracking

HERE = pathlib.Path(__file__).resolve().parent
INCLUDE = HERE.parent.parent / "include"


def scene(width=320, height=240, stride=None, frames=24, bodies=4, seed=5):
    """NV21 frames (each a flat buffer of stride * height * 3/2 bytes) of textured bodies moving
    over a noisy background, and each body's true box (left, top, right, bottom) per frame."""
    stride = stride or width
    rng = np.random.default_rng(seed)
    background = rng.integers(40, 90, (height, stride), dtype=np.uint8)
    textures = [np.kron(rng.integers(30, 230, (16, 8), dtype=np.uint8), np.ones((5, 5), np.uint8))
                for _ in range(bodies)]  # 80 x 40 blocks of 5 x 5 pixels
    starts = [(20 + 70 * b, 30 + 25 * b) for b in range(bodies)]
    steps = [((-1) ** b * 2, 1 + b % 2) for b in range(bodies)]
    out, truth = [], []
    for f in range(frames):
        y = background.copy()
        boxes = []
        for tex, (x0, y0), (dx, dy) in zip(textures, starts, steps):
            x, yy = x0 + dx * f, y0 + dy * f
            y[yy:yy + 80, x:x + 40] = tex
            boxes.append((x, yy, x + 39, yy + 79))
        chroma = np.full((height // 2, stride), 128, np.uint8)
        chroma[:, ::2] = 120 + f % 8  # V varies a little per frame
        out.append(np.concatenate([y, chroma]).ravel())
        truth.append(np.array(boxes, np.int32))
    return out, truth


def compile_c(source, output, *extra):
    cmd = ["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", f"-I{INCLUDE}", str(source), "-o", str(output), *extra]
    subprocess.run(cmd, check=True, capture_output=True)
    return output


@pytest.fixture(scope="session")
def reference_caller(tmp_path_factory):
    """The C reference caller, linked with the library the package loads."""
    d = tmp_path_factory.mktemp("reference")
    lib = pathlib.Path(zybodytracking.library_path()).resolve()
    # The library's soname is libZyBodyTracking.so.1: the caller finds it under that name.
    os.symlink(lib, d / "libZyBodyTracking.so.1")
    return compile_c(HERE / "reference_caller.c", d / "reference_caller", str(d / "libZyBodyTracking.so.1"),
                     f"-Wl,-rpath,{d}")


@pytest.fixture(scope="session")
def stub_library(tmp_path_factory):
    d = tmp_path_factory.mktemp("stub")
    return compile_c(HERE / "stub_library.c", d / "libstub.so", "-shared", "-fPIC")
