"""How the parts of the test bed are steered: a line to a socket, a packet of its own, is answered by a line,
which begins with "ok" or "error". The answer comes when what was asked for has taken effect."""

import os
import socket

FOLDER = "/run/testbed"


class Refused(Exception):
    """The answer was an error."""


def listen(part):
    os.makedirs(FOLDER, exist_ok=True)
    path = f"{FOLDER}/{part}"
    if os.path.exists(path):
        os.unlink(path)
    listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
    listener.bind(path)
    os.chmod(path, 0o666)  # for every user
    listener.listen(8)
    return listener


def ask(part, line, timeout=600):
    """The text of the answer."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as connection:
        connection.settimeout(timeout)
        connection.connect(f"{FOLDER}/{part}")
        connection.send(line.encode())
        answer = connection.recv(65536).decode()
    word, _, text = answer.partition(" ")
    if word != "ok":
        raise Refused(f"{part}: {line}: {text or 'no answer'}")
    return text
