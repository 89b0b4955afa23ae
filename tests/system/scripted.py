"""A server that misbehaves as it is told, see scripted() in peers.py."""

import json
import socket
import struct
import sys
import time
from pathlib import Path

answers = json.loads(Path("/srv/scripted/answers").read_text(encoding="utf-8"))
listener = socket.create_server(("", int(sys.argv[1])))
while True:
    connection = listener.accept()[0]
    header = b""
    while b"\r\n\r\n" not in header:
        received = connection.recv(4096)
        if not received:
            break
        header += received
    words = header.split()
    if len(words) < 2:
        connection.close()
        continue
    path = words[1].decode()
    host = words[words.index(b"Host:") + 1].decode()
    with open("/srv/scripted/access", "a", encoding="utf-8") as log:
        log.write(f"{path} {host}\n")
    answer = answers.pop(0) if answers else None
    if answer is None:
        body = Path(path).read_bytes()
        answer = [f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n", body.decode("latin-1")]
    try:
        for part in answer:
            if part is None:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            elif isinstance(part, str):
                connection.sendall(part.encode("latin-1"))
            else:
                time.sleep(part)
    except OSError:
        pass  # the peer has lost its patience
    connection.close()
