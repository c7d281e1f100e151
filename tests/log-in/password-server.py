"""Web server that verifies NTLM and SHA-256 Digest log-ins. Arguments: a JSON file of user names and passwords, and
the URL of a provider.

Prints its port. NTLM messages are read and verified with Impacket. An accepted request is answered by the provider if
the path ends with "-provider", else with <r user="..." domain="..." connection="N" handshakes="N"/>, where handshakes
counts those of all connections.
"""

import base64
import hashlib
import html
import http.server
import json
import os
import re
import sys
import urllib.error
import urllib.request

from impacket import ntlm

USERS = json.load(open(sys.argv[1], encoding="utf-8"))
handshakes = 0
connections = 0
nonces = set()


def challenge_message():
    pairs = ntlm.AV_PAIRS()
    pairs[ntlm.NTLMSSP_AV_DOMAINNAME] = "CORP".encode("utf-16le")
    pairs[ntlm.NTLMSSP_AV_HOSTNAME] = "SERVER".encode("utf-16le")
    pairs[ntlm.NTLMSSP_AV_TIME] = (0).to_bytes(8, "little")
    message = ntlm.NTLMAuthChallenge()
    message["flags"] = (
        ntlm.NTLMSSP_NEGOTIATE_UNICODE
        | ntlm.NTLMSSP_NEGOTIATE_NTLM
        | ntlm.NTLMSSP_TARGET_TYPE_DOMAIN
        | ntlm.NTLMSSP_NEGOTIATE_TARGET_INFO
        | ntlm.NTLMSSP_NEGOTIATE_EXTENDED_SESSIONSECURITY
    )
    message["domain_name"] = "CORP".encode("utf-16le")
    message["domain_max_len"] = message["domain_len"] = len(message["domain_name"])
    message["challenge"] = os.urandom(8)
    message["TargetInfoFields"] = pairs.getData()
    message["TargetInfoFields_len"] = message["TargetInfoFields_max_len"] = len(pairs)
    message["TargetInfoFields_offset"] = 40 + 8 + len(message["domain_name"])
    message["domain_offset"] = 48
    message["Version"] = b""
    return message


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def setup(self):
        global connections
        super().setup()
        connections += 1
        self.number = connections
        self.challenge = None  # of an NTLM handshake in progress
        self.user = None  # NTLM logs in a connection

    def do_POST(self):
        self.body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        given = self.headers.get("Authorization", "")
        if self.path.startswith("/ntlm"):
            self.ntlm(given)
        else:
            self.digest(given)

    def answer(self, status, headers=(), body=""):
        data = body.encode()
        self.send_response(status)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Type", "text/xml; charset=utf-8")
        self.send_header("Content-Length", str(len(data)))
        self.end_headers()
        self.wfile.write(data)

    def accept(self, user, domain=""):
        if self.path.endswith("-provider"):
            try:
                reply = urllib.request.urlopen(sys.argv[2], self.body)
            except urllib.error.HTTPError as fault:
                reply = fault
            with reply:
                return self.answer(reply.status, body=reply.read().decode())
        self.close_connection = self.path == "/ntlm-once"  # without saying so
        return self.answer(
            200,
            body=f'<r user="{html.escape(user)}" domain="{domain}" connection="{self.number}" handshakes="{handshakes}"/>',
        )

    def ntlm(self, given):
        global handshakes
        if self.user:
            return self.accept(*self.user)
        token = base64.b64decode(given[5:]) if given.startswith("NTLM ") else b""
        kind = token[8:9]
        if kind == b"\x01":
            handshakes += 1
            self.challenge = challenge_message()
            data = base64.b64encode(self.challenge.getData()).decode()
            closes = [("Connection", "close")] if self.path == "/ntlm-closing" else []
            self.answer(401, [("WWW-Authenticate", "NTLM " + data)] + closes)
            if self.path in ("/ntlm-closing", "/ntlm-gone"):  # the latter without saying so
                self.close_connection = True
            return None
        if kind == b"\x03" and self.challenge is not None:
            self.user = self.verified(token)
            self.challenge = None
            if self.user:
                return self.accept(*self.user)
        return self.answer(401, [("WWW-Authenticate", "NTLM")])

    def verified(self, token):
        message = ntlm.NTLMAuthChallengeResponse()
        message.fromString(token)
        user = message["user_name"].decode("utf-16le")
        domain = message["domain_name"].decode("utf-16le")
        found = [name for name in USERS if name.upper() == user.upper()]  # names ignore case
        if not found or domain not in ("", "CORP", "corp"):
            return None
        key = ntlm.NTOWFv2(user, USERS[found[0]], domain)
        proof, rest = message["ntlm"][:16], message["ntlm"][16:]
        return (user, domain) if rest and ntlm.hmac_md5(key, self.challenge["challenge"] + rest) == proof else None

    def digest(self, given):
        fields = {name: a or b for name, a, b in re.findall(r'(\w+)=(?:"((?:[^"\\]|\\.)*)"|([^,\s]+))', given)}
        # Headers are read as Latin-1.
        user = re.sub(r"\\(.)", r"\1", fields.get("username", "")).encode("latin-1").decode("utf-8", "replace")

        def h(text):
            return hashlib.sha256(text.encode()).hexdigest()

        if user in USERS and fields.get("nonce") in nonces and fields.get("algorithm") == "SHA-256":
            secret = h(f"{user}:service:{USERS[user]}")
            uses = ":".join(fields.get(name, "") for name in ("nonce", "nc", "cnonce", "qop"))
            if fields.get("response") == h(f"{secret}:{uses}:{h('POST:' + self.path)}"):
                return self.accept(user)
        nonce = os.urandom(16).hex()
        nonces.add(nonce)
        return self.answer(
            401, [("WWW-Authenticate", f'Digest realm="service", qop="auth", algorithm=SHA-256, nonce="{nonce}"')]
        )

    def log_message(self, *_):
        pass


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
print(server.server_port, flush=True)
server.serve_forever()
