"""server.py ADDRESS PASSWORD: a mail server that tests send to as the user kavro. Attachments go into data/."""

import email.policy
import sys
from pathlib import Path

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult


class Handler:
    async def handle_DATA(self, server, session, envelope):
        mail = email.message_from_bytes(envelope.original_content, policy=email.policy.default)
        for part in mail.iter_attachments():
            Path("data", part.get_filename()).write_bytes(part.get_payload(decode=True))
        return "250 OK"


Controller(Handler(), hostname=sys.argv[1], port=8025, auth_required=True, auth_require_tls=False,
           authenticator=lambda server, session, envelope, mechanism, login: AuthResult(
               success=(login.login, login.password) == (b"kavro", sys.argv[2].encode()), handled=False)).start()
print("started", file=sys.stderr)
sys.stdin.read()
