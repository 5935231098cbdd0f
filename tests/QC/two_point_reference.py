#!/usr/bin/env python3
"""Works out the two-point measurement in exact fractions, rounding after each operation.

Writes one C++ initialiser per point pair: both points, the image size and the bit
patterns of the nine single-precision results. No floating-point number of the machine
takes part, so the table is the same everywhere.
"""

import math
import random
import struct
import sys
from fractions import Fraction

INFINITY = "inf"
NAN = "nan"

SINGLE_BITS = 24
DOUBLE_BITS = 53


def rounded(value, bits):
    """value to the nearest number of that many significant bits, ties to even."""
    if value == 0:
        return Fraction(0)
    exponent = 0
    magnitude = abs(value)
    while magnitude >= Fraction(2) ** (exponent + 1):
        exponent += 1
    while magnitude < Fraction(2) ** exponent:
        exponent -= 1
    unit = Fraction(2) ** (exponent - bits + 1)
    return round(value / unit) * unit  # round() of a Fraction takes ties to even


def single(value):
    return rounded(Fraction(value), SINGLE_BITS)


def times(a, b):
    if NAN in (a, b):
        return NAN
    if INFINITY in (a, b):
        return NAN if 0 in (a, b) else INFINITY
    return single(a * b)


def divided(a, b):
    """Quotient of numbers that are not negative."""
    if NAN in (a, b):
        return NAN
    if a == INFINITY:
        return NAN if b == INFINITY else INFINITY
    if b == INFINITY:
        return Fraction(0)
    if b == 0:
        return NAN if a == 0 else INFINITY
    return single(a / b)


def distance(x1, y1, x2, y2):
    """Square root, rounded to double precision from its integer part, then to single."""
    square = (x1 - x2) ** 2 + (y1 - y2) ** 2
    if square == 0:
        return Fraction(0)
    shift = 80
    root = math.isqrt(square << (2 * shift))
    if root * root != square << (2 * shift):
        root = 2 * root + 1  # marks the remainder; no tie is mistaken for one
        shift += 1
    return single(rounded(Fraction(root, 1 << shift), DOUBLE_BITS))


def digits(value, places):
    """Rounded to decimal places, halves up, as text would carry it."""
    if value in (NAN, INFINITY):
        return value
    power = 10 ** places
    return single(Fraction(math.floor(value * power + Fraction(1, 2)), power))


PITCH = single(Fraction(14, 10))
TENTH = single(Fraction(1, 10))
MILLION = single(10 ** 6)


def measure(x1, y1, x2, y2, width, height):
    length = distance(x1, y1, x2, y2)
    t = divided(times(divided(times(length, TENTH), 100), PITCH), PITCH)
    tenths = rounded(rounded(times(t, 10), DOUBLE_BITS) + Fraction(1, 2), DOUBLE_BITS)
    length_mm = divided(single(math.floor(tenths)), 10)
    pixel_size = divided(times(length_mm, 1000), length)
    exact_magnification = divided(times(length, PITCH), times(length_mm, 1000))
    magnification = digits(exact_magnification, 3)
    area = divided(times(times(width, pixel_size), times(pixel_size, height)), MILLION)
    exact_volume = times(area, TENTH)
    side_x = divided(times(width, PITCH), magnification)
    side_y = divided(times(height, PITCH), magnification)
    log_area = divided(times(side_x, side_y), MILLION)
    return (length, length_mm, pixel_size, magnification, area, digits(exact_volume, 5),
            exact_magnification, log_area, exact_volume)


def bits(value):
    number = float(value)  # exact: it is a single-precision number already
    return struct.unpack("<I", struct.pack("<f", number))[0]


def pairs():
    width, height = 2592, 1944
    for length in range(0, 120):
        yield 0, 0, length, 0, width, height
    for length in range(120, width):
        yield width - 1, 7, width - 1 - length, 7, width, height
    # Distances where a rounded digit lies exactly between two.
    for length in (375, 750):
        yield 0, 0, length, 0, width, height
    # 3150 pixels: the one length that the detour over the pixel pitch rounds to another step.
    yield 0, 0, 2520, 1890, width, height
    # Far outside: differences that do not fit into 32 bits.
    low, high = -2 ** 31, 2 ** 31 - 1
    yield low, low, high, high, width, height
    yield high, low, low, high, width, height
    generator = random.Random(5)
    for _ in range(3000):
        yield (generator.randrange(width), generator.randrange(height), generator.randrange(width),
               generator.randrange(height), width, height)
    for _ in range(500):
        yield (generator.randrange(1280), generator.randrange(960), generator.randrange(1280),
               generator.randrange(960), 1280, 960)


def main():
    with open(sys.argv[1], "w", encoding="ascii") as table:
        for pair in pairs():
            values = ", ".join("0x%08x" % bits(value) for value in measure(*pair))
            # The lowest int has no literal of its own.
            numbers = ", ".join("-2147483647 - 1" if n == -2 ** 31 else str(n) for n in pair)
            table.write("{%s, {%s}},\n" % (numbers, values))


if __name__ == "__main__":
    main()
