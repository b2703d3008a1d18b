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


@pytest.mark.parametrize("extra", [(), ("ec-signer",)])
def test_d24_sweep_verdicts_do_not_depend_on_the_previous_signer(term, extra):
    """The sweep tries the key that verified the previous file first: each file must still be judged
    by its own signature, whoever signed the files around it. An EC key among the candidates makes
    the whole sweep search in order, with the same verdicts."""
    provision(term, "acme", "HSM-PCI-PIN", *extra)
    signers = ["acme", "acme", "OperatingSystem", "HSM-PCI-PIN", "acme", "prod-sign"]
    verdicts = {}
    for i, role in enumerate(signers * 2):
        # One directory, so that changed files lie between verified ones in the walk.
        path = f"/usr/local/share/mix/f{i:02d}"
        signed_file(term, path, role, data=b"file %d\n" % i)
        # Every third file changes after it was signed: the signer of the file before it must not
        # vouch for it.
        if i % 3 == 2:
            term.write(path, b"changed %d\n" % i)
        verdicts[path] = i % 3 != 2
    r = run_cmd(term, ["--authenticate"])
    assert r.status == 0
    for path, good in verdicts.items():
        line = path.encode() + b" - data/executable"
        if good:
            assert line + b" - verified\n" in r.stdout, path
            assert term.exists(path) and term.exists(path + ".sig"), path
        else:
            assert line + b"Signature check failed.\n - invalid signature - delete\n" in r.stdout
            assert not term.exists(path) and not term.exists(path + ".sig"), path
    assert r.stdout.count(b" - verified\n") == sum(verdicts.values())


def _lists_newest_first(term):
    """Whether a directory of the terminal lists its entries newest first (else oldest first)."""
    for name in ("a", "b"):
        term.mkdir("/usr/local/probe/" + name)
    names = os.listdir(term.path("/usr/local/probe"))
    term.remove("/usr/local/probe")
    return names == ["b", "a"]


def test_sweep_forgets_a_candidate_signer_it_deleted(term):
    """A link to the certificate store is walked as a data directory: its certificates have no
    signatures and are deleted through it. From then on no search may find the deleted signer,
    even the one that verified the file before."""
    provision(term, "acme")
    steps = [
        lambda: signed_file(term, "/usr/local/share/aa/first", "acme"),
        lambda: term.symlink("/usr/local/share/certs", "/usr/local/share/lnk"),
        lambda: signed_file(term, "/usr/local/share/zz/after", "acme"),
        # The store itself is walked last, so that it is entered through the link.
        lambda: (term.remove("/usr/local/share/certs"), provision(term, "acme")),
    ]
    for step in reversed(steps) if _lists_newest_first(term) else steps:
        step()
    r = run_cmd(term, ["--authenticate"])
    assert r.status == 0
    deleted = [b"/usr/local/share/lnk/%s.crt - data/executable - missing signature - delete\n" % n
               for n in (b"acme", b"prod-sign")]
    first = r.stdout.index(b"/usr/local/share/aa/first - data/executable - verified\n")
    after = r.stdout.index(b"/usr/local/share/zz/after - data/executableSignature check failed.\n"
                           b" - invalid signature - delete\n")
    assert all(first < r.stdout.index(line) < after for line in deleted)
    assert not term.exists("/usr/local/share/certs/acme.crt")
    assert term.exists("/usr/local/share/aa/first") and not term.exists("/usr/local/share/zz/after")


# D23: neither walk that deletes what it finds (the sweep, and the emptying of "/usr/local/" after a
# failed start-up check) goes out of the tree through a link, and such a link is left as it is;
# the program and the trust anchors lie behind a link to "/usr".
OUTSIDE = ["/srv/ext/unsigned", "/srv/ext/orphan.sig", "/srv/ext/deep/unsigned"]
KEPT_ELSEWHERE = OUTSIDE + ["/usr/sbin/orvin-auth", "/usr/ssl/cert.pem"]


def link_out_and_in(term, target):
    """A link in the tree to target, one to a directory inside the tree and one back to its own
    directory; gives the path under which the inside directory is met first."""
    for path in OUTSIDE:
        term.write(path, b"elsewhere")
    term.symlink(target, "/usr/local/share/ext")
    provision(term, "acme")
    signed_file(term, "/usr/local/acme/lib/good", "acme")
    term.write("/usr/local/acme/lib/bad", b"unsigned")
    term.symlink("/usr/local/acme/lib", "/usr/local/share/lib")
    term.symlink(".", "/usr/local/share/loop")
    # The walk goes depth first in the order the directory lists its entries.
    top = [n for n in os.listdir(term.path("/usr/local")) if n in ("acme", "share")]
    return "/usr/local/acme/lib" if top[0] == "acme" else "/usr/local/share/lib"


@pytest.mark.parametrize("target", ["/srv/ext", "../../../srv/ext", "/usr"])
def test_sweep_stays_inside_and_walks_each_directory_once(term, target):
    lib = link_out_and_in(term, target)
    r = run_cmd(term, ["--authenticate"])
    assert r.status == 0
    assert b"/srv/" not in r.stdout and b"/ext/" not in r.stdout and b"/usr/sbin" not in r.stdout
    assert all(term.exists(p) for p in KEPT_ELSEWHERE)
    assert os.readlink(term.path("/usr/local/share/ext", follow=False)) == target
    # The inside directory is judged once, under the path it was first met by.
    for line in [b" - data/executable - verified\n", b" - signature\n",
                 b" - data/executable - missing signature - delete\n"]:
        assert r.stdout.count(line) == 1, r.stdout
    assert f"{lib}/good - data/executable - verified\n".encode() in r.stdout
    assert f"{lib}/bad - data/executable - missing signature - delete\n".encode() in r.stdout
    assert term.exists("/usr/local/acme/lib/good") and not term.exists("/usr/local/acme/lib/bad")


@pytest.mark.parametrize("target", ["/srv/ext", "../../../srv/ext", "/usr"])
def test_emptying_after_a_failed_check_stays_inside(term, target):
    link_out_and_in(term, target)
    term.remove_tool("/bin/umount")
    r = term.run([])
    assert (r.status, r.stdout[-26:]) == (9, b"Consistency check failed.\n")
    assert all(term.exists(p) for p in KEPT_ELSEWHERE)
    assert os.readlink(term.path("/usr/local/share/ext", follow=False)) == target
    assert os.listdir(term.path("/usr/local/acme/lib")) == []
