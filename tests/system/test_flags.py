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
@pytest.mark.parametrize("uid", [500, 1000])
def test_request_sets_the_flag_or_is_refused(term, syslog, option, name, done, _, uid):
    allowed = uid == 500
    term.write(f"/sys/kernel/flags/{name}", b"0")
    term.tool_fails("/sbin/reboot", exit=1)  # the system is going down: its result is not judged
    syslog()
    assert run_cmd(term, [option], uid=uid) == ((0, done) if allowed else (6, b"Access denied.\n"))
    assert term.read(f"/sys/kernel/flags/{name}") == (b"1" if allowed else b"0")
    refusal = [] if allowed else [f"Failed to process {name} request. Access denied"]
    assert syslog() == [f"Request for {name}"] + refusal
    reboots = [c.argv for c in term.calls("/sbin/reboot")]
    assert reboots == ([[b"reboot"]] if name == "wipe" and allowed else [])


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


@pytest.mark.parametrize("failure,uid,status,logged", [
    ("denied", 1000, 6, "Access denied"), ("unsigned", 0, 7, "Error- 7"),
    ("erase", 0, 9, "Error- 9")])
def test_failed_update_is_logged_in_its_own_words(term, syslog, failure, uid, status, logged):
    if failure == "unsigned":
        term.write("/tmp/os.img", b"unsigned")
    elif failure == "erase":  # D9: nothing is written over a partition that was not erased
        signed_file(term, "/tmp/os.img", "OperatingSystem")
        term.tool_fails("/usr/bin/mtd_debug", exit=1)
    syslog()
    assert run_cmd(term, ["--update-os", "/tmp/os.img"], uid=uid).status == status
    assert syslog() == ["Request for os_update", f"failed to process os_update request. {logged}"]
    assert term.calls("/usr/bin/nandwrite") == [] and term.calls("/sbin/reboot") == []
    assert term.read("/sys/kernel/flags/os_update") == b""
