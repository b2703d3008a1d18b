"""A hostile local user against the names the program places: a line end in a destination would
forge a line of root's output (D7), and a key file may only go where its caller may write (D20)."""
import os

import pytest

from helpers import (SAPI, give_kbpk, provision, run_cmd, signed_file, startup_output, traced,
                     tr31)

APP, GUEST = 500, 1000
FORGED = "\n/usr/local/share/backdoor - data/executable - verified"
# A file name of the source's, which a destination ending in "/" takes over.
NAME_FORGED = "\nbackdoor - verified"


@pytest.fixture
def ready(term):
    provision(term, "acme")
    term.mkdir(SAPI, 0o700)
    term.start_sapi()
    give_kbpk(term, 5)
    term.mkdir("/home/app", 0o755, uid=APP, gid=APP)
    term.mkdir("/home/guest", 0o755, uid=GUEST, gid=GUEST)
    term.mkdir("/usr/local/app", 0o555)
    term.write("/usr/local/app/roots", b"data")
    term.write("/usr/local/app/roots.sig", b"s" * 256)
    return term


def placed(term):
    """Every name under the trees a destination may reach, but the program's own state."""
    found = []
    for top in ("/usr/local", "/home"):
        for root, dirs, files in os.walk(term.path(top)):
            dirs[:] = [d for d in dirs if os.path.join(root, d) != term.path("/home/orvin")]
            found += [os.path.join(root, n) for n in dirs + files]
    return sorted(found)


# command, source to offer (None: none), destination argument, the path named in the refusal
ROWS = [
    ("--install-check", "/tmp/app", "/usr/local/share/x" + FORGED, None),
    ("--install", "/tmp/app", "/usr/local/share/x" + FORGED, None),
    ("--install", "/tmp/app" + NAME_FORGED, "/usr/local/share/", None),
    ("--install", "/tmp/app\x7f", "/usr/local/share/x\x1b[2K", None),
    ("--install-key-check", "/tmp/k.tr31", "/home/app/k" + FORGED, None),
    ("--install-key", "/tmp/k.tr31", "/home/app/k" + FORGED, None),
    ("--install-key", "/tmp/k" + NAME_FORGED, "/home/app/", None),
    ("--rename", None, "/usr/local/app/r" + NAME_FORGED, None),
    ("--rename", None, "/usr/local/app/r\r", None),
    ("--install-cert-check", "/tmp/a.crt" + NAME_FORGED, None,
     "/usr/local/share/certs/a.crt" + NAME_FORGED),
    ("--install-cert", "/tmp/a.crt\x01", None, "/usr/local/share/certs/a.crt\x01"),
]


@pytest.mark.parametrize("command,source,dest,shown", ROWS)
def test_d7_destination_with_a_control_character_is_refused(ready, command, source, dest, shown):
    before = placed(ready)
    if command.startswith("--install-key"):
        ready.write(source, tr31())
        args = [command, "5", source, dest]
    elif command.startswith("--install-cert"):
        ready.write(source, ready.pki.cert("HSM-PCI-PIN"))
        args = [command, source]
    elif command == "--rename":
        args = [command, "/usr/local/app/roots", dest]
    else:
        signed_file(ready, source, "acme")
        args = [command, source, dest]
    r = run_cmd(ready, args)
    assert r == (8, b"Invalid destination path: %s\n" % (shown or dest).encode())
    assert placed(ready) == before
    assert ready.sapi.requests() == []
    assert ready.usr_local_readonly()


def key_install(term, command, dest, uid=APP):
    term.write("/tmp/k.tr31", tr31(), uid=uid, gid=uid)
    return run_cmd(term, [command, "5", "/tmp/k.tr31", dest], uid=uid)


@pytest.mark.parametrize("dest", ["/home/guest/.profile", "/home/guest/new/dir/k", "/home/guest/",
                                  "/home/x.opk"])
@pytest.mark.parametrize("command", ["--install-key-check", "--install-key"])
def test_d20_key_file_never_lands_where_its_caller_may_not_write(ready, command, dest):
    before = placed(ready)
    r = key_install(ready, command, dest)
    assert r == (8, b"Invalid destination path: %s\n" % dest.encode())
    assert placed(ready) == before and ready.sapi.requests() == []


@pytest.mark.parametrize("uid,home", [
    (APP, "/home/app"),  # his own home
    (APP, "/home/shared"),  # a directory his group may write
    (0, "/home/guest")])  # root places key files anywhere outside the program's home
def test_d20_key_file_goes_where_its_caller_may_write(ready, uid, home):
    ready.mkdir("/home/shared", 0o775, uid=0, gid=APP)
    assert key_install(ready, "--install-key", home + "/new/k.opk", uid) == \
        (0, b"Cryptographic key installed.\n")
    assert ready.lstat(home + "/new/k.opk").st_uid == uid


@traced
def test_d20_directory_closed_to_its_caller_after_the_check_gets_no_key_file(ready):
    ready.mkdir("/home/app/keys", 0o755, uid=APP, gid=APP)
    ready.write("/tmp/k.tr31", tr31(), uid=APP, gid=APP)
    prefix = startup_output(ready, uid=APP)
    args = ["--install-key", "5", "/tmp/k.tr31", "/home/app/keys/deep/k.opk"]
    # The device is opened after every check of the destination and before the walk.
    with ready.traced(args, ("openat", "/dev/sapi0"), uid=APP) as run:
        run.wait_stopped()
        ready.chmod("/home/app/keys", 0o555)
        r = run.resume()
    assert (r.status, r.stdout) == (9, prefix)
    assert os.listdir(ready.path("/home/app/keys")) == []
