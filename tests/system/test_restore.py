"""Restoring missing certificates from nvram, the first step of "--init-keys"."""
import pytest
from orvin_sim import sapi as S

from helpers import provision, run_cmd

PROD = "/usr/local/share/certs/prod-sign.crt"
TERMINAL = "/usr/local/share/certs/terminal.crt"
SAPI = "/home/orvin/.sapi/"


@pytest.fixture
def rt(term, pki):
    """A key state file whose request shows the trust anchor the restore leaves (bit 14)."""
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    term.write(SAPI + ".KBPK0003", b"\x03" * 32)
    pki.issue("terminal", "terminal-0001", "prod-sign")
    return term


def restore(term):
    r = run_cmd(term, ["--init-keys"])
    kbpk = term.sapi.kbpk(3)
    keysigning = kbpk is not None and bool(kbpk.flags & S.FLAG_KEYSIGNING_CA)
    return r.status, keysigning


def cert_reads(term):
    return [c.argv[2] for c in term.calls("/usr/sbin/nvram") if c.argv[2].endswith(b"Cert")]


def hex_line(data, upper=False, end=b"\n"):
    text = data.hex().encode()
    return (text.upper() if upper else text) + end


def test_nothing_is_asked_when_both_are_installed(rt, pki):
    provision(rt, "prod-sign")
    rt.write(TERMINAL, pki.cert("terminal"))
    assert restore(rt) == (0, True)
    assert cert_reads(rt) == []


@pytest.mark.parametrize("upper,pad", [(False, False), (True, True)])
def test_good_values_restore_both_and_switch_the_anchor(rt, pki, upper, pad):
    pem = pki.cert("prod-sign")
    value = pem + b"\n" * (2047 - len(pem)) if pad else pem  # padded: the largest value
    rt.nvram_set("ProdSignCert", hex_line(value, upper) + b"second line\n")
    rt.nvram_set("TerminalCert", hex_line(pki.cert("terminal"), upper))
    assert restore(rt) == (0, True)
    assert rt.read(PROD) == pem and rt.exists(TERMINAL)
    assert cert_reads(rt) == [b"ProdSignCert", b"TerminalCert"]


@pytest.mark.parametrize("value,status,kept", [
    (None, 0, False), (b"zz\n", 0, False),  # unset: no line at all; not hexadecimal
    ("PEM", 0, False),  # printed without its line end: the last digit is lost
    ("CRLF", 0, False),  # only the line feed goes: the carriage return fails the decode
    (4096, 0, False),  # 4096 digits: too long for the conversion buffer
    (b"\n", 3, False),  # nothing, which fails verification, and its file goes
    ("rki", 0, True)])  # another issuer's: kept, and the RKI CA stays the anchor
def test_other_values_leave_the_rki_anchor(rt, pki, value, status, kept):
    pem = pki.cert("prod-sign")
    if value == "rki":
        pki.issue("prod-sign-rki", "prod-sign", "rki", ca=True)
        value = hex_line(pki.cert("prod-sign-rki"))
    elif value in ("PEM", "CRLF"):
        value = hex_line(pem, end=b"" if value == "PEM" else b"\r\n")
    elif isinstance(value, int):
        value = (pem.hex() + "0a" * 2048)[:value].encode() + b"\n"
    if value is not None:
        rt.nvram_set("ProdSignCert", value)
    assert restore(rt) == (status, False)
    assert rt.exists(PROD) == kept and not rt.exists("/tmp/prod-sign.crt")


def test_terminal_certificate_with_a_stored_common_name_stops_restoration(rt, pki):
    provision(rt, "prod-sign")
    rt.write("/usr/local/share/certs/other.crt", pki.cert("terminal"))
    rt.nvram_set("TerminalCert", hex_line(pki.cert("terminal")))
    assert restore(rt) == (5, False)
    assert not rt.exists(TERMINAL)
