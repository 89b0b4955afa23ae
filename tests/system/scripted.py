"""A server and proxy that answers as it is told, see scripted() in peers.py."""

import json
import socket
import struct
import sys
import threading
import time
from pathlib import Path

answers = json.loads(Path("/srv/scripted/answers").read_text(encoding="utf-8"))
UNLIMITED = 1 << 60


def pump(source: socket.socket, target: socket.socket, most: int) -> None:
    """Passes on so many bytes, then holds its breath."""
    count = 0
    while data := source.recv(min(most - count, 65536) or 1, 0 if count < most else socket.MSG_PEEK):
        if count == most:
            time.sleep(1000)
        target.sendall(data)
        count += len(data)


def connect(client: socket.socket, host: str, port: str, answer: int | None) -> None:
    with socket.create_connection((host.strip("[]"), int(port))) as origin:
        up = -answer if answer and answer < 0 else UNLIMITED
        threading.Thread(target=pump, args=(client, origin, up), daemon=True).start()
        pump(origin, client, answer if answer is not None and answer >= 0 else UNLIMITED)


def serve(client: socket.socket) -> None:
    with client:
        if client.recv(1, socket.MSG_PEEK) == b"\x16":  # a TLS handshake
            return connect(client, "127.0.0.1", "8443", answers.pop(0) if answers else None)
        keep = True
        while keep:
            header = ""
            while not header.endswith("\r\n\r\n"):
                received = client.recv(4096)
                if not received:
                    return None
                header += received.decode()
            with open("/srv/scripted/access", "a", encoding="utf-8") as log:
                log.write(header.strip().replace("\r\n", "|") + "\n")
            method, path = header.split()[:2]
            answer = answers.pop(0) if answers else None
            if method == "CONNECT" and not isinstance(answer, list):
                client.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n")
                return connect(client, *path.rsplit(":", 1), answer)
            if answer is None:
                body = Path(path if path.startswith("/") else "/" + path.split("/", 3)[3]).read_bytes().decode("latin-1")
                answer = [f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n", body]
            keep = any(part is True for part in answer)
            for part in answer:
                if part is None:
                    client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                elif isinstance(part, str):
                    client.sendall(part.encode("latin-1"))
                elif part is not True:
                    time.sleep(part)


listener = socket.create_server(("", int(sys.argv[1])))
while True:
    threading.Thread(target=serve, args=listener.accept()[:1], daemon=True).start()
