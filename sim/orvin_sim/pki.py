"""Test certificates and keys, made with the openssl command line and cached on disk."""
import hashlib
import json
import os
import shutil
import subprocess
import tempfile
from datetime import datetime, timedelta, timezone

# role: (subject, issuer role or None for self-signed, CA?)
DEFAULT_ROLES = {
    "root": ("/CN=Orvin Test Root CA", None, True),
    "KeySigning": ("/CN=KeySigning", "root", True),
    "rki": ("/CN=Orvin-RKI-CA", None, True),
    "OperatingSystem": ("/CN=OperatingSystem", "root", False),
    "prod-sign": ("/CN=prod-sign", "KeySigning", True),
    "prod-sign-other": ("/CN=prod-sign", "root", True),
    "keysign-main-user": ("/CN=keysign-main-user", "root", True),
    "main-user": ("/CN=main-user", "keysign-main-user", False),
    "detamper": ("/CN=detamper", "root", False),
    "HSM-PCI-PIN": ("/CN=HSM-PCI-PIN", "prod-sign", False),
    "SuperRoot": ("/CN=SuperRoot", "prod-sign", False),
    "acme": ("/CN=acme", "prod-sign", False),
    "acme-slash": ("/CN=acme\\/extra", "prod-sign", False),
    "rki-HSM-PCI-PIN": ("/CN=HSM-PCI-PIN", "rki", False),
    "rki-acme": ("/CN=acme", "rki", False),
    "nocn": ("/O=Orvin", "prod-sign", False),
}
EC_ROLES = {"ec-signer": ("/CN=ec-signer", "prod-sign", False)}

_CA_CONFIG = """\
[ca]
default_ca = sim
[sim]
dir = {dir}
database = {dir}/index.txt
new_certs_dir = {dir}
rand_serial = yes
default_md = sha256
policy = anything
unique_subject = no
copy_extensions = none
[anything]
commonName = optional
organizationName = optional
[ext]
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
{ext}
"""
_CA_EXT = "basicConstraints = critical, CA:TRUE\nkeyUsage = critical, keyCertSign, cRLSign, digitalSignature\n"
_LEAF_EXT = "basicConstraints = CA:FALSE\nkeyUsage = digitalSignature\n"


def _openssl(*args, input=None):
    r = subprocess.run(["openssl", *args], input=input, capture_output=True)
    if r.returncode != 0:
        raise RuntimeError(f"openssl {' '.join(args)} failed: {r.stderr.decode(errors='replace')}")
    return r.stdout


class PKI:
    """Keys and certificates by role, kept in `directory` between test sessions."""

    def __init__(self, directory):
        self.dir = os.path.abspath(directory)
        os.makedirs(self.dir, exist_ok=True)
        for role, (subject, issuer, ca) in DEFAULT_ROLES.items():
            self._make(role, subject, issuer, ca, "rsa")
        for role, (subject, issuer, ca) in EC_ROLES.items():
            self._make(role, subject, issuer, ca, "ec")

    def cert_path(self, role):
        return os.path.join(self.dir, role + ".crt")

    def key_path(self, role):
        return os.path.join(self.dir, role + ".key")

    def cert(self, role):
        with open(self.cert_path(role), "rb") as f:
            return f.read()

    def issue(self, role, cn, issuer_role, ca=False, key="rsa", mask=None):
        """A certificate with subject CN `cn` signed by `issuer_role` (None: self-signed); `mask`
        is openssl's string_mask for the subject ("utf8only", "MASK:0x800" for BMPString...)."""
        subject = "/CN=" + cn.replace("\\", "\\\\").replace("/", "\\/")
        self._make(role, subject, issuer_role, ca, key, mask)
        return self.cert_path(role)

    def sign(self, data, role):
        """RSA-SHA256 PKCS#1 v1.5 signature of `data`, as `openssl dgst -sha256 -sign` makes it."""
        return _openssl("dgst", "-sha256", "-sign", self.key_path(role), input=data)

    def sign_digest(self, digest, role):
        """The signature sign() makes of data whose SHA-256 is digest, for data too big to pass."""
        return _openssl("pkeyutl", "-sign", "-inkey", self.key_path(role), "-pkeyopt",
                        "digest:sha256", input=digest)

    def _make(self, role, subject, issuer, ca, key, mask=None):
        meta = {"subject": subject, "issuer": issuer, "ca": ca, "key": key}
        if mask is not None:
            meta["mask"] = mask
        if issuer is not None:
            meta["issuer_digest"] = hashlib.sha256(self.cert(issuer)).hexdigest()
        meta_path = os.path.join(self.dir, role + ".json")
        try:
            with open(meta_path) as f:
                if json.load(f) == meta and os.path.exists(self.cert_path(role)):
                    return
        except (OSError, ValueError):
            pass
        work = tempfile.mkdtemp(dir=self.dir, prefix=".make-")
        try:
            self._generate(work, role, subject, issuer, ca, key, mask)
            for suffix in (".key", ".crt"):
                os.replace(os.path.join(work, role + suffix), os.path.join(self.dir, role + suffix))
            with open(os.path.join(work, "meta"), "w") as f:
                json.dump(meta, f)
            os.replace(os.path.join(work, "meta"), meta_path)
        finally:
            shutil.rmtree(work, ignore_errors=True)

    def _generate(self, work, role, subject, issuer, ca, key, mask=None):
        key_path = os.path.join(work, role + ".key")
        if key == "ec":
            _openssl("genpkey", "-algorithm", "EC", "-pkeyopt", "ec_paramgen_curve:P-256", "-out", key_path)
        else:
            _openssl("genpkey", "-algorithm", "RSA", "-pkeyopt", "rsa_keygen_bits:2048", "-out", key_path)
        csr = os.path.join(work, "req.csr")
        req = ["req", "-new", "-key", key_path, "-subj", subject, "-out", csr]
        if mask is not None:
            req_config = os.path.join(work, "req.cnf")
            with open(req_config, "w") as f:
                f.write(f"[req]\ndistinguished_name = dn\nstring_mask = {mask}\n[dn]\n")
            req += ["-config", req_config]
        _openssl(*req)
        config = os.path.join(work, "ca.cnf")
        with open(config, "w") as f:
            f.write(_CA_CONFIG.format(dir=work, ext=_CA_EXT if ca else _LEAF_EXT))
        open(os.path.join(work, "index.txt"), "w").close()
        now = datetime.now(timezone.utc)
        stamp = "%Y%m%d%H%M%SZ"
        args = ["ca", "-batch", "-notext", "-preserveDN", "-config", config, "-extensions", "ext",
                "-in", csr, "-out", os.path.join(work, role + ".crt"),
                "-startdate", (now - timedelta(days=1)).strftime(stamp),
                "-enddate", (now + timedelta(days=3650)).strftime(stamp)]
        if issuer is None:
            args += ["-selfsign", "-keyfile", key_path]
        else:
            args += ["-cert", self.cert_path(issuer), "-keyfile", self.key_path(issuer)]
        _openssl(*args)
