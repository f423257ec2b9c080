"""Judges client auth tokens; the verdicts are those of network/TokenOpener.h."""

import contextlib
import re
import typing

from cryptography.exceptions import InvalidTag
from cryptography.hazmat.primitives.ciphers.aead import AESGCM

HEADER = "X-Quill-SDK-Client-Auth-Token"
LARGEST_SEALED = 4096
# In the order in which a token is examined.
COMPLAINTS = "missing version length digits key developmentKey content app tooOld fromTheFuture".split()


class Judgement(typing.NamedTuple):
    verdict: str
    app: str = ""
    created_millis: int = 0
    key: str = ""


class Rules(typing.NamedTuple):
    keys: dict  # names to 32 bytes, the likeliest first
    development_key: bytes = b""  # empty: its tokens are not told from those of a strange key
    apps: frozenset = frozenset()  # empty: any
    oldest_millis: int = 300_000
    ahead_millis: int = 300_000


def open_with(key, nonce, tag, sealed):
    with contextlib.suppress(InvalidTag):
        return AESGCM(key).decrypt(nonce, sealed + tag, None)  # compares the tag in constant time


def judge(header, rules, now_millis):
    if header is None:
        return Judgement("missing")
    # Bytes that are no UTF-8 come from the HTTP server as surrogates.
    token = header.encode("utf-8", "surrogateescape")
    if not token.startswith(b"v2:"):
        return Judgement("version")
    parts = token.split(b":", 3)[1:]
    lengths = [len(part) for part in parts]
    if lengths[:2] != [32, 32] or len(parts) != 3 or lengths[2] not in range(8, 2 * LARGEST_SEALED + 1, 8):
        return Judgement("length")
    if not all(re.fullmatch(rb"[0-9A-F]+", part) for part in parts):
        return Judgement("digits")
    nonce, tag, sealed = (bytes.fromhex(part.decode()) for part in parts)
    for name, key in rules.keys.items():
        padded = open_with(key, nonce, tag, sealed)
        if padded is not None:
            return judge_content(padded, rules, now_millis)._replace(key=name)
    if rules.development_key and open_with(rules.development_key, nonce, tag, sealed) is not None:
        return Judgement("developmentKey")
    return Judgement("key")


def judge_content(padded, rules, now_millis):
    count = padded[-1]
    if not 1 <= count <= 4 or padded[-count:] != bytes([count]) * count:
        return Judgement("content")
    app, colon, time = padded[:-count].rpartition(b":")
    if not colon or not re.fullmatch(rb"-?[0-9]+", time) or not -(2**63) <= int(time) < 2**63:
        return Judgement("content")
    app, created = app.decode("utf-8", "replace").replace("\0", "\ufffd"), int(time)
    if rules.apps and app not in rules.apps:
        return Judgement("app", app, created)
    if now_millis - created > rules.oldest_millis:
        return Judgement("tooOld", app, created)
    is_ahead = created - now_millis > rules.ahead_millis
    return Judgement("fromTheFuture" if is_ahead else "valid", app, created)
