"""Builds the package with the project's own CMake: the library, its sibling libraries and the
binding, all placed inside the package, which finds them beside itself wherever pip puts it."""
import os
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent.parent


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = Path(self.build_temp).resolve() / "cmake"
        stage = Path(self.build_temp).resolve() / "stage"
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        # The libraries and the module install into one folder, each finding the others there.
        self.run_cmake("-S", ROOT, "-B", build, *generator, "-DCMAKE_BUILD_TYPE=Release",
                       f"-DPython3_EXECUTABLE={sys.executable}", "-DLIBFILTER_TESTS=OFF",
                       "-DLIBFILTER_BENCH=OFF", "-DLIBFILTER_EXAMPLES=OFF",
                       "-DLIBFILTER_TOOLS=OFF", "-DLIBFILTER_FREI0R=OFF",
                       "-DCMAKE_INSTALL_LIBDIR=libfilter", "-DLIBFILTER_PYTHON_INSTALL_DIR=.")
        self.run_cmake("--build", build, "-j", str(os.cpu_count() or 1))
        self.run_cmake("--install", build, "--prefix", stage)
        modules = list((stage / "libfilter").glob("_libfilter*.so"))
        if not modules:
            sys.exit("CMake built no Python module: are python3-dev, python3-numpy and "
                     "pybind11-dev installed for " + sys.executable + "?")
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(modules[0], target)
        # The libraries under their sonames, the siblings in their own folder as installed.
        for library in (stage / "libfilter").glob("**/lib*.so.*"):
            placed = target.parent / library.relative_to(stage / "libfilter")
            placed.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(library, placed)

    @staticmethod
    def run_cmake(*args):
        subprocess.run(["cmake", *map(str, args)], check=True)


setup(ext_modules=[Extension("libfilter._libfilter", sources=[])],
      cmdclass={"build_ext": CMakeBuild})
