"""Writes frames for one rule type, each with the verdict that a rule must give.

    generate_frames.py TYPE FILE

The same type gives the same file at every run. File: for every rule b"C" and the 400 bytes of
its condition, then for every frame b"F", verdict, frame length (16 bits), label length, label,
frame; at the end b"E" and the number of frames (32 bits). Numbers are little-endian.
"""

import random
import struct
import sys

try:
    import scapy  # noqa: F401 - said here rather than in a trace from somewhere deep
except ModuleNotFoundError:
    sys.exit("The package python3-scapy is missing; script/bootstrap installs it.")

import conditions
import option_cases
from frame_model import ArpSpec, FrameSpec, IpSpec, RawSpec, build, check_with_scapy, is_sound
from traffic import any_packet, address, control, frame, tags

RULES = 60
FRAMES_PER_RULE = 200
SCAPY_SAMPLE = 20  # every so many sound frames one is taken apart by scapy


# Each generator yields (condition, verdict from facts, cases); a case is (label, frame, verdict
# that the label promises, or None when only the facts know).


def flip(value, bit):
    return value ^ 1 << bit


def flip_bytes(data, bit):
    return flip(int.from_bytes(data, "big"), bit).to_bytes(len(data), "big")


def cut_somewhere(rng, spec):
    spec.cut = rng.randrange(len(build(spec).frame) + 1)
    return spec


def any_frame_rules(rng):
    def cases():
        while True:
            yield "any", frame(rng, any_packet(rng)), True
            yield "cut", cut_somewhere(rng, frame(rng, any_packet(rng))), None
            yield "no header", frame(rng, any_packet(rng), cut=rng.randrange(14)), False
            yield "header only", frame(rng, any_packet(rng), cut=14), True
    for _ in range(RULES):
        yield conditions.any_frame(), lambda facts: True, cases()


def body_of_type(rng, value):
    if value == 0x0800:
        return IpSpec(address(rng), rng.randbytes(rng.randrange(60)), proto=6)
    if value == 0x0806:
        return ArpSpec(address(rng))
    return RawSpec(value, rng.randbytes(rng.randrange(60)))


def ether_type_rules(rng):
    def cases(value):
        while True:
            yield "type", frame(rng, body_of_type(rng, value)), True
            yield "behind two tags", frame(rng, body_of_type(rng, value), tags=tags(rng, 2)), True
            other = flip(value, rng.randrange(16))
            if other not in (0x8100, 0x88a8, 0x9100):
                yield "one bit", frame(rng, body_of_type(rng, other)), False
            yield "in the payload only", frame(rng, RawSpec(flip(value, 0),
                                                            struct.pack(">H", value) * 9)), False
            yield "other", frame(rng, any_packet(rng)), None
            yield "cut", cut_somewhere(rng, frame(rng, body_of_type(rng, value))), None
            spec = frame(rng, body_of_type(rng, value), tags=tags(rng, rng.randrange(1, 5)))
            spec.cut = 12 + 4 * len(spec.tags) + rng.randrange(2)
            yield "cut before the type", spec, False
    values = [0x0800, 0x0806, 0x86dd, 0x8863, 0x8864, 0x88b5]
    for i in range(RULES):
        value = values[i] if i < len(values) else 0x0600 + 2 * rng.randrange(0x3c00)
        yield conditions.ether_type(value), (
            lambda facts, value=value: facts.ether_type == value), cases(value)
    # A tag's type is never the frame's type, and type 0 is that of a frame that has none.
    for value in (0, 0x8100, 0x88a8, 0x9100):
        def never():
            while True:
                yield "tagged", frame(rng, any_packet(rng), tags=tags(rng, 1)), False
                yield "cut in the tag", frame(rng, any_packet(rng), tags=tags(rng, 1),
                                              cut=rng.randrange(14, 18)), False
                yield "type 0", frame(rng, RawSpec(0, rng.randbytes(20))), False
        yield conditions.ether_type(value), lambda facts: False, never()


def dhcp_rules(rng):
    for i in range(RULES):
        selection = (1, 3, 1, 3, 1, 3, 1, 3, 1, 3, 0, 2, 4, 255)[i % 14]

        def verdict(facts, selection=selection):
            message = facts.dhcp
            if message is None or not message.client or message.message_type == 0:
                return False
            return selection == 1 or (selection == 3 and message.message_type == 1)
        yield conditions.dhcp_message(selection), verdict, option_cases.message_cases(
            rng, selection)


def option_rules(rule_type):
    def rules(rng):
        for i in range(RULES):
            length = (0, 1, 6, 253, 250)[i] if i < 5 else rng.randrange(1, 40)
            pattern = rng.randbytes(length)

            def verdict(facts, pattern=pattern):
                message = facts.dhcp
                if message is None or not message.client or message.message_type == 0:
                    return False
                data = {3: message.vendor, 4: message.remote, 5: message.client_id}[rule_type]
                if data and data.startswith(pattern):
                    return True
                return rule_type == 5 and len(data) > 1 and data[1:].startswith(pattern)
            yield conditions.option(rule_type, pattern), verdict, option_cases.option_cases(
                rng, rule_type, pattern)
    return rules


def random_mask(rng, bits):
    """Whole, a prefix, or a sprinkling; at least one bit."""
    kind = rng.randrange(3)
    if kind == 0:
        return (1 << bits) - 1
    if kind == 1:
        length = rng.randrange(1, bits + 1)
        return (1 << length) - 1 << bits - length
    return rng.getrandbits(bits) | 1 << rng.randrange(bits)


def random_bit(rng, mask, bits, inside):
    """The number of a bit inside or outside the mask; None when there is none."""
    numbers = [bit for bit in range(bits) if bool(mask >> bit & 1) == inside]
    return rng.choice(numbers) if numbers else None


def fill(rng, wanted, mask, bits):
    """A value that agrees with the wanted one under the mask and is random elsewhere."""
    return wanted & mask | rng.getrandbits(bits) & ~mask


def source_mac_rules(rng):
    def cases(wanted, mask):
        while True:
            good = fill(rng, wanted, mask, 48)
            yield "under the mask", frame(rng, any_packet(rng),
                                          source=good.to_bytes(6, "big")), True
            bad = flip(good, random_bit(rng, mask, 48, True))
            yield "one bit inside", frame(rng, any_packet(rng),
                                          source=bad.to_bytes(6, "big")), False
            outside = random_bit(rng, mask, 48, False)
            if outside is not None:
                yield "one bit outside", frame(rng, any_packet(rng), source=flip(
                    good, outside).to_bytes(6, "big")), True
            spec = frame(rng, any_packet(rng), source=bad.to_bytes(6, "big"))
            spec.destination = good.to_bytes(6, "big")
            yield "destination", spec, False
            yield "cut", cut_somewhere(rng, frame(rng, any_packet(rng),
                                                  source=good.to_bytes(6, "big"))), None
            yield "other", frame(rng, any_packet(rng)), None
    for _ in range(RULES):
        wanted, mask = rng.getrandbits(48), random_mask(rng, 48)
        yield conditions.source_mac(wanted.to_bytes(6, "big"), mask.to_bytes(6, "big")), (
            lambda facts, wanted=wanted, mask=mask:
            int.from_bytes(facts.source, "big") & mask == wanted & mask), cases(wanted, mask)


def source_ip_rules(rng):
    def with_source(value):
        packet = any_packet(rng)
        if isinstance(packet, RawSpec):
            return ArpSpec(value)
        if isinstance(packet, ArpSpec):
            packet.sender = value
        else:
            packet.source = value
        return packet

    def damaged(value):
        kind = rng.randrange(3)
        if kind == 0:
            return ArpSpec(value, damage=rng.randrange(6))
        packet = IpSpec(value, rng.randbytes(40), proto=6)
        if kind == 1:
            packet.first_byte = rng.choice((0x65, 0x05, 0x40, 0x44, 0xf5))
        else:
            packet.total = rng.randrange(20)
        return packet

    def cases(wanted, mask):
        while True:
            good = fill(rng, wanted, mask, 32)
            yield "under the mask", frame(rng, with_source(good)), True
            yield "arp", frame(rng, ArpSpec(good)), True
            bad = flip(good, random_bit(rng, mask, 32, True))
            yield "one bit inside", frame(rng, with_source(bad)), False
            outside = random_bit(rng, mask, 32, False)
            if outside is not None:
                yield "one bit outside", frame(rng, with_source(flip(good, outside))), True
            yield "fragment", frame(rng, IpSpec(good, rng.randbytes(24), fragment=rng.randrange(
                1, 0x4000))), True
            yield "cut", cut_somewhere(rng, frame(rng, with_source(good))), None
            yield "damaged", frame(rng, damaged(good)), False
            yield "no address", frame(rng, RawSpec(0x86dd, struct.pack(">I", good) * 10)), False
            yield "other", frame(rng, any_packet(rng)), None
    for _ in range(RULES):
        wanted, mask = address(rng), random_mask(rng, 32)
        yield conditions.source_ip(wanted, mask), (
            lambda facts, wanted=wanted, mask=mask:
            facts.ip is not None and facts.ip & mask == wanted & mask), cases(wanted, mask)


def outer_vlan_rules(rng):
    def tagged(ids):
        chosen = tags(rng, len(ids))
        return [(kind, control(rng, vlan)) for (kind, _), vlan in zip(chosen, ids)]

    def cases(value):
        while True:
            near = flip(value, rng.randrange(12))
            yield "only tag", frame(rng, any_packet(rng), tags=tagged([value])), True
            yield "outer of two", frame(rng, any_packet(rng), tags=tagged([value, near])), True
            yield "inner of two", frame(rng, any_packet(rng), tags=tagged([near, value])), False
            yield "one bit", frame(rng, any_packet(rng), tags=tagged([near])), False
            yield "untagged", frame(rng, any_packet(rng), tags=[]), False
            spec = frame(rng, any_packet(rng), tags=tagged([value, near, near][:rng.randrange(
                1, 4)]))
            spec.cut = rng.randrange(12, 20)
            yield "cut near the tag", spec, None
            yield "other", frame(rng, any_packet(rng)), None
    for i in range(RULES):
        value = (0, 1, 4094, 4095)[i] if i < 4 else rng.randrange(4096)
        yield conditions.outer_vlan(value), (
            lambda facts, value=value: facts.vlan == value), cases(value)


def user_pattern_rules(rng):
    bits = 128 * 8

    def view(data):
        return int.from_bytes(data[:128].ljust(128, b"\0"), "big")

    def present(data):
        size = min(len(data), 128) * 8
        return (1 << size) - 1 << bits - size

    def with_view(value, size):
        """A frame whose first bytes are exactly these."""
        data = value.to_bytes(128, "big")
        spec = FrameSpec(RawSpec(int.from_bytes(data[12:14], "big"), data[14:] + rng.randbytes(40)),
                         destination=data[0:6], source=data[6:12])
        spec.cut = size
        return spec

    def sparse_mask():
        kind = rng.randrange(4)
        if kind == 0:
            return (1 << bits) - 1
        mask = 0
        for _ in range(rng.randrange(1, 9)):
            if kind == 1:
                mask |= 1 << rng.randrange(bits)
            else:
                mask |= 0xff << 8 * rng.randrange(48 if kind == 2 else 0, 128)
        return mask

    def cases(wanted, mask):
        while True:
            good = fill(rng, wanted, mask, bits)
            whole = rng.randrange(128, 168)
            yield "under the mask", with_view(good, whole), True
            inside = flip(good, random_bit(rng, mask, bits, True))
            yield "one bit inside", with_view(inside, whole), False
            outside = random_bit(rng, mask, bits, False)
            if outside is not None:
                yield "one bit outside", with_view(flip(good, outside), whole), True
            # The last masked byte decides how short a frame may be.
            lowest = (mask & -mask).bit_length() - 1
            need = 128 - lowest // 8
            yield "just long enough", with_view(good, max(need, 14)), True
            yield "a byte too short", with_view(good, need - 1), False
            yield "cut", with_view(good, rng.randrange(129)), None
            yield "other", frame(rng, any_packet(rng)), None
    for i in range(RULES):
        # Half of the patterns are taken from real traffic, tags in line.
        mask = sparse_mask()
        sample = build(frame(rng, any_packet(rng))).frame if i % 2 else rng.randbytes(128)
        wanted = view(sample)
        yield conditions.user_pattern(wanted.to_bytes(128, "big"), mask.to_bytes(128, "big")), (
            lambda facts, wanted=wanted, mask=mask:
            mask & ~present(facts.frame) == 0
            and (view(facts.frame) ^ wanted) & mask == 0), cases(wanted, mask)


GENERATORS = (any_frame_rules, ether_type_rules, dhcp_rules, option_rules(3), option_rules(4),
              option_rules(5), source_mac_rules, source_ip_rules, outer_vlan_rules,
              user_pattern_rules)


def main(rule_type, path):
    rng = random.Random(0x7a1 + rule_type)
    out = bytearray()
    frames = sound = 0
    for condition, verdict, cases in GENERATORS[rule_type](rng):
        out += b"C" + condition
        for _ in range(FRAMES_PER_RULE):
            label, spec, promised = next(cases)
            facts = build(spec)
            expected = bool(facts.whole and verdict(facts))
            assert promised is None or promised == expected, (rule_type, label, spec, facts)
            if is_sound(spec):
                sound += 1
                if sound % SCAPY_SAMPLE == 0:
                    check_with_scapy(spec, facts)
            text = label.encode()
            out += b"F" + struct.pack("<BHB", expected, len(facts.frame), len(text))
            out += text + facts.frame
            frames += 1
    out += b"E" + struct.pack("<I", frames)
    with open(path, "wb") as file:
        file.write(out)
    print(f"{frames} frames for type {rule_type}, {sound // SCAPY_SAMPLE} taken apart by scapy")


if __name__ == "__main__":
    main(int(sys.argv[1]), sys.argv[2])
