#!/usr/bin/env python3
"""Draws the axes of the focus graph as a PNG: make_graph.py <output file>.

561 x 251 pixels: fifteen samples 40 pixels apart from the left edge, ten value steps of
25 pixels up from the bottom edge.
"""

import sys

from png import write_png

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


if __name__ == "__main__":
    write_png(sys.argv[1], draw())
