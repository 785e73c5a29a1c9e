"""Has CMake build the compiled part of the Python package, with the libraries inside of it.

In a build of its own, or in the one that VELMARA_BUILD names, which saves the time where there is one.
"""

import os
import pathlib
import re
import subprocess
import sys

import setuptools
from setuptools.command.build_ext import build_ext

TOP = pathlib.Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    def build_extension(self, extension):
        work = pathlib.Path(os.environ.get("VELMARA_BUILD") or TOP / "build" / "wheel")
        if not os.environ.get("VELMARA_BUILD"):
            subprocess.run(
                ["cmake", "-S", TOP, "-B", work, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                 "-DVELMARA_BUILD_TESTS=OFF", "-DVELMARA_BUILD_BENCH=OFF", f"-DPython3_EXECUTABLE={sys.executable}"],
                check=True,
            )  # fmt: skip
        subprocess.run(["cmake", "--build", work, "--target", "velmara_wheel"], check=True)
        built = work / "python" / "wheel" / pathlib.Path(self.get_ext_filename(extension.name)).name
        wanted = pathlib.Path(self.get_ext_fullpath(extension.name))
        wanted.parent.mkdir(parents=True, exist_ok=True)
        self.copy_file(str(built), str(wanted))


# What setuptools leaves behind goes where builds go.
os.makedirs(TOP / "build" / "python", exist_ok=True)
setuptools.setup(
    version=re.search(r"project\(Velmara VERSION ([\d.]+)", (TOP / "CMakeLists.txt").read_text())[1],
    ext_modules=[setuptools.Extension("velmara._core", [])],
    cmdclass={"build_ext": CMakeBuild},
    options={"egg_info": {"egg_base": "build/python"}, "build": {"build_base": "build/python"}},
)
