#!/usr/bin/env python3
"""Compares the authenticators of radius_vectors with hashlib and hmac, on random packets."""
import hashlib
import hmac
import random
import struct
import subprocess
import sys

ROUNDS = 300
ZERO = bytes(16)
ACCESS_REQUEST, STATUS_SERVER = 1, 12
REQUESTS = [ACCESS_REQUEST, STATUS_SERVER, 4, 40, 43]
ANSWERS = [2, 3, 5, 11, 41, 42, 44, 45]


def md5(data):
    return hashlib.md5(data).digest()


def packet(code, packet_id, authenticator, attributes):
    return struct.pack(">BBH", code, packet_id, 20 + len(attributes)) + authenticator + attributes


def message_authenticator(secret, code, packet_id, authenticator, attributes):
    """For attributes that start with an empty one."""
    whole = packet(code, packet_id, authenticator, attributes)
    return attributes[:2] + hmac.new(secret, whole, "md5").digest() + attributes[18:]


def request(secret, code, packet_id, authenticator, attributes):
    attributes = b"\x50\x12" + ZERO + attributes
    if code in (ACCESS_REQUEST, STATUS_SERVER):
        attributes = message_authenticator(secret, code, packet_id, authenticator, attributes)
        return packet(code, packet_id, authenticator, attributes)
    attributes = message_authenticator(secret, code, packet_id, ZERO, attributes)
    own = md5(packet(code, packet_id, ZERO, attributes) + secret)
    return packet(code, packet_id, own, attributes)


def answer(secret, code, packet_id, authenticator, attributes):
    attributes = b"\x50\x12" + ZERO + attributes
    attributes = message_authenticator(secret, code, packet_id, authenticator, attributes)
    own = md5(packet(code, packet_id, authenticator, attributes) + secret)
    return packet(code, packet_id, own, attributes)


def hidden(secret, password, authenticator):
    password += bytes(-len(password) % 16 or (0 if password else 16))
    result, previous = b"", authenticator
    for at in range(0, len(password), 16):
        mask = md5(secret + previous)
        previous = bytes(a ^ b for a, b in zip(password[at:at + 16], mask))
        result += previous
    return result


def random_attributes(dice):
    attributes = b""
    for _ in range(dice.randrange(12)):
        value = dice.randbytes(dice.randrange(254))
        kind = dice.choice([1, 8, 25, 26, 31, 87, 255])
        attributes += bytes([kind, len(value) + 2]) + value
    return attributes


def hex_of(data):
    return data.hex() or "-"


class Program:
    def __init__(self, path):
        self.process = subprocess.Popen([path], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True)

    def ask(self, *words):
        text = " ".join(w if isinstance(w, str) else hex_of(w) for w in words)
        self.process.stdin.write(text + "\n")
        self.process.stdin.flush()
        return self.process.stdout.readline().strip()


def check(what, expected, observed):
    if expected != observed:
        sys.exit(f"{what}: expected {expected}, observed {observed}")


def main():
    dice = random.Random(20240601)
    program = Program(sys.argv[1])
    for _ in range(ROUNDS):
        secret = dice.randbytes(dice.randrange(1, 100))
        authenticator = dice.randbytes(16)
        packet_id = dice.randrange(256)
        attributes = random_attributes(dice)
        code = dice.choice(REQUESTS)
        made = request(secret, code, packet_id, authenticator, attributes)
        check("request", made.hex(), program.ask("request", bytes([code]), bytes([packet_id]),
                                                 authenticator, secret, attributes))
        check("prove request", "good", program.ask("prove-request", made, secret))

        code = dice.choice(ANSWERS)
        made = answer(secret, code, packet_id, authenticator, attributes)
        check("answer", made.hex(), program.ask("answer", bytes([code]), bytes([packet_id]),
                                                authenticator, secret, attributes))
        check("prove answer", "good", program.ask("prove-answer", made, authenticator, secret))
        check("other request", "authenticator",
              program.ask("prove-answer", made, dice.randbytes(16), secret))
        check("other secret", "authenticator",
              program.ask("prove-answer", made, authenticator, secret + b"x"))
        bare = packet(code, packet_id, authenticator, attributes)
        bare = bare[:4] + md5(bare + secret) + bare[20:]
        check("bare answer", "missing", program.ask("prove-answer", bare, authenticator, secret))

        password = dice.randbytes(dice.randrange(129))
        check("password", hidden(secret, password, authenticator).hex(),
              program.ask("hide", password, authenticator, secret))
    program.process.stdin.close()
    check("exit code", 0, program.process.wait(timeout=10))
    print(f"{ROUNDS} rounds agree")


if __name__ == "__main__":
    main()
