"""Prints what a link into the companion app holds as JSON, read with Python's own modules.

Usage: read_link.py LINK
"""

import base64
import json
import sys
from urllib.parse import unquote, urlsplit


def main():
    parts = urlsplit(sys.argv[1])
    parameters = [pair.split("=", 1) for pair in parts.query.split("&")]
    # A "+" stands for itself in these links.
    values = {unquote(name): unquote(value, errors="strict") for name, value in parameters}
    assert len(values) == len(parameters), "a parameter came twice"
    for name in {"metadata", "payload"} & values.keys():
        values[name] = json.loads(base64.b64decode(values[name], validate=True))
    print(json.dumps({"base": f"{parts.scheme}://{parts.netloc}{parts.path}", "values": values}))


main()
