"""Certificate requests and certificates for keys the security processor holds: records read from
"/proc/sapi", the PEM text written back, and failures that write nothing."""
import errno
import re
import struct
import subprocess

import pytest
from orvin_sim import sapi as S
from orvin_sim.sapi import csr_record, gen_record, key_block

from helpers import provision, run_cmd

SERIAL = b"TS01234567"
TERMINAL_CRT = "/usr/local/share/certs/terminal.crt"
FIXED = "C=GB, ST=Hallowmereshire, L=Thornwickley, O=Orvin Systems Ltd, OU=Terminal, CN="
NO_ISSUER = b"Failed to open the issuer certificate file: /usr/local/share/certs/terminal.crt\n"


def openssl_text(kind, pem):
    r = subprocess.run(["openssl", kind, "-noout", "-text", "-nameopt", "sep_comma_plus_space,utf8"],
                       input=pem, capture_output=True, check=True)
    return r.stdout.decode()


def field(text, name):
    return re.search(rf"{name}:\s*(.*)", text).group(1)


def signature_bytes(text):
    body = text.rsplit("Signature Value:", 1)[1]
    return len(re.findall(r"[0-9a-f]{2}", body))


def run(term, option, record, uid=0, first_read=None):
    term.sapi.set_proc_record(record, first_read)
    term.sapi.clear()
    return run_cmd(term, [option], uid=uid)


@pytest.fixture
def xt(make_term, pki):
    """A terminal with its own certificate in the store, a serial number and the device."""
    term = make_term(sapi=True)
    pki.issue("terminal", "Terminal TS01234567", "prod-sign")
    provision(term, "prod-sign")
    term.write(TERMINAL_CRT, pki.cert("terminal"))
    term.nvram_set("Serial", SERIAL + b"\n")
    return term


@pytest.mark.parametrize("option,bits,dummy_bytes", [  # each class's edges: in the unit tests
    ("--x509-csr", 1017, 128), ("--x509-generate", 1016, 256), ("--x509-generate", 2048, 256)])
def test_output_is_signed_by_the_dummy_key_of_its_class(xt, option, bits, dummy_bytes):
    csr = option == "--x509-csr"
    # The generate record arrives in two reads, and is read twice; a request's is read once.
    record = (csr_record if csr else gen_record)(key_block(bits))
    assert run(xt, option, record, first_read=None if csr else 5) == (0, b"")
    assert [e.op for e in xt.sapi.events(S.PROC)] == (["open"] + ["read"] * (1 if csr else 2)
                                                       + ["close", "open", "write", "close"])
    (pem,) = xt.sapi.proc_writes()
    kind = b"CERTIFICATE REQUEST" if csr else b"CERTIFICATE"
    assert pem.startswith(b"-----BEGIN " + kind + b"-----\n") and pem.count(b"-----BEGIN") == 1
    assert pem.endswith(b"-----END " + kind + b"-----\n")
    # Subject, issuer and extensions are compared with what openssl makes in test_interop.
    text = openssl_text("req" if csr else "x509", pem)
    assert f"Public-Key: ({bits} bit)" in text
    assert signature_bytes(text) == dummy_bytes


def test_generate_draws_a_serial_number_per_run_and_fixed_validity(xt):
    serials = []
    for _ in range(2):
        assert run(xt, "--x509-generate", gen_record(key_block(1024))) == (0, b"")
        (pem,) = xt.sapi.proc_writes()
        serials.append(int(subprocess.run(["openssl", "x509", "-noout", "-serial"], input=pem,
                                          capture_output=True).stdout.split(b"=")[1], 16))
    assert serials[0] != serials[1] and all(2**63 <= s < 2**64 for s in serials)
    text = openssl_text("x509", pem)
    assert field(text, "Not Before") == "Jan  1 00:00:00 2010 GMT"
    assert field(text, "Not After ") == "Dec 31 23:59:59 2029 GMT"


def load(pem):
    """The request or certificate as python3-cryptography's strict loader reads it."""
    from cryptography import x509
    if pem.startswith(b"-----BEGIN CERTIFICATE REQUEST-----"):
        return x509.load_pem_x509_csr(pem)
    return x509.load_pem_x509_certificate(pem)


@pytest.mark.parametrize("option,make,lead,room", [
    ("--x509-csr", csr_record, "", 180), ("--x509-generate", gen_record, "TS01234567", 170)])
@pytest.mark.parametrize("cn,subject_cn", [
    (0, None), (1, ""),  # the longest name that fits, and one longer, which is left out
    # A refused country and bytes of 0x80 or more are compared with openssl's in test_interop.
    (b"node/emailAddress=\xe9@x", "node"),        # an address that IA5String cannot carry
    (b"node/ OU=2nd/L=", "node, OU=2nd, L=")])    # a repeated field, an empty one
def test_subject_takes_the_records_pieces_that_fit(xt, option, make, lead, room, cn, subject_cn):
    # D18: every piece goes to the library as ASCII text, which picks a string type that holds
    # it, so every parser reads what was written.
    if isinstance(cn, int):
        cn, subject_cn = b"n" * (room + cn), subject_cn if cn else "n" * room
    assert run(xt, option, make(key_block(2048), cn=cn)) == (0, b"")
    (pem,) = xt.sapi.proc_writes()
    kind = "req" if option == "--x509-csr" else "x509"
    assert field(openssl_text(kind, pem), "Subject") == FIXED + lead + subject_cn
    assert load(pem).subject.rfc4514_string()


@pytest.mark.parametrize("serial,out", [
    (b"TS0123456\n", b""), (b"TS012345678\n", b""), (SERIAL, b""), (b"\n", b""), (None, b""),
    (SERIAL + b"\n", NO_ISSUER)])  # the serial number is good, the issuer is missing
def test_generate_needs_a_serial_line_of_ten_characters_and_the_issuer(xt, serial, out):
    if out:
        xt.remove(TERMINAL_CRT)
    if serial is None:
        xt.remove("/var/sim/nvram/Serial")
    else:
        xt.nvram_set("Serial", serial)
    assert run(xt, "--x509-generate", gen_record(key_block(1024))) == (9, out)
    assert xt.sapi.proc_writes() == []


BAD_MODULUS = struct.pack(">H", 5000) + b"\x01" * 8
BAD_EXPONENT = struct.pack(">H", 1) + b"\xc5" + struct.pack(">H", 4090)


@pytest.mark.parametrize("option,make", [("--x509-csr", csr_record), ("--x509-generate", gen_record)])
@pytest.mark.parametrize("case,out", [
    ("empty", b""), ("modulus", b"Failed to get modulus\n"),
    ("exponent", b"Failed to get public exponent\n"), ("usage_D12", b""),
    ("write_refused", b"")])
def test_failures_end_with_9_and_write_nothing(xt, option, make, case, out):
    record = {"empty": b"", "modulus": make(BAD_MODULUS), "exponent": make(BAD_EXPONENT),
              "usage_D12": make(key_block(1024), usage=b"decipherOnly" + b"x" * 231)}.get(
                  case, make(key_block(1024)))
    xt.sapi.set_proc_record(record)
    if case == "write_refused":
        xt.sapi.fail_next_write(errno.EIO, which=S.PROC)
    assert run_cmd(xt, [option]) == (9, out)
    accepted = [e for e in xt.sapi.events(S.PROC) if e.op == "write" and e.result > 0]
    assert accepted == []
