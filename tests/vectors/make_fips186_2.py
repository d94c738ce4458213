#!/usr/bin/env python3
"""Writes fips186_2.txt: answers of the FIPS 186-2 generator, computed with Python's integers.

Nothing of the library is used: G is the SHA-1 compression function of FIPS 180-1 written out below, the
generator is FIPS 186-2 Appendix 3.1 with change notice 1, and Appendix 3.3 for G.
"""
import random
import struct

MASK = 0xFFFFFFFF


def rotate(word, count):
    return (word << count | word >> (32 - count)) & MASK


def g(block):
    """The compression function over 64 bytes from the standard initial state."""
    w = list(struct.unpack(">16I", block))
    for t in range(16, 80):
        w.append(rotate(w[t - 3] ^ w[t - 8] ^ w[t - 14] ^ w[t - 16], 1))
    start = (0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0)
    a, b, c, d, e = start
    for t in range(80):
        f, k = (
            ((b & c) | (~b & d), 0x5A827999),
            (b ^ c ^ d, 0x6ED9EBA1),
            ((b & c) | (b & d) | (c & d), 0x8F1BBCDC),
            (b ^ c ^ d, 0xCA62C1D6),
        )[t // 20]
        a, b, c, d, e = (rotate(a, 5) + (f & MASK) + e + k + w[t]) & MASK, a, rotate(b, 30), c, d
    return b"".join(struct.pack(">I", (x + y) & MASK) for x, y in zip(start, (a, b, c, d, e)))


class Generator:
    def __init__(self, seed, q=None):
        self.length = min(len(seed), 64) // 4 * 4
        self.xkey = int.from_bytes(seed[: self.length], "big")
        self.q = int.from_bytes(q, "big") if q else None

    def round(self, xseed):
        modulus = 1 << (8 * self.length)
        xval = (self.xkey + int.from_bytes(xseed, "big")) % modulus
        x = g(xval.to_bytes(self.length, "big").ljust(64, b"\0"))
        self.xkey = (1 + self.xkey + int.from_bytes(x, "big")) % modulus
        return x

    def block(self, xseed):
        if self.q is None:
            return self.round(xseed)
        w0, w1 = self.round(xseed), self.round(xseed)
        return (int.from_bytes(w0 + w1, "big") % self.q).to_bytes(20, "big")

    def generate(self, length, xseed):
        out = b""
        while len(out) < length:
            out += self.block(xseed)
            xseed = xseed[20:]
        return out[:length]


def write(out, seed, xseed=b"", q=b"", iterate=b"", length=100):
    generator = Generator(seed, q)
    if iterate:
        generator.block(iterate)
    answer = generator.generate(length, xseed)
    for name, value in (("Seed", seed), ("Q", q), ("Iterate", iterate), ("XSeed", xseed), ("Out", answer)):
        out.write(f"{name} = {value.hex()}\n")
    out.write("\n")


def main():
    rng = random.Random(1862)
    prime = bytes.fromhex("b5afd2f93246b1efcd1f3a7c240c1e9e21a3630b")
    steep = bytes.fromhex("ffffffff") + rng.randbytes(15) + b"\x01"
    flat = bytes.fromhex("80000000") + bytes(15) + b"\x03"
    with open("fips186_2.txt", "w", encoding="ascii") as out:
        out.write("# FIPS 186-2 Appendix 3.1 and 3.3; computed by make_fips186_2.py, except the first answer:\n")
        out.write("# FIPS 186-2 Appendix 5, the private key x of the DSA example.\n\n")
        appendix5 = bytes.fromhex("bd029bbe7f51960bcf9edb2b61f06f0feb5a38b6")
        assert Generator(appendix5).generate(20, b"").hex() == "2070b3223dba372fde1c0ffc7b2e3b498b260614"
        write(out, appendix5, length=60)
        for length in [*range(0, 65, 4), 3, 22, 70]:
            write(out, rng.randbytes(length), length=45)
        for xseed in (1, 19, 20, 21, 64, 65, 90):
            for length in (20, 44, 64):
                write(out, rng.randbytes(length), xseed=rng.randbytes(xseed))
        # Carries through the whole of XKEY.
        write(out, b"\xff" * 64, xseed=b"\xff" * 64)
        write(out, b"\xff" * 24, iterate=b"\x01")
        for q in (prime, steep, flat):
            for length in (20, 64):
                write(out, rng.randbytes(length), q=q, xseed=rng.randbytes(30), iterate=rng.randbytes(33), length=200)


main()
