#!/usr/bin/python3
"""vectors_test.py VECTORS [URL KEY APP]: the receiver's judgement of every token and body of the file; with the other
arguments also its answers to the bodies, under tokens of that app, and what docs/server.md says of each outcome."""

import base64
import json
import os
import pathlib
import re
import sys
import time
import urllib.error
import urllib.request

from cryptography.hazmat.primitives.ciphers.aead import AESGCM

import receiver
import tokens

vectors = json.loads(pathlib.Path(sys.argv[1]).read_text())
rules = tokens.Rules(
    {name: bytes.fromhex(key) for name, key in vectors["keys"].items()},
    bytes.fromhex(vectors["developmentKey"]),
    frozenset(vectors["apps"]),
    vectors["oldestMillis"],
    vectors["aheadMillis"],
)
wrong = []


def expect(what, said, expected):
    if said != expected:
        wrong.append(f"{what}: {said} instead of {expected}")


def decoded(path, body):
    if len(body) > receiver.LARGEST_BODY:
        return ("tooLarge", 0)
    try:
        return ("accepted", len(receiver.decode(path, body)[1]))
    except ValueError:
        return ("malformed", 0)


def status(url, body, headers):
    try:
        return urllib.request.urlopen(urllib.request.Request(url, body, headers)).status
    except urllib.error.HTTPError as error:
        return error.code


def fresh_token(key, app):
    text = f"{app}:{time.time_ns() // 1_000_000}".encode()
    count = 4 - len(text) % 4
    nonce = os.urandom(16)
    sealed = AESGCM(key).encrypt(nonce, text + bytes([count]) * count, None)
    return ":".join(["v2", nonce.hex().upper(), sealed[-16:].hex().upper(), sealed[:-16].hex().upper()])


for each in vectors["tokens"]:
    said = tokens.judge(each["token"], rules, vectors["nowMillis"])
    expect(each, said.verdict, each["outcome"])
    if each["outcome"] == "valid":
        expect(each, said[1:], (each["app"], each["createdMillis"], each["key"]))
for each in vectors["bodies"]:
    body = base64.b64decode(each["piece"]) * each["times"]
    expect(each["name"], decoded(each["path"], body), (each["outcome"], each["records"]))
    if len(sys.argv) > 2:
        headers = {tokens.HEADER: fresh_token(bytes.fromhex(pathlib.Path(sys.argv[3]).read_text()), sys.argv[4])}
        said = status(sys.argv[2] + each["path"], body, headers)
        expect(each["name"], said, receiver.OUTCOMES[each["outcome"]][0])
page = (pathlib.Path(__file__).parents[2] / "docs/server.md").read_text()
table = {
    outcome: (int(code), int(minutes or 0) * receiver.MINUTE)
    for names, code, minutes in re.findall(r"^\| (`.*`) \| (\d+) \| (?:(\d+) min|none) \|", page, re.MULTILINE)
    for outcome in re.findall(r"`(\w+)`", names)
}
expect("docs/server.md", table, receiver.OUTCOMES)
for each in wrong:
    print(each, file=sys.stderr)
print(len(vectors["tokens"]), "tokens,", len(vectors["bodies"]), "bodies,", len(table), "outcomes")
sys.exit(bool(wrong) or not vectors["tokens"] or not vectors["bodies"])
