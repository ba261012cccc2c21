#!/usr/bin/env python3
"""Makes the Debian packages of the build, looks into them, unpacks them into a folder of their own, uses
what is there, and takes them away again.

    PackageTest.py BUILD_FOLDER

As root, and with dpkg, they are installed by dpkg into that folder; else they are only unpacked.  Skipped
where there is no dpkg-deb.
"""
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
ROOT = pathlib.Path(__file__).resolve().parents[2]
CLINIC = ROOT / "Examples" / "chest-clinic.dne"
TAGS_ACCEPTED = {"initial-upload-closes-no-bugs",  # nothing is uploaded
                 "maintscript-calls-ldconfig",     # CPack adds that to the trigger
                 "pkg-config-unavailable-for-cross-compilation"}  # unless made with the preset "package"


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True, timeout=900, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}:\n{done.stdout}{done.stderr}")
    return done.stdout


@unittest.skipUnless(shutil.which("dpkg-deb") and shutil.which("dpkg-shlibdeps"), "dpkg-dev is not installed")
class PackageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.work = pathlib.Path(cls.folder.name)
        run("cpack", "--config", BUILD / "CPackConfig.cmake", "-B", cls.work / "made", cwd=BUILD)
        cls.packages = {path.name.split("_")[0]: path for path in (cls.work / "made").glob("*.deb")}

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def field(self, package, name):
        return run("dpkg-deb", "-f", self.packages[package], name).strip()

    def test_names_and_fields(self):
        self.assertLessEqual({"libtalora6", "libtalora-dev", "talora"}, set(self.packages))
        self.assertLessEqual(set(self.packages), {"libtalora6", "libtalora-dev", "talora", "python3-talora"})
        for package in self.packages:
            with self.subTest(package=package):
                version, depends = self.field(package, "Version"), self.field(package, "Depends")
                if package == "libtalora6":
                    self.assertRegex(depends, r"libc6 \(.*zlib1g")
                else:
                    self.assertIn(f"libtalora6 (= {version})", depends)
                summary, about = self.field(package, "Description").split("\n", 1)
                self.assertLess(len(summary), 80)
                self.assertIn("Bayesian belief network", about)
                names = run("dpkg-deb", "-c", self.packages[package])
                for name in ("copyright", "changelog.gz", "changelog.Debian.gz"):
                    self.assertIn(f"./usr/share/doc/{package}/{name}\n", names)

    def test_contents(self):
        for package, names in [("libtalora6", ["libtalora.so.6 -> libtalora.so.6."]),
                               ("libtalora-dev", ["libtalora.so -> libtalora.so.6", "include/Talora.h", "talora.pc",
                                                  "TaloraConfig.cmake"]),
                               ("talora", ["usr/bin/talora", "man1/talora.1.gz", "man1/talora-beliefs.1.gz",
                                           "bash-completion/completions/talora", "zsh/vendor-completions/_talora",
                                           "fish/vendor_completions.d/talora.fish", "examples/chest-clinic.dne"]),
                               ("python3-talora", ["dist-packages/talora/__init__.py", "dist-packages/talora/_core."])]:
            if package not in self.packages:  # made only with TALORA_PYTHON
                self.assertEqual(package, "python3-talora")
                continue
            listing = run("dpkg-deb", "-c", self.packages[package])
            for name in names:
                with self.subTest(package=package, name=name):
                    self.assertIn(name, listing)
            for line in listing.splitlines():
                self.assertIn(" root/root ", line)

    def test_used_and_removed(self):
        # Packages of the build's own machine stand for what these depend on.
        root = self.work / "root"
        for folder in ("var/lib/dpkg/updates", "var/lib/dpkg/info", "var/lib/dpkg/triggers", "usr"):
            (root / folder).mkdir(parents=True)
        (root / "var/lib/dpkg/status").touch()
        with_dpkg = os.geteuid() == 0 and shutil.which("dpkg")
        dpkg = ["dpkg", f"--root={root}", "--force-depends", "--force-script-chrootless", "--force-not-root",
                f"--log={self.work / 'log'}"]
        if with_dpkg:
            run(*dpkg, "--unpack", *self.packages.values())
        else:
            for deb in self.packages.values():
                run("dpkg-deb", "-x", deb, root)
        self.use(root)
        if with_dpkg:
            run(*dpkg, "--purge", *self.packages)
            left = [path for path in (root / "usr").rglob("*") if not path.is_dir()]
            self.assertEqual(left, [])

    def use(self, root):
        library = next(root.rglob("libtalora.so.6"))
        environment = dict(os.environ, LD_LIBRARY_PATH=str(library.parent), PKG_CONFIG_SYSROOT_DIR="",
                           PKG_CONFIG_PATH=str(next(root.rglob("talora.pc")).parent))
        command = root / "usr/bin/talora"
        self.assertRegex(run(command, "--version", env=environment), r"Talora \d+\.\d+")
        self.assertNotIn("RUNPATH", run("readelf", "-d", command))
        flags = run("pkg-config", "--cflags", "--libs", "talora", env=environment).split()
        program = self.work / "program"
        run(shutil.which("cc") or "gcc", ROOT / "Examples/c/chest_clinic.c", "-o", program, *flags)
        self.assertIn("Before anything is known:", run(program, CLINIC, env=environment))
        if "python3-talora" in self.packages:
            module = next(root.rglob("dist-packages/talora")).parent
            script = f"import talora; print(talora.__file__, talora.ReadBNet({str(CLINIC)!r})['XRay'].beliefs)"
            shown = run("/usr/bin/python3", "-c", script, env=dict(environment, PYTHONPATH=str(module),
                                                                  PYTHONDONTWRITEBYTECODE="1"))
            self.assertIn(str(module), shown)

    @unittest.skipUnless(shutil.which("lintian"), "lintian is not installed")
    def test_lintian(self):
        done = subprocess.run(["lintian", "--allow-root", *self.packages.values()], capture_output=True, text=True)
        complaints = [line for line in done.stdout.splitlines()
                      if line.startswith(("E:", "W:")) and line.split()[2] not in TAGS_ACCEPTED]
        self.assertEqual(complaints, [])


unittest.main()
