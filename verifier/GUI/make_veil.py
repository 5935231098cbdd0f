#!/usr/bin/env python3
"""Draws the veil over a disabled button whose own colour is fixed: make_veil.py <output file>.

8 x 8 pixels of the panel's grey, mostly opaque, to be tiled. A widget's own style sheet
wins against the form's for the colour of its ground, but not for a picture on that ground.
"""

import sys

from png import write_png

SIZE = 8
PANEL_GREY = (232, 236, 239)
OPACITY = 190

if __name__ == "__main__":
    write_png(sys.argv[1], [[PANEL_GREY + (OPACITY,)] * SIZE for _ in range(SIZE)])
