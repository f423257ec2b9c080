#!/usr/bin/python3
"""Receives heartbeats and metrics behind nginx and keeps a row for each record in PostgreSQL. docs/server.md tells how
it is run. The modules of the messages come from the schema: protoc --python_out=DIR *.proto, then PYTHONPATH=DIR."""

import argparse
import asyncio
import collections
import datetime
import pathlib
import random
import time

import asyncpg
from aiohttp import web
from google.protobuf.message import DecodeError

import tokens
from heartbeat_pb2 import HearbeatBatch
from metrics_pb2 import Metrics

# The library makes no larger body.
LARGEST_BODY = 131_072
MINUTE = 60_000
# What becomes of a request: the status, and the least delay of the client's one retry. The client discards a batch at
# 200 and 403, and after the second failure of any other kind. So 403 is only for what no retry and no new key can mend:
# a body stays what it is, while a token is made afresh, clocks get set and keys arrive.
OUTCOMES = {"accepted": (200, 0), "malformed": (403, 0), "tooLarge": (403, 0), "unknownPath": (404, 0)}
OUTCOMES |= {"database": (503, MINUTE), **dict.fromkeys(tokens.COMPLAINTS, (401, 60 * MINUTE))}
DATABASE_ERRORS = (OSError, asyncio.TimeoutError, asyncpg.PostgresError, asyncpg.InterfaceError)


def text(message, field):
    value = getattr(message, field)
    # The database takes no zero bytes; the library writes none.
    if not isinstance(value, str) or "\0" in value:
        raise ValueError("no text")
    return value


def moment(message):
    return (message.timestamp.seconds, message.timestamp.nanos)


def heartbeat_rows(batch):
    for each in batch.heartbeats:
        device = each.device_environment
        yield (
            *(text(each, "client_id"), text(each, "installation_id"), each.kit_type, text(each, "kit_version")),
            *(text(device, "system_version"), text(device, "device_model"), text(device, "locale")),
            *moment(each),
        )


def metric_rows(metrics):
    yield from (("counter", text(each, "name"), each.count, *moment(each)) for each in metrics.counters)
    yield from (("timer", text(each, "name"), each.latency_millis, *moment(each)) for each in metrics.timers)


ENDPOINTS = {
    "/v1/sdk/heartbeat": ("heartbeats", HearbeatBatch, heartbeat_rows),
    "/v1/sdk/metrics/operational": ("metrics", Metrics, metric_rows),
}


def decode(path, body):
    """The table and its rows; ValueError for what is malformed. Unknown fields are passed over: they are of newer clients."""
    table, message, rows = ENDPOINTS[path]
    try:
        return table, list(rows(message.FromString(body)))
    except DecodeError as error:
        raise ValueError from error


class Receiver:
    def __init__(self, options, rules):
        self.options, self.rules, self.pool = options, rules, None
        self.counts = collections.Counter()

    async def receive(self, request):
        outcome = await self.outcome(request)
        path = request.path if request.path in ENDPOINTS else "other"
        self.counts[f'requests_total{{path="{path}",outcome="{outcome}"}}'] += 1
        status, delay = OUTCOMES[outcome]
        # Spread, so that a fleet does not come back in one moment.
        headers = {"X-Retry-After-Millis": str(delay + random.randrange(delay))} if delay else {}
        return web.Response(status=status, headers=headers)

    async def outcome(self, request):
        if request.path not in ENDPOINTS or request.method != "POST":
            return "unknownPath"
        try:
            body = await request.read()
        except web.HTTPRequestEntityTooLarge:
            return "tooLarge"
        token = tokens.judge(request.headers.get(tokens.HEADER), self.rules, time.time_ns() // 1_000_000)
        if token.verdict != "valid":
            return token.verdict
        try:
            table, rows = decode(request.path, body)
        except ValueError:
            return "malformed"
        return await self.store(table, rows, token)

    async def store(self, table, rows, token):
        now = datetime.datetime.now(datetime.timezone.utc)
        is_development = self.rules.keys[token.key] == self.rules.development_key
        front = (now.date(), now, token.app, is_development)
        try:
            # One statement, which is a transaction: all the rows are there when it returns, or none.
            async with self.pool.acquire(timeout=5) as connection:
                await connection.copy_records_to_table(table, records=[front + row for row in rows], timeout=10)
        except DATABASE_ERRORS:
            return "database"
        self.counts[f'records_total{{table="{table}"}}'] += len(rows)
        self.counts["development_tokens_total"] += is_development
        return "accepted"

    async def health(self, _):
        try:
            await self.pool.fetchval("SELECT 1", timeout=5)
            return web.Response(text="ok\n")
        except DATABASE_ERRORS:
            return web.Response(status=503, text="no database\n")

    async def metrics(self, _):
        return web.Response(text="".join(f"qlsdk_{name} {count}\n" for name, count in sorted(self.counts.items())))

    async def keep_days(self):
        """Tables and partitions: as soon as there is a database, then every hour."""
        tables = (pathlib.Path(__file__).parent / "tables.sql").read_text()
        while True:
            try:
                today = datetime.datetime.now(datetime.timezone.utc).date()
                await self.pool.execute(tables, timeout=30)
                await self.pool.execute("SELECT keep_days($1, $2)", today, self.options.keep_days, timeout=30)
                await asyncio.sleep(3600)
            except DATABASE_ERRORS as error:
                print("the database is away:", error, flush=True)
                await asyncio.sleep(1)

    async def lifetime(self, _):
        async with asyncpg.create_pool(self.options.database, min_size=0, max_size=8, timeout=5) as self.pool:
            days = asyncio.create_task(self.keep_days())
            yield
            days.cancel()


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--database", required=True, help="address, such as postgresql:///telemetry")
    parser.add_argument("--key", required=True, action="append", metavar="FILE", help="64 hexadecimal digits; repeat")
    parser.add_argument("--development-key", metavar="FILE", help="to name its tokens; give it as --key to take them")
    parser.add_argument("--app", action="append", default=[], help="bundle identifier that may send; any by default")
    parser.add_argument("--oldest-millis", type=int, default=5 * MINUTE)
    parser.add_argument("--ahead-millis", type=int, default=5 * MINUTE)
    parser.add_argument("--keep-days", type=int, default=30)
    parser.add_argument("--port", type=int, default=8080, help="on 127.0.0.1, for nginx")
    options = parser.parse_args()

    def read_key(file):
        key = bytes.fromhex(pathlib.Path(file).read_text())
        if len(key) != 32:
            parser.error(f"{file} must hold 64 hexadecimal digits")
        return key

    development_key = read_key(options.development_key) if options.development_key else b""
    rules = ({file: read_key(file) for file in options.key}, development_key, frozenset(options.app))
    receiver = Receiver(options, tokens.Rules(*rules, options.oldest_millis, options.ahead_millis))
    # aiohttp refuses a body of exactly this size.
    app = web.Application(client_max_size=LARGEST_BODY + 1)
    app.add_routes([web.get("/health", receiver.health), web.get("/metrics", receiver.metrics)])
    app.add_routes([web.route("*", "/{path:.*}", receiver.receive)])
    app.cleanup_ctx.append(receiver.lifetime)
    web.run_app(app, host="127.0.0.1", port=options.port, print=None)


if __name__ == "__main__":
    main()
