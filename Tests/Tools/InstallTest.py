#!/usr/bin/env python3
"""Installs the build into a folder of its own and builds the two example programs against it, one
through pkg-config and one through the CMake package.

    InstallTest.py BUILD_FOLDER
"""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "Examples"


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.work = pathlib.Path(cls.folder.name)
        cls.prefix = cls.work / "prefix"
        run("cmake", "--install", BUILD, "--prefix", cls.prefix)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def test_c_program_through_pkg_config(self):
        package = next(self.prefix.rglob("talora.pc"))
        environment = dict(os.environ, PKG_CONFIG_PATH=str(package.parent))
        run("make", "-f", EXAMPLES / "c" / "Makefile", f"VPATH={EXAMPLES / 'c'}", cwd=self.work, env=environment)
        output = run(self.work / "chest_clinic", EXAMPLES / "chest-clinic.dne")
        self.assertEqual(output.splitlines()[:8],
                         ["Before anything is known:", "  Tuberculosis  0.0104", "  LungCancer    0.0550",
                          "  Bronchitis    0.4500", "Short of breath:", "  Tuberculosis  0.0188",
                          "  LungCancer    0.1028", "  Bronchitis    0.8340"])

    def test_cpp_program_through_the_cmake_package(self):
        build, saved = self.work / "cpp", self.work / "lawn.dne"
        run("cmake", "-G", "Ninja", "-S", EXAMPLES / "cpp", "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", build)
        output = run(build / "sprinkler", saved)
        self.assertEqual(output, "The grass is wet: rain 0.7079, sprinkler 0.4298\n"
                                 "It has rained, too: sprinkler 0.1945\n")
        installed = self.prefix / "bin" / "talora"
        self.assertIn("Lawn", run(installed, "info", saved))

    def test_as_a_part_of_a_larger_build(self):
        whole = self.work / "whole"
        whole.mkdir()
        (whole / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(Whole LANGUAGES C CXX)\n"
            f'add_subdirectory("{ROOT}" talora)\nadd_executable(program "{EXAMPLES / "c" / "chest_clinic.c"}")\n'
            "target_link_libraries(program PRIVATE Talora::talora)\n")
        run("cmake", "-G", "Ninja", "-S", whole, "-B", whole / "build")
        targets = run("ninja", "-C", whole / "build", "-t", "targets", "all")
        self.assertIn("program:", targets)
        for name in ("talora_command:", "talora_tests:", "manual:", "package:"):
            self.assertNotIn("\n" + name, targets)


unittest.main()
