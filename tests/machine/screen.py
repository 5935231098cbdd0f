"""Pictures of the machine's screen, and where on it the form's widgets are."""

import struct
import xml.etree.ElementTree as xml
import zlib
from pathlib import Path

FORM = Path(__file__).resolve().parents[2] / "verifier" / "ORLA_II_Plus_Verifier.ui"

# The pages begin below the tabs; a page's widgets are placed within it.
PAGE_TOP = 31
TABS = {"TAB_STAGE": (667, 15), "TAB_CAMERA": (729, 15), "TAB_QC": (781, 15)}

LIVE_VIEW = (0, 0, 640, 480)
BOX_FRAME = (0x00, 0x57, 0x7F)  # the frame around a message box
BOX_FRAME_WIDTH = 3
BOX_LEAST_WIDTH, BOX_LEAST_HEIGHT = 120, 60
BOX_GRIP = 16


class Picture:
    """Pixels of 24 bits, the rows one after the other."""

    def __init__(self, width, height, data):
        self.width = width
        self.height = height
        self.data = data

    @classmethod
    def read_ppm(cls, path):
        with open(path, "rb") as file:
            content = file.read()
        fields = content.split(None, 4)
        if fields[0] != b"P6" or fields[3] != b"255":
            raise ValueError("no picture of the expected kind")
        width, height = int(fields[1]), int(fields[2])
        return cls(width, height, content[-width * height * 3 :])

    @classmethod
    def read_png(cls, content):
        """A PNG file of 8 bits a channel, with or without an alpha channel, not interlaced."""
        if content[:8] != b"\x89PNG\r\n\x1a\n":
            raise ValueError("no PNG file")
        packed, place = b"", 8
        width = height = channels = 0
        while place < len(content):
            length, kind = struct.unpack(">I4s", content[place : place + 8])
            body = content[place + 8 : place + 8 + length]
            if kind == b"IHDR":
                width, height, depth, colour, _, _, interlaced = struct.unpack(">IIBBBBB", body)
                if depth != 8 or colour not in (2, 6) or interlaced:
                    raise ValueError("a kind of PNG that is not read here")
                channels = 3 if colour == 2 else 4
            elif kind == b"IDAT":
                packed += body
            place += length + 12
        raw, size = zlib.decompress(packed), width * channels
        above, out = bytearray(size), bytearray()
        for y in range(height):
            start = y * (size + 1)
            row = bytearray(raw[start + 1 : start + 1 + size])
            _unfilter(raw[start], row, above, channels)
            for x in range(0, size, channels):
                out += row[x : x + 3]
            above = row
        return cls(width, height, bytes(out))

    def png(self):
        def chunk(kind, body):
            return struct.pack(">I", len(body)) + kind + body + struct.pack(">I", zlib.crc32(kind + body))

        size = self.width * 3
        rows = b"".join(b"\0" + self.data[y * size : (y + 1) * size] for y in range(self.height))
        header = struct.pack(">IIBBBBB", self.width, self.height, 8, 2, 0, 0, 0)
        return (
            b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 6)) + chunk(b"IEND", b"")
        )

    def at(self, x, y):
        place = (y * self.width + x) * 3
        return tuple(self.data[place : place + 3])

    def is_like(self, x, y, colour, tolerance=40):
        return all(abs(a - b) <= tolerance for a, b in zip(self.at(x, y), colour))

    def part(self, x, y, width, height):
        """The bytes of a rectangle."""
        size = self.width * 3
        return b"".join(self.data[row * size + x * 3 : row * size + (x + width) * 3] for row in range(y, y + height))

    def box(self):
        """(left, top, width, height) of the message box or dialog on the screen, by its frame;
        None when there is none."""
        edge = bytes(BOX_FRAME) * BOX_LEAST_WIDTH
        place = self.data.find(edge)
        while place >= 0:
            y, x = divmod(place // 3, self.width)
            # A tab beside the frame has a line of the same colour, but a thin one. The grip of
            # a dialog lies over the frame's corner.
            width = min(self._run(x, row, 1, 0) for row in range(y, y + BOX_FRAME_WIDTH))
            height = self._run(x, y, 0, 1)
            upright = height >= BOX_LEAST_HEIGHT and self._run(x + width - 1, y, 0, 1) >= height - BOX_GRIP
            if place % 3 == 0 and width >= BOX_LEAST_WIDTH and upright:
                return (x, y, width, height)
            place = self.data.find(edge, place + 1)
        return None

    def box_buttons(self, box):
        """The middles of the buttons at a message box's lower edge, from the left: between two
        upright lines each."""
        left, top, width, height = box
        bottom = top + height
        ground = self.at(left + 6, bottom - 6)
        rows = range(bottom - 40, bottom - 18)
        lines = [x for x in range(left + 5, left + width - 5) if all(self.at(x, y) != ground for y in rows)]
        edges = [x for x in lines if x - 1 not in lines]
        return [((a + b) // 2, bottom - 30) for a, b in zip(edges[::2], edges[1::2])]

    def _run(self, x, y, dx, dy):
        """How far the frame's colour goes on from a pixel."""
        length = 0
        while x < self.width and y < self.height and self.at(x, y) == BOX_FRAME:
            x, y, length = x + dx, y + dy, length + 1
        return length


def _unfilter(kind, row, above, step):
    if kind == 0:
        return
    for x, value in enumerate(row):
        left = row[x - step] if x >= step else 0
        up = above[x]
        corner = above[x - step] if x >= step else 0
        if kind == 1:
            guess = left
        elif kind == 2:
            guess = up
        elif kind == 3:
            guess = (left + up) // 2
        else:
            distances = (abs(up - corner), abs(left - corner), abs(left + up - 2 * corner))
            guess = (left, up, corner)[distances.index(min(distances))]
        row[x] = (value + guess) & 255


class Form:
    """The places of the widgets, as the form file has them."""

    def __init__(self, path=FORM):
        self.rectangles = {}
        self.page_of = {}
        self._read(xml.parse(path).getroot().find("widget"), 0, 0, None)

    def _read(self, widget, x, y, page):
        name = widget.get("name")
        rectangle = widget.find("property[@name='geometry']/rect")
        if rectangle is not None:
            left, top, width, height = (int(rectangle.find(key).text) for key in ("x", "y", "width", "height"))
            x, y = x + left, y + top
            self.rectangles[name] = (x, y, width, height)
            self.page_of[name] = page
        elif name in TABS:
            page, y = name, y + PAGE_TOP
        for child in widget.findall("widget"):
            self._read(child, x, y, page)

    def middle(self, name):
        x, y, width, height = self.rectangles[name]
        return (x + width // 2, y + height // 2)
