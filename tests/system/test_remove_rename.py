"""Removing and renaming installed files: the pair stays together, ownership decides who may."""
import os
import time
from contextlib import nullcontext

import pytest

from helpers import provision, racing, run_cmd


@pytest.fixture
def installed(term):
    term.mkdir("/usr/local/app", 0o555)
    for name, uid, gid in [("mine", 0, 500), ("theirs", 500, 500), ("roots", 0, 0)]:
        term.write(f"/usr/local/app/{name}", b"data", uid=uid, gid=gid)
        term.write(f"/usr/local/app/{name}.sig", b"s" * 256, uid=uid, gid=gid)
    provision(term, "acme")
    return term


@pytest.mark.parametrize("uid,gid,name,status", [
    (0, 0, "theirs", 0), (0, 0, "roots", 0), (500, 500, "mine", 0), (500, 500, "theirs", 6),
    (500, 500, "roots", 6), (1000, 1000, "mine", 6), (1000, 0, "roots", 0)])
def test_remove_follows_owner_and_group(installed, uid, gid, name, status):
    path = f"/usr/local/app/{name}"
    out = f"Access denied: {path}.\n".encode() if status else b"File removed.\n"
    assert run_cmd(installed, ["--remove", path], uid=uid, gid=gid) == (status, out)
    assert installed.exists(path) == installed.exists(path + ".sig") == bool(status)
    assert installed.usr_local_readonly()


@pytest.mark.parametrize("path,status,message", [
    ("/usr/local/app/none", 1, b"Invalid file: /usr/local/app/none\n"),
    ("/usr/local/app/out", 8, b"Invalid path: /etc/passwd\n"),
    ("/usr/local", 8, b"Invalid path: /usr/local\n"),
    ("/tmp/in", 8, b"Invalid path: /tmp/in\n"),  # the entry named lies outside (D15)
    ("/usr/local/app/nosig", 9, b"")])  # the data file stays without its signature
def test_remove_outside_the_application_file_system_or_of_half_a_pair_is_refused(installed, path,
                                                                                status, message):
    installed.symlink("/etc/passwd", "/usr/local/app/out")
    installed.symlink("/usr/local/app/roots", "/tmp/in")
    installed.write("/usr/local/app/nosig", b"data")
    assert run_cmd(installed, ["--remove", path], uid=0) == (status, message)
    assert installed.exists("/etc/passwd") and installed.exists("/usr/local/app/roots.sig")
    assert installed.exists("/usr/local/app/nosig") and installed.usr_local_readonly()


CERT = "/usr/local/share/certs/acme.crt"


@pytest.mark.parametrize("old,new,out", [
    ("/usr/local/app/mine", "/usr/local/app/mine2", b"File renamed.\n"),
    # A signed file without its ".sig" could not be removed; a certificate has none.
    (CERT, None, b"File removed.\n"), (CERT, "/usr/local/share/certs/b.crt", b"File renamed.\n")])
def test_rename_moves_the_pair_and_a_certificate_goes_alone(installed, old, new, out):
    pair = old != CERT
    args = ["--rename", old, new] if new else ["--remove", old]
    assert run_cmd(installed, args, uid=500 if pair else 0, gid=500 if pair else 0) == (0, out)
    assert not installed.exists(old) and not installed.exists(old + ".sig")
    if new:
        assert installed.read(new) == (b"data" if pair else installed.pki.cert("acme"))
        assert installed.exists(new + ".sig") == pair
    assert installed.usr_local_readonly()


@pytest.mark.parametrize("new,status,message", [
    ("/usr/local/app/../app/x", 8, b"Invalid destination path: /usr/local/app/../app/x\n"),
    ("/usr/local/share/x", 8, b"Invalid destination path: /usr/local/share/x\n"),
    ("/usr/local/app/theirs", 8, b"Invalid destination file: /usr/local/app/theirs\n"),
    ("x", 9, b"")])
def test_rename_stays_in_its_directory(installed, new, status, message):
    assert run_cmd(installed, ["--rename", "/usr/local/app/roots", new]) == (status, message)
    assert installed.exists("/usr/local/app/roots") and installed.exists("/usr/local/app/roots.sig")


@pytest.mark.parametrize("args,out", [([], b"File removed.\n"),
                                      (["/usr/local/app/lnk2"], b"File renamed.\n")])
def test_link_is_changed_as_a_link_while_a_directory_of_its_path_flips(installed, args, out):
    # D15: the named link goes, with its own ".sig"; its target stays. The caller's path flips
    # between two directories, and the change never lands in the one the caller may not touch.
    t = installed
    t.mkdir("/usr/local/other", 0o555)
    for name in ("secret", "secret.sig", "lnk.sig"):
        t.write(f"/usr/local/other/{name}", b"root's")
    t.symlink("secret", "/usr/local/other/lnk")
    kept = [f"/usr/local/{name}{sig}" for name in ("app/mine", "other/lnk", "other/secret")
            for sig in ("", ".sig")]
    gone = ["/usr/local/app/lnk", "/usr/local/app/lnk.sig"]
    sw = t.path("/tmp/sw", follow=False)

    def point_at(directory):
        os.symlink(directory, sw + ".new")
        os.rename(sw + ".new", sw)
    # The last round runs without the flips, so the link's own change is proved every time.
    for calm in [False] * 24 + [True]:
        for p in [p for a in args for p in (a, a + ".sig") if t.exists(p)]:
            t.remove(p)
        if not t.exists(gone[0]):
            t.symlink("mine", gone[0])
            t.write(gone[1], b"link's", gid=500)
        point_at("/usr/local/app")
        with nullcontext() if calm else racing(
                lambda: point_at("/usr/local/app"), lambda: time.sleep(0.001),
                lambda: point_at("/usr/local/other"), lambda: time.sleep(0.001)):
            r = t.run(["--" + ("rename" if args else "remove"), "/tmp/sw/lnk"] + args, uid=500)
        assert all(t.exists(p) for p in kept), r.stdout
        assert t.read("/usr/local/app/mine") == b"data" and t.usr_local_readonly()
        if r.status == 0:
            assert r.stdout.endswith(out) and not any(t.exists(p) for p in gone)
            assert all(t.lstat(p) for p in args)  # the link under its new name
        else:
            assert not calm and r.status in (6, 9) and all(t.exists(p) for p in gone), r.stdout


@pytest.mark.parametrize("args", [
    ["--remove", "/usr/local/app/roots"],
    ["--rename", "/usr/local/app/roots", "/usr/local/app/other"],
    ["--install", "/tmp/tool", "/usr/local/acme/"],
])
def test_failed_unlock_is_told_once_and_changes_nothing(installed, args):
    installed.write("/tmp/tool", b"tool\n")
    installed.sign("/tmp/tool", "acme")
    installed.break_remount()
    before = sorted(os.listdir(installed.path("/usr/local/app")))
    assert run_cmd(installed, args) == (9, b"FATAL: Internal filesystem call failed.")
    assert sorted(os.listdir(installed.path("/usr/local/app"))) == before
    assert not installed.exists("/usr/local/acme")
    assert installed.exists("/tmp/tool") and installed.exists("/tmp/tool.sig")
