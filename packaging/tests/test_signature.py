"""A certificate for tests, and what checks signatures with it."""

import os
import subprocess

PACKAGING = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
HOOK = os.path.join(PACKAGING, "sign-with-osslsigncode.sh")


def make(folder):
    """Writes authority, certificate and key into the folder; returns the variables with which HOOK signs."""
    def openssl(*words):
        subprocess.run(["openssl", *words], check=True, cwd=folder, stdin=subprocess.DEVNULL,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    with open(os.path.join(folder, "usage"), "w", encoding="ascii") as file:
        file.write("keyUsage=critical,digitalSignature\nextendedKeyUsage=codeSigning\n")
    openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "30", "-subj", "/CN=Test authority", "-keyout",
            "authority.key", "-out", "authority.pem")
    openssl("req", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=Test signer", "-keyout", "signer.key", "-out",
            "signer.request")
    openssl("x509", "-req", "-in", "signer.request", "-CA", "authority.pem", "-CAkey", "authority.key",
            "-CAcreateserial", "-days", "30", "-extfile", "usage", "-out", "signer.pem")
    return {"SIGN": HOOK, "SIGN_CERTIFICATES": os.path.join(folder, "signer.pem"),
            "SIGN_KEY": os.path.join(folder, "signer.key")}


def verify(folder, path):
    """Returns whether the file has a valid signature by the certificate of the folder, and what the check said."""
    done = subprocess.run(["osslsigncode", "verify", "-CAfile", os.path.join(folder, "authority.pem"), "-in", path],
                          check=False, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    return done.returncode == 0 and "CN=Test signer" in done.stdout, done.stdout
