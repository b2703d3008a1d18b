"""The DUKPT KSN log: one report from "/proc/sapi", the log rewritten whole, and the 11-byte answer
with the KSN the log held for the same key and initial key."""
import errno

import pytest
from orvin_sim import sapi as S

from helpers import run_cmd

LOG = "/home/orvin/.dukpt-ksn-log"
KEY3 = b"\x03\x00"
A = bytes.fromhex("FFFF9876543210E00001")
A_LATER = bytes.fromhex("FFFF9876543210FF1234")  # same initial key: only the counter bits differ
C = bytes.fromhex("00112233445566778899")
UNMATCHED = b"\x00" + bytes(10)  # D13


def line(index, ksn):
    return f"{index}:{ksn.hex().upper()}\n".encode()


# Lines kept as they were: no entry at all, or an entry whose KSN is not hexadecimal.
NO_ENTRY = [b"abc", b"3-FFFF", b"99999999999:" + A.hex().encode()]
NO_KSN = [b"3:FFFF98765432ZZE00001", b"3:FFFF"]
KEPT = b"".join(entry + b"\n" for entry in NO_ENTRY + NO_KSN)


def echo(log):
    """What the rewrite prints for each line it reads: the line's own end makes an empty line."""
    out = b""
    for entry in log.splitlines():
        out += b"New Line " + entry + b"\n\n"
        if entry in NO_ENTRY:
            out += b"Corrupt file entry: " + entry + b"\n\n"
        elif entry in NO_KSN:
            out += b"Corrupt file data"
    return out


def update(term, record, log=None, uid=0, first_read=None):
    term.sapi.set_proc_record(record, first_read)
    if log is not None:
        term.write(LOG, log)
    return run_cmd(term, ["--update-ksn"], uid=uid)


@pytest.fixture
def kt(make_term):
    return make_term(sapi=True)


@pytest.mark.parametrize("log,ksn,new_log,answered", [
    pytest.param(line(3, A), A_LATER, line(3, A_LATER), A, id="same-initial-key-replaced"),
    pytest.param(line(4, A), A, line(4, A) + line(3, A), None, id="other-key-appended"),
    pytest.param(line(3, A) + line(7, C) + line(3, A_LATER), A,
                 line(3, A) + line(7, C) + line(3, A), A_LATER,
                 id="every-match-replaced-last-one-answered"),
    pytest.param(b" +3:" + A.hex().upper().encode() + b"trailing\n", A_LATER, line(3, A_LATER), A,
                 id="blanks-sign-and-trailing-characters-accepted"),
    pytest.param(KEPT + line(3, A), A_LATER, KEPT + line(3, A_LATER), A,
                 id="lines-that-are-no-entry-kept"),
])
def test_log_is_rewritten_and_the_device_answered(kt, log, ksn, new_log, answered):
    assert update(kt, KEY3 + ksn, log) == (0, echo(log))
    assert kt.read(LOG) == new_log
    assert kt.sapi.proc_writes() == [UNMATCHED if answered is None else b"\x0a" + answered]
    assert not kt.exists(LOG + ".temp")


@pytest.mark.parametrize("record,first_read,entry", [
    pytest.param(KEY3 + A + b"ignored" * 500, None, line(3, A), id="rest-ignored"),
    pytest.param(KEY3 + A, 5, line(3, A), id="two-reads"),
    pytest.param(b"\x03\x00\xab", None, b"3:AB000000000000000000\n", id="missing-bytes-zero"),
    # Each index byte counts as signed.
    pytest.param(b"\x90\x01" + A, None, line(144, A), id="90-01"),
    pytest.param(b"\xff\xff" + A, None, line(-257, A), id="ff-ff"),
])
def test_first_report_creates_the_log(kt, record, first_read, entry):
    assert update(kt, record, first_read=first_read) == (0, b"")
    assert kt.read(LOG) == entry
    assert kt.sapi.proc_writes() == [UNMATCHED]


@pytest.mark.parametrize("fault,record,out,log", [
    ("empty", b"", b"", line(3, A)),
    ("fail", KEY3 + A_LATER, echo(line(3, A)), line(3, A_LATER))])
def test_empty_report_or_answer_that_does_not_reach_the_device_fails(kt, fault, record, out, log):
    if fault == "fail":
        kt.sapi.fail_next_write(errno.EIO, which=S.PROC)
    assert update(kt, record, line(3, A)) == (9, out)
    assert kt.read(LOG) == log
    assert fault != "empty" or kt.sapi.proc_writes() == []
