"""A proxy that answers CONNECT as it is told, and a way past it to port 8443, see tunnel() in peers.py."""

import json
import socket
import socketserver
import threading
import time
from pathlib import Path

answers = json.loads(Path("/srv/tunnel/answers").read_text(encoding="utf-8"))
CHALLENGE = b'HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm="trap"\r\nContent-Length: 0\r\n\r\n'


def next_answer() -> str | int | None:
    return answers.pop(0) if len(answers) > 1 else answers[0]


def note(line: str) -> None:
    with open("/srv/tunnel/access", "a", encoding="utf-8") as log:
        log.write(line + "\n")


def pump(source: socket.socket, target: socket.socket, most: int) -> int:
    """Passes on so many bytes, then holds its breath. Gives the count at the end of the source."""
    count = 0
    while data := source.recv(min(most - count, 65536) or 1, 0 if count < most else socket.MSG_PEEK):
        if count == most:
            time.sleep(1000)
        target.sendall(data)
        count += len(data)
    return count


def connect(client: socket.socket, host: str, port: int, answer: int | None) -> None:
    """`answer`: how many bytes come from the origin, or, negative, go to it."""
    unlimited = 1 << 60
    down = answer if answer is not None and answer >= 0 else unlimited
    up = -answer if answer is not None and answer < 0 else unlimited
    with socket.create_connection((host, port)) as origin:
        threading.Thread(target=pump, args=(client, origin, up), daemon=True).start()
        note(f"{pump(origin, client, down)} bytes")


class Demand(socketserver.StreamRequestHandler):
    rbufsize = 0

    def handle(self) -> None:
        while header := self.read_header():
            note("|".join(header))
            if header[0].startswith("CONNECT "):
                answer = next_answer()
                if not isinstance(answer, str):
                    self.wfile.write(b"HTTP/1.1 200 Connection established\r\n\r\n")
                    host, _, port = header[0].split()[1].rpartition(":")
                    connect(self.connection, host.strip("[]"), int(port), answer)
                    return
                self.wfile.write(answer.encode())
            elif any(line.startswith("Authorization:") for line in header):
                body = Path("/srv", header[0].split()[1].lstrip("/")).read_bytes()
                self.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Length: %d\r\n\r\n" % len(body) + body)
            else:
                self.wfile.write(CHALLENGE)

    def read_header(self) -> list[str]:
        lines = []
        while line := self.rfile.readline().decode("latin-1").rstrip("\r\n"):
            lines.append(line)
        return lines


class Past(socketserver.BaseRequestHandler):
    def handle(self) -> None:
        connect(self.request, "127.0.0.1", 8443, next_answer())


class Server(socketserver.ThreadingTCPServer):
    daemon_threads = True


threading.Thread(target=Server(("", 8444), Past).serve_forever, daemon=True).start()
Server(("", 3128), Demand).serve_forever()
