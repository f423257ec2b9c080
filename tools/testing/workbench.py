"""What the page's test needs: a collector, clients of it, and a browser."""

import http.client
import json
import os
import pathlib
import socket
import ssl
import subprocess
import tempfile
import threading

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

API_HOST = "api.quillo.example"


def varint(number):
    encoded = b""
    while number > 127:
        encoded += bytes([number & 127 | 128])
        number >>= 7
    return encoded + bytes([number])


def number_field(number, value):
    return varint(number << 3) + varint(value)


def bytes_field(number, value):
    content = value.encode() if isinstance(value, str) else value
    return varint(number << 3 | 2) + varint(len(content)) + content


def timestamp(seconds):
    return number_field(1, seconds) + number_field(2, 250_000_000)


def heartbeat_batch(*kits):
    """A batch of one heartbeat for each pair of a kit's number and version."""
    device = number_field(1, 1) + bytes_field(2, "12.2") + bytes_field(3, "Linux PC") + bytes_field(4, "x86_64")
    return b"".join(
        bytes_field(1, bytes_field(1, "postcards-client") + bytes_field(2, "E82F3298-A7A8-4800-B069-97FB4FE506A6") +
                    number_field(3, kit) + bytes_field(4, version) + bytes_field(5, device) +
                    bytes_field(6, timestamp(1_700_000_000)))
        for kit, version in kits)


def metrics(counters=(), timers=()):
    """Pairs of a name and a number."""
    def one(number, name, value):
        return bytes_field(number, bytes_field(2, timestamp(1_700_000_000)) + bytes_field(1, name) +
                           number_field(3, value))
    return (b"".join(one(1, *counter) for counter in counters) + b"".join(one(2, *timer) for timer in timers))


class Collector:
    """A `quillkit collect` with its page, and a host application that talks to it."""

    def __init__(self, quillkit, *options):
        self.quillkit = quillkit
        self.directory = tempfile.TemporaryDirectory(prefix="quillkit-page-")
        home = pathlib.Path(self.directory.name)
        (home / "Info.plist").write_text(
            '<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>'
            "<key>CFBundleIdentifier</key><string>com.example.postcards</string>"
            "<key>CFBundleVersion</key><string>4.2</string></dict></plist>")
        self.log = home / "requests.jsonl"
        self.process = subprocess.Popen(
            [quillkit, "collect", "--port", "0", "--state", home / "state", "--log", self.log, *options],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.address = self.process.stdout.readline().strip()
        self.authority = self.process.stdout.readline().strip()
        self.url = self.process.stderr.readline().removeprefix("page: ").strip()
        # A pipe that nobody reads would stop the collector.
        self.reader = threading.Thread(target=self.process.stdout.read)
        self.reader.start()
        self.trust = ssl.create_default_context(cafile=self.authority)
        self.origin, self.token = self.url.split("/?token=")

    def end(self):
        self.process.terminate()
        status = self.process.wait(30)
        self.reader.join()
        self.process.stdout.close()
        self.process.stderr.close()
        self.directory.cleanup()
        return status

    def post(self, path, body, headers=None):
        """Posts to the service; the status, or 0 when no answer came."""
        return self._ask(path, body, headers or {})[0]

    def config(self):
        """The configuration that the service answers."""
        return json.loads(self._ask("/v1/config", "{}", {})[1])["data"]["config"]

    def _ask(self, path, body, headers):
        host, port = self.address.split(":")
        connection = http.client.HTTPSConnection(API_HOST, context=self.trust)
        connection._create_connection = lambda *_: socket.create_connection((host, int(port)))
        try:
            connection.request("POST", path, body, headers)
            response = connection.getresponse()
            return response.status, response.read()
        except http.client.RemoteDisconnected:
            return 0, b""
        finally:
            connection.close()

    def send(self, *words):
        """Runs `quillkit send` as a host application."""
        home = pathlib.Path(self.directory.name)
        return subprocess.run(
            [self.quillkit, "send", "--info-plist", home / "Info.plist", "--home", home / "home",
             "--connect-to", self.address, "--ca", self.authority, "--wait", "60", *words],
            capture_output=True, text=True, check=False).stdout

    def page_request(self, method, path, headers=None, body=None):
        """Asks the page's server as any program can; the status and the response's fields."""
        host, port = self.origin.removeprefix("http://").split(":")
        connection = http.client.HTTPConnection(host, int(port))
        connection.putrequest(method, path, skip_host="Host" in (headers or {}))
        for name, value in (headers or {}).items():
            connection.putheader(name, value)
        content = (body or "").encode()
        connection.putheader("Content-Length", str(len(content)))
        connection.endheaders(content)
        response = connection.getresponse()
        fields = {name.lower(): value for name, value in response.getheaders()}
        connection.close()
        return response.status, fields

    def logged(self):
        return [json.loads(line) for line in self.log.read_text().splitlines()]


def open_browser(profile):
    options = webdriver.ChromeOptions()
    for word in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update", "--disable-sync",
                 "--disable-dev-shm-usage", "--force-device-scale-factor=1", f"--user-data-dir={profile}"):
        options.add_argument(word)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service(os.environ["QLSDK_CHROMEDRIVER"]), options=options)
