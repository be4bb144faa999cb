#!/usr/bin/python3
"""A server on loopback that the transports' tests send to, behind a proxy that lets it fail.

    server.py KIND DIR [PORT]    smtp, ftp, http: not encrypted; smtp_tls, ftp_tls: only after STARTTLS and AUTH TLS;
                                 smtps, ftps, https: from the beginning; sftp: takes the key DIR/client

Prints its port, and ends with its input. What arrives goes into DIR/data: a file, or a mail (DIR/mail), its attachments
and what else it says (DIR/mail.json). DIR/arrivals gets a line for each that has wholly arrived. DIR/certificate.pem and
DIR/known_hosts are what to trust. DIR/fault says what is wrong at the moment: nothing, "refuse TEXT" (what contains TEXT;
HTTP: everything), "stall" or "cut" (in the middle of what comes from the client), "part" (FTP: takes that for the whole).
"""

import asyncio
import base64
import contextlib
import email.policy
import hashlib
import json
import os
import random
import socket
import ssl
import subprocess
import sys
import threading
from pathlib import Path

USER, PASSWORD = "kavro", "s3cret-word"
KIND, DIR = sys.argv[1], Path(sys.argv[2])
DATA, CERTIFICATE, KEY = DIR / "data", DIR / "certificate.pem", DIR / "key.pem"
MIDDLE = 20000  # bytes


def fault():
    return (DIR / "fault").read_text().partition(" ")


def refuses(what):
    kind, _, text = fault()
    return kind == "refuse" and text in what


def arrived(what):
    with open(DIR / "arrivals", "a") as log:
        log.write(f"{what}\n")


def serve_smtp(port):
    from aiosmtpd.controller import Controller
    from aiosmtpd.smtp import AuthResult

    class Handler:
        async def handle_RCPT(self, server, session, envelope, address, options):
            if refuses(address):
                return "550 5.1.1 no such mailbox"
            envelope.rcpt_tos.append(address)
            return "250 OK"

        async def handle_DATA(self, server, session, envelope):
            mail = email.message_from_bytes(envelope.original_content, policy=email.policy.default)
            files = {part.get_filename(): part.get_payload(decode=True) for part in mail.iter_attachments()}
            for name, content in files.items():
                (DATA / name).write_bytes(content)
            text = mail.get_body().get_content().replace("\r\n", "\n")
            varying = ("Date", "Message-Id", "Content-Type")
            headings = {name: str(value) for name, value in mail.items() if name not in varying}
            told = {"sender": envelope.mail_from, "recipients": envelope.rcpt_tos, "headings": headings, "text": text}
            (DIR / "mail.json").write_text(json.dumps(told | {"attachments": list(files)}))
            (DIR / "mail").write_bytes(envelope.original_content)
            arrived(next(iter(files)))
            return "250 OK"

    def login(server, session, envelope, mechanism, data):
        return AuthResult(success=(data.login, data.password) == (USER.encode(), PASSWORD.encode()), handled=False)

    options = {"authenticator": login, "auth_required": True, "auth_require_tls": False}
    if KIND != "smtp":
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(CERTIFICATE, KEY)
        options |= {"ssl_context": context} if KIND == "smtps" else {"tls_context": context, "require_starttls": True}
    Controller(Handler(), hostname="127.0.0.1", port=port, **options).start()


def serve_ftp(port):
    from pyftpdlib import authorizers, handlers, servers

    class Data(handlers.DTPHandler if KIND == "ftp" else handlers.TLS_DTPHandler):
        ac_in_buffer_size = 4096

        def readable(self):  # a client may be done with the handshake before it says what it sends
            return not self._initialized or super().readable()

        def handle_read_event(self):
            super().handle_read_event()
            if self.tot_bytes_received >= MIDDLE and fault()[0] == "cut":
                self.cmd_channel.close()
            elif self.tot_bytes_received >= MIDDLE and fault()[0] == "part":
                self.handle_close()

    class Handler(handlers.FTPHandler if KIND == "ftp" else handlers.TLS_FTPHandler):
        dtp_handler = Data
        certfile, keyfile, tls_control_required, tls_data_required = CERTIFICATE, KEY, True, True

        def ftp_STOR(self, file, mode="w"):
            if refuses(file):
                return self.respond("550 Not here.")
            return super().ftp_STOR(file, mode)

        def ftp_RNTO(self, path):
            if os.path.exists(path):
                return self.respond("553 It is there already.")  # as some servers do
            result = super().ftp_RNTO(path)
            arrived(Path(path).name)
            return result

    if KIND != "ftp":
        Handler.ssl_context = Handler.get_ssl_context()
        Handler.ssl_context.set_session_id(b"test")  # or the data connection could not go on with the session
    if KIND == "ftps":
        Handler.handle_ssl_established = Handler.handle
        Handler.handle = lambda self: self.secure_connection(self.ssl_context)
    Handler.authorizer = authorizers.DummyAuthorizer()
    Handler.authorizer.add_user(USER, PASSWORD, str(DATA), perm="elradfmw")
    threading.Thread(target=servers.FTPServer(("127.0.0.1", port), Handler).serve_forever, daemon=True).start()


def serve_http(port):
    for path in (DIR, DATA):
        path.chmod(0o777)  # when it is started by root it serves as another user
    (DIR / "http.pid").unlink(missing_ok=True)  # of one that was killed, and that may not have been waited for yet
    (DIR / "users").write_text(f"{USER}:{{SHA}}{base64.b64encode(hashlib.sha1(PASSWORD.encode()).digest()).decode()}\n")
    settings = {"DIR": str(DIR), "PORT": str(port), "TLS": "on" if KIND == "https" else "off"}
    return subprocess.Popen(["/usr/sbin/apache2", "-X", "-f", Path(__file__).with_name("http.conf")], env=settings)


async def serve_sftp(port, public_port):
    import asyncssh

    class Server(asyncssh.SFTPServer):
        def __init__(self, channel):
            super().__init__(channel, chroot=os.fsencode(DATA))

        def open(self, path, flags, attributes):
            if refuses(os.fsdecode(path)):
                raise asyncssh.SFTPPermissionDenied("Not here.")
            return super().open(path, flags, attributes)

        def rename(self, old, new):
            super().rename(old, new)
            arrived(Path(os.fsdecode(new)).name)

    host, client = (asyncssh.generate_private_key("ecdsa-sha2-nistp256") for _ in range(2))
    client.write_private_key(DIR / "client", "pkcs8-pem", PASSWORD)
    client.write_public_key(DIR / "client.pub")
    (DIR / "known_hosts").write_text(f"[127.0.0.1]:{public_port} {host.export_public_key().decode()}")
    await asyncssh.listen("127.0.0.1", port, server_host_keys=[host], sftp_factory=Server,
                          authorized_client_keys=str(DIR / "client.pub"))


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


# One that the system gives to nobody who asks for any: a server that is down has to find its port free again.
def free_port():
    while True:
        port = random.randrange(10240, 32000)
        with contextlib.suppress(OSError), socket.create_server(("127.0.0.1", port)):
            return port


async def serve(port):
    async def connected(reader, writer):
        kind = fault()[0]
        server_reader, server_writer = await asyncio.open_connection("127.0.0.1", own_port)
        limit = 40 if (KIND, kind) == ("ftp", "stall") else MIDDLE  # its files go over connections of their own
        tasks = [asyncio.ensure_future(copy(reader, server_writer, kind, limit)),
                 asyncio.ensure_future(copy(server_reader, writer))]
        await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
        if kind == "cut":
            writer.transport.abort()
        await asyncio.wait(tasks)

    own_port = free_port()
    port = port or free_port()
    await asyncio.start_server(connected, "127.0.0.1", port)
    process = None
    if KIND == "sftp":
        await serve_sftp(own_port, port)
    else:
        servers = {"smtp": serve_smtp, "ftp": serve_ftp, "http": serve_http}
        process = servers[KIND.removesuffix("_tls").rstrip("s")](own_port)
    asyncio.get_running_loop().add_reader(0, lambda: (process and process.kill(), os._exit(0)))
    while socket.socket().connect_ex(("127.0.0.1", own_port)) != 0:
        await asyncio.sleep(0.01)
    print(port, flush=True)
    await asyncio.Event().wait()


DATA.mkdir(exist_ok=True)
subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                "-days", "2", "-subj", "/CN=test", "-addext", "subjectAltName=IP:127.0.0.1",
                "-keyout", KEY, "-out", CERTIFICATE], stderr=subprocess.DEVNULL, check=True)
asyncio.run(serve(int((sys.argv + [0])[3])))
