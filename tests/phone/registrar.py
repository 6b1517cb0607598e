#!/usr/bin/env python3
"""A registrar and proxy for one realm, independent of what it tests: every request but ACK and CANCEL has to be
authenticated, calls go to the contact that was registered, over the connection that it came from. Says on standard
output what it got.

    registrar.py TRANSPORT PORT PASSWORD [--algorithms SHA-256,MD5] [--expires S] [--certificate PEM]
"""
import argparse
import asyncio
import hashlib
import re
import ssl

REALM, NONCE = "here", "84f1c1ae6cbe5ua9c8e88dfa3ecm3459"


def value(text, name):
    found = re.search(rf"^{name}\s*:\s*(.*?)\r$", text, re.M | re.I)
    return found[1] if found else ""


def user_of(address):
    return re.search(r"sips?:([^@>;]*)@", address)[1]


class registrar:
    def __init__(self, options):
        self.options = options
        self.contacts = {}  # user: (contact's address, how to reach it)
        self.ways_back = {}  # branch: how to reach the sender
        self.own = f"127.0.0.1:{options.port}"

    def good(self, method, text):
        given = dict(re.findall(r'(\w+)="?([^",\r]*)"?', value(text, "(?:Proxy-)?Authorization")))
        if not given:
            return False
        hashed = {"MD5": hashlib.md5, "SHA-256": hashlib.sha256}[given.get("algorithm", "MD5")]
        digest = lambda *parts: hashed(":".join(parts).encode()).hexdigest()
        secret = digest(given["username"], REALM, self.options.password)
        expected = digest(secret, NONCE, given["nc"], given["cnonce"], "auth", digest(method, given["uri"]))
        good = given["response"] == expected and given["nonce"] == NONCE
        print(method, given["username"], "good" if good else "wrong", given.get("algorithm", ""), flush=True)
        return good

    def answer(self, text, back, status, more=""):
        kept = "".join(f"{name}: {value(text, name)}\r\n" for name in ("From", "Call-ID", "CSeq"))
        to = value(text, "To")
        to += "" if ";tag=" in to else ";tag=registrar"
        vias = "".join(f"Via: {one}\r\n" for one in re.findall(r"^Via: (.*?)\r$", text, re.M))
        back(f"SIP/2.0 {status}\r\n{vias}{kept}To: {to}\r\n{more}Content-Length: 0\r\n\r\n".encode())

    def take(self, message, back):
        if not message.strip():
            print("keep-alive", flush=True)
            return back(b"\r\n")
        text = message.decode()
        first = text.split("\r\n", 1)[0].split(" ", 2)
        if first[0] == "SIP/2.0":
            branch, rest = re.match(r".*?\r\nVia:[^\r]*branch=(\w+)[^\r]*\r\n(.*)", text, re.S).groups()
            self.ways_back[branch]((text.split("\r\n", 1)[0] + "\r\n" + rest).encode())
        elif first[0] not in ("ACK", "CANCEL") and not self.good(first[0], text):
            kind, status = ("WWW", "401") if first[0] == "REGISTER" else ("Proxy", "407")
            self.answer(text, back, status + " Prove it", "".join(
                f'{kind}-Authenticate: Digest realm="{REALM}", nonce="{NONCE}", qop="auth", algorithm={one}\r\n'
                for one in self.options.algorithms.split(",")))
        elif first[0] == "REGISTER":
            self.register(text, back)
        else:
            self.forward(text, first, back)

    def register(self, text, back):
        contact = value(text, "Contact")
        user = user_of(value(text, "To"))
        if "expires=0" in contact:
            self.contacts.pop(user, None)
            print("removed", user, flush=True)
        else:
            self.contacts[user] = (re.search("<(.*?)>", contact)[1], back)
        granted = re.sub("expires=[1-9]\\d*", f"expires={self.options.expires}", contact)
        flow = re.search('instance="<urn:uuid:(.*)>";reg-id=1', contact)
        if flow:
            print("flow", flow[1], flush=True)
        more = "Require: outbound\r\nFlow-Timer: 1\r\n" if flow else ""
        self.answer(text, back, "200 OK", f"Contact: {granted}\r\n{more}")

    def forward(self, text, first, back):
        user = user_of(first[1])[-3:]  # 9100 is 100, asked for from elsewhere
        if user not in self.contacts:
            return self.answer(text, back, "404 Not Found")
        address, way = self.contacts[user]
        branch = "z9hG4bK" + hashlib.md5(value(text, "Via").encode()).hexdigest()
        self.ways_back[branch] = back
        transport = self.options.transport
        rest = re.sub(r"^Route:.*?\r\n", "", text.split("\r\n", 1)[1], flags=re.M)
        way(f"{first[0]} {address} SIP/2.0\r\nVia: SIP/2.0/{transport.upper()} {self.own};branch={branch}\r\n"
            f"Record-Route: <sip:{self.own};transport={transport};lr>\r\n{rest}".encode())

    async def serve_stream(self, reader, writer):
        while not reader.at_eof():
            head = await reader.readuntil(b"\r\n\r\n")
            length = value(head.decode(), "Content-Length")
            self.take(head + await reader.readexactly(int(length or 0)), writer.write)

    async def run(self):
        if self.options.transport == "udp":
            owner = self

            class datagrams(asyncio.DatagramProtocol):
                def connection_made(self, transport):
                    self.transport = transport

                def datagram_received(self, data, source):
                    owner.take(data, lambda answer: self.transport.sendto(answer, source))

            await asyncio.get_running_loop().create_datagram_endpoint(datagrams, ("127.0.0.1", self.options.port))
        else:
            secure = None
            if self.options.certificate:
                secure = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
                secure.load_cert_chain(self.options.certificate)
            await asyncio.start_server(self.serve_stream, "127.0.0.1", self.options.port, ssl=secure)
        print("listening", flush=True)
        await asyncio.Event().wait()


parser = argparse.ArgumentParser()
parser.add_argument("transport")
parser.add_argument("port", type=int)
parser.add_argument("password")
parser.add_argument("--algorithms", default="MD5")
parser.add_argument("--expires", default="3600")
parser.add_argument("--certificate")
asyncio.run(registrar(parser.parse_args()).run())
