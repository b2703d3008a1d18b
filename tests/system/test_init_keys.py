"""Start-up key loading through the simulated Security API device: KBPK state files with their FLAG
files, acquirer 0's KBPK and the terminal key from nvram, the terminal certificate's subject and
the saved rate-limit state, in that order."""
import errno

import pytest
from orvin_sim import sapi as S

from helpers import SAPI, provision, run_cmd

TERMINAL = "/usr/local/share/certs/terminal.crt"
RATE = SAPI + ".rate-limit"
SUBJECT = b"/CN=terminal-0001"
KBPK0 = bytes(range(32))
CONVERTING = b"Converting Terminal Key from TR-31 to OPK.\n"
INVALID = b"FATAL: Invalid Terminal Key.\n"


def tr31(size=112):
    head = b"B%04dK0RS00E0000" % size
    return head + b"T" * (size - len(head))


def issuer_request(key):
    return S.request(S.KEY_ISSUER_INIT, 0, bytes([len(SUBJECT)]) + SUBJECT + key)


def kbpk_request(acquirer, protected, flags):
    return S.request(S.KBPK_INSTALL, acquirer, flags.to_bytes(2, "little") + protected)


@pytest.fixture
def kt(term):
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    return term


def with_terminal_cert(term, pki):
    """The terminal certificate, issued under "prod-sign" from "KeySigning": bit 14 goes out."""
    pki.issue("terminal", "terminal-0001", "prod-sign")
    provision(term, "prod-sign")
    term.install_cert("terminal", "terminal.crt")


def init(term, uid=0):
    return run_cmd(term, ["--init-keys"], uid=uid)


def test_every_state_file_goes_back_with_its_flags(kt):
    states = {0: (b"\x10" * 32, None), 3: (b"\x13" * 32, b"8000"), 200: (b"\x20" * 32, b"0000")}
    for acquirer, (protected, flag) in states.items():
        kt.write(SAPI + f".KBPK{acquirer:04d}", protected)
        if flag is not None:
            kt.write(SAPI + f".FLAG{acquirer:04d}", flag)
    for stray in (".KBPK12x4", ".KBPK00012", ".KBPK0300", "KBPK0004", ".FLAG0005"):
        kt.write(SAPI + stray, b"\x55" * 32)
    assert init(kt) == (0, b"")
    # No production signer from "KeySigning" here: bit 14 stays off.
    assert sorted(kt.sapi.requests()) == sorted(kbpk_request(a, p, int(f or b"0", 16))
                                                for a, (p, f) in states.items())
    assert kt.sapi.kbpk(3).flags == 0x8000 and kt.sapi.kbpk(3).protected == b"\x13" * 32


@pytest.mark.parametrize("value,status,stored", [
    (KBPK0.hex().encode() + b"\n", 0, KBPK0),
    (None, 0, None),
    (KBPK0.hex().encode() + b"00\n", 9, None),  # decodes, but is too long
    (KBPK0.hex().encode(), 9, None),  # no line end: the last digit goes with it
    (b"zz" + KBPK0.hex()[2:].encode() + b"\n", 9, None)])
def test_acquirer_0_comes_from_nvram_when_its_file_is_missing(kt, value, status, stored):
    if value is not None:
        kt.nvram_set("KBPK0000", value)
    kt.write(SAPI + ".KBPK0001", b"\x01" * 32)
    assert init(kt) == (status, b"")
    assert (kt.read(SAPI + ".KBPK0000") if kt.exists(SAPI + ".KBPK0000") else None) == stored
    assert not kt.exists(SAPI + ".FLAG0000")  # PCI PIN security stays off
    expected = [kbpk_request(1, b"\x01" * 32, 0)] + ([kbpk_request(0, stored, 0)] if stored else [])
    assert sorted(kt.sapi.requests()) == ([] if status else sorted(expected))


@pytest.mark.parametrize("name,data,out", [
    (".KBPK0003", b"\x03" * 31, b""), (".FLAG0001", b"80", b""),
    (None, None, b"FATAL: Write to the Security API device failed with code 0x05.\n")])
def test_unusable_state_file_or_device_failure_stops_the_restore(kt, name, data, out):
    kt.write(SAPI + ".KBPK0001", b"\x01" * 32)
    kt.write(SAPI + ".KBPK0003", b"\x03" * 32)
    kt.write(RATE, b"rate")
    if name is None:
        kt.sapi.fail_next_write(errno.EIO)
    else:
        kt.write(SAPI + name, data)
    assert init(kt) == (9, out)
    # At most the state file read before the bad one (or the failed request) went.
    sent = [r[0] for r in kt.sapi.requests()]
    assert len(sent) <= 1 and S.RATE_LIMIT_INIT not in sent


@pytest.mark.parametrize("size,long_key", [(112, None), (56, bytes(range(256)) * 2)])
def test_tr31_terminal_key_is_converted_then_handed_over_with_the_subject(kt, pki, size, long_key):
    with_terminal_cert(kt, pki)
    kt.write(SAPI + ".KBPK0000", b"\x10" * 32)
    kt.nvram_set("TerminalKey", tr31(size) + b"\n")
    kt.write(RATE, b"\x01\x02rate-limit state")
    if long_key:  # D11: a protected key longer than the block is used whole
        kt.sapi.next_reply(b"\x00" * 32 + long_key)
    assert init(kt) == (0, CONVERTING + b"subj:" + SUBJECT + b"\n")
    (reply,) = kt.sapi.replies()
    opk = long_key or reply[32:]
    assert kt.sapi.requests() == [
        kbpk_request(0, b"\x10" * 32, 0x4000),
        S.request(S.KEY_INSTALL, 0, tr31(size)),
        issuer_request(opk),
        S.request(S.RATE_LIMIT_INIT, 0, b"\x01\x02rate-limit state")]
    assert [c.argv[1:] for c in kt.calls("/usr/sbin/nvram")][-2:] == [
        [b"set", b"TerminalKey=" + opk.hex().upper().encode()], [b"commit"]]
    assert kt.nvram_get("TerminalKey") == opk.hex().upper().encode()
    assert kt.read(RATE) == b"\x01\x02rate-limit state"


SUBJ = b"subj:" + SUBJECT + b"\n"


@pytest.mark.parametrize("value,status,out,sent", [
    (b"00A1b2ff\n", 0, SUBJ, bytes.fromhex("00a1b2ff")),
    (b"\n", 0, SUBJ, b""),
    (b"00A1b\n", 9, INVALID, None),
    (tr31(4096) + b"\n", 9, CONVERTING + INVALID, None),  # D10: refused before the device
    # The terminal key needs the certificate and acquirer 0; without either the run goes on.
    ("no certificate", 0, b"", None), ("no KBPK", 0, b"", None)])
def test_terminal_key_from_hexadecimal(kt, pki, value, status, out, sent):
    if value != "no certificate":
        with_terminal_cert(kt, pki)
    if value != "no KBPK":
        kt.write(SAPI + ".KBPK0000", b"\x10" * 32)
    kt.nvram_set("TerminalKey", tr31() + b"\n" if isinstance(value, str) else value)
    kt.write(RATE, b"state")
    assert init(kt) == (status, out)
    rate = [S.request(S.RATE_LIMIT_INIT, 0, b"state")] if status == 0 else []
    issued = [r for r in kt.sapi.requests() if r[0] != S.KBPK_INSTALL]
    assert issued == ([] if sent is None else [issuer_request(sent)]) + rate


@pytest.mark.parametrize("shape,out", [
    ("dir", b"Failed to read the rate limit state file.\n"),
    ("link", b"FATAL: Failed to open the rate limit state file.\n")])
def test_rate_limit_state_that_cannot_be_read(kt, shape, out):
    kt.write("/tmp/state", b"state")
    kt.mkdir(RATE, 0o700) if shape == "dir" else kt.symlink("/tmp/state", RATE)
    assert init(kt) == (9, out)
    assert kt.sapi.requests() == []
