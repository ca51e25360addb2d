#!/usr/bin/env python3
"""Checks that every link of the HTML pages in a folder leads to a page and a place that is there.

usage: docs/check_links.py HTML
"""
import html.parser
import pathlib
import sys
import urllib.parse


class Page(html.parser.HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.places = set(), {""}
        self.feed(path.read_text())

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("id", "name"):
                self.places.add(value)
            if name in ("href", "src"):
                self.links.add(value)


folder = pathlib.Path(sys.argv[1])
pages = {path.name: Page(path) for path in folder.glob("*.html")}
faults = []
for name, page in pages.items():
    for link in page.links:
        target = urllib.parse.urlsplit(link)
        file = urllib.parse.unquote(target.path) or name
        if target.scheme in ("http", "https", "javascript", "data", "mailto"):
            continue
        if not (folder / file).is_file():
            faults.append(f"{name}: there is no {link}")
        elif target.fragment and file in pages and target.fragment not in pages[file].places:
            faults.append(f"{name}: there is no such place: {link}")
for fault in sorted(faults):
    print(f"docs/check_links.py: {fault}", file=sys.stderr)
sys.exit(1 if faults or not pages else 0)
