#!/usr/bin/python3
"""Writes the captures that a reader must refuse or survive, made from udhcpc.pcap beside this file.

usage: make_bad_captures.py DIRECTORY

The same udhcpc.pcap gives the same bytes.
"""
import pathlib
import struct
import sys

FILE_HEADER = 24
RECORD_HEADER = 16
LINKTYPE_LINUX_SLL = 113


def records(capture):
    """(start, end) of every record, header included."""
    start = FILE_HEADER
    while start < len(capture):
        end = start + RECORD_HEADER + struct.unpack_from("<I", capture, start + 8)[0]
        yield start, end
        start = end


def record(frame):
    return struct.pack("<IIII", 1_000_000_000, 0, len(frame), len(frame)) + frame


def badCaptures(good):
    header = good[:FILE_HEADER]
    first, second, third = list(records(good))[:3]
    discover = good[first[0] + RECORD_HEADER:first[1]]
    # Cooked frame: sent by a host to everybody, Ethernet, its address, EtherType.
    cooked = struct.pack(">HHH6sxxH", 1, 1, 6, discover[6:12], 0x0800) + discover[14:]
    return {
        "empty.pcap": b"",
        "truncated-header.pcap": good[:10],
        "header-only.pcap": header,
        "truncated.pcap": good[:third[0] + RECORD_HEADER + 100],
        "truncated-record-header.pcap": good[:second[1] + 7],
        "absurd-length.pcap": good[:first[1]] +
                              struct.pack("<IIII", 1_000_000_000, 0, 0x7FFFFFFF, 0x7FFFFFFF) +
                              discover,
        "wrong-linktype.pcap": header[:20] + struct.pack("<I", LINKTYPE_LINUX_SLL) +
                               record(cooked),
        "not-a-capture.pcap": b"Frames are not kept here.\n" * 4,
        "runts.pcap": header + b"".join(record(discover[:size]) for size in range(14)),
    }


def main():
    target = pathlib.Path(sys.argv[1])
    target.mkdir(exist_ok=True)
    good = (pathlib.Path(__file__).parent / "udhcpc.pcap").read_bytes()
    for name, content in badCaptures(good).items():
        (target / name).write_bytes(content)


if __name__ == "__main__":
    main()
