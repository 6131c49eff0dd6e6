#!/usr/bin/python3
"""Draws the pictures and sample files of the demonstration site: host/make_pictures.py

Everything comes from a few formulas and a fixed seed, so a second run writes the same bytes.
"""

import io
import math
import pathlib
import random
import struct
import wave
import zipfile
import zlib

SITE = pathlib.Path(__file__).resolve().parent / "site"

INK, TEAL, SEA, SAND = (31, 45, 53), (28, 93, 103), (92, 158, 160), (245, 236, 215)
GOLD, CLAY, ROSE = (226, 163, 57), (200, 84, 60), (232, 150, 122)
TILES = [TEAL, SEA, SAND, GOLD, CLAY, ROSE]


def mix(a, b, share):
    return tuple(round(x + (y - x) * share) for x, y in zip(a, b))


def css(colour):
    return "#%02x%02x%02x" % colour


# ---- PNG


def png(width, height, pixel, alpha=False):
    """A PNG of `pixel`(x, y), which answers three bytes, or four with `alpha`."""
    rows = b"".join(b"\0" + b"".join(bytes(pixel(x, y)) for x in range(width)) for y in range(height))

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body))

    header = struct.pack(">IIBBBBB", width, height, 8, 6 if alpha else 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(rows, 9)) + chunk(b"IEND", b"")


# ---- GIF


def lzw(indices, bits):
    clear, end = 1 << bits, (1 << bits) + 1
    out, hold, held = bytearray(), 0, 0
    table, size = {}, bits + 1

    def put(code):
        nonlocal hold, held
        hold |= code << held
        held += size
        while held >= 8:
            out.append(hold & 255)
            hold >>= 8
            held -= 8

    def fresh():
        nonlocal table, size
        table, size = {(i,): i for i in range(clear)}, bits + 1

    fresh()
    put(clear)
    word, following = (), end + 1
    for index in indices:
        longer = word + (index,)
        if longer in table:
            word = longer
            continue
        put(table[word])
        table[longer] = following
        if following == 1 << size:
            size += 1
        following += 1
        if following == 4096:
            put(clear)
            fresh()
            following = end + 1
        word = (index,)
    put(table[word])
    put(end)
    if held:
        out.append(hold & 255)
    return bytes(out)


def gif(width, height, palette, frames, delay):
    """A GIF that repeats `frames` (lists of palette indices), each shown for `delay` hundredths of a second."""
    bits = max(2, (len(palette) - 1).bit_length())
    colours = b"".join(bytes(c) for c in palette) + bytes(3 * ((1 << bits) - len(palette)))
    out = b"GIF89a" + struct.pack("<HHBBB", width, height, 0xF0 | (bits - 1), 0, 0) + colours
    if len(frames) > 1:
        out += b"\x21\xff\x0bNETSCAPE2.0\x03\x01\0\0\0"
    for frame in frames:
        out += b"\x21\xf9\x04" + struct.pack("<BHBB", 4, delay, 0, 0)
        out += b"," + struct.pack("<HHHHB", 0, 0, width, height, 0) + bytes([bits])
        data = lzw(frame, bits)
        for at in range(0, len(data), 255):
            piece = data[at:at + 255]
            out += bytes([len(piece)]) + piece
        out += b"\0"
    return out + b";"


# ---- JPEG (baseline, no subsampling, the example tables of the standard)

ZIGZAG = sorted(range(64), key=lambda k: (k // 8 + k % 8, (k // 8 if (k // 8 + k % 8) % 2 else k % 8)))
LUMA = [16, 11, 10, 16, 24, 40, 51, 61, 12, 12, 14, 19, 26, 58, 60, 55, 14, 13, 16, 24, 40, 57, 69, 56, 14, 17, 22, 29,
        51, 87, 80, 62, 18, 22, 37, 56, 68, 109, 103, 77, 24, 35, 55, 64, 81, 104, 113, 92, 49, 64, 78, 87, 103, 121,
        120, 101, 72, 92, 95, 98, 112, 100, 103, 99]
DC_COUNTS, DC_VALUES = [0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0], list(range(12))
AC_COUNTS = [0, 2, 1, 3, 3, 2, 4, 3, 5, 5, 4, 4, 0, 0, 1, 125]
AC_VALUES = list(bytes.fromhex(
    "01020300041105122131410613516107227114328191a1082342b1c11552d1f02433627282090a161718191a25262728292a343536373839"
    "3a434445464748494a535455565758595a636465666768696a737475767778797a838485868788898a92939495969798999aa2a3a4a5a6a7"
    "a8a9aab2b3b4b5b6b7b8b9bac2c3c4c5c6c7c8c9cad2d3d4d5d6d7d8d9dae1e2e3e4e5e6e7e8e9eaf1f2f3f4f5f6f7f8f9fa"))
COSINES = [[math.cos((2 * x + 1) * u * math.pi / 16) * (math.sqrt(0.5) if u == 0 else 1) / 2 for x in range(8)]
           for u in range(8)]


def huffman(counts, values):
    codes, code, at = {}, 0, 0
    for length, count in enumerate(counts, 1):
        for _ in range(count):
            codes[values[at]] = (code, length)
            code, at = code + 1, at + 1
        code <<= 1
    return codes


def jpeg(width, height, pixel, quality=80):
    """A JPEG of `pixel`(x, y), which answers three bytes."""
    scale = 5000 / quality if quality < 50 else 200 - 2 * quality
    quant = [min(255, max(1, int((q * scale + 50) / 100))) for q in LUMA]
    dc, ac = huffman(DC_COUNTS, DC_VALUES), huffman(AC_COUNTS, AC_VALUES)
    bits = []

    def put(code, length):
        bits.append(format(code, "0%db" % length) if length else "")

    def put_value(value, size):
        put(value if value > 0 else value + (1 << size) - 1, size)

    def block(samples, before):
        rows = [[sum(COSINES[u][x] * row[x] for x in range(8)) for u in range(8)] for row in samples]
        flat = [round(sum(COSINES[v][y] * rows[y][u] for y in range(8)) / quant[v * 8 + u])
                for v in range(8) for u in range(8)]
        level = flat[0]
        size = abs(level - before).bit_length()
        put(*dc[size])
        put_value(level - before, size)
        zeros = 0
        for k in ZIGZAG[1:]:
            if flat[k] == 0:
                zeros += 1
                continue
            while zeros > 15:
                put(*ac[0xF0])
                zeros -= 16
            size = abs(flat[k]).bit_length()
            put(*ac[zeros << 4 | size])
            put_value(flat[k], size)
            zeros = 0
        if zeros:
            put(*ac[0])
        return level

    before = [0, 0, 0]
    for top in range(0, height, 8):
        for left in range(0, width, 8):
            colours = [[pixel(min(left + x, width - 1), min(top + y, height - 1)) for x in range(8)] for y in range(8)]
            planes = ((0.299, 0.587, 0.114, -128), (-0.1687, -0.3313, 0.5, 0), (0.5, -0.4187, -0.0813, 0))
            for i, (r, g, b, shift) in enumerate(planes):
                before[i] = block([[r * c[0] + g * c[1] + b * c[2] + shift for c in row] for row in colours], before[i])
    text = "".join(bits)
    text += "1" * (-len(text) % 8)
    data = bytes(int(text[i:i + 8], 2) for i in range(0, len(text), 8)).replace(b"\xff", b"\xff\0")

    def segment(marker, body):
        return b"\xff" + bytes([marker]) + struct.pack(">H", len(body) + 2) + body

    frame = struct.pack(">BHHB", 8, height, width, 3) + b"".join(bytes([i, 0x11, 0]) for i in (1, 2, 3))
    scan = b"\x03" + b"".join(bytes([i, 0]) for i in (1, 2, 3)) + b"\0\x3f\0"
    return (b"\xff\xd8" + segment(0xE0, b"JFIF\0\1\1\0\0\1\0\1\0\0")
            + segment(0xDB, b"\0" + bytes(quant[k] for k in ZIGZAG)) + segment(0xC0, frame)
            + segment(0xC4, b"\0" + bytes(DC_COUNTS + DC_VALUES)) + segment(0xC4, b"\x10" + bytes(AC_COUNTS + AC_VALUES))
            + segment(0xDA, scan) + data + b"\xff\xd9")


# ---- the pictures


def rings():
    """Rings of tiles around a centre, as in the floor of a bath."""
    centre_x, centre_y = 180, 120

    def pixel(x, y):
        dx, dy = x - centre_x, y - centre_y
        distance = math.hypot(dx, dy)
        ring = int(distance // 18)
        around = max(6, ring * 6)
        turn = (math.atan2(dy, dx) / (2 * math.pi) + 1 + ring * 0.13) % 1 * around
        edge = min(distance % 18, 18 - distance % 18, (turn % 1) * 2 * math.pi * distance / around,
                   (1 - turn % 1) * 2 * math.pi * distance / around)
        if edge < 1.2:
            return SAND
        return mix(TILES[(ring * 2 + int(turn) % 2) % 6] if ring else GOLD, INK, (int(turn) * 37 + ring * 11) % 5 * 0.05)

    return png(360, 240, pixel)


def fan():
    """Overlapping fans of tiles with a clear background."""

    def pixel(x, y):
        for row in range(6, -1, -1):
            for column in range(-1, 5):
                cx, cy = column * 90 + (row % 2) * 45, 60 + row * 34
                distance = math.hypot(x - cx, y - cy)
                if distance < 48 and y <= cy + 1:
                    ring = int(distance // 12)
                    if distance % 12 < 1.5:
                        return SAND + (255,)
                    return mix((TEAL, CLAY, GOLD, SEA)[ring], INK, 0.06 * ((row + column) % 3)) + (255,)
        return (0, 0, 0, 0)

    return png(360, 240, pixel, alpha=True)


def sunset():
    """A sun above the sea, laid in square tiles."""
    chance = random.Random(7)
    shades = [[chance.random() for _ in range(60)] for _ in range(40)]

    def pixel(x, y):
        column, row = x // 12, y // 12
        if x % 12 == 0 or y % 12 == 0:
            return mix(SAND, INK, 0.15)
        mx, my = column * 12 + 6, row * 12 + 6
        if my < 170:
            sky = mix(mix(INK, CLAY, my / 120 if my < 120 else 1), GOLD, max(0, (my - 90) / 110))
            colour = SAND if math.hypot(mx - 300, my - 132) < 52 else sky
        else:
            glint = abs(mx - 300) < 26 + (my - 170) / 4 and (row + column) % 3
            colour = mix(TEAL, INK, (my - 170) / 170) if not glint else mix(GOLD, TEAL, (my - 170) / 200)
        return mix(colour, INK, 0.16 * shades[row][column])

    return jpeg(480, 300, pixel)


def terrazzo():
    """Chips of stone in mortar."""
    chance = random.Random(20)
    chips = [(chance.uniform(0, 360), chance.uniform(0, 240), chance.choice(TILES), chance.uniform(0, 0.25))
             for _ in range(150)]

    def pixel(x, y):
        near = sorted(((x - cx) ** 2 + (y - cy) ** 2, colour, shade) for cx, cy, colour, shade in chips)[:2]
        if math.sqrt(near[1][0]) - math.sqrt(near[0][0]) < 3:
            return mix(SAND, INK, 0.08)
        return mix(near[0][1], INK, near[0][2])

    return jpeg(360, 240, pixel, 82)


def checks():
    """A border of two colours, the smallest file of the site."""
    return gif(120, 80, [TEAL, SAND, GOLD, CLAY], [[(
        2 if (x // 20 + y // 20) % 2 else 3) if 20 <= x < 100 and 20 <= y < 60 else (x // 10 + y // 10) % 2
        for y in range(80) for x in range(120)]], 0)


def turning():
    """Nine tiles that light up one after the other."""
    order = [0, 1, 2, 5, 8, 7, 6, 3]

    def frame(step):
        def index(x, y):
            if x % 40 < 3 or y % 40 < 3 or x % 40 > 36 or y % 40 > 36:
                return 0
            tile = y // 40 * 3 + x // 40
            if tile == 4:
                return 4
            return 1 + min(2, (step - order.index(tile)) % 8)

        return [index(x, y) for y in range(120) for x in range(120)]

    return gif(120, 120, [SAND, GOLD, CLAY, TEAL, INK], [frame(step) for step in range(8)], 14)


def svg(width, height, body, label):
    return ('<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %d %d" width="%d" height="%d" role="img" '
            'aria-label="%s">\n%s\n</svg>\n' % (width, height, width, height, label, body)).encode()


def logo():
    pattern = ["33333", "31113", "20102", "20102", "22122"]
    colours = {"0": css(SEA), "1": css(SAND), "2": css(TEAL), "3": css(CLAY)}
    body = '<rect width="112" height="112" rx="14" fill="%s"/>\n' % css(INK) + "\n".join(
        '<rect x="%d" y="%d" width="18" height="18" rx="3" fill="%s"/>' % (8 + x * 20, 8 + y * 20, colours[c])
        for y, row in enumerate(pattern) for x, c in enumerate(row))
    return svg(112, 112, body, "Tessel")


def waves():
    """The banner: rows of tiles that follow three waves."""
    chance = random.Random(3)
    body = ['<rect width="1200" height="220" fill="%s"/>' % css(INK)]
    for row in range(11):
        for column in range(60):
            x = column * 20
            lift = 26 * math.sin(x / 130 + row * 0.35) + 9 * math.sin(x / 47)
            y = row * 20 + lift - 10
            height = row / 10 + 0.18 * math.sin(x / 210)
            colour = mix(mix(TEAL, SEA, min(1, max(0, height * 1.6))), SAND, max(0, height - 0.62))
            if chance.random() < 0.05:
                colour = chance.choice([GOLD, CLAY, ROSE])
            tilt = 8 * math.cos(x / 130 + row * 0.35)
            body.append('<rect x="%d" y="%.1f" width="18" height="18" rx="2.5" fill="%s" transform="rotate(%.1f %d %.1f)"/>'
                        % (x + 1, y, css(mix(colour, INK, chance.random() * 0.22)), tilt, x + 10, y + 9))
    return svg(1200, 220, "\n".join(body), "A wave laid in tiles")


def road():
    """The stations of a request, drawn for the page about them."""
    stations = [("connection", "a free slot", SEA), ("request", "method, path, headers", TEAL), ("file", "below the folder", GOLD),
                ("answer", "header and body", CLAY), ("log line", "and the slot is free", INK)]
    body = ['<rect width="900" height="150" rx="10" fill="%s"/>' % css(mix(SAND, (255, 255, 255), 0.45))]
    for i, (title, text, colour) in enumerate(stations):
        x = 20 + i * 174
        if i:
            body.append('<path d="M%d 75 h18 m-7 -7 l8 7 l-8 7" fill="none" stroke="%s" stroke-width="3"/>' % (x - 22, css(INK)))
        body.append('<rect x="%d" y="38" width="150" height="74" rx="8" fill="%s"/>' % (x, css(colour)))
        body.append('<text x="%d" y="70" fill="#fff" font-family="sans-serif" font-size="18" font-weight="bold" '
                    'text-anchor="middle">%s</text>' % (x + 75, title))
        body.append('<text x="%d" y="93" fill="#fff" font-family="sans-serif" font-size="13" text-anchor="middle">%s</text>'
                    % (x + 75, text))
    return svg(900, 150, "\n".join(body), "Connection, request, file, answer, log line")


def icon():
    pattern = ["33333", "31113", "20102", "20102", "22122"]
    colours = {"0": SEA, "1": SAND, "2": TEAL, "3": CLAY}

    def pixel(x, y):
        column, row = (x - 1) // 6, (y - 1) // 6
        if not (0 <= column < 5 and 0 <= row < 5) or (x - 1) % 6 == 5 or (y - 1) % 6 == 5:
            return INK + (255,)
        return colours[pattern[row][column]] + (255,)

    picture = png(32, 32, pixel, alpha=True)
    return struct.pack("<HHHBBBBHHII", 0, 1, 1, 32, 32, 0, 0, 1, 32, len(picture), 22) + picture


# ---- files to fetch


def chime():
    """Half a second of a bell."""
    out = io.BytesIO()
    with wave.open(out, "wb") as sound:
        sound.setparams((1, 1, 8000, 4000, "NONE", ""))
        sound.writeframes(bytes(round(128 + 90 * math.exp(-i / 900) * math.sin(2 * math.pi * 659 * i / 8000))
                                for i in range(4000)))
    return out.getvalue()


def archive(names):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", zipfile.ZIP_DEFLATED) as packed:
        for name in names:
            packed.writestr(zipfile.ZipInfo(name, (2026, 1, 1, 0, 0, 0)), (SITE / "downloads" / name).read_bytes())
    return out.getvalue()


def main():
    pictures = {"rings.png": rings, "fans.png": fan, "sunset.jpg": sunset, "terrazzo.jpg": terrazzo, "checks.gif": checks,
                "turning.gif": turning, "logo.svg": logo, "waves.svg": waves, "road.svg": road}
    for name, draw in pictures.items():
        (SITE / "pictures" / name).write_bytes(draw())
    (SITE / "favicon.ico").write_bytes(icon())
    (SITE / "downloads" / "chime.wav").write_bytes(chime())
    (SITE / "downloads" / "samples.zip").write_bytes(archive(["tiles.csv", "tiles.json", "tiles.xml", "note.txt"]))


if __name__ == "__main__":
    main()
