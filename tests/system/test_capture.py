"""Saving the rate-limit state and the kernel log: root only, files replaced whole."""
import pytest

from helpers import run_cmd


@pytest.mark.parametrize("option", ["--store-rate-limit", "--store-dmesg"])
def test_application_user_is_not_enough(term, option):
    assert run_cmd(term, [option], uid=500) == (6, b"Access denied.\n")


def test_kernel_log_replaces_its_file(term):
    term.write("/var/sim/dmesg", b"[    0.000000] Booting\n[    1.000000] ready\n")
    term.write("/home/orvin/dmesg", b"old log that is much longer than the new one\n" * 10)
    assert run_cmd(term, ["--store-dmesg"]) == (0, b"")
    assert term.read("/home/orvin/dmesg") == b"[    0.000000] Booting\n[    1.000000] ready\n"
    assert [c.argv for c in term.calls("/bin/dmesg")] == [[b"dmesg"]]


def test_failing_dmesg_or_unusable_log_file_still_succeeds(term):
    term.tool_fails("/bin/dmesg", exit=1)
    assert run_cmd(term, ["--store-dmesg"]) == (0, b"")
    # A link planted at the log's name is never written through.
    term.remove("/home/orvin/dmesg")
    term.symlink("/etc/created", "/home/orvin/dmesg")
    assert run_cmd(term, ["--store-dmesg"]) == (0, b"")
    assert not term.exists("/etc/created")


@pytest.mark.parametrize("size", [1, 100, 4096])
def test_rate_limit_record_is_stored_whole(make_term, size):
    term = make_term(sapi=True)
    record = bytes((i * 7 + 1) % 256 for i in range(size))
    term.sapi.set_proc_record(record)
    assert run_cmd(term, ["--store-rate-limit"]) == (0, b"")
    assert term.read("/home/orvin/.sapi/.rate-limit") == record


def test_empty_record_leaves_the_old_state(make_term):
    term = make_term(sapi=True)
    term.sapi.set_proc_record(b"")
    run_cmd(term, [])
    term.write("/home/orvin/.sapi/.rate-limit", b"previous")
    assert run_cmd(term, ["--store-rate-limit"]) == (9, b"")
    assert term.read("/home/orvin/.sapi/.rate-limit") == b"previous"
