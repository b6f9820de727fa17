"""A real SMTP server on loopback for the tests of the Windows build.

    /usr/bin/python3 smtp-server.py DIR [--refuse COMMAND]

Serves Debian's aiosmtpd on 127.0.0.1, on a port the system picks, and
writes that port to DIR/port once it listens. Each message that arrives is
kept as DIR/N.helo (the HELO argument), DIR/N.from (the MAIL FROM address),
DIR/N.to (the RCPT TO addresses, one a line) and DIR/N.data (the message as
received, bytes untouched, ending where the terminating "." begins), N
counting from 1. With --refuse HELO, MAIL, RCPT or DATA the server answers
that command with 550 instead, and records what it had by then. Runs until
it is killed.

Call it with /usr/bin/python3: Debian's aiosmtpd is installed for Debian's
Python, which another python3 earlier on PATH may not see.
"""

import argparse
import asyncio
import os

from aiosmtpd.smtp import SMTP


class Recorder:
    def __init__(self, folder, refuse):
        self.folder = folder
        self.refuse = refuse
        self.count = 0

    def _write(self, name, data):
        with open(os.path.join(self.folder, name), "wb") as f:
            f.write(data)

    def _keep(self, session, envelope, data=None):
        self.count += 1
        n = str(self.count)
        self._write(n + ".helo", (session.host_name or "").encode("latin-1"))
        self._write(n + ".from", (envelope.mail_from or "").encode("latin-1"))
        self._write(n + ".to", "".join(a + "\n" for a in envelope.rcpt_tos).encode("latin-1"))
        if data is not None:
            self._write(n + ".data", data)

    async def handle_HELO(self, server, session, envelope, hostname):
        if self.refuse == "HELO":
            session.host_name = hostname
            self._keep(session, envelope)
            return "550 HELO refused"
        session.host_name = hostname
        return "250 " + server.hostname

    async def handle_MAIL(self, server, session, envelope, address, mail_options):
        envelope.mail_from = address
        if self.refuse == "MAIL":
            self._keep(session, envelope)
            return "550 sender refused"
        return "250 OK"

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        envelope.rcpt_tos.append(address)
        if self.refuse == "RCPT":
            self._keep(session, envelope)
            return "550 recipient refused"
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        if self.refuse == "DATA":
            self._keep(session, envelope, envelope.original_content)
            return "550 message refused"
        self._keep(session, envelope, envelope.original_content)
        return "250 Message accepted for delivery"


async def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("folder")
    parser.add_argument("--refuse", choices=["HELO", "MAIL", "RCPT", "DATA"])
    args = parser.parse_args()
    recorder = Recorder(args.folder, args.refuse)
    loop = asyncio.get_running_loop()
    server = await loop.create_server(
        lambda: SMTP(recorder, hostname="mail.e2e.test", decode_data=False), "127.0.0.1", 0)
    port = server.sockets[0].getsockname()[1]
    with open(os.path.join(args.folder, "port.tmp"), "w") as f:
        f.write(str(port))
    os.replace(os.path.join(args.folder, "port.tmp"), os.path.join(args.folder, "port"))
    async with server:
        await server.serve_forever()


if __name__ == "__main__":
    asyncio.run(main())
