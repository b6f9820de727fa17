#!/usr/bin/python3
"""A real SMTP server for the tests: Debian's aiosmtpd on loopback.

    smtp_server.py LOG_FILE [LIFETIME_SECONDS]

Binds 127.0.0.1 on a port of its own choosing, prints "PORT n" as its first
line and serves one client. When that client has gone (or the lifetime is
over) it writes LOG_FILE, a JSON object with what the server made of the
session: "helo", "mailFrom", "rcptTos", "data" (the message as received,
each byte one character, or null when no message was accepted), and exits.

Run it with /usr/bin/python3: another python3 may not see Debian's packages.
"""
import asyncio
import json
import logging
import sys

from aiosmtpd.smtp import SMTP


class Recorder:
    def __init__(self):
        self.record = {"helo": None, "mailFrom": None, "rcptTos": [], "data": None}

    async def handle_DATA(self, server, session, envelope):
        self.record["helo"] = session.host_name
        self.record["mailFrom"] = envelope.mail_from
        self.record["rcptTos"] = list(envelope.rcpt_tos)
        self.record["data"] = envelope.original_content.decode("latin-1")
        return "250 Message accepted for delivery"


class OneClient(SMTP):
    def __init__(self, handler, gone, **kwargs):
        super().__init__(handler, **kwargs)
        self.gone = gone

    def connection_lost(self, error):
        super().connection_lost(error)
        if not self.gone.done():
            self.gone.set_result(True)


async def serve(log_file, lifetime):
    loop = asyncio.get_running_loop()
    gone = loop.create_future()
    recorder = Recorder()
    server = await loop.create_server(
        lambda: OneClient(recorder, gone, hostname="mail.test", ident="Zandolin test server"),
        "127.0.0.1", 0)
    print("PORT %d" % server.sockets[0].getsockname()[1], flush=True)
    try:
        await asyncio.wait_for(gone, lifetime)
    except asyncio.TimeoutError:
        pass
    server.close()
    with open(log_file, "w", encoding="utf-8") as log:
        json.dump(recorder.record, log)


def main(argv):
    if not argv:
        sys.stderr.write(__doc__)
        return 2
    logging.getLogger("mail.log").setLevel(logging.CRITICAL)
    asyncio.run(serve(argv[0], float(argv[1]) if len(argv) > 1 else 20.0))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
