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


@pytest.mark.parametrize("upper", [False, True])
def test_good_values_restore_both_and_switch_the_anchor(rt, pki, upper):
    rt.nvram_set("ProdSignCert", hex_line(pki.cert("prod-sign"), upper) + b"second line\n")
    rt.nvram_set("TerminalCert", hex_line(pki.cert("terminal"), upper))
    assert restore(rt) == (0, True)
    assert rt.read(PROD) == pki.cert("prod-sign") and rt.exists(TERMINAL)
    assert cert_reads(rt) == [b"ProdSignCert", b"TerminalCert"]


def test_prod_sign_of_another_issuer_keeps_the_rki_anchor(rt, pki):
    pki.issue("prod-sign-rki", "prod-sign", "rki", ca=True)
    rt.nvram_set("ProdSignCert", hex_line(pki.cert("prod-sign-rki")))
    assert restore(rt) == (0, False)
    assert rt.exists(PROD)


@pytest.mark.parametrize(
    "value",
    [
        None,                       # unset: no line at all
        b"abc\n",                   # odd length
        b"zz\n",                    # not hexadecimal
        "PEM",                      # printed without its line end: the last digit is lost
        "CRLF",                     # only the line feed goes: the carriage return fails the decode
        4095,                       # 4095 digits: odd
        4096,                       # 4096 digits: too long for the conversion buffer
    ],
)
def test_malformed_values_are_passed_over(rt, pki, value):
    pem = pki.cert("prod-sign")
    if value in ("PEM", "CRLF"):
        value = hex_line(pem, end=b"" if value == "PEM" else b"\r\n")
    elif isinstance(value, int):
        value = (pem.hex() + "0a" * 2048)[:value].encode() + b"\n"
    if value is not None:
        rt.nvram_set("ProdSignCert", value)
    assert restore(rt) == (0, False)
    assert not rt.exists(PROD)


def test_largest_value_decodes_to_2047_bytes(rt, pki):
    pem = pki.cert("prod-sign")
    padded = pem + b"\n" * (2047 - len(pem))
    rt.nvram_set("ProdSignCert", hex_line(padded))
    assert restore(rt) == (0, True)
    assert rt.read(PROD) == pem


def test_empty_value_fails_verification_and_its_file_goes(rt):
    rt.nvram_set("ProdSignCert", b"\n")
    assert restore(rt) == (3, False)
    assert not rt.exists("/tmp/prod-sign.crt") and not rt.exists(PROD)


def test_terminal_certificate_with_a_stored_common_name_stops_restoration(rt, pki):
    provision(rt, "prod-sign")
    rt.write("/usr/local/share/certs/other.crt", pki.cert("terminal"))
    rt.nvram_set("TerminalCert", hex_line(pki.cert("terminal")))
    assert restore(rt) == (5, False)
    assert not rt.exists(TERMINAL)
