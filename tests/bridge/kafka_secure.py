"""Whether a bridge, tivra-cat and Python reach a real Kafka broker by TLS and with a password, whose user has the rights that
docs/bridge.md lists, and what they say of one that refuses them or that isn't the right one.
usage: kafka_secure.py PROGRAMS [PYTHON]     PROGRAMS is the build folder, PYTHON an interpreter with the package tivra
"""
import itertools
import os
import shutil
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from confluent_kafka.admin import (AclBinding, AclBindingFilter, AclOperation, AclPermissionType, AdminClient,
                                   ResourcePatternType, ResourceType)

from rounds import Process, free_port, wait_until

SCRIPT = Path(__file__).resolve().parents[2] / "scripts/kafka-broker"
WRONG = "wr0ng-s3cret"
NO_ENGINE, UNREACHABLE = 4, 3
PATIENCE = 90.0
CA, PASSWORD = ["--tls-ca", "ca.pem"], ["--credentials", "feed.properties"]
CLIENT = ["--tls-certificate", "client.pem", "--tls-key", "client.key"]
# All but feed and reader may do everything.
ACLS = ["authorizer.class.name=org.apache.kafka.metadata.authorizer.StandardAuthorizer",
        "super.users=User:ANONYMOUS;User:CN=client"]
RIGHTS = {"feed": ["CREATE", "DESCRIBE", "DESCRIBE_CONFIGS", "READ", "WRITE"], "reader": ["DESCRIBE", "READ"]}
LISTED = ["this user needs the rights that docs/bridge.md lists"]

# What, the address, the port, the bridge's options, and what an error has to say; none where it is connected. The first fills
# the topics for those who read.
CASES = [
    ("TLS", "localhost", "tls", CA, []),
    ("TLS and a password", "localhost", "password", CA + PASSWORD, []),
    ("a client's certificate", "localhost", "client", CA + CLIENT, []),
    ("a wrong password", "localhost", "password", CA + ["--credentials", "wrong.properties"],
     ["Invalid username or password", "see that user, password"]),
    ("an authority that isn't trusted", "localhost", "tls", ["--tls-ca", "other.pem"],
     ["the certificate of localhost:", "isn't vouched for", "see that this port speaks TLS"]),
    ("a server of another name", "127.0.0.1", "tls", CA, ["the certificate of 127.0.0.1:", "is for another name"]),
    ("no certificate where one is wanted", "localhost", "client", CA, ["certificate", "see that it runs, and that address"]),
    ("no TLS at a port that has it", "localhost", "tls", [], ["SSL listener?", "see that it runs, and that address"]),
    ("TLS at a port without it", "localhost", "plain", CA, ["SSL handshake failed", "see that this port speaks TLS"]),
]
# The same names for readers.
CAT = {"--tls-certificate": "--tls-cert"}
ARGUMENTS = {"--tls-ca": "ca_file", "--credentials": "credentials_file", "--tls-certificate": "certificate_file",
             "--tls-key": "key_file"}
READ = """
import sys, tivra
try:
    with tivra.connect(sys.argv[1], **dict(word.split("=", 1) for word in sys.argv[2:])) as bus:
        print(bus.snapshot(100, "IBM").get()["SYMBOL.NAME"])
except tivra.OpenFailed as error:
    sys.exit(str(error))
"""


class Broker:
    def __init__(self, folder):
        self.ports = {name: free_port() for name in ("plain", "controller", "tls", "client", "password")}
        self.process = Process(folder, "broker", SCRIPT, "secure", folder, *self.ports.values(), *ACLS)
        wait_until("a broker", self.answers, PATIENCE)
        self.admin = AdminClient({"bootstrap.servers": f"localhost:{self.ports['plain']}"})
        for user, rights in RIGHTS.items():
            self.allow(user, rights)
        password = (folder / "feed.properties").read_text().split("sasl.password=")[1].strip()
        wrong = folder / "wrong.properties"
        wrong.write_text((folder / "feed.properties").read_text().replace(password, WRONG))
        wrong.chmod(0o600)
        self.secrets = [password, WRONG]

    def allow(self, user, rights):
        """Of the topics of bridges it may do this from now on, and nothing else."""
        present = AclBindingFilter(ResourceType.ANY, None, ResourcePatternType.ANY, f"User:{user}", None, AclOperation.ANY,
                                   AclPermissionType.ANY)
        allowed = [AclBinding(ResourceType.TOPIC, "tivra.", ResourcePatternType.PREFIXED, f"User:{user}", "*",
                              AclOperation[right], AclPermissionType.ALLOW) for right in rights]
        for change in (self.admin.delete_acls([present]), self.admin.create_acls(allowed)):
            for result in change.values():
                result.result(PATIENCE)

    def answers(self):
        servers = f"localhost:{self.ports['plain']}"
        return subprocess.run(["kcat", "-b", servers, "-L", "-m", "2"], capture_output=True).returncode == 0


class Judge:
    def __init__(self, folder, programs, python, broker, hub):
        self.folder, self.programs, self.python, self.broker, self.hub = folder, programs, python, broker, hub
        self.numbers, self.good, self.bad = itertools.count(), [], []

    def check(self, who, what, text, is_connected, code, refused_as, wanted):
        problems = [f'it doesn\'t say "{part}"' for part in wanted if part not in text]
        problems += ["it shows a password" for secret in self.broker.secrets if secret in text]
        if is_connected != (not wanted):
            problems.append("it is connected" if is_connected else "it isn't connected")
        if wanted and code != refused_as:
            problems.append(f"it ends with {code}")
        if problems:
            print(f"{who}, {what}: {', '.join(problems)}\n{text}")
        (self.bad if problems else self.good).append(what)

    def play(self, case):
        what, host, port, options, wanted = case
        url = f"kafka://{host}:{self.broker.ports[port]}"
        self.bridge(what, url, options, wanted)
        self.readers(what, url, options, wanted)

    def play_rights(self):
        url = f"kafka://localhost:{self.broker.ports['password']}"
        reader = CA + ["--credentials", "reader.properties"]
        self.bridge("rights to read", url, reader, LISTED)
        self.readers("rights to read", url, reader, [])
        self.broker.allow("reader", ["DESCRIBE"])
        self.readers("no right to read", url, reader, LISTED)
        self.broker.allow("feed", ["DESCRIBE", "DESCRIBE_CONFIGS", "READ"])
        self.bridge("no right to write", url, CA + PASSWORD, LISTED, refused_as=None)  # it tries again

    def bridge(self, what, url, options, wanted, refused_as=NO_ENGINE):
        bridge = Process(self.folder, f"bridge{next(self.numbers)}", self.programs / "bridge/tivra-bridge", "-H", self.hub, "--user",
                         "demo", "-s", 100, "-f", "symbols", "--to", url, "--partitions", 1, *options)
        wait_until("its end, last values or what is wanted", lambda: bridge.child.poll() is not None or
                   self.is_published(bridge) or wanted and all(map(bridge.says, wanted)), PATIENCE)
        if wanted and refused_as is not None:
            bridge.child.wait(PATIENCE)
        is_connected, code = bridge.says("partition 0: taken"), bridge.child.poll()
        bridge.end()
        self.check("tivra-bridge", what, bridge.log.read_text(), is_connected, code, refused_as, wanted)

    def is_published(self, bridge):
        command = ["kcat", "-b", f"localhost:{self.broker.ports['plain']}", "-C", "-q", "-e", "-t", "tivra.last"]
        return bridge.says("partition 0: taken") and subprocess.run(command, capture_output=True).stdout != b""

    def readers(self, what, url, options, wanted):
        cat = [self.programs / "tools/tivra-cat/tivra-cat", "--from", url, "-s", "100", "--timeout", "20", "--count", "1",
               "subscribe", "--snapshot", "IBM", *(CAT.get(word, word) for word in options)]
        runs = [("tivra-cat", cat, UNREACHABLE)]
        if self.python:
            pairs = zip(options[::2], options[1::2])
            runs.append(("Python", [self.python, "-c", READ, url, *(f"{ARGUMENTS[name]}={file}" for name, file in pairs)], 1))
        for who, command, refused_as in runs:
            run = subprocess.run(command, capture_output=True, text=True, timeout=PATIENCE, stdin=subprocess.DEVNULL)
            self.check(who, what, run.stdout + run.stderr, "International Business Machines" in run.stdout, run.returncode,
                       refused_as, wanted)


def main():
    programs, python = Path(sys.argv[1]).resolve(), Path(sys.argv[2]).absolute() if sys.argv[2:] else None
    folder = Path(tempfile.mkdtemp(prefix="tivra-bridge-"))
    broker = Broker(folder)
    os.chdir(folder)
    (folder / "symbols").write_text("IBM\n")
    hub = Process(folder, "hub", programs / "tools/tivra-hub/tivra-hub", "--port", 0)
    try:
        wait_until("a hub", lambda: hub.says("listening on "))
        judge = Judge(folder, programs, python, broker, hub.log.read_text().split("listening on ")[1].split()[0])
        for case in CASES:
            if not case[-1]:
                judge.play(case)
        judge.play_rights()
        # Those that are refused wait, for the most part.
        with ThreadPoolExecutor(4) as pool:
            list(pool.map(judge.play, (case for case in CASES if case[-1])))
    finally:
        hub.end()
        broker.process.end()
    print(f"{len(judge.good + judge.bad)} cases, {len(judge.bad)} bad{'' if python else ', without Python'}")
    if not judge.bad:
        shutil.rmtree(folder)
    return 1 if judge.bad else 0


if __name__ == "__main__":
    sys.exit(main())
