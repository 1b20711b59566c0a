#!/usr/bin/python3
"""The JSON of talctl against docs/operations.md: every block that stands behind a line
"<!-- talctl ARGUMENTS -->" there is an example whose names and types the real answer must have,
in the same order. Usage: talctl_json_test.py BUILD-DIRECTORY OPERATIONS.MD"""
import json
import pathlib
import re
import sys
import unittest

from node_process import TestNode

DOCUMENT = pathlib.Path(sys.argv.pop(2)).read_text()
BUILD = sys.argv.pop(1)
EXAMPLES = re.findall(r"<!-- talctl (.*?) -->\n```json\n(.*?)```", DOCUMENT, re.DOTALL)


def shape(value):
    """Names and types: of a list, the shape of its first element."""
    if isinstance(value, dict):
        return {name: shape(each) for name, each in value.items()}
    if isinstance(value, list):
        return [shape(value[0])] if value else ["empty"]
    return "null" if value is None else type(value).__name__


def names_in_order(value):
    if isinstance(value, dict):
        return [(name, names_in_order(each)) for name, each in value.items()]
    return [names_in_order(value[0])] if isinstance(value, list) and value else None


class JsonSchema(unittest.TestCase):
    def setUp(self):
        self.node = TestNode(BUILD)
        self.node.__enter__()
        self.addCleanup(self.node.__exit__)
        for rule in (["--vendor-id", "acme*"], ["--vlan", "100"]):
            self.assertEqual(0, self.node.talctl("rule", "add", "1/1", *rule).returncode)
        self.file = self.node.directory / "store.dat"
        stored = json.loads(self.node.talctl("--json", "logins").stdout)["logins"][0]
        self.file.write_text(self.file_of(stored))

    @staticmethod
    def file_of(login):
        return "\n".join([
            f"interface: {login['interface']}", "LoginAAAtype: 01", "circuitId: a", "remoteId: ",
            "vendorId: ", "clientId: ", f"sourceMac: {login['source_mac']}", "sourceIP: c0000207",
            f"userPatternSequence: {login['user_pattern_sequence']}",
            f"userPatternMask: {login['user_pattern_mask']}", "extraInt: 00000000",
            "extraString: ", "loginIdType: fd", "vlanId: 64"]) + "\n"

    def answer(self, arguments):
        words = [str(self.file) if word == "FILE" else word for word in arguments.split()]
        if "events" in words:
            return self.event(words)
        return self.node.talctl(*words).stdout

    def event(self, words):
        listening = self.node.popen_talctl(*words, "--count", "1")
        clients = 0
        while clients == 0:
            status = json.loads(self.node.talctl("status", "--json").stdout)
            clients = status["node"]["event_clients"]
            self.assertIsNone(listening.poll())
        self.node.tell("event gate 1 open")
        return listening.communicate(timeout=20)[0]

    def test_every_answer_is_as_documented(self):
        self.assertGreaterEqual(len(EXAMPLES), 9)
        for arguments, example in EXAMPLES:
            with self.subTest(arguments=arguments):
                documented = json.loads(example)
                real = json.loads(self.answer(arguments))
                self.assertEqual(shape(documented), shape(real))
                self.assertEqual(names_in_order(documented), names_in_order(real))

    def test_exit_codes_are_documented(self):
        for code in range(5):
            self.assertRegex(DOCUMENT, rf"(?m)^\| {code} \| ")


if __name__ == "__main__":
    unittest.main()
