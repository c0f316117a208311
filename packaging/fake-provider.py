#!/usr/bin/env python3
"""A chat-completions service on the loopback interface for checking an installed vontrel-cli.

Streams "Good morning" when the request carries "Guten Morgen", and says what it got otherwise. Prints the
port it listens on, then serves until killed.
"""
import http.server
import json
import sys


class Handler(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
        if not self.path.endswith("/chat/completions"):
            self.send_error(404)
            return
        request = json.loads(body)
        asked = " ".join(str(m.get("content", "")) for m in request.get("messages", []))
        answer = "Good morning" if "Guten Morgen" in asked else "unexpected request: " + asked[:200]
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.end_headers()
        for piece in (answer[:4], answer[4:]):
            chunk = {"choices": [{"index": 0, "delta": {"content": piece}}]}
            self.wfile.write(b"data: " + json.dumps(chunk).encode() + b"\n\n")
            self.wfile.flush()
        self.wfile.write(b"data: [DONE]\n\n")

    def log_message(self, *args):
        pass


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_address[1], flush=True)
sys.stdout.close()
server.serve_forever()
