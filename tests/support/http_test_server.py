#!/usr/bin/python3
"""A small HTTP server on 127.0.0.1 for the tests of the HTTP client and of model downloads.

Usage: http_test_server.py [FOLDER]

Prints the port it listens on as its first line and serves until it is stopped.
  /echo            the request as JSON: method, path, headers, body size and SHA-256
  /blob/SIZE       SIZE bytes (byte i is (i * 31 + 7) % 251), honouring a Range header;
                   ?drop=N closes the connection after N bytes of the answer's body,
                   ?stall=S waits S seconds before the body
  /files/NAME      the file NAME from FOLDER, honouring a Range header; ?drop=N as above
  /status/CODE     that status, with a short text body
  /redirect/PATH   302 to /PATH
"""

import hashlib
import http.server
import json
import os
import sys
import time
import urllib.parse

FOLDER = sys.argv[1] if len(sys.argv) > 1 else "."


def blob(size):
    return bytes((i * 31 + 7) % 251 for i in range(size))


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, format, *args):
        pass

    def body(self):
        length = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(length) if length else b""

    def reply(self, status, data, content_type="application/octet-stream", headers=()):
        self.send_response(status)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(data)))
        for name, value in headers:
            self.send_header(name, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(data)

    def serve_bytes(self, data, query):
        start, status, headers = 0, 200, [("Accept-Ranges", "bytes")]
        wanted = self.headers.get("Range")
        if wanted and wanted.startswith("bytes=") and wanted.endswith("-"):
            start = int(wanted[6:-1])
            if start >= len(data):
                return self.reply(416, b"", headers=[("Content-Range", f"bytes */{len(data)}")])
            status = 206
            headers.append(("Content-Range", f"bytes {start}-{len(data) - 1}/{len(data)}"))
        part = data[start:]
        if "stall" in query:
            time.sleep(float(query["stall"][0]))
        if "drop" in query:
            drop = int(query["drop"][0])
            self.send_response(status)
            self.send_header("Content-Length", str(len(part)))
            for name, value in headers:
                self.send_header(name, value)
            self.end_headers()
            self.wfile.write(part[:drop])
            self.wfile.flush()
            self.close_connection = True
            return
        self.reply(status, part, headers=headers)

    def handle_any(self):
        url = urllib.parse.urlparse(self.path)
        query = urllib.parse.parse_qs(url.query)
        parts = url.path.strip("/").split("/", 1)
        body = self.body()
        if parts[0] == "echo":
            answer = {
                "method": self.command,
                "path": self.path,
                "headers": {name.lower(): value for name, value in self.headers.items()},
                "bodySize": len(body),
                "bodySHA256": hashlib.sha256(body).hexdigest(),
            }
            self.reply(200, json.dumps(answer).encode(), "application/json")
        elif parts[0] == "blob":
            self.serve_bytes(blob(int(parts[1])), query)
        elif parts[0] == "files":
            path = os.path.join(FOLDER, os.path.basename(parts[1]))
            if not os.path.isfile(path):
                return self.reply(404, b"no such file", "text/plain")
            with open(path, "rb") as file:
                self.serve_bytes(file.read(), query)
        elif parts[0] == "status":
            self.reply(int(parts[1]), f"status {parts[1]}".encode(), "text/plain")
        elif parts[0] == "redirect":
            self.reply(302, b"", headers=[("Location", "/" + parts[1])])
        else:
            self.reply(404, b"unknown path", "text/plain")

    do_GET = do_POST = do_PUT = do_PATCH = do_DELETE = do_HEAD = handle_any


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.daemon_threads = True
print(server.server_address[1], flush=True)
server.serve_forever()
