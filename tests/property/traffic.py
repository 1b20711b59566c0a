"""Random traffic of a subscriber line: sound frames of every kind, and DHCP messages in which a
generator places the options that its rule looks at."""

from frame_model import (IP_OPTIONS, ArpSpec, DhcpSpec, End, FrameSpec, IpSpec, Option, Pads,
                         RawSpec, UdpSpec, relay)

TAG_TYPES = (0x8100, 0x88a8, 0x9100)
OTHER_TYPES = (0x86dd, 0x8863, 0x8864, 0x88cc, 0x88b5, 0x8035, 0x0801, 0x0100, 0x8101, 0x88a7)


def mac(rng):
    return rng.randbytes(6)


def control(rng, vlan=None):
    """A tag's 16 bits: random priority and drop bit, the id as wanted."""
    return rng.randrange(16) << 12 | (rng.randrange(4096) if vlan is None else vlan)


def tags(rng, count=None):
    if count is None:
        count = rng.choices((0, 1, 2, 3, 5), (40, 30, 20, 7, 3))[0]
    return [(rng.choice(TAG_TYPES), control(rng)) for _ in range(count)]


def frame(rng, body, **fields):
    fields.setdefault("tags", tags(rng))
    return FrameSpec(body, source=fields.pop("source", None) or mac(rng),
                     destination=mac(rng) if rng.random() < 0.5 else b"\xff" * 6, **fields)


def ip_options(rng):
    return rng.choices(range(len(IP_OPTIONS)), (70, 5, 5, 5, 5, 5, 5))[0]


def address(rng):
    return rng.getrandbits(32)


def other_packet(rng):
    """Anything but a sound DHCP message."""
    kind = rng.randrange(5)
    if kind == 0:
        return ArpSpec(address(rng))
    if kind == 1:
        return RawSpec(rng.choice(OTHER_TYPES), rng.randbytes(rng.randrange(80)))
    if kind == 2:
        return IpSpec(address(rng), rng.randbytes(rng.randrange(60)),
                      proto=rng.choice((1, 6, 47, 50)), options=ip_options(rng))
    if kind == 3:
        return IpSpec(address(rng), UdpSpec(rng.randrange(1024, 65536), rng.choice((53, 123, 69)),
                                            rng.randbytes(rng.randrange(60))),
                      options=ip_options(rng))
    return IpSpec(address(rng), rng.randbytes(8 + rng.randrange(60)),
                  fragment=rng.choice((0x2000, 0x2001, 185)), options=ip_options(rng))


# Other options and the lengths they have; the plain ones have any.
NOISE = {1: 4, 50: 4, 51: 4, 54: 4, 57: 2, 58: 4, 59: 4}
PLAIN_NOISE = (12, 15, 43, 55, 56, 77, 124, 125, 224, 254)


def noise(rng):
    codes = rng.sample(list(NOISE) + list(PLAIN_NOISE), rng.randrange(5))
    return [Option(code, rng.randbytes(NOISE.get(code) or rng.randrange(20))) for code in codes]


def sprinkle_pads(rng, items):
    out = []
    for item in items:
        if rng.random() < 0.15:
            out.append(Pads(rng.randrange(1, 6)))
        out.append(item)
    return out


def mixed(rng, options, first=()):
    """The options among others in any order, `first` ahead of all, with pads and an end."""
    items = list(options) + noise(rng)
    rng.shuffle(items)
    items = sprinkle_pads(rng, list(first) + items)
    if rng.random() < 0.9:
        items.append(End())
        if rng.random() < 0.3:
            items.append(Pads(rng.randrange(1, 60)))
    return items


def message_type(rng, value=None):
    return Option(53, bytes((rng.choice((1, 1, 3, 4, 7, 8)) if value is None else value,)))


def dhcp(rng, options, **fields):
    return DhcpSpec(xid=rng.getrandbits(32), chaddr=mac(rng), options=options, **fields)


def client_packet(rng, message, **fields):
    fields.setdefault("options", ip_options(rng))
    fields.setdefault("fragment", rng.choice((0, 0x4000)))
    return IpSpec(rng.choice((0, address(rng))),
                  UdpSpec(rng.choice((68, 68, 68, 67, 49152)), 67, message), **fields)


def identified_client(rng):
    """A sound client message with identifiers nobody asks for."""
    options = [message_type(rng)]
    for option in (Option(60, rng.randbytes(rng.randrange(1, 30))),
                   Option(61, rng.randbytes(rng.randrange(1, 30))),
                   relay(Option(1, b"port"), Option(2, rng.randbytes(rng.randrange(1, 30))))):
        if rng.random() < 0.6:
            options.append(option)
    return client_packet(rng, dhcp(rng, mixed(rng, options)))


def any_packet(rng):
    return identified_client(rng) if rng.random() < 0.4 else other_packet(rng)
