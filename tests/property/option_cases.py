"""DHCP messages for the rules of types 2 to 5: where an option may stand, and what keeps a
message from being a client's."""

from frame_model import COOKIE, End, IpSpec, Option, Pads, RawSpec, UdpSpec, build, relay
from traffic import (any_packet, address, client_packet, dhcp, frame, identified_client,
                     message_type, mixed, other_packet)


def message_frame(rng, options, *, packet=None, trailer=b"", cut=False, tags=None, **fields):
    message = dhcp(rng, options, **fields)
    more = {} if tags is None else {"tags": tags}
    spec = frame(rng, client_packet(rng, message, **(packet or {})), trailer=trailer, **more)
    if cut:
        spec.cut = rng.randrange(len(build(spec).frame) + 1)
    return spec


def not_from_a_client(rng, options):
    """The same options in everything that is not a message of a client: (label, frame)."""
    message = dhcp(rng, options)
    yield "reply", frame(rng, IpSpec(address(rng), UdpSpec(67, 68, dhcp(rng, options, op=2))))
    yield "reply to the server's port", frame(
        rng, IpSpec(address(rng), UdpSpec(67, 67, dhcp(rng, options, op=2))))
    yield "request to the client's port", frame(rng, IpSpec(0, UdpSpec(67, 68, message)))
    port = 67 ^ 1 << rng.randrange(16)
    yield "one bit of the port", frame(rng, IpSpec(0, UdpSpec(68, port, message)))
    yield "one bit of the cookie", message_frame(rng, options,
                                                 cookie=COOKIE ^ 1 << rng.randrange(32))
    yield "one bit of the protocol", message_frame(
        rng, options, packet={"proto": 17 ^ 1 << rng.randrange(8)})
    yield "one bit of the operation", message_frame(rng, options, op=1 ^ 1 << rng.randrange(8))
    yield "first fragment", message_frame(rng, options, packet={"fragment": 0x2000})
    yield "one bit of the fragment offset", message_frame(
        rng, options, packet={"fragment": 1 << rng.randrange(13)})
    yield "version or header length", message_frame(
        rng, options, packet={"first_byte": rng.choice((0x65, 0x55, 0x44, 0x40)), "options": 0})
    yield "IP too short for UDP", message_frame(
        rng, options, packet={"total": rng.randrange(28), "options": 0})
    spec = message_frame(rng, options)
    spec.body.payload.length = rng.randrange(8)
    yield "UDP shorter than its header", spec
    yield "another type", frame(rng, RawSpec(0x0801, build(message_frame(
        rng, options, tags=[])).frame[14:]))


def lengths(rng, before, after):
    """Options `after` stand behind what IP or UDP says is the message: (label, frame)."""
    behind = sum(2 + len(option.data) for option in after)
    yield "behind the IP length", message_frame(rng, before + after,
                                                packet={"total_delta": -behind})
    spec = message_frame(rng, before + after)
    spec.body.payload.length_delta = -behind
    yield "behind the UDP length", spec
    trailer = b"".join(bytes((option.code, len(option.data))) + option.data for option in after)
    yield "in the padding of the frame", message_frame(rng, before, trailer=trailer)


def too_long_lengths(rng, options):
    yield "IP length too long", message_frame(rng, options,
                                              packet={"total_delta": rng.randrange(1, 1000)})
    spec = message_frame(rng, options)
    spec.body.payload.length_delta = rng.randrange(1, 1000)
    yield "UDP length too long", spec


def message_cases(rng, selection):
    """Cases for type 2, whose rule looks at option 53."""
    def taken(value):
        return value != 0 and (selection == 1 or (selection == 3 and value == 1))
    while True:
        value = rng.choice((1, 1, 3, 4, 7, 8))
        sound = mixed(rng, [message_type(rng, value)])
        yield "client", message_frame(rng, sound), taken(value)
        yield "identified client", frame(rng, identified_client(rng)), None
        near = 1 ^ 1 << rng.randrange(8)
        yield "one bit of the type", message_frame(
            rng, mixed(rng, [message_type(rng, near)])), taken(near)
        yield "plain BOOTP", message_frame(rng, mixed(rng, [])), False
        yield "type of a wrong length", message_frame(
            rng, mixed(rng, [Option(53, bytes((value,)) * rng.choice((0, 2, 3)))])), False
        yield "repeated", message_frame(rng, mixed(
            rng, [message_type(rng)], first=[Option(53, b""), message_type(rng, value)])), \
            taken(value)
        yield "behind the end", message_frame(
            rng, [End(), Pads(rng.randrange(2)), message_type(rng, value)]), False
        yield "behind an option too long", message_frame(
            rng, [Option(12, b"host", claim=200), message_type(rng, value)]), False
        if rng.random() < 0.5:
            field = rng.choice(("file", "sname"))
            mark = 1 if field == "file" else 2
            yield "overloaded " + field, message_frame(
                rng, mixed(rng, [Option(52, bytes((mark | rng.choice((0, 3)),)))]),
                **{field: [Pads(rng.randrange(9)), message_type(rng, value), End()]}), taken(value)
            yield "not overloaded " + field, message_frame(
                rng, mixed(rng, [Option(52, bytes((3 - mark,)))] * rng.randrange(2)),
                **{field: [message_type(rng, value), End()]}), False
        for label, spec in too_long_lengths(rng, [message_type(rng, value), End()]):
            yield label, spec, taken(value)
        yield "cut", message_frame(rng, sound, cut=True), None
        yield "other", frame(rng, other_packet(rng)), None
        for label, spec in lengths(rng, [Option(12, b"host")], [message_type(rng, value)]):
            yield label, spec, False
        for label, spec in not_from_a_client(rng, sound):
            yield label, spec, False


def place(rng, rule_type, data):
    """The option that the rule type looks at."""
    if rule_type == 4:
        # Pad and end are not known among sub-options.
        before = rng.choice((Option(0, b"\2\2"), Option(1, b"c1"), Option(255, b"")))
        return relay(before, Option(2, data)) if len(data) < 240 else relay(Option(2, data))
    return Option(60 if rule_type == 3 else 61, data)


def wrong_places(rng, rule_type, data):
    data = data[:200]
    everywhere = {3: Option(60, data), 4: relay(Option(2, data)), 5: Option(61, data),
                  "circuit id": relay(Option(1, data)), "sub-option 3": relay(Option(3, data)),
                  "option 2": Option(2, data), "option 77": Option(77, data),
                  "one bit of the code": Option((60, 82, 61)[rule_type - 3] ^ 128, data)}
    del everywhere[rule_type]
    return rng.choice(list(everywhere.values()))


def option_cases(rng, rule_type, pattern):
    """Cases for the types 3, 4 and 5; `pattern` is what the rule's option must begin with."""
    longest = 253 if rule_type == 4 else 255
    size = len(pattern)

    def good():
        room = longest - size
        extra = rng.randrange(min(room, 30) + 1) if rng.random() < 0.6 else 0
        return pattern + rng.randbytes(extra) or rng.randbytes(1)

    def bad():
        """Data that differ in one bit; None for the empty pattern, which all data begin with."""
        if not pattern:
            return None
        number = int.from_bytes(pattern, "big") ^ 1 << rng.randrange(8 * size)
        extra = rng.randrange(min(8, longest - size) + 1)
        return number.to_bytes(size, "big") + rng.randbytes(extra)

    def stands(data, first=()):
        return mixed(rng, [message_type(rng), place(rng, rule_type, data)], first=first)

    while True:
        yield "begins", message_frame(rng, stands(good())), True
        yield "exactly", message_frame(rng, stands(pattern or b"x")), True
        yield "in the longest option", message_frame(rng, stands(
            pattern + rng.randbytes(longest - size))), True
        yield "absent", message_frame(rng, mixed(rng, [message_type(rng)])), False
        yield "empty", message_frame(rng, stands(b"")), False
        yield "elsewhere", message_frame(rng, mixed(
            rng, [message_type(rng), wrong_places(rng, rule_type, good())])), False
        wrong = bad()
        if wrong is not None:
            # With a type byte in front a flipped bit may be made good again by chance.
            sure = None if rule_type == 5 else False
            yield "one bit", message_frame(rng, stands(wrong)), sure
            yield "a byte too short", message_frame(rng, stands(pattern[:-1])), False
            yield "repeated, the first counts", message_frame(rng, stands(
                good(), first=[place(rng, rule_type, wrong)])), sure
            yield "repeated, the first is good", message_frame(rng, stands(
                wrong, first=[place(rng, rule_type, good())])), True
            yield "shifted", message_frame(rng, stands(
                (rng.randbytes(1) + good())[:longest])), True if rule_type == 5 else None
        yield "repeated, the first is empty", message_frame(rng, stands(
            good(), first=[place(rng, rule_type, b"")])), True
        yield "behind the end", message_frame(
            rng, [message_type(rng), End(), Pads(rng.randrange(2)),
                  place(rng, rule_type, good())]), False
        yield "behind an option too long", message_frame(
            rng, [message_type(rng), Option(12, b"host", claim=255),
                  place(rng, rule_type, good()[:200])]), False
        yield "too long itself", message_frame(rng, oversize(rng, rule_type, good())), False
        if size < 50:
            field = rng.choice(("file", "sname"))
            mark = 1 if field == "file" else 2
            data = good()[:54] if rule_type == 4 else good()[:60]
            inside = [place(rng, rule_type, data), End()]
            yield "overloaded " + field, message_frame(
                rng, mixed(rng, [message_type(rng), Option(52, bytes((mark | rng.choice(
                    (0, 3)),)))]), **{field: inside}), True
            yield "overloaded again", message_frame(
                rng, mixed(rng, [message_type(rng)], first=[
                    Option(52, bytes((3 - mark,))), Option(52, b"\3")]), **{field: inside}), False
            yield "not overloaded " + field, message_frame(
                rng, mixed(rng, [message_type(rng)] + [Option(52, bytes((3 - mark,)))] *
                           rng.randrange(2)), **{field: inside}), False
        for label, spec in too_long_lengths(
                rng, [message_type(rng), place(rng, rule_type, good())]):
            yield label, spec, True
        yield "cut", message_frame(rng, stands(good()), cut=True), None
        yield "cut in the option", cut_in_option(rng, rule_type, good()), False
        yield "plain BOOTP", message_frame(rng, mixed(rng, [place(rng, rule_type, good())])), False
        yield "other client", frame(rng, identified_client(rng)), None
        yield "other", frame(rng, any_packet(rng)), None
        for label, spec in lengths(rng, [message_type(rng)], [place(rng, rule_type, good())]):
            yield label, spec, False
        for label, spec in not_from_a_client(rng, stands(good())):
            yield label, spec, False


def oversize(rng, rule_type, data):
    """The option, or its sub-option, says that it is longer than what holds it."""
    if rule_type == 4 and rng.random() < 0.5:
        data = data[:200]
        return mixed(rng, [message_type(rng),
                           relay(Option(2, data, claim=rng.randrange(len(data) + 1, 256)))])
    option = place(rng, rule_type, data[:200])
    option.claim = rng.randrange(len(option.data) + 1, 256)
    return [message_type(rng), option]


def cut_in_option(rng, rule_type, data):
    spec = message_frame(rng, [message_type(rng), place(rng, rule_type, data)])
    spec.cut = len(build(spec).frame) - rng.randrange(1, len(data) + 1)
    return spec
