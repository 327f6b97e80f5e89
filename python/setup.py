"""Builds the package with its own copy of the tracking library.

The build step configures this repository with CMake (Release, library only: no tests, demo or
tools) in build/cmake beside this file, builds the ZyBodyTracking target and copies the shared
library into the package, so that an installed package loads the library it was built with.
ZYBODYTRACKING_SOURCE_DIR names the repository when this folder was copied out of it.
"""
import os
import pathlib
import shutil
import subprocess

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py

HERE = pathlib.Path(__file__).resolve().parent
SONAME = "libZyBodyTracking.so.1"


def build_library():
    source = pathlib.Path(os.environ.get("ZYBODYTRACKING_SOURCE_DIR", HERE.parent))
    if not (source / "include" / "ZyBodyTracking.h").is_file():
        raise SystemExit(f"zybodytracking: {source} is not the library's source tree; "
                         "set ZYBODYTRACKING_SOURCE_DIR to it")
    build = HERE / "build" / "cmake"
    generator = ["-G", "Ninja"] if shutil.which("ninja") else []
    subprocess.run(["cmake", "-S", str(source), "-B", str(build), *generator, "-DCMAKE_BUILD_TYPE=Release",
                    "-DZY_BUILD_TESTS=OFF", "-DZY_BUILD_DEMO=OFF", "-DZY_BUILD_TOOLS=OFF"], check=True)
    subprocess.run(["cmake", "--build", str(build), "--target", "ZyBodyTracking"], check=True)
    return build / "src" / SONAME


class BuildWithLibrary(build_py):
    def run(self):
        super().run()
        target = pathlib.Path(self.build_lib) / "zybodytracking" / SONAME
        shutil.copy2(build_library().resolve(), target)


class BinaryDistribution(Distribution):
    """The wheel carries a machine-specific shared library."""

    def has_ext_modules(self):
        return True


setup(cmdclass={"build_py": BuildWithLibrary}, distclass=BinaryDistribution)
