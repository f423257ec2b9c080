"""What else speaks to the collector's page: a line that breaks, and a page of another origin."""

import http.server
import socket
import threading


class Relay:
    """Passes connections on to the page's server, and cuts them all on demand."""

    def __init__(self, origin):
        self.host = origin.removeprefix("http://").encode()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.own = b"127.0.0.1:%d" % self.listener.getsockname()[1]
        self.sockets = []
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            try:
                client, _ = self.listener.accept()
                name, port = self.host.split(b":")
                server = socket.create_connection((name, int(port)))
            except OSError:
                return
            self.sockets += [client, server]
            threading.Thread(target=self._pump, args=(client, server), daemon=True).start()
            threading.Thread(target=self._pump, args=(server, client), daemon=True).start()

    def _pump(self, source, target):
        try:
            while received := source.recv(65536):
                target.sendall(received.replace(self.own, self.host))
        except OSError:
            pass
        self._close(source)
        self._close(target)
        source.close()

    @staticmethod
    def _close(one):
        try:
            one.shutdown(socket.SHUT_RDWR)
        except OSError:
            pass

    def cut(self):
        for one in self.sockets:
            self._close(one)

    def end(self):
        self.listener.close()
        self.cut()


class Elsewhere(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.end_headers()
        self.wfile.write(b"<!doctype html><title>elsewhere</title>")

    def log_message(self, *_):
        pass


class ForeignSite:
    """Serves a page of another origin."""

    def __init__(self):
        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Elsewhere)
        self.url = f"http://127.0.0.1:{self.server.server_port}/"
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def end(self):
        self.server.shutdown()
        self.server.server_close()
