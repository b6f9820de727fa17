#!/usr/bin/python3
"""Scripted SMTP peers for the tests: loopback only, standard library only.

    peer.py script STEPS_FILE LOG_FILE [LIFETIME_SECONDS]
    peer.py blackhole [LIFETIME_SECONDS]

Each peer binds 127.0.0.1 on a port of its own choosing, prints "PORT n" as
its first line, and exits by itself: a script peer when its client has gone
or its lifetime is over, a blackhole when its lifetime is over.

script: accepts one connection and plays the steps of STEPS_FILE, a JSON
list of steps:
    ["send", TEXT]     sends TEXT (each character one byte)
    ["until", TEXT]    reads until TEXT has arrived behind the last match
    ["sleep", MS]      waits
    ["close"]          closes the connection in order (FIN)
    ["reset"]          aborts the connection (RST)
    ["hold"]           keeps the connection open, reading, until the client
                       closes it or the lifetime is over
After the last step it reads on until the client closes. Everything the
client sent is written, byte for byte, to LOG_FILE.

blackhole: a listening port whose queue is kept full, so that a connection to
it never completes.
"""
import json
import socket
import sys
import time


def open_listener(backlog):
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.bind(("127.0.0.1", 0))
    listener.listen(backlog)
    return listener


def announce(listener):
    print("PORT %d" % listener.getsockname()[1], flush=True)


class Connection:
    def __init__(self, sock, deadline):
        self.sock = sock
        self.deadline = deadline
        self.received = b""
        self.matched = 0
        self.open = True

    def read_some(self):
        """Reads what comes within the lifetime; False once the client is gone."""
        remaining = self.deadline - time.monotonic()
        if remaining <= 0 or not self.open:
            return False
        self.sock.settimeout(min(remaining, 0.5))
        try:
            data = self.sock.recv(65536)
        except socket.timeout:
            return True
        except OSError:
            self.open = False
            return False
        if not data:
            self.open = False
            return False
        self.received += data
        return True

    def until(self, text):
        wanted = text.encode("latin-1")
        while True:
            at = self.received.find(wanted, self.matched)
            if at >= 0:
                self.matched = at + len(wanted)
                return True
            if not self.read_some() and (not self.open or time.monotonic() >= self.deadline):
                return False

    def drain(self):
        while self.read_some() or (self.open and time.monotonic() < self.deadline):
            if not self.open:
                break


def run_script(steps, log_file, lifetime):
    deadline = time.monotonic() + lifetime
    listener = open_listener(1)
    announce(listener)
    listener.settimeout(lifetime)
    try:
        sock, _ = listener.accept()
    except socket.timeout:
        open(log_file, "wb").close()
        return
    listener.close()
    conn = Connection(sock, deadline)
    alive = True
    for step in steps:
        kind = step[0]
        if kind == "send":
            try:
                sock.sendall(step[1].encode("latin-1"))
            except OSError:
                alive = False
        elif kind == "until":
            alive = conn.until(step[1])
        elif kind == "sleep":
            time.sleep(step[1] / 1000.0)
        elif kind == "close":
            try:
                sock.shutdown(socket.SHUT_WR)
            except OSError:
                pass
        elif kind == "reset":
            sock.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\x01\x00\x00\x00\x00\x00\x00\x00")
            sock.close()
            conn.open = False
            alive = False
        elif kind == "hold":
            conn.drain()
        else:
            raise SystemExit("unknown step %r" % (kind,))
        if not alive:
            break
    if conn.open:
        conn.drain()
    with open(log_file, "wb") as log:
        log.write(conn.received)
    try:
        sock.close()
    except OSError:
        pass


def run_blackhole(lifetime):
    listener = open_listener(0)
    fillers = []
    # Connections that are never accepted fill the queue; a further one
    # then waits for an answer that does not come.
    for _ in range(4):
        filler = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        filler.setblocking(False)
        try:
            filler.connect(listener.getsockname())
        except BlockingIOError:
            pass
        fillers.append(filler)
    time.sleep(0.05)
    announce(listener)
    time.sleep(lifetime)


def main(argv):
    if len(argv) >= 3 and argv[0] == "script":
        lifetime = float(argv[3]) if len(argv) > 3 else 20.0
        with open(argv[1], encoding="utf-8") as steps:
            run_script(json.load(steps), argv[2], lifetime)
    elif len(argv) >= 1 and argv[0] == "blackhole":
        run_blackhole(float(argv[1]) if len(argv) > 1 else 20.0)
    else:
        sys.stderr.write(__doc__)
        return 2
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
