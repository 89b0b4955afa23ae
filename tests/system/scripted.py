"""A server that misbehaves as it is told, see scripted() in peers.py."""

import json
import socket
import struct
import time
from pathlib import Path

answers = json.loads(Path("/srv/scripted/answers").read_text(encoding="utf-8"))
listener = socket.create_server(("", 8080))
connection = None
while True:
    connection = connection or listener.accept()[0]
    header = ""
    while not header.endswith("\r\n\r\n") and (received := connection.recv(4096)):
        header += received.decode()
    if not header:  # a connection that was kept open has come to its end
        connection.close()
        connection = None
        continue
    words = header.split()
    path = words[1] if words[1].startswith("/") else "/" + words[1].split("/", 3)[3]
    with open("/srv/scripted/access", "a", encoding="utf-8") as log:
        authorization = header.partition("\r\nAuthorization:")[2].partition("\r\n")[0]
        log.write(f"{path} {words[words.index('Host:') + 1]}{authorization}\n")
    answer = answers.pop(0) if answers else None
    if answer is None:
        body = Path(path).read_bytes().decode("latin-1")
        answer = [f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n", body]
    try:
        for part in answer:
            if part is None:
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            elif isinstance(part, str):
                connection.sendall(part.encode("latin-1"))
            elif not isinstance(part, bool):
                time.sleep(part)
    except OSError:
        pass  # the peer has lost its patience
    if not any(part is True for part in answer):
        connection.close()
        connection = None
