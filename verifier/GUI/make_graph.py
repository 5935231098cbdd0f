#!/usr/bin/env python3
"""Draws the axes of the focus graph as a PNG: make_graph.py <output file>.

561 x 251 pixels: fifteen samples 40 pixels apart from the left edge, ten value steps of
25 pixels up from the bottom edge. Only the standard library is used.
"""

import struct
import sys
import zlib

WIDTH, HEIGHT = 561, 251
SAMPLE_SPACING, VALUE_SPACING = 40, 25
TICK = 5

WHITE = (255, 255, 255)
GRID = (225, 225, 225)
AXIS = (64, 64, 64)


def draw():
    rows = [[WHITE] * WIDTH for _ in range(HEIGHT)]
    bottom = HEIGHT - 1
    for y in range(bottom, -1, -VALUE_SPACING):
        rows[y] = [GRID] * WIDTH
    for x in range(0, WIDTH, SAMPLE_SPACING):
        for y in range(HEIGHT):
            rows[y][x] = GRID
    for x in range(0, WIDTH, SAMPLE_SPACING):
        for y in range(bottom - TICK, HEIGHT):
            rows[y][x] = AXIS
    for y in range(bottom, -1, -VALUE_SPACING):
        for x in range(TICK + 1):
            rows[y][x] = AXIS
    for y in range(HEIGHT):
        rows[y][0] = AXIS
    rows[bottom] = [AXIS] * WIDTH
    return rows


def chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))


def png(rows):
    raw = b"".join(b"\0" + bytes(value for pixel in row for value in pixel) for row in rows)
    header = struct.pack(">IIBBBBB", WIDTH, HEIGHT, 8, 2, 0, 0, 0)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9))
            + chunk(b"IEND", b""))


if __name__ == "__main__":
    with open(sys.argv[1], "wb") as output:
        output.write(png(draw()))
