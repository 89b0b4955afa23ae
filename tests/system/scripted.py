"""A server that misbehaves as it is told, see scripted() in peers.py."""

import json
import socket
import struct
import time
from pathlib import Path

answers = json.loads(Path("/srv/scripted/answers").read_text(encoding="utf-8"))
listener = socket.create_server(("", 8080))
while True:
    connection = listener.accept()[0]
    header = ""
    while not header.endswith("\r\n\r\n") and (received := connection.recv(4096)):
        header += received.decode()
    words = header.split()
    with open("/srv/scripted/access", "a", encoding="utf-8") as log:
        authorization = header.partition("\r\nAuthorization:")[2].partition("\r\n")[0]
        log.write(f"{words[1]} {words[words.index('Host:') + 1]}{authorization}\n")
    answer = answers.pop(0) if answers else None
    if answer is None:
        body = Path(words[1]).read_bytes().decode("latin-1")
        answer = [f"HTTP/1.1 200 OK\r\nContent-Length: {len(body)}\r\nConnection: close\r\n\r\n", body]
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
