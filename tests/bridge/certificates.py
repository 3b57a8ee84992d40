"""Certificates for tests of encrypted connections: two authorities, of which the first, "ca", vouches for a server here,
for one that is known as localhost alone, for one elsewhere, and for a client. Each NAME is NAME.pem with NAME.key.
usage: certificates.py FOLDER
"""
import subprocess
import sys
from pathlib import Path

NAMES = {"here": "IP:127.0.0.1,DNS:localhost", "localhost": "DNS:localhost", "elsewhere": "DNS:elsewhere.invalid",
         "client": "DNS:c"}


def run(folder, *command):
    subprocess.run(command, cwd=folder, check=True, capture_output=True)


def make_certificates(folder):
    for authority in ("ca", "other"):
        run(folder, "openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={authority}",
            "-keyout", f"{authority}.key", "-out", f"{authority}.pem")
    for name, names in NAMES.items():
        run(folder, "openssl", "req", "-newkey", "rsa:2048", "-nodes", "-subj", f"/CN={name}", "-keyout", f"{name}.key",
            "-out", f"{name}.csr")
        (folder / "names").write_text(f"subjectAltName={names}\n")
        run(folder, "openssl", "x509", "-req", "-in", f"{name}.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
            "-days", "2", "-extfile", "names", "-out", f"{name}.pem")


if __name__ == "__main__":
    make_certificates(Path(sys.argv[1]))
