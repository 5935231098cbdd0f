"""PNG files with nothing but the standard library."""

import struct
import zlib

TRUE_COLOUR, TRUE_COLOUR_ALPHA = 2, 6


def chunk(kind, data):
    body = kind + data
    return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))


def write_png(path, rows):
    """Writes rows of pixels, each (red, green, blue) or (red, green, blue, alpha), 0 to 255."""
    colours = TRUE_COLOUR_ALPHA if len(rows[0][0]) == 4 else TRUE_COLOUR
    raw = b"".join(b"\0" + bytes(value for pixel in row for value in pixel) for row in rows)
    header = struct.pack(">IIBBBBB", len(rows[0]), len(rows), 8, colours, 0, 0, 0)
    with open(path, "wb") as output:
        output.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9))
                     + chunk(b"IEND", b""))
