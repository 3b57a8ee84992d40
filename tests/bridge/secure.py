"""Whether a bridge encrypts where it is told to, and refuses a server that can't or that isn't the right one.
usage: secure.py PROGRAMS     PROGRAMS is the build folder
"""
import os
import shutil
import sys
import tempfile
from pathlib import Path

from certificates import make_certificates
from rounds import Process, free_port, wait_until

NO_ENGINE = 4


def tls(name, *more):
    return ["--tls", "--tlscert", f"{name}.pem", "--tlskey", f"{name}.key", *more]


# what, the server's arguments, the address, the bridge's arguments, whether it is connected
CASES = [
    ("the right server", tls("here"), "tls://", ["--tls-ca", "ca.pem"], True),
    ("a server without TLS", [], "tls://", ["--tls-ca", "ca.pem"], False),
    ("an authority that isn't trusted", tls("here"), "tls://", ["--tls-ca", "other.pem"], False),
    ("no authority named, and none of the system's", tls("here"), "tls://", [], False),
    ("a server of another name", tls("elsewhere"), "tls://", ["--tls-ca", "ca.pem"], False),
    ("a client's certificate", tls("here", "--tlsverify", "--tlscacert", "ca.pem"), "tls://",
     ["--tls-ca", "ca.pem", "--tls-certificate", "client.pem", "--tls-key", "client.key"], True),
    ("certificates named, and a server without TLS", [], "nats://",
     ["--tls-certificate", "client.pem", "--tls-key", "client.key"], False),
]


def main():
    programs = Path(sys.argv[1]).resolve()
    folder = Path(tempfile.mkdtemp(prefix="tivra-bridge-"))
    make_certificates(folder)
    os.chdir(folder)
    (folder / "symbols").write_text("IBM\n")
    nats_server = shutil.which("nats-server", path=os.environ["PATH"] + ":/usr/sbin")
    hub = Process(folder, "hub", programs / "tools/tivra-hub/tivra-hub", "--port", 0)
    bad = 0
    try:
        wait_until("a hub", lambda: hub.says("listening on "))
        address = hub.log.read_text().split("listening on ")[1].split()[0]
        for number, (what, serving, scheme, options, is_good) in enumerate(CASES):
            port = free_port()
            server = Process(folder, f"server{number}", nats_server, "-a", "127.0.0.1", "-p", port, "-js", "-sd",
                             folder / f"js{number}", *serving)
            wait_until("a server", lambda: server.says("Server is ready"))
            bridge = Process(folder, f"bridge{number}", programs / "bridge/tivra-bridge", "-H", address, "--user", "demo",
                             "-s", 100, "-f", "symbols", "--to", f"{scheme}127.0.0.1:{port}", "--partitions", 1, *options)
            wait_until("its end or its start", lambda: bridge.says("1 partition, ready") or bridge.child.poll() is not None)
            was_good = bridge.says("1 partition, ready")
            code = bridge.child.poll()
            if was_good != is_good or not is_good and code != NO_ENGINE:
                bad += 1
                print(f"{what}: {'connected' if was_good else 'not connected'}, exit code {code}\n{bridge.log.read_text()}")
            bridge.end()
            server.end()
    finally:
        hub.end()
    print(f"{len(CASES)} cases, {bad} bad")
    if not bad:
        shutil.rmtree(folder)
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
