#!/usr/bin/env python3
"""Draws a tint over a button: make_tint.py <output file> <red> <green> <blue> <opacity>.

8 x 8 pixels of one colour, each figure 0 to 255, to be tiled. A widget's own style sheet
wins against the form's for the colour of its ground, but not for a picture on that ground:
so a button of any colour can be shown as off (the panel's grey, mostly opaque) or as
pressed (black, mostly clear).
"""

import sys

from png import write_png

SIZE = 8

if __name__ == "__main__":
    pixel = tuple(int(argument) for argument in sys.argv[2:6])
    write_png(sys.argv[1], [[pixel] * SIZE for _ in range(SIZE)])
