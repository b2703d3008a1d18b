"""Interoperability with the standard tools: what the program writes, openssl, GnuTLS and
python3-cryptography read as strict DER and as openssl itself would make it; what those tools
make, the program accepts or refuses by its own rules."""
import hashlib
import struct
import subprocess
from datetime import datetime, timedelta, timezone

import pytest
from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import rsa
from cryptography.x509.oid import NameOID
from orvin_sim.sapi import csr_record, gen_record

from helpers import provision, run_cmd, signed_file
from test_x509 import SERIAL, load, run, xt  # noqa: F401 (xt: fixture)

SUBJECT = b"/C=GB/ST=Hallowmereshire/L=Thornwickley/O=Orvin Systems Ltd/OU=Terminal/CN="


def tool(*args, input=None):
    r = subprocess.run([a if isinstance(a, bytes) else str(a) for a in args], input=input,
                       capture_output=True)
    assert r.returncode == 0, (args, r.stderr)
    return r.stdout


def new_key(path):
    key = rsa.generate_private_key(public_exponent=65537, key_size=2048)
    path.write_bytes(key.private_bytes(serialization.Encoding.PEM,
                                       serialization.PrivateFormat.PKCS8,
                                       serialization.NoEncryption()))
    return key


def fields(obj):
    """Everything but the signature and, for a certificate, its validity."""
    out = [obj.subject.public_bytes(), obj.signature_algorithm_oid,
           obj.public_key().public_bytes(serialization.Encoding.DER,
                                         serialization.PublicFormat.SubjectPublicKeyInfo),
           [(e.oid, e.critical, e.value) for e in obj.extensions]]
    if isinstance(obj, x509.Certificate):
        out += [obj.version, obj.serial_number, obj.issuer.public_bytes()]
    return out


# The record's common name and key usage; the subject's CN and key usage as openssl is told them.
@pytest.mark.parametrize("cn,ref_cn,usage,ref_usage", [
    (b"node-1", b"node-1", b"digitalSignature,keyEncipherment", "digitalSignature,keyEncipherment"),
    (b"caf\xe9", b"caf\xe9", b"keyCertSign", "keyCertSign"),
    (b"node/emailAddress=ops@orvin.example", b"node/emailAddress=ops@orvin.example",
     b"decipherOnly", "keyAgreement,decipherOnly"),
    (b"node/C=G_", b"node", b"", None)])
@pytest.mark.parametrize("option", ["--x509-csr", "--x509-generate"])
def test_outputs_parse_strictly_and_match_what_openssl_makes(xt, pki, tmp_path, option, cn, ref_cn,
                                                             usage, ref_usage):
    key = new_key(tmp_path / "key.pem")
    numbers = key.public_key().public_numbers()
    n, e = numbers.n.to_bytes(256, "big"), numbers.e.to_bytes(3, "big")
    block = struct.pack(">H", len(n)) + n + struct.pack(">H", len(e)) + e
    csr = option == "--x509-csr"
    record = (csr_record if csr else gen_record)(block, cn=cn, usage=usage)
    assert run(xt, option, record) == (0, b"")
    (pem,) = xt.sapi.proc_writes()
    (tmp_path / "out.pem").write_bytes(pem)

    # Parsed by GnuTLS and by python3-cryptography's reader, strict DER throughout (openssl reads
    # every output in test_x509).
    tool("certtool", "--crq-info" if csr else "-i", "--infile", tmp_path / "out.pem")
    ours = load(pem)

    # The same key, subject and extensions through openssl's own commands.
    ca = "critical,CA:TRUE" if csr and b"keyCertSign" in usage else "critical,CA:FALSE"
    ext = f"[ext]\nbasicConstraints = {ca}\n" + (f"keyUsage = {ref_usage}\n" if ref_usage else "")
    (tmp_path / "req.cnf").write_text(
        "[req]\ndistinguished_name = dn\nstring_mask = utf8only\n[dn]\n" + ext)
    subject = SUBJECT + (b"" if csr else SERIAL) + ref_cn
    req = ["openssl", "req", "-new", "-key", tmp_path / "key.pem", "-config", tmp_path / "req.cnf",
           "-subj", subject]
    if csr:
        ref = tool(*req, "-reqexts", "ext")
    else:
        (tmp_path / "ref.csr").write_bytes(tool(*req))
        (tmp_path / "x509.cnf").write_text(
            ext + "subjectKeyIdentifier = hash\nauthorityKeyIdentifier = keyid,issuer\n")
        ref = tool("openssl", "x509", "-req", "-in", tmp_path / "ref.csr", "-days", "30",
                   "-CA", pki.cert_path("terminal"), "-CAkey", pki.key_path("terminal"),
                   "-set_serial", ours.serial_number, "-extfile", tmp_path / "x509.cnf",
                   "-extensions", "ext")
    if csr:
        assert ours.tbs_certrequest_bytes == load(ref).tbs_certrequest_bytes
    assert fields(ours) == fields(load(ref))


def _dgst(key, data, *opts):
    return tool("openssl", "dgst", *opts, "-sign", key, input=data)


def _raw_digest(key, data):
    return tool("openssl", "pkeyutl", "-sign", "-inkey", key, input=hashlib.sha256(data).digest())


# RSASSA-PKCS1-v1_5 with SHA-256 only: every signature the simulator makes is that, made by
# "openssl dgst -sha256"; the same key in any other scheme does not verify.
SIGNATURES = {
    "pss": lambda k, d: _dgst(k, d, "-sha256", "-sigopt", "rsa_padding_mode:pss"),
    "sha1": lambda k, d: _dgst(k, d, "-sha1"),
    "raw digest": _raw_digest,
}


@pytest.mark.parametrize("maker", SIGNATURES)
def test_other_signature_schemes_of_the_signers_key_fail(term, pki, maker):
    provision(term, "acme")
    data = b"signed by a standard tool\n" * 100
    signed_file(term, "/tmp/app", "acme", data=data)
    term.write("/tmp/app.sig", SIGNATURES[maker](pki.key_path("acme"), data))
    r = run_cmd(term, ["--install-check", "/tmp/app", "/usr/local/acme/"])
    assert r == (7, b"Signature check failed.\n")


def _certificates(pki, work):
    """A certificate from each tool, issued by the production-signing CA, and one nobody issued."""
    ca_crt, ca_key = pki.cert_path("prod-sign"), pki.key_path("prod-sign")
    made = {}
    new_key(work / "openssl.key")
    tool("openssl", "req", "-new", "-key", work / "openssl.key", "-subj", "/CN=tool-openssl",
         "-out", work / "openssl.csr")
    made["openssl"] = tool("openssl", "x509", "-req", "-in", work / "openssl.csr", "-CA", ca_crt,
                           "-CAkey", ca_key, "-set_serial", "4242", "-days", "30")
    new_key(work / "certtool.key")
    (work / "template").write_text("cn = tool-certtool\nexpiration_days = 30\nsigning_key\n")
    tool("certtool", "--generate-certificate", "--load-privkey", work / "certtool.key",
         "--load-ca-certificate", ca_crt, "--load-ca-privkey", ca_key, "--template",
         work / "template", "--outfile", work / "certtool.crt")
    made["certtool"] = (work / "certtool.crt").read_bytes()
    ca = serialization.load_pem_private_key(open(ca_key, "rb").read(), None)
    issuer = x509.load_pem_x509_certificate(pki.cert("prod-sign")).subject
    now = datetime.now(timezone.utc)
    for name, signer, by in [("cryptography", ca, issuer), ("untrusted", None, None)]:
        key = new_key(work / f"{name}.key")
        subject = x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, f"tool-{name}")])
        cert = (x509.CertificateBuilder().subject_name(subject).issuer_name(by or subject)
                .public_key(key.public_key()).serial_number(x509.random_serial_number())
                .not_valid_before(now - timedelta(days=1)).not_valid_after(now + timedelta(days=30))
                .sign(signer or key, hashes.SHA256()))
        made[name] = cert.public_bytes(serialization.Encoding.PEM)
    return made


@pytest.fixture(scope="module")
def made(pki, tmp_path_factory):
    return _certificates(pki, tmp_path_factory.mktemp("made"))


# Only the first PEM certificate of a file counts; text around it and CRLF line ends do not.
SHAPES = {
    "plain": (lambda c, u: c, 0),
    "crlf": (lambda c, u: c.replace(b"\n", b"\r\n"), 0),
    "text before": (lambda c, u: b"Certificate:\n    made by a standard tool\n" + c, 0),
    "after an untrusted one": (lambda c, u: u + c, 3),
    "DER": (lambda c, u: load(c).public_bytes(serialization.Encoding.DER), 3),
}


@pytest.mark.parametrize("shape", SHAPES)
@pytest.mark.parametrize("maker", ["openssl", "certtool", "cryptography"])
def test_certificates_from_standard_tools(term, made, maker, shape):
    provision(term, "prod-sign")
    form, status = SHAPES[shape]
    term.write("/tmp/offered.crt", form(made[maker], made["untrusted"]))
    r = run_cmd(term, ["--install-cert-check", "/tmp/offered.crt"])
    assert r == (status, b"Certificate can be installed.\n" if status == 0 else b"")
