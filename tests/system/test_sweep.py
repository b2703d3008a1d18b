"""The start-up sweep over "/usr/local/" and its completion mark."""
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


def test_unreadable_signature_counts_as_invalid(term):
    provision(term, "acme")
    signed_file(term, "/usr/local/share/app", "acme")
    term.chmod("/usr/local/share/app.sig", 0o000)
    r = run_cmd(term, ["--authenticate"], uid=1000)
    assert b"/usr/local/share/app - data/executableCannot access signature file: " \
           b"/usr/local/share/app.sig\n - invalid signature - delete\n" in r.stdout
    assert not term.exists("/usr/local/share/app")


def test_failed_remount_stops_the_sweep(term):
    term.write("/usr/local/share/unsigned", b"x")
    term.break_remount()
    r = run_cmd(term, ["--authenticate"])
    assert (r.status, r.stdout) == (9, b"/usr/local/share/unsigned - data/executable"
                                    b" - missing signature - delete\n"
                                    b"Failed to delete unsigned file: /usr/local/share/unsigned.\n")
    assert term.exists("/usr/local/share/unsigned")
    assert term.read("/sys/kernel/security/ids/task_init") == b""
