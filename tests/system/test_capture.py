"""Saving the rate-limit state and the kernel log: root only, files replaced whole."""
import pytest

from helpers import run_cmd


def test_kernel_log_replaces_its_file(term):
    term.write("/var/sim/dmesg", b"[    0.000000] Booting\n[    1.000000] ready\n")
    term.write("/home/orvin/dmesg", b"old log that is much longer than the new one\n" * 10)
    assert run_cmd(term, ["--store-dmesg"]) == (0, b"")
    assert term.read("/home/orvin/dmesg") == b"[    0.000000] Booting\n[    1.000000] ready\n"
    assert [c.argv for c in term.calls("/bin/dmesg")] == [[b"dmesg"]]


def test_failing_dmesg_still_succeeds(term):
    term.tool_fails("/bin/dmesg", exit=1)
    assert run_cmd(term, ["--store-dmesg"]) == (0, b"")


@pytest.mark.parametrize("size", [0, 1, 4096])
def test_rate_limit_record_is_stored_whole_and_an_empty_one_changes_nothing(make_term, size):
    term = make_term(sapi=True)
    record = bytes((i * 7 + 1) % 256 for i in range(size))
    term.sapi.set_proc_record(record)
    run_cmd(term, [])  # the first run makes the state directory
    term.write("/home/orvin/.sapi/.rate-limit", b"previous")
    assert run_cmd(term, ["--store-rate-limit"]) == (9 if size == 0 else 0, b"")
    assert term.read("/home/orvin/.sapi/.rate-limit") == (record or b"previous")
