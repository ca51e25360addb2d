"""The frames that the program handed to its sockets, for packet viewers."""

import struct

from decode import decode

MAGIC, ETHERNET, MOST = 0xA1B2C3D4, 1, 65535


class PcapWriter:
    """Frames with the board's time, which begins in 1970 as that of any clock that nobody has set."""

    def __init__(self, path):
        self.file = open(path, "wb")
        self.file.write(struct.pack("<IHHiIII", MAGIC, 2, 4, 0, 0, MOST, ETHERNET))

    def feed(self, event):
        """Writes a frame, sent or refused."""
        decoded = decode(event)
        if decoded.op == "sendto" and event.who == "socket" and decoded.data:
            seconds, micros = divmod(round(event.total * 1e6), 1_000_000)
            self.file.write(struct.pack("<IIII", seconds, micros, len(decoded.data), max(decoded.size, len(decoded.data))))
            self.file.write(decoded.data)

    def idle(self):
        self.file.flush()

    def finish(self, _):
        self.file.close()
