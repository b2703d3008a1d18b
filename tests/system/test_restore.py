"""Restoring missing certificates from nvram at start-up, driven through the probe program."""
import pytest

from helpers import provision

PROD = "/usr/local/share/certs/prod-sign.crt"
TERMINAL = "/usr/local/share/certs/terminal.crt"


@pytest.fixture
def probe(term, pki):
    term.install_probe()
    pki.issue("terminal", "terminal-0001", "prod-sign")
    return term


def restore(term):
    return term.run(["keys-init-cert"], program="/usr/sbin/orvin-wrapper-probe")


def hex_line(data, upper=False, end=b"\n"):
    text = data.hex().encode()
    return (text.upper() if upper else text) + end


def test_nothing_is_asked_when_both_are_installed(probe, pki):
    provision(probe, "prod-sign")
    probe.write(TERMINAL, pki.cert("terminal"))
    r = restore(probe)
    assert r.stdout.endswith(b"result=0\n")
    assert probe.calls("/usr/sbin/nvram") == []


@pytest.mark.parametrize("upper", [False, True])
def test_good_values_restore_both_and_switch_the_anchor(probe, pki, upper):
    probe.nvram_set("ProdSignCert", hex_line(pki.cert("prod-sign"), upper))
    probe.nvram_set("TerminalCert", hex_line(pki.cert("terminal"), upper))
    r = restore(probe)
    assert r.stdout.endswith(b"rki=0\nresult=0\n"), r.stdout
    assert probe.read(PROD) == pki.cert("prod-sign") and probe.exists(TERMINAL)
    assert [c.argv for c in probe.calls("/usr/sbin/nvram")] == [
        [b"nvram", b"get", b"ProdSignCert"], [b"nvram", b"get", b"TerminalCert"]]


def test_prod_sign_of_another_issuer_keeps_the_rki_anchor(probe, pki):
    pki.issue("prod-sign-rki", "prod-sign", "rki", ca=True)
    probe.nvram_set("ProdSignCert", hex_line(pki.cert("prod-sign-rki")))
    r = restore(probe)
    assert r.stdout.endswith(b"rki=1\nresult=0\n"), r.stdout
    assert probe.exists(PROD)


@pytest.mark.parametrize(
    "value",
    [
        None,                       # unset: no line at all
        b"abc\n",                   # odd length
        b"zz\n",                    # not hexadecimal
        "PEM",                      # printed without its line end: the last digit is lost
        4095,                       # 4095 digits: odd
        4096,                       # 4096 digits: too long for the conversion buffer
    ],
)
def test_malformed_values_are_passed_over(probe, pki, value):
    pem = pki.cert("prod-sign")
    if value == "PEM":
        value = hex_line(pem, end=b"")
    elif isinstance(value, int):
        value = (pem.hex() + "0a" * 2048)[:value].encode() + b"\n"
    if value is not None:
        probe.nvram_set("ProdSignCert", value)
    r = restore(probe)
    assert r.stdout.endswith(b"rki=1\nresult=0\n"), r.stdout
    assert not probe.exists(PROD)


def test_largest_value_decodes_to_2047_bytes(probe, pki):
    pem = pki.cert("prod-sign")
    padded = pem + b"\n" * (2047 - len(pem))
    probe.nvram_set("ProdSignCert", hex_line(padded))
    r = restore(probe)
    assert r.stdout.endswith(b"rki=0\nresult=0\n"), r.stdout
    assert probe.read(PROD) == pem


def test_empty_value_fails_verification_and_its_file_goes(probe):
    probe.nvram_set("ProdSignCert", b"\n")
    r = restore(probe)
    assert r.stdout.endswith(b"result=3\n"), r.stdout
    assert not probe.exists("/tmp/prod-sign.crt") and not probe.exists(PROD)


def test_terminal_certificate_with_a_stored_common_name_stops_restoration(probe, pki):
    provision(probe, "prod-sign")
    probe.write("/usr/local/share/certs/other.crt", pki.cert("terminal"))
    probe.nvram_set("TerminalCert", hex_line(pki.cert("terminal")))
    r = restore(probe)
    assert r.stdout.endswith(b"result=5\n"), r.stdout


def test_planted_link_in_tmp_is_not_written_through(probe, pki):
    probe.write("/etc/victim", b"keep")
    probe.symlink("/etc/victim", "/tmp/prod-sign.crt")
    probe.nvram_set("ProdSignCert", hex_line(pki.cert("prod-sign")))
    restore(probe)
    assert probe.read("/etc/victim") == b"keep"
