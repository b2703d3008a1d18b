"""Installing signed files: owners, modes, atomicity (D8) and exactly the verified bytes (D6)."""
import os
import stat
import threading

import pytest

from helpers import provision, run_cmd, signed_file


@pytest.fixture
def signers(term):
    provision(term, "main-user", "acme")
    return term


def install(term, src, dest, uid=0, **kw):
    return run_cmd(term, ["--install", src, dest], uid=uid, **kw)


def mode_of(term, path):
    return stat.S_IMODE(term.lstat(path).st_mode)


def test_application_files_belong_to_root_and_the_application_group(signers):
    signed_file(signers, "/tmp/app.bin", "main-user", mode=0o640, uid=500, gid=500)
    r = install(signers, "/tmp/app.bin", "/usr/local/main-user/lib/x/", uid=500)
    assert r.status == 0
    assert r.stdout == (
        b"Signature installed: /usr/local/main-user/lib/x/app.bin.sig\n"
        b"Data file installed: /usr/local/main-user/lib/x/app.bin\n"
        b"Signed file installed.\n")
    for path, mode in [("/usr/local/main-user/lib/x/app.bin.sig", 0o740),
                       ("/usr/local/main-user/lib/x/app.bin", 0o755)]:
        st = signers.lstat(path)
        assert (st.st_uid, st.st_gid, stat.S_IMODE(st.st_mode)) == (0, 500, mode)
    for d in ["/usr/local/main-user", "/usr/local/main-user/lib", "/usr/local/main-user/lib/x"]:
        assert mode_of(signers, d) == 0o555
    assert signers.read("/usr/local/main-user/lib/x/app.bin") == b"payload\n"
    assert signers.usr_local_readonly()


@pytest.mark.parametrize("src_mode,installed", [(0o4750, 0o755), (0o600, 0o755), (0o1777, 0o777),
                                               (0o6775, 0o775), (0o2711, 0o755)])
def test_data_mode_is_source_mode_with_0755_and_no_privilege_bits(signers, src_mode, installed):
    signed_file(signers, "/tmp/tool", "acme", mode=src_mode)
    assert install(signers, "/tmp/tool", "/usr/local/acme/").status == 0
    st = signers.lstat("/usr/local/acme/tool")
    assert (st.st_uid, st.st_gid, stat.S_IMODE(st.st_mode)) == (0, 0, installed)


def test_empty_file_installs(signers):
    signed_file(signers, "/tmp/empty", "acme", data=b"")
    assert install(signers, "/tmp/empty", "/usr/local/share/").status == 0
    assert signers.read("/usr/local/share/empty") == b""


def test_callers_umask_and_file_size_limit_do_not_shape_the_install(signers):
    # D4: the run starts with umask 022 and raised limits whatever the caller set.
    data = os.urandom(20000)
    signed_file(signers, "/tmp/big", "acme", data=data)
    r = install(signers, "/tmp/big", "/usr/local/acme/a/b/", umask=0o077,
                rlimits={"FSIZE": (1000, 1 << 30)})
    assert r.status == 0
    assert signers.read("/usr/local/acme/a/b/big") == data
    assert mode_of(signers, "/usr/local/acme/a") == 0o555


def test_existing_destination_is_refused(signers):
    signed_file(signers, "/tmp/app", "acme")
    assert install(signers, "/tmp/app", "/usr/local/acme/").status == 0
    r = install(signers, "/tmp/app", "/usr/local/acme/")
    assert (r.status, r.stdout) == (4, b"Destination file already exists: /usr/local/acme/app\n")
    assert signers.usr_local_readonly()


def test_badly_signed_source_is_deleted(signers):
    signed_file(signers, "/tmp/app", "acme")
    signers.write("/tmp/app", b"changed\n")
    r = install(signers, "/tmp/app", "/usr/local/acme/")
    assert (r.status, r.stdout) == (7, b"Signature check failed.\n")
    assert not signers.exists("/tmp/app") and not signers.exists("/tmp/app.sig")
    assert not signers.exists("/usr/local/acme")


def test_rejected_source_is_deleted_only_with_the_callers_rights(signers):
    # D2: the caller may not delete a root file in a root directory, so neither may the program.
    signers.mkdir("/srv", 0o755)
    signers.write("/srv/app", b"payload\n")
    signers.write("/srv/app.sig", b"\1" * 256)
    r = install(signers, "/srv/app", "/usr/local/acme/", uid=1000)
    assert r.status == 7
    assert r.stdout == (b"Signature check failed.\n"
                                 b"Failed to delete invalid data/executable: /srv/app.\n")
    assert signers.exists("/srv/app") and signers.exists("/srv/app.sig")


def test_source_swapped_during_install_never_installs_unverified_bytes(signers):
    # D6: a caller rewriting the source while the program runs gets the signed bytes or nothing.
    good = os.urandom(300_000)
    bad = bytes(reversed(good))
    signers.write("/tmp/good", good)
    signers.sign("/tmp/good", "acme")
    sig = signers.read("/tmp/good.sig")
    host_src = signers.path("/tmp/src")
    stop = threading.Event()

    def swapper():
        flip = False
        while not stop.is_set():
            tmp = host_src + ".new"
            with open(tmp, "wb") as f:
                f.write(bad if flip else good)
            os.rename(tmp, host_src)
            flip = not flip

    outcomes = set()
    for i in range(25):
        signers.write("/tmp/src", good)
        signers.write("/tmp/src.sig", sig)
        t = threading.Thread(target=swapper)
        t.start()
        try:
            r = install(signers, "/tmp/src", f"/usr/local/acme/n{i}")
        finally:
            stop.set()
            t.join()
            stop.clear()
        outcomes.add(r.status)
        installed = f"/usr/local/acme/n{i}"
        if r.status == 0:
            assert signers.read(installed) == good
            assert signers.read(installed + ".sig") == sig
        else:
            assert r.status in (7, 9)
            assert not signers.exists(installed) and not signers.exists(installed + ".sig")
        acme_dir = signers.path("/usr/local/acme")
        names = set(os.listdir(acme_dir)) if os.path.isdir(acme_dir) else set()
        assert names <= {f"n{j}" for j in range(i + 1)} | {f"n{j}.sig" for j in range(i + 1)}
    assert signers.usr_local_readonly()


def test_installed_signature_is_the_verified_256_bytes(signers):
    # D17: whatever follows the signature in the caller's ".sig" never reaches /usr/local/.
    signers.write("/tmp/app.bin", b"payload\n")
    sig = signers.read(signers.sign("/tmp/app.bin", "acme", extra=b"\xff" * 4096))
    r = install(signers, "/tmp/app.bin", "/usr/local/acme/")
    assert r.status == 0
    assert signers.read("/usr/local/acme/app.bin.sig") == sig[:256]
