"""A hostile local user against the program's own files (D19, D20): files, links, FIFOs and
directories planted at every fixed name the program writes; the key file's directory swapped, or
a link planted at its name, while the program is held at the device exchange; the private
directory."""
import glob
import os
import stat

import pytest
from orvin_sim import sapi as S

from helpers import KBPK_VALUE, SAPI, give_kbpk, provision, run_cmd, signed_file, tr31, traced

CALLER = 500
LOG = "/home/orvin/.dukpt-ksn-log"
DMESG = "/home/orvin/dmesg"
RATE = SAPI + ".rate-limit"
VICTIM = "/etc/victim"
KBPK_FILE = "/tmp/kbpk.bin"
CERTS = "/usr/local/share/certs/"
OPEN_FAILED = b"FATAL: Failed to open the Orvin Protected Key file.\n"
SCREEN = 131072


# Each scenario readies a terminal for one honest command and names the state files it writes
# and what the command prints when nobody has planted anything.
def ksn(term, pki):
    term.sapi.set_proc_record(b"\x03\x00" + bytes.fromhex("FFFF9876543210E00001"))
    return ["--update-ksn"], [LOG], b""


def dmesg(term, pki):
    term.write("/var/sim/dmesg", b"[    0.000000] Booting\n")
    return ["--store-dmesg"], [DMESG], b""


def rate_limit(term, pki):
    term.sapi.set_proc_record(b"rate-limit state")
    return ["--store-rate-limit"], [RATE], b""


def kbpk_install(term, pki):
    provision(term, "acme")
    signed_file(term, KBPK_FILE, "acme", data=KBPK_VALUE)
    written = [SAPI + ".KBPK0004", SAPI + ".FLAG0004", SAPI + ".sha256"]
    return ["--install-kbpk", "4", KBPK_FILE], written, b"KBPK installed.\n"


def key_install(term, pki):
    give_kbpk(term, 6)
    term.mkdir("/home/app", 0o755)
    term.write("/tmp/k.tr31", tr31())
    return (["--install-key", "6", "/tmp/k.tr31", "/home/app/"],
            [SAPI + ".sha256", "/home/app/k.tr31"], b"Cryptographic key installed.\n")


def init_keys(term, pki):
    pki.issue("terminal", "terminal-0001", "prod-sign")
    for key, role in (("ProdSignCert", "prod-sign"), ("TerminalCert", "terminal")):
        term.nvram_set(key, pki.cert(role).hex().encode() + b"\n")
    return (["--init-keys"], [CERTS + "prod-sign.crt", CERTS + "terminal.crt"],
            b"Certificate installed.\n" * 2)


def plant(term, path, kind):
    """What a local user could have left at path, owned by him."""
    if kind == "file":
        term.write(path, b"3:FFFF9876543210E0FFFF\n", mode=0o666, uid=CALLER, gid=CALLER)
    elif kind == "link":
        term.symlink(VICTIM, path, uid=CALLER, gid=CALLER)
    elif kind == "fifo":
        host = term.path(path, follow=False)
        os.mkfifo(host, 0o666)
        os.chown(host, CALLER, CALLER)
    else:
        term.mkdir(path, 0o777, uid=CALLER, gid=CALLER)


def caller_owned(term):
    found = (os.path.join(d, n) for d, dirs, files in os.walk(term.path("/home/orvin"))
             for n in dirs + files)
    return [p[len(term.root):] for p in found if os.lstat(p).st_uid != 0]


def prepared(make_term, pki, scenario):
    term = make_term(sapi=True)
    term.mkdir(SAPI, 0o700)
    term.write(VICTIM, b"victim")
    return term, *scenario(term, pki)


@pytest.mark.parametrize("scenario,name", [
    (ksn, LOG), (ksn, LOG + ".temp"), (dmesg, DMESG), (rate_limit, RATE),
    (kbpk_install, SAPI + ".FLAG0004"), (init_keys, "/tmp/prod-sign.crt")],
    ids=lambda v: v.__name__ if callable(v) else v.rsplit("/", 1)[-1])
@pytest.mark.parametrize("kind", ["file", "link", "fifo", "dir"])
def test_planted_names_never_redirect_give_away_or_block_a_state_write(make_term, pki, scenario,
                                                                       name, kind):
    term, args, written, out = prepared(make_term, pki, scenario)
    plant(term, name, kind)
    outcome = run_cmd(term, args)
    assert term.read(VICTIM) == b"victim" and term.lstat(VICTIM).st_uid == 0
    assert glob.glob(term.path("/tmp") + "/orvin-auth.*") == []  # the private directory went
    if kind == "dir" and name in written:
        # A directory cannot be replaced by a file: the write fails as the command's own failure
        # (the kernel log, as ever, is not the command's concern), and nothing of it is the caller's.
        assert outcome.status == (0 if scenario is dmesg else 9)
        assert os.listdir(term.path(name)) == [] and caller_owned(term) == [name]
        return
    assert outcome == (0, out)
    for path in written:
        st = term.lstat(path)
        assert stat.S_ISREG(st.st_mode) and st.st_uid == 0, path
        if not path.startswith(CERTS):
            assert stat.S_IMODE(st.st_mode) == 0o644, path
    assert set(caller_owned(term)) <= ({name} - set(written))


# Only root makes entries in the state directory, so anything but root's own file at the name of
# the registry in force is damage: no key passes it, and none reaches the device (D25).
@pytest.mark.parametrize("scenario", [kbpk_install, key_install], ids=lambda v: v.__name__)
@pytest.mark.parametrize("name", [".sha256", ".sha256-hashes"])
@pytest.mark.parametrize("kind", ["file", "link", "fifo", "dir"])
def test_damaged_registry_in_force_stops_a_key_before_the_device(make_term, pki, scenario, name,
                                                                 kind):
    term, args, written, _ = prepared(make_term, pki, scenario)
    plant(term, SAPI + name, kind)
    state = sorted(os.listdir(term.path(SAPI)))
    assert run_cmd(term, args) == (9, b"FATAL: Failed to open the cryptographic key hash file.\n")
    assert term.sapi.requests() == [] and sorted(os.listdir(term.path(SAPI))) == state
    assert not any(term.exists(p) for p in written if not p.startswith(SAPI))
    assert term.read(VICTIM) == b"victim"


@traced
@pytest.mark.parametrize("scenario,name", [
    (ksn, LOG), (dmesg, DMESG), (rate_limit, RATE), (kbpk_install, SAPI + ".KBPK0004")],
    ids=lambda v: v.__name__ if callable(v) else v.rsplit("/", 1)[-1])
def test_temporary_name_of_a_state_write_is_never_met_again(make_term, pki, scenario, name):
    # D19: a write cut short before its rename leaves its temporary. Whoever learns that name
    # and holds it (here with a directory, which nothing can open for writing) must not stop
    # the next write: every write takes a name of its own.
    term, args, written, out = prepared(make_term, pki, scenario)
    parent = os.path.dirname(name)
    before = set(os.listdir(term.path(parent)))
    assert term.run(args, kill_at=("rename", name)).killed
    left = set(os.listdir(term.path(parent))) - before - {os.path.basename(w) for w in written}
    assert left, "the cut write left no temporary"
    for n in left:
        os.unlink(os.path.join(term.path(parent), n))
        term.mkdir(f"{parent}/{n}", 0o777, uid=CALLER, gid=CALLER)
    outcome = run_cmd(term, args)
    assert outcome.status == 0 and outcome.stdout.endswith(out), outcome
    st = term.lstat(name)
    assert stat.S_ISREG(st.st_mode) and st.st_uid == 0
    assert all(os.listdir(term.path(f"{parent}/{n}")) == [] for n in left)


# ---- D20: key files of a caller other than root ------------------------------------------------

@pytest.fixture
def kt(make_term):
    term = make_term(sapi=True)
    term.mkdir(SAPI, 0o700)
    for acquirer in (0, 6):
        give_kbpk(term, acquirer)
    term.mkdir("/home/main-user", 0o755, uid=CALLER, gid=CALLER)
    term.mkdir("/home/main-user/keys", 0o755, uid=CALLER, gid=CALLER)
    term.write(VICTIM, b"victim")
    return term


def caller_install(term, source, dest):
    term.write(source, tr31(), uid=CALLER, gid=CALLER)
    return run_cmd(term, ["--install-key", "6", source, dest], uid=CALLER)


@pytest.mark.parametrize("dest", [
    "/home/orvin/dmesg", "/home/orvin/new/", "/home/orvin/.sapi/", "/home/orvin/.sapi/.KBPK0009",
    "/home/main-user/home/x.opk", "/home/main-user/home/.sapi/.rate-limit"])
def test_caller_key_file_may_not_lie_in_the_program_home(kt, dest):
    kt.symlink("/home/orvin", "/home/main-user/home", uid=CALLER, gid=CALLER)
    assert caller_install(kt, "/tmp/k.tr31", dest) == (8, b"Invalid destination path: %s\n" % dest.encode())
    assert kt.sapi.requests() == [] and caller_owned(kt) == []


# The program is held as it opens the device: every check of the destination is behind it and
# the key file is not made yet.
DEVICE_OPEN = ("openat", "/dev/sapi0")


@traced
@pytest.mark.parametrize("target,swapped", [("/etc", "keys"), ("/tmp", "keys"),
                                            ("/etc", "keys/new")])
def test_directory_swapped_for_a_link_after_the_checks_is_not_entered(kt, target, swapped):
    # D20: the walk to the key file's directory follows no link. /etc is a place only root may
    # write; /tmp lies outside /home/, where no key file may be. A directory the program has just
    # made in the caller's own directory is the caller's to swap as well.
    path = kt.path("/home/main-user/" + swapped)
    made = swapped != "keys"
    kt.write("/home/main-user/k.tr31", tr31(), uid=CALLER, gid=CALLER)
    outside = sorted(os.listdir(kt.path(target)))
    with kt.traced(["--install-key", "6", "/home/main-user/k.tr31", "/home/main-user/keys/new/"],
                   ("mkdir", "/home/main-user/keys/new") if made else DEVICE_OPEN, after=made,
                   uid=CALLER) as run:
        run.wait_stopped()
        os.rename(path, path + ".old")
        os.symlink(target, path)
        r = run.resume()
    assert r.status == 9 and sorted(os.listdir(kt.path(target))) == outside
    assert caller_owned(kt) == [] and os.listdir(path + ".old") == []


@traced
def test_link_planted_at_the_key_file_name_after_its_check_is_not_written_through(kt):
    kt.write("/tmp/k.tr31", tr31(), uid=CALLER, gid=CALLER)
    with kt.traced(["--install-key", "6", "/tmp/k.tr31", "/home/main-user/keys/"], DEVICE_OPEN,
                   uid=CALLER) as run:
        run.wait_stopped()
        kt.symlink(VICTIM, "/home/main-user/keys/k.tr31", uid=CALLER, gid=CALLER)
        r = run.resume()
    assert (r.status, r.stdout[-len(OPEN_FAILED):]) == (9, OPEN_FAILED)
    assert kt.read(VICTIM) == b"victim"
    assert kt.lstat(VICTIM).st_uid == 0 and kt.lstat(VICTIM).st_mode & 0o777 == 0o644


@traced
def test_private_directory_is_fresh_root_only_and_not_foreseeable(make_term):
    # D19: the verified image copy lies in a directory only root may enter, made by this run.
    # A caller who saw the last run's directory makes one of his own at that name and, while the
    # next run starts the flash tool, puts his own bytes in whatever the program left there.
    term = make_term()
    provision(term, "main-user", "prod-sign")
    right = os.urandom(SCREEN)
    signed_file(term, "/tmp/img", "main-user", data=right, uid=CALLER, gid=CALLER)
    args, private = ["--install-image", "/tmp/img"], term.path("/tmp") + "/orvin-auth.*"
    # Held as the copy's staging asks for the directory again, before anything is put in it.
    with term.traced(args, ("mkdir", "/tmp/orvin-auth.*", 2), uid=CALLER) as run:
        run.wait_stopped()
        (seen,) = glob.glob(private)
        st = os.lstat(seen)
        assert (stat.S_ISDIR(st.st_mode), st.st_uid, stat.S_IMODE(st.st_mode)) == (True, 0, 0o700)
        assert run.resume().status == 0
    term.remove("/var/sim/nand/mtd4")
    os.mkdir(seen, 0o777)
    os.chown(seen, CALLER, CALLER)
    with term.traced(args, ("fork",), uid=CALLER) as run:
        run.wait_stopped()
        for name in os.listdir(seen):
            with open(os.path.join(seen, name), "wb") as f:
                f.write(os.urandom(SCREEN))
        r = run.resume()
    assert (r.status, term.read("/var/sim/nand/mtd4") == right) == (0, True)


def test_kbpk_state_file_of_another_owner_never_reaches_the_device(make_term, pki):
    term, args, *_ = prepared(make_term, pki, init_keys)
    term.write(SAPI + ".KBPK0003", bytes(32), uid=CALLER, gid=CALLER)
    assert run_cmd(term, args).status == 9
    assert all(r[0] != S.KBPK_INSTALL for r in term.sapi.requests())
