"""Restore-point, factory and wipe requests, and the system-log lines they leave."""
import re
import socket

import pytest

from helpers import run_cmd, signed_file

LOCAL0_INFO = 16 * 8 + 6


@pytest.fixture
def syslog(term):
    """Receives what the program logs, as the terminal's log daemon would."""
    sock = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    sock.bind(term.path("/dev/log"))
    sock.setblocking(False)

    def lines():
        out = []
        while True:
            try:
                msg = sock.recv(4096)
            except BlockingIOError:
                return out
            m = re.match(rb"<(\d+)>.*? orvin-auth: (.*)$", msg, re.S)
            assert m and int(m.group(1)) == LOCAL0_INFO, msg
            out.append(m.group(2).rstrip(b"\n").decode())

    yield lines
    sock.close()


FLAGS = [
    ("--make-restore", "make_restore", b"Make restore point flag set. Reboot to commit.\n", "Error -"),
    ("--make-factory", "make_factory",
     b"Make factory restore point flag set. Reboot to commit.\n", "Error -"),
    ("--wipe", "wipe", b"Wipe flag set. Rebooting to commit...\n", "Error-"),
]


@pytest.mark.parametrize("option,name,done,_", FLAGS)
@pytest.mark.parametrize("uid", [0, 500])
def test_request_sets_the_flag(term, syslog, option, name, done, _, uid):
    term.tool_fails("/sbin/reboot", exit=1)  # the system is going down: its result is not judged
    syslog()
    assert run_cmd(term, [option], uid=uid) == (0, done)
    assert term.read(f"/sys/kernel/flags/{name}") == b"1"
    assert syslog() == [f"Request for {name}"]
    reboots = [c.argv for c in term.calls("/sbin/reboot")]
    assert reboots == ([[b"reboot"]] if name == "wipe" else [])


@pytest.mark.parametrize("option,name,done,_", FLAGS)
def test_refused_request_is_logged_twice(term, syslog, option, name, done, _):
    term.write(f"/sys/kernel/flags/{name}", b"0")
    syslog()
    assert run_cmd(term, [option], uid=1000) == (6, b"Access denied.\n")
    assert syslog() == [f"Request for {name}", f"Failed to process {name} request. Access denied"]
    assert term.read(f"/sys/kernel/flags/{name}") == b"0"


@pytest.mark.parametrize("option,name,done,error", FLAGS)
@pytest.mark.parametrize("breakage", ["unopenable", "unwritable"])
def test_flag_failure_is_logged_without_restart(term, syslog, option, name, done, error, breakage):
    term.remove(f"/sys/kernel/flags/{name}")
    if breakage == "unopenable":
        term.mkdir(f"/sys/kernel/flags/{name}", 0o755)
        line, logged = f"Failed to open {name} flag", f"Failed to open {name} flag"
    else:
        term.symlink("/dev/full", f"/sys/kernel/flags/{name}")
        term.bind("/dev/full", "/dev/full")
        line, logged = f"Failed to set {name} flag", f"{error} 9"
    syslog()
    assert run_cmd(term, [option]) == (9, f"FATAL: {line}\n".encode())
    assert syslog() == [f"Request for {name}", f"Failed to process {name} request. {logged}"]
    assert term.calls("/sbin/reboot") == []


def test_refused_update_is_logged_in_its_own_words(term, syslog):
    syslog()
    assert run_cmd(term, ["--update-os", "/tmp/os.img"], uid=1000) == (6, b"Access denied.\n")
    assert syslog() == ["Request for os_update", "failed to process os_update request. Access denied"]


@pytest.mark.parametrize("failure,status", [("unsigned", 7), ("erase", 9)])
def test_failed_update_logs_its_status(term, syslog, failure, status):
    if failure == "unsigned":
        term.write("/tmp/os.img", b"unsigned")
    else:  # D9: nothing is written over a partition that was not erased
        signed_file(term, "/tmp/os.img", "OperatingSystem")
        term.tool_fails("/usr/bin/mtd_debug", exit=1)
    syslog()
    assert run_cmd(term, ["--update-os", "/tmp/os.img"])[0] == status
    assert syslog() == ["Request for os_update", f"failed to process os_update request. Error- {status}"]
    assert term.calls("/usr/bin/nandwrite") == [] and term.calls("/sbin/reboot") == []
    assert term.read("/sys/kernel/flags/os_update") == b""
