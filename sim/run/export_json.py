"""The run as JSON, one object a line; docs/simulated-board.md describes them."""

import json
import sys

from decode import decode

SCHEMA = 1


class JsonWriter:
    """Writes each event as it comes."""

    def __init__(self, options, script):
        self.file = sys.stdout if options.json == "-" else open(options.json, "w", encoding="utf-8")
        self._write({"type": "run", "schema": SCHEMA, "board": script, "preset": options.preset,
                     "program": options.program, "arguments": options.arguments,
                     "time": "virtual" if options.is_fast else "real"})

    def _write(self, record):
        self.file.write(json.dumps(record, ensure_ascii=False) + "\n")

    def feed(self, event):
        """One object; parts that the event does not have are left out."""
        decoded = decode(event)
        record = {"type": "event", "boot": event.boot, "time": event.time, "total": round(event.total, 3),
                  "who": event.who, "what": event.what, "kind": decoded.kind, "op": decoded.op}
        for name in ("size", "number", "value", "error"):
            if getattr(decoded, name) is not None:
                record["path" if name == "number" and decoded.kind == "beat" else name] = getattr(decoded, name)
        if decoded.data:
            record["data"] = decoded.data.hex()
        self._write({**record, "text": decoded.text})

    def idle(self):
        self.file.flush()

    def finish(self, result):
        """The summary is the last object."""
        summary = result.counts.as_dictionary(result.outcome, result.status, result.wants)
        self._write({"type": "summary", **summary, "verdict": result.verdict})
        self.file.flush()
