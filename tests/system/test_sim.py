"""Self-tests of the simulated terminal, only for what the program's own tests would not notice."""
import os

import pytest
from orvin_sim import sapi as S


def test_stub_records_the_exact_start(term):
    args = [b"", b"two\nlines", b"-x", b""]
    r = term.run(args, program="/usr/bin/passwd", uid=1000, gid=1001, argv0="liar",
                 env={"A": "1", "EMPTY": "", "NL": "x\ny"}, keep_fds=(7,), close_fds=(1,))
    assert r.status == 0
    (call,) = term.calls()
    assert call.tool == b"/usr/bin/passwd"  # the exec'd path, whatever argv[0] says
    assert call.argv == [b"liar"] + args
    assert call.env[:3] == [b"A=1", b"EMPTY=", b"NL=x\ny"]
    assert call.fds == [0, 2, 7]
    assert (call.uid, call.euid, call.gid, call.egid) == (1000, 1000, 1001, 1001)


def test_paths_never_leave_the_terminal(term):
    term.symlink("/etc", "/usr/local/main-user")
    term.symlink("../../../../../etc/group", "/tmp/up")
    term.write("/usr/local/main-user/sim-escape-check", b"inside")
    assert term.read("/etc/sim-escape-check") == b"inside"
    assert term.read("/tmp/up") == term.read("/etc/group")
    assert not os.path.exists("/etc/sim-escape-check")


def test_proc_record_round_trip(term, sapi):
    proc = term.path("/proc/sapi")
    record = bytes(range(256)) * 16
    sapi.set_proc_record(record, first_read=100)
    fd = os.open(proc, os.O_RDONLY)
    first = os.read(fd, 4096)
    parts = (first, os.read(fd, 4096 - len(first)), os.read(fd, 4096))
    os.close(fd)
    assert parts == (record[:100], record[100:], b"")
    with open(proc, "rb") as f:
        assert f.read() == record  # the record stays for the next reader
    sapi.refuse_open(which=S.PROC)
    with pytest.raises(OSError):
        open(proc, "rb")


def test_close_leaves_no_mount_and_no_daemon(make_term):
    term = make_term(sapi=True)
    daemon, mount_point = term.sapi._proc, term.sapi.mount_point
    term.close()
    assert daemon.poll() == 0
    assert not os.path.exists(mount_point)
    with open("/proc/self/mountinfo") as f:
        assert "orvin-sapi" not in f.read()
