"""Makes a screen picture small by reducing its colours. Needs nothing beyond Python itself."""

import struct
import zlib
from collections import Counter

SIGNATURE = b"\x89PNG\r\n\x1a\n"
CHANNELS = {2: 3, 6: 4}


def chunks(data):
    place = len(SIGNATURE)
    while place < len(data):
        (length,) = struct.unpack_from(">I", data, place)
        yield data[place + 4 : place + 8], data[place + 8 : place + 8 + length]
        place += length + 12


def paeth(left, up, corner):
    estimate = left + up - corner
    distances = (abs(estimate - left), abs(estimate - up), abs(estimate - corner))
    return (left, up, corner)[distances.index(min(distances))]


def unfiltered(kind, row, above, step):
    """One row of bytes as it was before the PNG filter; above: the row over it."""
    if kind == 0:
        return row
    if kind == 2:
        return bytearray((byte + up) & 0xFF for byte, up in zip(row, above))
    for i, byte in enumerate(row):
        left = row[i - step] if i >= step else 0
        if kind == 1:
            row[i] = (byte + left) & 0xFF
        elif kind == 3:
            row[i] = (byte + (left + above[i]) // 2) & 0xFF
        else:
            row[i] = (byte + paeth(left, above[i], above[i - step] if i >= step else 0)) & 0xFF
    return row


def read_png(path):
    """Rows of (red, green, blue) tuples."""
    with open(path, "rb") as file:
        data = file.read()
    header, packed = None, b""
    for name, content in chunks(data):
        if name == b"IHDR":
            header = struct.unpack(">IIBBBBB", content)
        elif name == b"IDAT":
            packed += content
    width, height, depth, colour, _, _, interlace = header
    if depth != 8 or colour not in CHANNELS or interlace:
        raise ValueError(f"{path}: only 8-bit RGB and RGBA pictures are understood")
    step = CHANNELS[colour]
    size = width * step
    raw = zlib.decompress(packed)
    above, rows = bytearray(size), []
    for y in range(height):
        start = y * (size + 1)
        above = unfiltered(raw[start], bytearray(raw[start + 1 : start + 1 + size]), above, step)
        rows.append(list(zip(above[0::step], above[1::step], above[2::step])))
    return rows


def palette_of(counts, size):
    """Median cut: boxes of colours are halved, the one with the widest spread first."""
    boxes = [list(counts.items())]

    def spread(box):
        ranges = [max(c[i] for c, _ in box) - min(c[i] for c, _ in box) for i in range(3)]
        return max(ranges), ranges.index(max(ranges))

    spreads = [spread(boxes[0])]
    while len(boxes) < size:
        index = max(range(len(boxes)), key=lambda i: spreads[i][0])
        width, channel = spreads[index]
        if width == 0:
            break
        box = sorted(boxes[index], key=lambda item: item[0][channel])
        middle = (box[0][0][channel] + box[-1][0][channel]) // 2
        cut = next(i for i, item in enumerate(box) if item[0][channel] > middle)
        boxes[index : index + 1] = [box[:cut], box[cut:]]
        spreads[index : index + 1] = [spread(box[:cut]), spread(box[cut:])]

    colours, place = [], {}
    for box in boxes:
        total = sum(count for _, count in box)
        colours.append(tuple(round(sum(c[i] * n for c, n in box) / total) for i in range(3)))
        place.update((colour, len(colours) - 1) for colour, _ in box)
    return colours, place


def write_png(path, rows, colours, place):
    def chunk(name, content):
        return struct.pack(">I", len(content)) + name + content + struct.pack(">I", zlib.crc32(name + content))

    bits = next(b for b in (1, 2, 4, 8) if len(colours) <= 1 << b)
    raw = bytearray()
    for row in rows:
        raw.append(0)
        indices = [place[pixel] for pixel in row]
        for i in range(0, len(indices), 8 // bits):
            byte = 0
            for k in range(8 // bits):
                byte = byte << bits | (indices[i + k] if i + k < len(indices) else 0)
            raw.append(byte)
    header = struct.pack(">IIBBBBB", len(rows[0]), len(rows), bits, 3, 0, 0, 0)
    with open(path, "wb") as file:
        file.write(SIGNATURE + chunk(b"IHDR", header) + chunk(b"PLTE", b"".join(map(bytes, colours))))
        file.write(chunk(b"IDAT", zlib.compress(bytes(raw), 9)) + chunk(b"IEND", b""))


def shrink(source, target, colours):
    """Writes the picture of one PNG file to another, with a palette of so many colours.

    source: 8 bits a channel, RGB or RGBA, not interlaced, as Qt writes it.
    """
    rows = read_png(source)
    palette, place = palette_of(Counter(pixel for row in rows for pixel in row), colours)
    write_png(target, rows, palette, place)
