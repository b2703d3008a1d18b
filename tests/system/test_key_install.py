"""Working keys through the simulated Security API device: the request, the registry, the
protected key file under /home/ (owner, mode, directories), destinations (D7) and what a refusal
deletes (D2)."""
import errno
import hashlib

import pytest
from orvin_sim import sapi as S

from helpers import SAPI, give_kbpk, run_cmd, tr31

TR31 = "/tmp/k1.tr31"
WRITE = b"FATAL: Write to the Security API device failed with code "
INSTALLED, CAN = b"Cryptographic key installed.\n", b"Cryptographic key can be installed.\n"


@pytest.fixture
def kt(term):
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    for acquirer in (0, 5, 6):
        give_kbpk(term, acquirer)
    term.mkdir("/home/app", 0o755, uid=500, gid=500)  # the application user's own home (D20)
    return term


def install(term, dest, command="--install-key", acquirer="5", uid=0, gid=None, source=TR31):
    return run_cmd(term, [command, acquirer, source, dest], uid=uid, gid=gid)


@pytest.mark.parametrize("uid,gid,dest,target,made,mode", [
    (0, 0, "/home/app/keys/", "/home/app/keys/k1.tr31", ["/home/app/keys"], 0o644),
    (500, 7, "/home/app/a/b/key.opk", "/home/app/a/b/key.opk", ["/home/app/a", "/home/app/a/b"], 0o640),
    (500, 500, "/home/app/key.opk", "/home/app/key.opk", [], 0o600)])
def test_install_writes_the_protected_key_for_the_caller(kt, uid, gid, dest, target, made, mode):
    kt.write(TR31, tr31(), mode=mode, uid=uid, gid=uid)
    acquirer = "6" if uid else "0"
    assert install(kt, dest, "--install-key-check", acquirer, uid, gid) == (0, CAN)
    assert kt.sapi.requests() == [] and not kt.exists(target)
    assert install(kt, dest, acquirer=acquirer, uid=uid, gid=gid) == (0, INSTALLED)
    request = S.request(S.KEY_INSTALL, int(acquirer), tr31())
    (reply,) = kt.sapi.replies()
    assert kt.sapi.requests() == [request] and len(reply) == 64 + 28
    st = kt.lstat(target)
    # The owner's group is the caller's primary group from the password database.
    assert (kt.read(target), st.st_uid, st.st_gid) == (reply[64:], uid, uid)
    assert st.st_mode & 0o7777 == mode
    assert [(kt.lstat(d).st_uid, kt.lstat(d).st_mode & 0o777) for d in made] == [(0, 0o755)] * len(made)
    digests = hashlib.sha256(tr31()).digest() + hashlib.sha256(request).digest()
    assert kt.read(SAPI + ".sha256") == digests
    assert kt.exists(TR31)


@pytest.mark.parametrize("dest,status,out", [
    ("key.opk", 8, b""),
    ("/home/app//x.opk", 8, b"Invalid destination path: /home/app//x.opk\n"),
    ("/home/out/x.opk", 8, b"Invalid destination path: /home/out/x.opk\n"),  # D7: a link to /etc
    ("/home/app/old.opk/x.opk", 8, b"Invalid destination path: /home/app/old.opk/x.opk\n"),
    ("/home/app/old.opk", 4, b"Destination file already exists: /home/app/old.opk\n"),
    ("/home/app/", 4, b"Destination file already exists: /home/app/k1.tr31\n"),
    ("/home/app/gone.opk", 4, b"Destination file already exists: /home/app/gone.opk\n")])
@pytest.mark.parametrize("command", ["--install-key-check", "--install-key"])
def test_destinations_are_refused_before_the_device(kt, command, dest, status, out):
    kt.write(TR31, tr31())
    kt.symlink("/etc", "/home/out")
    kt.write("/home/app/old.opk", b"old")
    kt.write("/home/app/k1.tr31", b"old")
    kt.symlink("/nowhere", "/home/app/gone.opk")
    assert install(kt, dest, command) == (status, out)
    assert kt.sapi.requests() == [] and kt.read("/home/app/old.opk") == b"old"
    assert kt.exists(TR31) == (command == "--install-key-check")


@pytest.mark.parametrize("data,status,out", [
    (tr31(size=56), 0, INSTALLED),
    (b"D" + tr31()[1:], 13, b"Invalid TR-31 version ID.\n"),
    (tr31() + b"\n", 13, b"Invalid TR-31 length.\n"),
    (None, 1, b"Invalid file: /tmp/k1.tr31\n")])
def test_key_file_shape(kt, data, status, out):
    if data is not None:
        kt.write(TR31, data)
    assert install(kt, "/home/app/") == (status, out)
    assert len(kt.sapi.requests()) == (status == 0)
    assert kt.exists(TR31) == (status == 0)


@pytest.mark.parametrize("command", ["--install-key-check", "--install-key"])
def test_missing_kbpk_comes_first_and_deletes_nothing(kt, command):
    kt.write(TR31, b"not a key block", mode=0o666)
    assert install(kt, "key.opk", command, "7") == (10, b"")
    assert kt.exists(TR31) and kt.sapi.requests() == []


def arm(kt, how):
    if how == "pin":  # a PIN key under a KBPK without PCI PIN security: the device says 252
        kt.write(TR31, tr31(usage=b"P0"))
        return
    kt.write(TR31, tr31())
    if how == "eio":
        kt.sapi.fail_next_write(errno.EIO)
    elif how == "short":
        kt.sapi.short_reply(63)
    elif how == "duplicate":  # the same key value came in before under another acquirer
        kt.write("/tmp/first.tr31", tr31())
        assert install(kt, "/home/app/first.opk", acquirer="6", source="/tmp/first.tr31").status == 0


def registry(kt):
    return kt.read(SAPI + ".sha256") if kt.exists(SAPI + ".sha256") else b""


@pytest.mark.parametrize("how,dest,status,out,registered", [
    ("pin", "/home/app/", 14, WRITE + b"0xFC.\n", 0),
    ("eio", "/home/app/", 9, WRITE + b"0x05.\n", 0),
    ("short", "/home/app/", 9, b"FATAL: Read from the Security API device failed with code 0x00.\n", 0),
    ("duplicate", "/home/app/", 12, b"FATAL: Duplicate cryptographic key value detected.\n", 0),
    # Names the file system refuses are met only when the directory or the file is made.
    ("ok", "/home/app/" + "d" * 300 + "/k.opk", 9, b"", 64),
    ("ok", "/home/app/" + "n" * 300, 9, b"FATAL: Failed to open the Orvin Protected Key file.\n", 64)])
def test_failures_delete_the_key_file_and_write_no_key(kt, how, dest, status, out, registered):
    arm(kt, how)
    before = registry(kt)
    assert install(kt, dest) == (status, out)
    assert not kt.exists(TR31) and not kt.exists("/home/app/k1.tr31")
    # The registry keeps a key it accepted even when a later step fails.
    assert len(registry(kt)) - len(before) == registered


def test_key_file_the_caller_may_not_read_or_delete_stays(kt):
    kt.write(TR31, tr31(), mode=0o600)  # root's, in the sticky /tmp (D2, D3)
    out = b"FATAL: Failed to open the file to verify.\n"
    assert install(kt, "/home/app/", uid=500, acquirer="6") == (9, out)
    assert kt.exists(TR31) and kt.sapi.requests() == []
