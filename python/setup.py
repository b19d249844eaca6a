"""Builds the compiled part with CMake, from the source tree that this folder is a part of, in its build/python.

CMAKE_ARGS in the environment is handed to CMake.
"""

import os
import re
import shlex
import shutil
import subprocess
import sys
import sysconfig
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent
WORK = ROOT / "build" / "python"


class BuildWithCMake(build_ext):
    def build_extension(self, extension: Extension) -> None:
        folder = WORK / f"cmake-{sysconfig.get_config_var('SOABI')}"
        jobs = os.environ.get("JOBS", str(os.cpu_count()))
        configure = ["cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release"]
        configure += ["-DSORVEL_PYTHON=ON", "-DSORVEL_SDK=OFF", "-DSORVEL_TESTS=OFF", f"-DPython_EXECUTABLE={sys.executable}"]
        subprocess.run([*configure, *shlex.split(os.environ.get("CMAKE_ARGS", ""))], check=True)
        subprocess.run(["cmake", "--build", folder, "-j", jobs, "--target", "sorvel_python"], check=True)
        target = Path(self.get_ext_fullpath(extension.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(folder / "python" / "sorvel" / target.name, target)


def version() -> str:
    found = re.search(r"project\(sorvel VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text())
    if found is None:
        sys.exit("setup.py: no version in CMakeLists.txt; build from the whole source tree")
    return found[1]


os.chdir(HERE)
WORK.mkdir(parents=True, exist_ok=True)
shutil.rmtree(WORK / "setuptools", ignore_errors=True)  # or the wheel keeps files that are no more
shutil.copy(ROOT / "LICENSE", HERE)  # setuptools takes no file from outside
setup(
    version=version(),
    ext_modules=[Extension("sorvel._sorvel", sources=[])],
    cmdclass={"build_ext": BuildWithCMake},
    options={"build": {"build_base": str(WORK / "setuptools")}, "egg_info": {"egg_base": str(WORK)}},
)
