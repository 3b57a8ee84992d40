"""What somebody who listens on the way can read: usage: clear_text.py TIVRA_HUB TIVRA_CAT

Records what tivra-hub and tivra-cat send each other on the loopback interface, without TLS and with it, and looks
for the user, the password, symbols and names of fields. Ends with 77 where packets can't be recorded.
"""
import ctypes
import os
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading

HUB, CAT = map(os.path.abspath, sys.argv[1:3])
PATIENCE = 60
USER, PASSWORD = "listened-user", "listened-password"
WORDS = [word.encode() for word in (USER, PASSWORD, "LOAD000001", "TRADE.PRICE")]
ETH_P_IP, TCP = 0x0800, 6
SOL_PACKET, PACKET_STATISTICS, SO_RCVBUFFORCE, SO_ATTACH_FILTER = 263, 6, 33, 26
HANDSHAKE = b"\x16\x03"  # the first record of TLS in each direction


def filter_of(port):
    """For the kernel: TCP from and to the port."""
    steps = [(0x30, 0, 0, 9), (0x15, 0, 6, TCP), (0xB1, 0, 0, 0), (0x48, 0, 0, 0), (0x15, 2, 0, port), (0x48, 0, 0, 2),
             (0x15, 0, 1, port), (0x06, 0, 0, 0xFFFFFFFF), (0x06, 0, 0, 0)]
    return ctypes.create_string_buffer(b"".join(struct.pack("HBBI", *step) for step in steps)), len(steps)


def open_socket(port):
    try:
        heard = socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM, 0)
        heard.setsockopt(socket.SOL_SOCKET, SO_RCVBUFFORCE, 64 << 20)
        steps, count = filter_of(port)
        heard.setsockopt(socket.SOL_SOCKET, SO_ATTACH_FILTER, struct.pack("HP", count, ctypes.addressof(steps)))
        heard.bind(("lo", ETH_P_IP))
        return heard
    except OSError as fault:
        print(f"skipped: packets can't be recorded here, which root may do ({fault})")
        sys.exit(77)


class Recording:
    """The two byte streams of each connection to a port, while it lasts."""

    def __init__(self, port):
        self.pieces = {}  # by both ports: (sequence number, bytes)
        self.socket = open_socket(port)
        self.socket.settimeout(0.1)
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.record)
        self.thread.start()

    def record(self):
        while True:
            try:
                packet = self.socket.recv(1 << 17)
            except TimeoutError:
                if self.ended.is_set():  # and nothing is left
                    return
                continue
            self.take(packet[(packet[0] & 15) * 4:])

    def take(self, segment):
        ports = struct.unpack_from("!HH", segment)
        data = segment[(segment[12] >> 4) * 4:]
        if data:
            self.pieces.setdefault(ports, []).append((struct.unpack_from("!I", segment, 4)[0], data))

    def end(self):
        """The streams; a packet that was missed is an error."""
        self.ended.set()
        self.thread.join(PATIENCE)
        missed = struct.unpack("II", self.socket.getsockopt(SOL_PACKET, PACKET_STATISTICS, 8))[1]
        self.socket.close()
        assert missed == 0, f"{missed} packets were too much for the recording"
        return [self.joined(pieces) for pieces in self.pieces.values()]

    @staticmethod
    def joined(pieces):
        first = pieces[0][0]
        stream = bytearray()
        for at, data in sorted(((number - first) % 2**32, data) for number, data in pieces):
            assert at <= len(stream), "a part of a stream is missing"
            stream[at:at + len(data)] = data  # sent once more, as a rule
        return bytes(stream)


def make_certificates(folder):
    """An issuer and a hub at 127.0.0.1."""
    key = ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2"]
    subprocess.run(key + ["-subj", "/CN=issuer", "-addext", "keyUsage=critical,keyCertSign,cRLSign",
                          "-keyout", "issuer.key", "-out", "issuer.pem"], cwd=folder, check=True, capture_output=True)
    subprocess.run(key + ["-subj", "/CN=hub", "-addext", "subjectAltName=IP:127.0.0.1",
                          "-addext", "basicConstraints=critical,CA:FALSE", "-CA", "issuer.pem", "-CAkey", "issuer.key",
                          "-keyout", "hub.key", "-out", "hub.pem"], cwd=folder, check=True, capture_output=True)


def conversation(folder, hub_options, cat_options):
    """What goes to and fro while a client logs in, asks for fields, and takes some messages."""
    environment = {**os.environ, "TIVRA_PASSWORD": PASSWORD, "XDG_STATE_HOME": folder}
    hub = subprocess.Popen([HUB, "--load", "5:2000", "--user", USER, "--password-env", "TIVRA_PASSWORD", *hub_options],
                           cwd=folder, env=environment, stdout=subprocess.PIPE, text=True)
    try:
        port = int(re.search(r"listening on [\d.]+:(\d+)", hub.stdout.readline())[1])
        recording = Recording(port)
        try:
            cat = subprocess.run([CAT, "--host", f"127.0.0.1:{port}", "--user", USER, "--no-compression", "--output",
                                  "json", "--count", "200", *cat_options, "subscribe"]
                                 + [f"100:LOAD{i:06}" for i in range(5)],
                                 cwd=folder, env=environment, capture_output=True, text=True, timeout=PATIENCE)
        finally:
            streams = recording.end()
    finally:
        hub.terminate()
        hub.communicate(timeout=PATIENCE)
    assert cat.returncode == 0 and "LOAD000001" in cat.stdout, cat.stderr
    return streams


def main():
    open_socket(0).close()
    if not shutil.which("openssl"):
        print("skipped: openssl isn't installed")
        sys.exit(77)
    with tempfile.TemporaryDirectory() as folder:
        make_certificates(folder)
        plain = conversation(folder, [], [])
        unheard = [word.decode() for word in WORDS if not any(word in stream for stream in plain)]
        assert not unheard, f"without TLS the recording has to hold {unheard}, or it wouldn't hold them with TLS either"
        secret = conversation(folder, ["--tls-cert", "hub.pem", "--tls-key", "hub.key"], ["--tls-ca", "issuer.pem"])
        assert len(secret) == 2 and all(stream.startswith(HANDSHAKE) for stream in secret), "both directions begin TLS"
        heard = [word.decode() for word in WORDS if any(word in stream for stream in secret)]
        assert not heard, f"with TLS the recording holds {heard}"
        print(f"without TLS all of {len(WORDS)} words were in {sum(map(len, plain)):,} bytes, "
              f"with TLS none in {sum(map(len, secret)):,}")


main()
