#!/usr/bin/python3
"""Servers on loopback that the transports' tests send to.

    server.py smtp PORT DIR [CERTIFICATE KEY]   mails become DIR/1.eml, 2.eml, ...; with a certificate STARTTLS and the
                                                login "kavro" / "s3cret-word" are required
    server.py ftp PORT DIR                      login as above
    server.py http PORT DIR                     takes PUT
    server.py proxy PORT TARGET DIR             passes connections on to the port TARGET
    server.py parse MAIL DIR                    prints what is in a mail as JSON, writes its attachments into DIR

DIR/../arrivals gets a line for each mail or file that has wholly arrived. DIR/../fault says what is wrong at the moment:
nothing, "refuse TEXT" (what contains TEXT; HTTP: everything), "stall N" or "cut N" (after N bytes from the client).
"""

import asyncio
import email
import email.policy
import json
import logging
import os
import signal
import ssl
import sys
from pathlib import Path

USER, PASSWORD = "kavro", "s3cret-word"


def fault(directory):
    """The fault and its argument; ("", "") when there is none."""
    try:
        kind, _, argument = (directory.parent / "fault").read_text().partition(" ")
        return kind, argument
    except FileNotFoundError:
        return "", ""


def arrived(directory, what):
    with open(directory.parent / "arrivals", "a") as log:
        log.write(f"{what}\n")


def serve_smtp(port, directory, certificate=None, key=None):
    from aiosmtpd.controller import Controller
    from aiosmtpd.smtp import AuthResult

    class Handler:
        async def handle_RCPT(self, server, session, envelope, address, options):
            kind, argument = fault(directory)
            if kind == "refuse" and argument in address:
                return "550 5.1.1 no such mailbox"
            envelope.rcpt_tos.append(address)
            return "250 OK"

        async def handle_DATA(self, server, session, envelope):
            number = len(list(directory.glob("*.eml"))) + 1
            (directory / f"{number}.eml").write_bytes(envelope.original_content)
            (directory / f"{number}.envelope").write_text("\n".join([envelope.mail_from, *envelope.rcpt_tos]))
            arrived(directory, number)
            return "250 OK"

    options = {}
    if certificate:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(certificate, key)
        login = lambda server, session, envelope, mechanism, data: AuthResult(
            success=(data.login, data.password) == (USER.encode(), PASSWORD.encode()), handled=False)
        options = {"tls_context": context, "require_starttls": True, "auth_required": True, "authenticator": login}
    Controller(Handler(), hostname="127.0.0.1", port=port, **options).start()


def serve_ftp(port, directory):
    from pyftpdlib.authorizers import DummyAuthorizer
    from pyftpdlib.handlers import DTPHandler, FTPHandler
    from pyftpdlib.servers import FTPServer

    class Data(DTPHandler):
        ac_in_buffer_size = 4096

        def handle_read_event(self):
            super().handle_read_event()
            kind, argument = fault(directory)
            if kind == "cut" and self.tot_bytes_received >= int(argument):
                self.cmd_channel.close()

    class Handler(FTPHandler):
        dtp_handler = Data

        def ftp_STOR(self, file, mode="w"):
            kind, argument = fault(directory)
            if kind == "refuse" and argument in file:
                return self.respond("550 Not here.")
            return super().ftp_STOR(file, mode)

        def ftp_RNTO(self, path):
            result = super().ftp_RNTO(path)
            arrived(directory, Path(path).name)
            return result

    Handler.authorizer = DummyAuthorizer()
    Handler.authorizer.add_user(USER, PASSWORD, str(directory), perm="elradfmw")
    logging.basicConfig(level=logging.WARNING)
    FTPServer(("127.0.0.1", port), Handler).serve_forever()


def serve_http(port, directory):
    home = directory.parent
    for path in (home, directory):
        path.chmod(0o777)
    modules = "mpm_event authz_core dav dav_fs".split()
    (home / "http.conf").write_text(
        "".join(f"LoadModule {name}_module /usr/lib/apache2/modules/mod_{name}.so\n" for name in modules)
        + f"""
            ServerName localhost
            Listen 127.0.0.1:{port}
            User www-data
            Group www-data
            PidFile {home}/http.pid
            DefaultRuntimeDir {home}
            ErrorLog {home}/http.log
            DocumentRoot {directory}
            DavLockDB {home}/lock
            LogFormat "%U" path
            CustomLog {home}/arrivals path "expr=%{{REQUEST_STATUS}} in {{'201', '204'}}"
            <Directory {directory}>
                Dav On
                <If "file('{home}/fault') =~ /^refuse/">
                    Require all denied
                </If>
            </Directory>
        """)
    os.execv("/usr/sbin/apache2", ["apache2", "-X", "-f", str(home / "http.conf")])


async def serve_proxy(port, target, directory):
    async def copy(reader, writer, kind="", limit=0):
        passed = 0
        while data := await reader.read(4096):
            passed += len(data)
            if kind == "stall" and passed >= limit:
                await asyncio.sleep(3600)
            if kind == "cut" and passed >= limit:
                break
            writer.write(data)
            await writer.drain()
        writer.close()

    async def connected(reader, writer):
        kind, argument = fault(directory)
        upstream_reader, upstream_writer = await asyncio.open_connection("127.0.0.1", target)
        limit = int(argument) if kind in ("stall", "cut") else 0
        tasks = [asyncio.ensure_future(copy(reader, upstream_writer, kind, limit)),
                 asyncio.ensure_future(copy(upstream_reader, writer))]
        await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
        if kind == "cut":
            writer.transport.abort()
        await asyncio.wait(tasks)

    server = await asyncio.start_server(connected, "127.0.0.1", port)
    await server.serve_forever()


def parse(path, directory):
    message = email.message_from_bytes(path.read_bytes(), policy=email.policy.default)
    attachments = []
    for number, part in enumerate(message.iter_attachments()):
        (directory / str(number)).write_bytes(part.get_payload(decode=True))
        attachments.append(part.get_filename())
    print(json.dumps({
        "headings": {name: str(message[name]) for name in message.keys()},
        "text": message.get_body().get_content().replace("\r\n", "\n"),
        "attachments": attachments,
    }))


def main(kind, first, second, *rest):
    if kind == "parse":
        parse(Path(first), Path(second))
    elif kind == "proxy":
        asyncio.run(serve_proxy(int(first), int(second), Path(rest[0])))
    elif kind == "smtp":
        serve_smtp(int(first), Path(second), *rest)
        signal.pause()
    else:
        {"ftp": serve_ftp, "http": serve_http}[kind](int(first), Path(second))


main(*sys.argv[1:])
