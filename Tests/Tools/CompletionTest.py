#!/usr/bin/env python3
"""Tests of what the build derives from the tables of commands: manual pages, shell completion, names.

    CompletionTest.py COMMAND [unittest options]

Completion is tried in the shells that are installed; the others are skipped.
"""
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

COMMAND = pathlib.Path(sys.argv.pop(1)).resolve()
CLINIC = pathlib.Path(__file__).resolve().parents[2] / "Examples" / "chest-clinic.dne"
# What is typed, and words that are offered then; - before those that must not be.
LINES = [
    ("talora bel", "beliefs -info"),
    ("talora learn ", "net.dne -learn"),
    ("talora learn net.dne --me", "--method -me"),
    ("talora learn net.dne --method ", "counting mindep em gradient -auto -net.dne"),
    ("talora simulate net.dne --method ", "auto forward tree -em"),
    ("talora beliefs net.dne --node Sm", "Smoker -XRay"),
    ("talora beliefs net.dne -f Smoker=Yes --not XR", "XRay= -Smoker="),
    ("talora beliefs net.dne -f XRay=", "Abnormal Normal -Yes"),
    ("talora beliefs net.dne -f XRay=Ab", "Abnormal -Normal"),
    ("talora beliefs net.dne --likelihood Dys", "Dyspnoea= -Yes"),
    ("talora table net.dne Dy", "Dyspnoea -net.dne"),
    ("talora --quiet be", "beliefs"),
    ("talora beliefs none.dne --node Sm", "-Smoker"),
]


class TextsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.work = pathlib.Path(cls.folder.name)
        shutil.copy(CLINIC, cls.work / "net.dne")
        (cls.work / "plain").touch()
        subprocess.run([COMMAND, "--manual", cls.work / "texts"], check=True, timeout=300)
        cls.share = cls.work / "texts" / "share"
        cls.environment = dict(os.environ, PATH=f"{COMMAND.parent}:{os.environ['PATH']}", HOME=str(cls.work),
                               XDG_CONFIG_HOME=str(cls.work), XDG_DATA_HOME=str(cls.work), TERM="dumb", LC_ALL="C.UTF-8")

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def run_shell(self, *command):
        done = subprocess.run([str(word) for word in command], cwd=self.work, env=self.environment,
                              capture_output=True, text=True, timeout=300, stdin=subprocess.DEVNULL)
        self.assertEqual(done.stderr, "", command)
        return done.stdout


class CompletionTest(TextsTest):
    def check(self, line, offered, wanted):
        for word in wanted.split():
            if word.startswith("-") and not word.startswith("--"):
                self.assertNotIn(word[1:], offered, line)
            else:
                self.assertIn(word, offered, line)

    @unittest.skipUnless(shutil.which("bash"), "bash is not installed")
    def test_bash(self):
        script = self.share / "bash-completion/completions/talora"
        for line, wanted in LINES:
            with self.subTest(line=line):
                offered = self.run_shell("bash", "--norc", "-c", 'source "$1"; compopt() { :; }; COMP_LINE=$2; '
                                         'COMP_POINT=${#2}; _talora; printf "%s\\n" "${COMPREPLY[@]}"', "bash", script, line)
                # bash puts in what stands behind the =, but for the one that it puts in itself.
                self.check(line, offered.split(), wanted)

    @unittest.skipUnless(shutil.which("fish"), "fish is not installed")
    def test_fish(self):
        script = self.share / "fish/vendor_completions.d/talora.fish"
        for line, wanted in LINES:
            with self.subTest(line=line):
                rows = self.run_shell("fish", "--no-config", "-c", f'source {script}; complete -C "{line}"').splitlines()
                offered = [row.split("\t")[0] for row in rows]
                offered += [word.split("=")[1] for word in offered if "=" in word and not word.endswith("=")]
                self.check(line, offered, wanted)

    @unittest.skipUnless(shutil.which("zsh"), "zsh is not installed")
    def test_zsh(self):
        folder = self.share / "zsh/vendor-completions"
        self.run_shell("zsh", "-n", folder / "_talora")
        for line, wanted in LINES:
            words = [word for word in wanted.split() if word.startswith("--") or not word.startswith("-")]
            with self.subTest(line=line):
                self.zsh(folder, line, words)

    def zsh(self, folder, line, words):
        """Types the line and a tab, and waits until zsh shows all the words."""
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(self.work)
            os.execvpe("zsh", ["zsh", "-f", "-i"], self.environment)
        try:
            setup = (f"stty rows 100 cols 200; fpath=({folder} $fpath); autoload -U compinit; compinit -u -D; "
                     "LISTMAX=1000; setopt nobeep; PS1='REA''DY'\n")
            os.write(terminal, setup.encode())
            self.read_until(terminal, ["READY"])
            os.write(terminal, line.encode() + b"\t\t")
            self.read_until(terminal, words)
        finally:
            os.close(terminal)
            os.waitpid(child, 0)

    def read_until(self, terminal, words):
        shown, until = b"", time.monotonic() + 20
        while not all(word in shown.decode(errors="replace") for word in words):
            if time.monotonic() > until or not select.select([terminal], [], [], 20)[0]:
                self.fail(f"zsh does not show {words}: {shown.decode(errors='replace')}")
            shown += os.read(terminal, 65536)


class PagesTest(TextsTest):
    def test_a_page_for_each_command(self):
        folder = self.share / "man/man1"
        commands = re.findall(r"^  ([a-z]\S*) ", self.run_shell(COMMAND, "--help").split("Subcommands:")[1], re.M)
        self.assertIn("beliefs", commands)
        pages = {"talora.1"} | {f"talora-{name}.1" for name in commands if name != "talora"}
        self.assertEqual({page.name for page in folder.iterdir()}, pages)
        for page in folder.iterdir():
            text = page.read_text()
            for heading in ("NAME", "SYNOPSIS", "OPTIONS", "EXIT STATUS", "EXAMPLES", "SEE ALSO"):
                self.assertIn(f".SH {heading}\n", text, page.name)
        self.assertIn("\\fB\\-o\\fR, \\fB\\-\\-output \\fIOUT\\fR", (folder / "talora-learn.1").read_text())

    @unittest.skipUnless(shutil.which("man"), "man is not installed")
    def test_pages_are_sound(self):
        for page in (self.share / "man/man1").iterdir():
            shown = self.run_shell("man", "--warnings", "-l", page)  # says on standard error what is wrong
            self.assertIn("EXIT STATUS", re.sub(".\b", "", shown))

    def test_names(self):
        nodes = self.run_shell(COMMAND, "--names", CLINIC).split()
        self.assertEqual((len(nodes), nodes[0]), (8, "VisitToAsia"))
        self.assertEqual(self.run_shell(COMMAND, "--names", CLINIC, "XRay").split(), ["Abnormal", "Normal"])
        for arguments in ([CLINIC, "Nobody"], ["none.dne"]):
            done = subprocess.run([COMMAND, "--names", *arguments], cwd=self.work, capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stdout), (1, ""))

    def test_a_folder_that_cannot_be_written(self):
        done = subprocess.run([COMMAND, "--manual", "plain"], cwd=self.work, capture_output=True, text=True)
        self.assertEqual(done.returncode, 1)
        self.assertIn("talora: error", done.stderr)


unittest.main()
