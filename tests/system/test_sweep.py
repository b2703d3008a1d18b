"""The start-up sweep over "/usr/local/" and its completion mark."""
import os

import pytest

from helpers import provision, run_cmd, signed_file


def test_sweep_keeps_signed_files_and_deletes_the_rest(term):
    provision(term, "acme")
    signed_file(term, "/usr/local/share/good", "acme")
    signed_file(term, "/usr/local/share/sub/deep/bad", "acme")
    term.write("/usr/local/share/sub/deep/bad", b"tampered")
    term.write("/usr/local/share/unsigned", b"x")
    term.write("/usr/local/share/orphan.sig", b"s" * 256)
    term.write("/usr/local/share/sub/.sig", b"s" * 256)
    r = run_cmd(term, ["--authenticate"])
    assert r.status == 0 and b"acme.crt -" not in r.stdout
    for piece in [
        b"/usr/local/share/good - data/executable - verified\n",
        b"/usr/local/share/unsigned - data/executable - missing signature - delete\n",
        b"/usr/local/share/orphan.sig - signature - orphaned - delete\n",
        b"/usr/local/share/sub/deep/bad - data/executableSignature check failed.\n"
        b" - invalid signature - delete\n",
        b"/usr/local/share/sub/.sig - signature\n",
    ]:
        assert piece in r.stdout
    for kept in ["good", "good.sig", "certs/acme.crt", "sub/.sig"]:
        assert term.exists("/usr/local/share/" + kept), kept
    for gone in ["unsigned", "orphan.sig", "sub/deep/bad", "sub/deep/bad.sig"]:
        assert not term.exists("/usr/local/share/" + gone), gone
    assert term.read("/sys/kernel/security/ids/task_init") == b"1"
    assert term.usr_local_readonly()


@pytest.mark.parametrize("uid", [1000, 500])
def test_d27_sweep_judges_installed_files_with_roots_rights(term, uid):
    """Installed signatures are 0740: a caller who cannot read them, their data or their directory
    must not make a verified pair look unsigned and have root delete it."""
    provision(term, "acme")
    pairs = {  # path: (data mode, data owner, signature owner, directory mode)
        "/usr/local/share/app": (0o755, (0, 0), (0, 0), 0o555),
        "/usr/local/acme/lib": (0o755, (0, 600), (0, 600), 0o555),
        "/usr/local/acme/private/secret": (0o700, (0, 0), (0, 600), 0o700),
    }
    for path, (mode, owner, sig_owner, dir_mode) in pairs.items():
        signed_file(term, path, "acme", mode=mode, uid=owner[0], gid=owner[1])
        term.chmod(path + ".sig", 0o740)
        term.chown(path + ".sig", *sig_owner)
        term.chmod(os.path.dirname(path), dir_mode)
    by_caller = run_cmd(term, ["--authenticate"], uid=uid)
    by_root = run_cmd(term, ["--authenticate"])
    assert by_caller == by_root
    assert by_caller.status == 0
    for path in pairs:
        assert path.encode() + b" - data/executable - verified\n" in by_caller.stdout
        assert path.encode() + b".sig - signature\n" in by_caller.stdout
        assert term.exists(path) and term.exists(path + ".sig"), path
    assert b"delete" not in by_caller.stdout
    assert term.usr_local_readonly()


def test_failed_remount_stops_the_sweep(term):
    term.write("/usr/local/share/unsigned", b"x")
    term.break_remount()
    r = run_cmd(term, ["--authenticate"])
    assert (r.status, r.stdout) == (9, b"/usr/local/share/unsigned - data/executable"
                                    b" - missing signature - delete\n"
                                    b"Failed to delete unsigned file: /usr/local/share/unsigned.\n")
    assert term.exists("/usr/local/share/unsigned")
    assert term.read("/sys/kernel/security/ids/task_init") == b""
