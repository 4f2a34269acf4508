#!/usr/bin/env python3
"""Draws the icon of the programs: a weather vane over the lines of a log.

usage: packaging/resources/draw-icon.py FILE.ico

Writes FILE.ico with the sizes 16, 32, 48 and 256.
"""

import struct
import sys
import zlib

SIZES = (16, 32, 48, 256)
SAMPLES = 4  # in each direction of a pixel

BOARD = (24, 54, 84)
LINE = (120, 168, 204)
NEWEST = (250, 250, 250)
VANE = (244, 160, 40)

# Shapes in a square from 0 to 1, y downwards. The last one that covers a point colours it.
ROUND = 0.16
LINES = ((0.16, 0.60, 0.84, LINE), (0.16, 0.72, 0.66, LINE), (0.16, 0.84, 0.76, NEWEST))
THICKNESS = 0.06
ARROW = ((0.86, 0.24), (0.66, 0.12), (0.66, 0.20), (0.30, 0.20), (0.18, 0.12), (0.18, 0.36), (0.30, 0.28), (0.66, 0.28),
         (0.66, 0.36))
POLE = (0.465, 0.24, 0.535, 0.50)


def in_board(x, y):
    nearest_x = min(max(x, ROUND), 1 - ROUND)
    nearest_y = min(max(y, ROUND), 1 - ROUND)
    return (x - nearest_x) ** 2 + (y - nearest_y) ** 2 <= ROUND**2


def in_polygon(points, x, y):
    inside = False
    for (x1, y1), (x2, y2) in zip(points, points[1:] + points[:1]):
        if (y1 > y) != (y2 > y) and x < (x2 - x1) * (y - y1) / (y2 - y1) + x1:
            inside = not inside
    return inside


def colour_at(x, y):
    """Returns the colour of a point; None outside."""
    if not in_board(x, y):
        return None
    left, top, right, bottom = POLE
    if in_polygon(ARROW, x, y) or (left <= x <= right and top <= y <= bottom):
        return VANE
    for begin, middle, end, colour in LINES:
        if begin <= x <= end and abs(y - middle) <= THICKNESS / 2:
            return colour
    return BOARD


def pixel(column, row, size):
    """Returns red, green, blue and opacity: the mean of the samples."""
    steps = [(k + 0.5) / SAMPLES for k in range(SAMPLES)]
    seen = [colour_at((column + dx) / size, (row + dy) / size) for dy in steps for dx in steps]
    seen = [colour for colour in seen if colour is not None]
    if not seen:
        return (0, 0, 0, 0)
    mean = [sum(colour[part] for colour in seen) // len(seen) for part in range(3)]
    return (*mean, 255 * len(seen) // SAMPLES**2)


def bitmap(rows, size):
    """The form that every system reads: 32 bits a pixel, the lowest row first, then the mask."""
    header = struct.pack("<IiiHHIIiiII", 40, size, 2 * size, 1, 32, 0, 4 * size * size, 0, 0, 0, 0)
    colours = b"".join(bytes((b, g, r, a)) for row in reversed(rows) for r, g, b, a in row)
    mask_row = (size + 31) // 32 * 4
    return header + colours + bytes(mask_row * size)


def png(rows, size):
    """The form for the size 256, which would take 270 kB otherwise."""
    def chunk(kind, content):
        return struct.pack(">I", len(content)) + kind + content + struct.pack(">I", zlib.crc32(kind + content))

    raw = b"".join(b"\0" + b"".join(bytes(p) for p in row) for row in rows)
    return (b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)) +
            chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def icon():
    images = []
    for size in SIZES:
        rows = [[pixel(column, row, size) for column in range(size)] for row in range(size)]
        images.append((png if size == 256 else bitmap)(rows, size))
    directory = struct.pack("<HHH", 0, 1, len(SIZES))
    offset = len(directory) + 16 * len(SIZES)
    for size, image in zip(SIZES, images):
        directory += struct.pack("<BBBBHHII", size % 256, size % 256, 0, 0, 1, 32, len(image), offset)
        offset += len(image)
    return directory + b"".join(images)


def main(arguments):
    if len(arguments) != 1 or arguments[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    with open(arguments[0], "wb") as file:
        file.write(icon())
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
