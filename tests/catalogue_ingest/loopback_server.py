#!/usr/bin/env python3
"""HTTP server for the transfer tests, on 127.0.0.1 only.

Prints its port on the first line of standard output, then serves until it is stopped, until it has answered
--max-requests requests or for --lifetime seconds, whichever comes first. Every request is appended to
--log as one line "METHOD PATH RANGE CHECKSUM-HEADER".

GET  /files/<name>            the body given by --file <name>=<path>, with Range support and X-Checksum-Sha256
GET  /cut/<name>              the same, but a request without Range gets half the body and a dropped connection
GET  /wrongsum/<name>         the body with a wrong X-Checksum-Sha256
GET  /sidecar/<name>          no checksum header; /sidecar/<name>.sha256 holds "<hex>  <name>"
GET  /norange/<name>          ignores Range (always 200 with the whole body)
GET  /flaky/<name>            503 on the first request, then like /files/
PUT  /upload/<name>           stores the body in --store; 201 if X-Checksum-Sha256 matches, else 400
POST /upload/<name>           multipart/form-data: stores the "file" part; same checks
PUT  /flaky-upload/<name>     503 on the first request, then like /upload/
"""
import argparse
import hashlib
import http.server
import os
import socketserver
import sys
import threading
import time

args = None
files = {}
seen = {}
lock = threading.Lock()
served = 0


def log(line):
    with lock, open(args.log, "a") as f:
        f.write(line + "\n")


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, *a):
        pass

    def record(self):
        global served
        with lock:
            served += 1
        log("%s %s %s %s" % (self.command, self.path, self.headers.get("Range", "-"),
                             self.headers.get("X-Checksum-Sha256", "-")))

    def first_time(self, key):
        with lock:
            n = seen.get(key, 0)
            seen[key] = n + 1
        return n == 0

    def send_body(self, status, body, headers=()):
        self.send_response(status)
        for k, v in headers:
            self.send_header(k, v)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        self.record()
        parts = self.path.split("/")
        if len(parts) != 3:
            return self.send_body(404, b"not found")
        kind, name = parts[1], parts[2]
        if kind == "sidecar" and name.endswith(".sha256") and name[:-7] in files:
            body = files[name[:-7]]
            return self.send_body(200, ("%s  %s\n" % (hashlib.sha256(body).hexdigest(), name[:-7])).encode())
        if name not in files:
            return self.send_body(404, b"not found")
        body = files[name]
        digest = hashlib.sha256(body).hexdigest()
        if kind == "wrongsum":
            digest = hashlib.sha256(body + b"x").hexdigest()
        headers = [] if kind in ("sidecar", "norange") else [("X-Checksum-Sha256", digest)]
        if kind == "flaky" and self.first_time(self.path):
            return self.send_body(503, b"busy")
        rng = self.headers.get("Range")
        if rng and kind != "norange":
            start = int(rng.split("=")[1].split("-")[0])
            if start >= len(body):
                return self.send_body(416, b"", [("Content-Range", "bytes */%d" % len(body))])
            part = body[start:]
            return self.send_body(206, part, headers + [
                ("Content-Range", "bytes %d-%d/%d" % (start, len(body) - 1, len(body)))])
        if kind == "cut":
            self.send_response(200)
            for k, v in headers:
                self.send_header(k, v)
            self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body[: len(body) // 2])
            self.wfile.flush()
            self.close_connection = True
            self.connection.shutdown(2)
            return
        return self.send_body(200, body, headers)

    def read_body(self):
        length = int(self.headers.get("Content-Length", "0"))
        return self.rfile.read(length)

    def store(self, name, data):
        claimed = self.headers.get("X-Checksum-Sha256", "")
        if claimed != hashlib.sha256(data).hexdigest():
            return self.send_body(400, b"checksum mismatch")
        with open(os.path.join(args.store, name), "wb") as f:
            f.write(data)
        return self.send_body(201, b"stored")

    def do_PUT(self):
        self.record()
        parts = self.path.split("/")
        data = self.read_body()
        if len(parts) == 3 and parts[1] == "flaky-upload" and self.first_time(self.path):
            return self.send_body(503, b"busy")
        if len(parts) != 3 or parts[1] not in ("upload", "flaky-upload"):
            return self.send_body(404, b"not found")
        return self.store(parts[2], data)

    def do_POST(self):
        self.record()
        parts = self.path.split("/")
        data = self.read_body()
        if len(parts) != 3 or parts[1] != "upload":
            return self.send_body(404, b"not found")
        boundary = self.headers.get("Content-Type", "").split("boundary=")[-1].encode()
        for section in data.split(b"--" + boundary):
            head, _, content = section.partition(b"\r\n\r\n")
            if b'name="file"' in head:
                return self.store(parts[2], content[: -2] if content.endswith(b"\r\n") else content)
        return self.send_body(400, b"no file part")


class Server(socketserver.ThreadingMixIn, http.server.HTTPServer):
    daemon_threads = True

    def handle_error(self, request, client_address):
        pass  # the dropped connections of /cut/ are on purpose


def main():
    global args
    parser = argparse.ArgumentParser()
    parser.add_argument("--file", action="append", default=[])
    parser.add_argument("--log", required=True)
    parser.add_argument("--store", default=".")
    parser.add_argument("--max-requests", type=int, default=200)
    parser.add_argument("--lifetime", type=float, default=120.0)
    args = parser.parse_args()
    for item in args.file:
        name, path = item.split("=", 1)
        with open(path, "rb") as f:
            files[name] = f.read()
    server = Server(("127.0.0.1", 0), Handler)
    print(server.server_address[1], flush=True)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    deadline = time.time() + args.lifetime
    while time.time() < deadline and served < args.max_requests:
        time.sleep(0.05)
    server.shutdown()


if __name__ == "__main__":
    sys.exit(main())
