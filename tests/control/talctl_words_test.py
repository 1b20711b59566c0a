#!/usr/bin/python3
"""What talctl says of itself: help on one screen, the manual page, the completion of words.
Usage: talctl_words_test.py BUILD-DIRECTORY"""
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

TALCTL = pathlib.Path(sys.argv.pop(1)) / "bin/talctl"
ROWS, COLUMNS = 24, 80


def run(*arguments, **options):
    return subprocess.run(arguments, capture_output=True, text=True, timeout=60, check=False,
                          **options)


def help_of(path):
    return run(TALCTL, *path, "--help").stdout


def commands_below(path):
    lines = help_of(path).partition("Commands:\n")[2].splitlines()
    names = []
    for line in lines:
        if not line.startswith("  "):
            break
        names.append(line.split()[0])
    return names


def all_paths(path=()):
    yield path
    for name in commands_below(path):
        yield from all_paths((*path, name))


class Words(unittest.TestCase):
    def test_every_help_stands_on_one_screen(self):
        paths = list(all_paths())
        self.assertGreater(len(paths), 20)
        for path in paths:
            with self.subTest(path=path):
                result = run(TALCTL, *path, "--help")
                self.assertEqual((0, ""), (result.returncode, result.stderr))
                lines = result.stdout.splitlines()
                self.assertTrue(lines[0].startswith(" ".join(("Usage: talctl", *path))))
                self.assertLessEqual(len(lines), ROWS)
                self.assertLessEqual(max(map(len, lines)), COLUMNS)

    def test_manual_page_has_every_command_and_option_and_no_fault(self):
        page = run(TALCTL, "man").stdout
        for path in all_paths():
            text = help_of(path)
            for option in re.findall(r"^  (--[a-z-]+)", text, re.MULTILINE):
                self.assertIn(option.replace("-", r"\-"), page)
            if path and not commands_below(path):
                self.assertIn(".SS talctl " + " ".join(path), page)
        if shutil.which("groff"):
            result = run("groff", "-man", "-ww", "-Tascii", input=page)
            self.assertEqual((0, ""), (result.returncode, result.stderr))
            self.assertIn("EXIT STATUS", re.sub("\x1b\\[[0-9]*m|.\b", "", result.stdout))

    def complete(self, *words):
        script = ('eval "$("$1" completion bash)"; shift; COMP_WORDS=("$@"); '
                  'COMP_CWORD=$(($# - 1)); _talctl; printf "%s\\n" "${COMPREPLY[@]}"')
        result = run("bash", "-c", script, "bash", TALCTL, "talctl", *words)
        self.assertEqual((0, ""), (result.returncode, result.stderr))
        return set(result.stdout.split())

    def test_bash_completes_commands_options_and_values(self):
        self.assertEqual({"interface"}, self.complete("inter"))
        self.assertLessEqual({"status", "rule", "--json", "--server"}, self.complete(""))
        self.assertEqual({"add", "delete", "show", "bundle"},
                         {each for each in self.complete("rule", "") if each[0] != "-"})
        self.assertEqual({"on", "off"}, self.complete("admin", "o"))
        self.assertEqual({"any", "discover"}, self.complete("rule", "add", "1/3", "--dhcp", ""))
        self.assertEqual({"--vendor-id", "--vlan"}, self.complete("rule", "add", "1/3", "--v"))
        self.assertEqual({"on", "off"},
                         self.complete("--server", "x", "interface", "set", "1", "--admin", ""))
        self.assertIn("verify", self.complete("store", "v"))
        self.assertEqual({"trap"}, self.complete("events", "--kind", "t"))
        self.assertEqual({"bash"}, self.complete("completion", "b"))

    def test_bash_completes_files(self):
        own = str(pathlib.Path(__file__))
        self.assertEqual({own}, self.complete("store", "verify", own[:-1]))
        self.assertEqual({own}, self.complete("admin", "--ca", own[:-1]))

    @unittest.skipUnless(shutil.which("zsh"), "no zsh here")
    def test_zsh_takes_its_script(self):
        script = f'autoload -U compinit && compinit -u -D; eval "$({TALCTL} completion zsh)"; ' \
                 'print $+functions[_talctl] ${_comps[talctl]:+set}'
        result = run("zsh", "-f", "-c", script)
        self.assertEqual("1 set", result.stdout.strip(), result.stderr)


if __name__ == "__main__":
    unittest.main()
