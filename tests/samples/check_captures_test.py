#!/usr/bin/python3
"""The check of the captures must notice what it is there for: each case breaks one thing."""
import pathlib
import shutil
import struct
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True  # the source tree stays as it is
sys.path.insert(0, str(pathlib.Path(__file__).parent))
from check_captures import check, table  # noqa: E402

SAMPLES = pathlib.Path(__file__).resolve().parents[2] / "samples"
FIRST_FRAME = 24 + 16  # file header, record header


class CaptureCheck(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.directory = pathlib.Path(temporary.name) / "samples"
        shutil.copytree(SAMPLES, self.directory)

    def rewrite(self, name, change):
        path = self.directory / name
        path.write_bytes(change(path.read_bytes()))

    def changeByte(self, name, position):
        def change(content):
            return content[:position] + bytes([content[position] ^ 1]) + content[position + 1:]
        self.rewrite(name, change)

    def expectProblem(self, *words):
        problems = check(self.directory)
        self.assertTrue(any(all(word in problem for word in words) for problem in problems),
                        f"no problem speaks of {words}: {problems}")

    def testAnUntouchedCopyIsFine(self):
        self.assertEqual(check(self.directory), [])

    def testEveryCellOfTheTablesIsChecked(self):
        readme = self.directory / "README.md"
        text = readme.read_text()
        tried = 0
        for heading in ("Lines", "Noise", "Bad captures", "The node that plays them"):
            start = text.index(f"\n## {heading}\n")
            rows = table(text, heading)
            for row in rows:
                key = next(iter(row.values()))
                for column in list(row)[1:]:
                    if column in ("sent by", "what triggers"):
                        continue
                    lines = text[start:].split("\n")
                    at = next(i for i, line in enumerate(lines)
                              if line.replace("`", "").startswith(f"| {key} |"))
                    cells = lines[at].split("|")
                    cells[1 + list(row).index(column)] = " other "
                    lines[at] = "|".join(cells)
                    readme.write_text(text[:start] + "\n".join(lines))
                    with self.subTest(row=key, column=column):
                        self.expectProblem(key if heading == "Lines" else "", "'other'")
                    tried += 1
        self.assertGreater(tried, 100)

    def testAWrongUdpChecksumIsFound(self):
        self.changeByte("udhcpc.pcap", FIRST_FRAME + 14 + 20 + 6)
        self.expectProblem("udhcpc.pcap", "frame 1", "UDP checksum")

    def testAWrongIpv4ChecksumIsFound(self):
        self.changeByte("udhcpc.pcap", FIRST_FRAME + 14 + 10)
        self.expectProblem("udhcpc.pcap", "frame 1", "IPv4 checksum")

    def testAWrongIcmpChecksumIsFound(self):
        self.changeByte("ipv4-first.pcap", FIRST_FRAME + 14 + 20 + 2)
        self.expectProblem("ipv4-first.pcap", "frame 1", "ICMP checksum")

    def testAWrongIcmpv6ChecksumIsFound(self):
        # Fixed header, hop-by-hop header of 8 bytes, type and code.
        self.changeByte("dhclient.pcap", FIRST_FRAME + 14 + 40 + 8 + 2)
        self.expectProblem("dhclient.pcap", "frame 1", "ICMPv6 checksum")

    def testACutCaptureIsFound(self):
        self.rewrite("vlan.pcap", lambda content: content[:-1])
        self.expectProblem("vlan.pcap", "frame cut")

    def testAnAddressOfTheRealWorldIsFound(self):
        # Sender address of the first ARP message.
        self.changeByte("arp-first.pcap", FIRST_FRAME + 14 + 14)
        self.expectProblem("arp-first.pcap", "frame 1", "193.0.2.15")

    def testASenderTheTableDoesNotKnowIsFound(self):
        self.changeByte("noise.pcap", FIRST_FRAME + 11)
        self.expectProblem("noise.pcap", "source MAC")

    def testALeaseWithoutItsAckIsFound(self):
        def drop(content):
            position, number = 24, 1
            while number < 4:
                position += 16 + struct.unpack_from("<I", content, position + 8)[0]
                number += 1
            end = position + 16 + struct.unpack_from("<I", content, position + 8)[0]
            return content[:position] + content[end:]
        self.rewrite("udhcpc.pcap", drop)
        self.expectProblem("udhcpc.pcap", "lease", "incomplete")

    def testAnIpv4FrameAmongTheNoiseIsFound(self):
        frames = (self.directory / "ipv4-first.pcap").read_bytes()[24:]
        self.rewrite("noise.pcap", lambda content: content + frames)
        self.expectProblem("noise.pcap", "first request", "'IPv4'")

    def testACaptureWithoutRowIsFound(self):
        shutil.copy(self.directory / "vlan.pcap", self.directory / "another.pcap")
        self.expectProblem("another.pcap", "only in the directory")

    def testAMissingCaptureIsFound(self):
        (self.directory / "vlan.pcap").unlink()
        self.expectProblem("vlan.pcap", "only in the table")

    def testALineWithoutRowIsFound(self):
        self.rewrite("node.toml", lambda content: content.replace(b'"1/13"', b'"1/14"'))
        self.expectProblem("1/13", "only in the table of the node")
        self.expectProblem("1/14", "only in node.toml")

    def testABadCaptureThatIsNotTheMadeOneIsFound(self):
        self.changeByte("bad/runts.pcap", 30)
        self.expectProblem("bad/runts.pcap", "makes another one")


if __name__ == "__main__":
    unittest.main()
