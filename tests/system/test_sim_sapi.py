"""Self-tests of the simulated Security API device: the key tests trust what it records and answers."""
import errno
import hashlib
import os

import pytest
from orvin_sim import sapi as S

VALUE_A = bytes(range(256))
VALUE_B = bytes(255 - i for i in range(256))


def key_block(usage=b"K0", size=112, version=b"B", length=None):
    header = version + b"%04d" % (size if length is None else length) + usage + b"TE00N0000"
    return (header + b"0123456789ABCDEF" * (size // 16 + 1))[:size]


def exchange(path, data, read=None):
    """One open, one write, at most one read, one close, as the program talks to the device."""
    fd = os.open(path, os.O_RDWR)
    try:
        os.write(fd, data)
        return os.read(fd, read) if read else None
    finally:
        os.close(fd)


def install_kbpk(dev, acquirer, value, flags=0):
    return exchange(dev, S.request(S.KBPK_INSTALL, acquirer, flags.to_bytes(2, "little") + value), 96)


@pytest.fixture
def dev(term, sapi):
    return term.path("/dev/sapi0")


def test_set_uid_caller_in_the_terminal_is_recorded_byte_for_byte(term, sapi):
    # The program runs set-uid root for user 500: the device must serve a caller whose real user
    # is not the mount's, and log its requests exactly as written.
    term.install_program("/usr/bin/python3", "/usr/bin/python3", 0o4755)
    remove = S.request(S.KBPK_REMOVE, 7)
    install = S.request(S.KBPK_INSTALL, 12, S.kbpk_flags(pci_pin=True, keysigning_ca=True) + VALUE_A)
    script = f"""
import os
for req, want in ((bytes.fromhex("{remove.hex()}"), 0), (bytes.fromhex("{install.hex()}"), 96)):
    fd = os.open("/dev/sapi0", os.O_RDWR)
    os.write(fd, req)
    if want:
        print(os.read(fd, want).hex())
    os.close(fd)
"""
    r = term.run(["-S", "-c", script], program="/usr/bin/python3", argv0="python3", uid=500)
    assert (r.status, r.stderr) == (0, b"")
    reply = bytes.fromhex(r.stdout.decode())

    assert sapi.requests() == [remove, install]
    events = sapi.events()
    assert [(e.handle, e.op) for e in events] == [(1, "open"), (1, "write"), (1, "close"), (2, "open"),
                                                   (2, "write"), (2, "read"), (2, "close")]
    assert all(e.flags == os.O_RDWR for e in events if e.op == "open")
    assert sapi.replies() == [reply]
    assert reply[:32] == hashlib.sha256(VALUE_A).digest()
    assert reply[32:64] == hashlib.sha256(install).digest()
    kbpk = sapi.kbpk(12)
    assert (kbpk.flags, kbpk.protected, kbpk.origin) == (0xC000, reply[64:], "file") and kbpk.pci_pin

    os.chown(term.path("/dev/sapi0"), 0, 500)  # as the device grant does
    st = os.stat(term.path("/dev/sapi0"))
    assert (st.st_uid, st.st_gid, st.st_mode & 0o7777) == (0, 500, 0o660)


def test_kbpk_digests_tell_the_value_and_the_request_apart(dev, sapi):
    first = install_kbpk(dev, 12, VALUE_A)
    assert install_kbpk(dev, 12, VALUE_A) == first  # same request again: a re-installation
    other_acquirer = install_kbpk(dev, 13, VALUE_A)
    assert other_acquirer[:32] == first[:32] and other_acquirer[32:64] != first[32:64]
    assert install_kbpk(dev, 14, VALUE_B)[:32] != first[:32]

    exchange(dev, S.request(S.KBPK_REMOVE, 12))
    assert sapi.kbpk(12) is None
    # Start-up sends the protected form back: the device holds the same key again.
    assert exchange(dev, S.request(S.KBPK_INSTALL, 12, S.kbpk_flags(pci_pin=True) + first[64:])) is None
    restored = sapi.kbpk(12)
    assert (restored.digest, restored.origin, restored.pci_pin) == (first[:32], "protected", True)


@pytest.mark.parametrize("kbpks,req,err,note", [
    ({}, S.request(S.KEY_INSTALL, 3, key_block()), errno.EIO, "no-kbpk"),
    ({3: 0}, S.request(S.KEY_INSTALL, 3, key_block(b"P0")), 252, "pin-key-without-pci-pin"),
    ({3: 0x4000}, S.request(S.KEY_INSTALL, 3, key_block(b"P0")), 252, "pin-key-without-pci-pin"),
    ({3: 0x8000}, S.request(S.KEY_INSTALL, 3, key_block(length=104)), errno.EIO, "bad-key-block"),
    ({3: 0x8000}, S.request(S.KEY_INSTALL, 3, key_block(version=b"D")), errno.EIO, "bad-key-block"),
    ({3: 0x8000}, S.request(S.KEY_INSTALL, 3, b"B4096" + b"0" * 4091), errno.EIO, "bad-length"),
    ({3: 0}, S.request(S.KBPK_UPDATE_PCI_PIN, 3, S.kbpk_flags(True) + VALUE_B), errno.EIO, "kbpk-mismatch"),
    ({}, S.request(S.KBPK_UPDATE_PCI_PIN, 3, S.kbpk_flags(True) + VALUE_A), errno.EIO, "no-kbpk"),
    ({}, S.request(S.KBPK_INSTALL, 3, S.kbpk_flags() + bytes(33)), errno.EIO, "bad-length"),
    ({3: 0}, S.request(S.KBPK_REMOVE, 3)[:7], errno.EIO, "short-header"),
    ({3: 0}, S.request(S.KBPK_REMOVE, 3) + b"x", errno.EIO, "bad-length"),
    ({3: 0}, b"\xb3\xd0\x03" + bytes(5), errno.EIO, "bad-tag"),
    ({3: 0}, b"\xb3\xd1\x03\x01" + bytes(4), errno.EIO, "bad-reserved"),
    ({}, S.request(S.KEY_ISSUER_INIT, 1, b"\x02/Ckey"), errno.EIO, "bad-acquirer"),
    ({}, S.request(S.KEY_ISSUER_INIT, 0, b"\x09/C=GB"), errno.EIO, "bad-length"),
    ({}, S.request(0xB5, 0), errno.EIO, "unknown-command"),
])
def test_refused_requests_fail_the_write_and_change_nothing(dev, sapi, kbpks, req, err, note):
    for acquirer, flags in kbpks.items():
        sapi.set_kbpk(acquirer, VALUE_A, flags)
    before = sapi.state()
    fd = os.open(dev, os.O_RDWR)
    try:
        with pytest.raises(OSError) as e:
            os.write(fd, req)
        assert e.value.errno == err
        assert os.read(fd, 4096) == b""  # no reply waits behind a refusal
    finally:
        os.close(fd)
    (write,) = [e for e in sapi.events() if e.op == "write"]
    assert (write.data, write.result, write.note) == (req, -err, note)
    assert sapi.state() == before


@pytest.mark.parametrize("flags,usage,size,opk", [(0x8000, b"P0", 112, 28), (0, b"K0", 56, 16),
                                                  (0x4000, b"D0", 4088, 1022)])
def test_key_install_answers_digests_and_a_protected_key(dev, sapi, flags, usage, size, opk):
    sapi.set_kbpk(5, VALUE_A, flags)
    block = key_block(usage, size)
    req = S.request(S.KEY_INSTALL, 5, block)
    reply = exchange(dev, req, 4096)
    assert reply[:32] == hashlib.sha256(block).digest()
    assert reply[32:64] == hashlib.sha256(req).digest()
    assert len(reply) == 64 + opk and 32 + opk <= size  # the terminal key's OPK fits its TR-31 text
    assert exchange(dev, S.request(S.KEY_INSTALL, 5, block), 4096) == reply


def test_accepted_requests_change_the_device_state(dev, sapi):
    install_kbpk(dev, 9, VALUE_A)
    exchange(dev, S.request(S.KBPK_UPDATE_PCI_PIN, 9, S.kbpk_flags(pci_pin=True) + VALUE_A))
    assert sapi.kbpk(9).pci_pin
    subject = b"/C=GB/CN=terminal"
    exchange(dev, S.request(S.KEY_ISSUER_INIT, 0, bytes([len(subject)]) + subject + b"\x01\x02"))
    exchange(dev, S.request(S.RATE_LIMIT_INIT, 0, b"\x00rate\n"))
    state = sapi.state()
    assert (state.subject, state.terminal_key, state.rate_limit) == (subject, b"\x01\x02", b"\x00rate\n")
    exchange(dev, S.request(S.KBPK_REMOVE, 9))
    assert sapi.state().kbpks == {}
    assert all(e.note == "ok" for e in sapi.events() if e.op == "write")


@pytest.mark.parametrize("arm,op,result", [
    (lambda s: s.fail_next_write(252), "write", -252),
    (lambda s: s.fail_next_write(errno.EIO), "write", -errno.EIO),
    (lambda s: s.fail_next_read(errno.EAGAIN), "read", -errno.EAGAIN),
    (lambda s: s.refuse_open(), "open", -errno.ENXIO),
    (lambda s: s.short_reply(95), "read", 95),
    (lambda s: s.short_reply(0), "read", 0),
    (lambda s: s.next_reply(b"\xaa" * 10), "read", 10),
])
def test_armed_faults_fire_once(dev, sapi, arm, op, result):
    arm(sapi)
    try:
        got = len(install_kbpk(dev, 4, VALUE_A))
    except OSError as e:
        got = -e.errno
    assert got == result
    (event,) = [e for e in sapi.events() if e.op == op]
    assert event.result == result
    assert (sapi.kbpk(4) is not None) == (op == "read")  # the device acts on every write it takes
    sapi.refuse_open(False)
    assert len(install_kbpk(dev, 4, VALUE_A)) == 96


def test_proc_record_round_trip(term, sapi):
    proc = term.path("/proc/sapi")
    record = bytes(range(256)) * 16
    sapi.set_proc_record(record, first_read=100)
    fd = os.open(proc, os.O_RDONLY)
    first = os.read(fd, 4096)
    parts = (first, os.read(fd, 4096 - len(first)), os.read(fd, 4096))
    os.close(fd)
    assert parts == (record[:100], record[100:], b"")
    assert [(e.op, e.size) for e in sapi.events(S.PROC) if e.op == "read"] == [("read", 4096), ("read", 3996),
                                                                              ("read", 4096)]
    with open(proc, "rb") as f:
        assert f.read() == record  # the record stays for the next reader

    sapi.set_proc_record(b"")
    with open(proc, "rb") as f:
        assert f.read() == b""
    answers = [b"\x01" * 11, b"-----BEGIN CERTIFICATE REQUEST-----\n"]
    for answer in answers:
        fd = os.open(proc, os.O_WRONLY)
        assert os.write(fd, answer) == len(answer)
        os.close(fd)
    sapi.short_write(3)
    fd = os.open(proc, os.O_WRONLY)
    assert os.write(fd, b"abcdef") == 3
    os.close(fd)
    assert sapi.proc_writes() == answers + [b"abcdef"]
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
