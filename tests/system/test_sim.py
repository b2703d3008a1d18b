"""Self-tests of the simulated terminal: what, if it broke, would let the program's tests pass
while testing nothing."""
import errno
import os

import pytest

from conftest import EMULATED
from helpers import provision, signed_file, traced


def test_terminal_is_private_and_its_usr_local_really_read_only(term):
    # The terminal's mounts live in the harness's own namespace, never in the one it came from.
    outside = f"/proc/{os.getppid()}"
    assert os.readlink("/proc/self/ns/mnt") != os.readlink(outside + "/ns/mnt")
    with open(outside + "/mountinfo") as f:
        assert term.root not in f.read()
    # Every "left read-only" assertion rests on this answer.
    assert term.usr_local_readonly()
    with pytest.raises(OSError) as e:
        open(term.path("/usr/local/share/x"), "wb")
    assert e.value.errno == errno.EROFS
    with term._writable(term.path("/usr/local")):
        assert not term.usr_local_readonly()


@pytest.mark.skipif(EMULATED != "armhf", reason="only an armhf run installs the armhf program")
def test_armhf_run_starts_the_armhf_program_set_user_id(term):
    # A run that silently installed the native program would pass every test and show nothing.
    header = term.read("/var/sim/emulated/orvin-auth")[:20]
    assert header[:5] == b"\x7fELF\x01" and int.from_bytes(header[18:20], "little") == 40  # ARM
    st = term.lstat("/usr/sbin/orvin-auth")
    assert (st.st_uid, st.st_mode & 0o4000) == (0, 0o4000)
    assert term.run([], uid=500).stdout.startswith(b"\nOrvin Authentication and Installation Tool.\n")


def test_paths_never_leave_the_terminal(term):
    term.symlink("/etc", "/usr/local/main-user")
    term.symlink("../../../../../etc/group", "/tmp/up")
    term.write("/usr/local/main-user/sim-escape-check", b"inside")
    assert term.read("/etc/sim-escape-check") == b"inside"
    assert term.read("/tmp/up") == term.read("/etc/group")
    assert not os.path.exists("/etc/sim-escape-check")


def test_stub_records_what_the_tool_was_given(term):
    # Tests of what tools see (environment, descriptors, IDs) read this record.
    term.run([], program="/usr/bin/passwd", uid=1000, gid=1001, env={"A": "1"}, close_fds=(1,))
    (call,) = term.calls()
    assert (call.env[:1], call.fds, call.euid, call.egid) == ([b"A=1"], [0, 2], 1000, 1001)


def test_device_record_can_come_in_short_reads(make_term):
    # Without a short first read the program's handling of one is never exercised.
    term, record = make_term(sapi=True), bytes(range(256)) * 16
    term.sapi.set_proc_record(record, first_read=100)
    with open(term.path("/proc/sapi"), "rb", buffering=0) as f:
        assert (f.read(4096), f.read(4096), f.read(4096)) == (record[:100], record[100:], b"")



@traced
def test_tracer_holds_the_set_uid_program_at_its_call_or_kills_it_before_the_call(term):
    # Every deterministic race rests on this: under the tracer the program keeps root's rights,
    # stands still while held, and a kill on entry means the call never happened. The directory
    # is made relative to a held descriptor, so its name is resolved through /proc.
    provision(term, "acme")
    signed_file(term, "/tmp/app", "acme", uid=500, gid=500)
    with term.traced(["--install", "/tmp/app", "/usr/local/acme/a/"], ("mkdir", "/usr/local/acme"),
                     uid=500) as run:
        run.wait_stopped()
        with open(f"/proc/{run.program_pid()}/status") as f:
            status = dict(line.rstrip("\n").split(":\t", 1) for line in f)
        assert status["Uid"].split() == ["0"] * 4  # a caller of 500 became root
        assert status["State"] == "t (tracing stop)" and not term.exists("/usr/local/acme")
        held = run.resume()
    assert (held.status, held.stdout[-23:]) == (0, b"Signed file installed.\n")
    assert term.read("/usr/local/acme/a/app") == b"payload\n"
    cut = term.run(["--install", "/tmp/app", "/usr/local/acme/b/"],
                   kill_at=("mkdir", "/usr/local/acme/b"))
    assert (cut.status, cut.killed, term.exists("/usr/local/acme/b")) == (137, True, False)
    calm = term.run(["--install", "/tmp/app", "/usr/local/acme/c/"], kill_at=("mkdir", "/x"))
    assert (calm.status, calm.killed) == (0, False)
    assert term.read("/usr/local/acme/c/app") == b"payload\n"
