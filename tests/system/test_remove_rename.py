"""Removing and renaming installed files: the pair stays together, ownership decides who may."""
import os

import pytest

from helpers import provision, run_cmd, traced


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


@pytest.mark.parametrize("command", ["--remove", "--rename"])
@pytest.mark.parametrize("path,uid,status,message", [
    # A refusal names the place the path leads to, however it was spelt.
    ("/usr/local/", 0, 8, b"Invalid path: /usr/local\n"),
    ("/usr/local/.", 0, 8, b"Invalid path: /usr/local\n"),
    ("/usr/local/app/..", 0, 8, b"Invalid path: /usr/local\n"),
    ("/usr/local/app/../..", 0, 8, b"Invalid path: /usr\n"),
    ("/usr/local/app/out/", 0, 8, b"Invalid path: /etc\n"),
    ("/tmp/out", 0, 8, b"Invalid path: /etc/passwd\n"),
    # A directory inside is judged by the owner rule, and is never removed or renamed.
    ("/usr/local/app/", 500, 6, b"Access denied: /usr/local/app.\n"),
    ("/usr/local/app/lib/..", 500, 6, b"Access denied: /usr/local/app.\n"),
    ("/usr/local/app/lib/.", 0, 9, b""),
    ("/usr/local/app/lib/", 0, 9, b"")])
def test_refusals_name_the_resolved_path(installed, command, path, uid, status, message):
    # A pair inside the directory bears the directory's own name: the change must not land on it.
    installed.write("/usr/local/app/lib/lib", b"data")
    installed.write("/usr/local/app/lib/lib.sig", b"s" * 256)
    installed.symlink("/etc", "/usr/local/app/out")
    installed.symlink("/etc/passwd", "/tmp/out")
    def listing():
        return [sorted(os.listdir(installed.path(d))) for d in ("/usr/local/app", "/usr/local/app/lib")]
    before = listing()
    args = [command, path] + (["/usr/local/app/new"] if command == "--rename" else [])
    assert run_cmd(installed, args, uid=uid, gid=uid) == (status, message)
    assert listing() == before
    assert installed.exists("/etc/passwd") and installed.usr_local_readonly()


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


ACTIONS = [(["--remove", "/tmp/sw/lnk"], b"File removed.\n"),
           (["--rename", "/tmp/sw/lnk", "/usr/local/app/lnk2"], b"File renamed.\n")]


@pytest.mark.parametrize("args,out", ACTIONS)
def test_link_is_changed_as_a_link_with_its_own_signature(installed, args, out):
    # D15: the named link goes, with its own ".sig"; its target stays.
    t = installed
    t.symlink("/usr/local/app", "/tmp/sw")
    t.symlink("mine", "/usr/local/app/lnk")
    t.write("/usr/local/app/lnk.sig", b"link's", gid=500)
    r = t.run(args, uid=500)
    assert (r.status, r.stdout[-len(out):]) == (0, out)
    assert not t.exists("/usr/local/app/lnk") and not t.exists("/usr/local/app/lnk.sig")
    assert t.read("/usr/local/app/mine") == b"data" and t.exists("/usr/local/app/mine.sig")
    if args[0] == "--rename":
        assert os.readlink(t.path(args[2], follow=False)) == "mine"
        assert t.read(args[2] + ".sig") == b"link's"
    assert t.usr_local_readonly()


@traced
@pytest.mark.parametrize("args,out", ACTIONS)
def test_directory_of_the_path_flipped_after_it_is_held_changes_nothing_outside(installed, args,
                                                                               out):
    # D15: the caller's path leads outside /usr/local/ when the program takes hold of the
    # directory, and inside when the program reads the path's text; whatever acts on the held
    # directory must find out that it is not the one the text names. The whole path resolves
    # inside throughout (a link of root's in /etc leads back), so only that check stands.
    t = installed
    t.write("/usr/local/app/lnk", b"data", gid=500)
    t.write("/usr/local/app/lnk.sig", b"s" * 256, gid=500)
    t.symlink("/usr/local/app/lnk", "/etc/lnk")
    t.write("/etc/lnk.sig", b"root's")
    t.symlink("/etc", "/tmp/sw")
    etc = sorted(os.listdir(t.path("/etc")))
    with t.traced(args, ("openat", "/tmp/sw*"), after=True, uid=500) as run:
        run.wait_stopped()
        os.unlink(t.path("/tmp/sw", follow=False))
        os.symlink("/usr/local/app", t.path("/tmp/sw", follow=False))
        r = run.resume()
    assert os.readlink(t.path("/etc/lnk", follow=False)) == "/usr/local/app/lnk"
    assert t.read("/etc/lnk.sig") == b"root's" and sorted(os.listdir(t.path("/etc"))) == etc
    assert r.status != 0 and t.read("/usr/local/app/lnk") == b"data" and t.usr_local_readonly()


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
