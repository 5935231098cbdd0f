"""Pictures of the machine's screen, and where on it the form's widgets are."""

import xml.etree.ElementTree as xml
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
    """Pixels of 24 bits, the rows one after the other, of a file that the imaging library reads."""

    def __init__(self, file):
        # Not above: what only reads the documents goes without the library.
        from PIL import Image

        self.image = Image.open(file).convert("RGB")
        self.width, self.height = self.image.size
        self.data = self.image.tobytes()

    def save(self, path):
        self.image.save(path)

    def at(self, x, y):
        return self.image.getpixel((x, y))

    def is_like(self, x, y, colour, tolerance=40):
        return all(abs(a - b) <= tolerance for a, b in zip(self.at(x, y), colour))

    def part(self, x, y, width, height):
        """The bytes of a rectangle."""
        return self.image.crop((x, y, x + width, y + height)).tobytes()

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
