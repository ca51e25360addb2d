"""A page as a browser shows it: its text after its scripts have run, and its pixels."""
import pathlib
import re
import struct
import subprocess
import tempfile
import zlib


def browse(page, *options):
    """What the browser prints."""
    with tempfile.TemporaryDirectory() as profile:
        done = subprocess.run(["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", f"--user-data-dir={profile}",
                               *options, pathlib.Path(page).resolve().as_uri()], capture_output=True, text=True, timeout=240)
    return done.stdout


def pixels(data):
    """Rows of the (red, green, blue) of a PNG file with 8 bits a channel."""
    at, packed = 8, b""
    while at < len(data):
        size, kind = struct.unpack(">I4s", data[at:at + 8])
        body = data[at + 8:at + 8 + size]
        if kind == b"IHDR":
            width, _, depth, colours = struct.unpack(">IIBB", body[:10])
            step = {2: 3, 6: 4}[colours]
            assert depth == 8
        packed += body if kind == b"IDAT" else b""
        at += 12 + size
    raw, rows, above = zlib.decompress(packed), [], bytes(width * step)
    for start in range(0, len(raw), width * step + 1):
        how, row = raw[start], bytearray(raw[start + 1:start + 1 + width * step])
        for i in range(len(row) if how else 0):
            left, corner = (row[i - step], above[i - step]) if i >= step else (0, 0)
            guess = left + above[i] - corner
            paeth = min((left, above[i], corner), key=lambda near: abs(guess - near))
            row[i] = (row[i] + (0, left, above[i], (left + above[i]) // 2, paeth)[how]) & 255
        rows.append([tuple(row[i:i + 3]) for i in range(0, len(row), step)])
        above = row
    return rows


class Picture:
    """The picture of a run in its page, with what it shows of a lane at a time."""

    WIDTH = 1600  # of the window
    MARGIN = 25  # of the page, and the picture's frame

    def __init__(self, page, scratch):
        shot = pathlib.Path(scratch, "shot.png")
        self.dom = browse(page, f"--window-size={self.WIDTH},1000", f"--screenshot={shot}", "--dump-dom")
        self.rows = pixels(shot.read_bytes())
        self.left, self.width, self.end = (float(re.search(rf'data-{name}="([\d.]+)"', self.dom)[1]) for name in ("left", "width", "end"))
        self.scale = (self.WIDTH - 2 * self.MARGIN) / float(re.search(r'viewBox="0 0 ([\d.]+)', self.dom)[1])
        first = self.y_of("boots")
        column = [row[self.x_of(self.end / 3)] for row in self.rows]
        self.top = column.index(self.colour("boot")) - (first + 1) * self.scale

    def y_of(self, lane):
        """Where a lane begins, in the picture's own units."""
        return float(re.search(rf'y="([\d.]+)"[^>]*></rect><text class="name"[^>]*>{re.escape(lane)}<', self.dom)[1])

    def x_of(self, seconds):
        return round(self.MARGIN + (self.left + seconds / self.end * self.width) * self.scale)

    def colour(self, kind):
        """That the page gives to shapes of a kind."""
        found = re.search(rf"\.shape\.{kind}\b[^{{]*{{ fill: #(\w\w)(\w\w)(\w\w)", self.dom)
        return tuple(int(part, 16) for part in found.groups())

    def shows(self, kind, lane, seconds, spread=3):
        """Whether there is a shape of the kind, so many pixels around."""
        x, y = self.x_of(seconds), round(self.top + (self.y_of(lane) + 8) * self.scale)
        wanted = self.colour(kind)
        return any(max(abs(one - other) for one, other in zip(pixel, wanted)) < 24
                   for row in self.rows[y:y + 11] for pixel in row[x - spread:x + spread + 2])
