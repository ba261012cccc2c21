"""Builds the Python package with CMake and puts it together with the library into a wheel.

CMAKE_ARGS in the environment is passed on, for example CMAKE_ARGS="-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = pathlib.Path(__file__).resolve().parent


def version():
    """The version that CMakeLists.txt says."""
    return re.search(r"project\(Talora VERSION ([0-9.]+)", (HERE / "CMakeLists.txt").read_text()).group(1)


class CMakeBuild(build_ext):
    """Lets CMake build and install what the package consists of."""

    def run(self):
        build = pathlib.Path(self.build_temp).resolve()
        target = pathlib.Path(self.get_ext_fullpath("talora._core")).resolve().parent
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        subprocess.check_call(
            ["cmake", "-S", HERE, "-B", build, *generator, "-DCMAKE_BUILD_TYPE=Release", "-DTALORA_PYTHON=ON"]
            + [f"-DTALORA_{part}=OFF" for part in ("TOOLS", "TESTS", "BENCH", "FUZZ", "WERROR")]
            + ["-DTALORA_PYTHON_OWN_LIBRARY=ON", "-DTALORA_PYTHON_DIR=.", f"-DPython_EXECUTABLE={sys.executable}"]
            + shlex.split(os.environ.get("CMAKE_ARGS", ""))
        )
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(os.cpu_count() or 1)
        subprocess.check_call(["cmake", "--build", build, "--parallel", jobs, "--target", "talora_python"])
        subprocess.check_call(["cmake", "--install", build, "--component", "python", "--prefix", target.parent])

    def get_outputs(self):
        target = pathlib.Path(self.get_ext_fullpath("talora._core")).parent
        return [str(path) for path in target.rglob("*") if path.is_file()]


setup(
    version=version(),
    packages=[],
    ext_modules=[Extension("talora._core", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
