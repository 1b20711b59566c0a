"""The engine's condition record, laid out by hand: 400 bytes, native numbers."""

import struct


def record(rule_type, code, fields=b"", at=136):
    out = bytearray(400)
    out[0:1] = b"0"
    struct.pack_into("=II", out, 128, rule_type, code)
    out[at:at + len(fields)] = fields
    return bytes(out)


def any_frame():
    return record(0, 0)


def ether_type(value):
    return record(1, 5, struct.pack("=H", value))


def dhcp_message(selection):
    return record(2, 29, bytes((selection,)), at=396)


SUB_CODES = {3: 1, 4: 2, 5: 4}


def option(rule_type, pattern):
    assert len(pattern) <= 255
    fields = struct.pack("=I", SUB_CODES[rule_type]) + pattern.ljust(255, b"\0")
    return record(rule_type, 29, fields + bytes((len(pattern),)))


def source_mac(wanted, mask):
    return record(6, 3, wanted + mask)


def source_ip(wanted, mask):
    return record(7, 11, struct.pack("=II", wanted, mask))


def outer_vlan(value):
    return record(8, 6, struct.pack("=H", value))


def user_pattern(wanted, mask):
    """Both as 128 bytes in the frame's order; a word holds four of them, the first highest."""
    words = struct.unpack(">32I", wanted) + struct.unpack(">32I", mask)
    return record(9, 34, struct.pack("=64I", *words))
