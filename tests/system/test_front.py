"""Dispatch, usage text, caller rules and the clean start of every run."""
import pytest

from helpers import BANNER, provision, signed_file, usage


UNKNOWN_OR_WRONG_COUNT = [
    ["--install", "/tmp/a"], ["--install", "/tmp/a", "/usr/local/share/", "x"], ["--wipe", "x"],
    ["--INSTALL", "/tmp/a", "/usr/local/share/"], ["--Authenticate"], [""], ["--remove-kbpk"],
    ["--install-checkx", "/tmp/a", "/usr/local/share/"], ["install", "/tmp/a", "/usr/local/share/"],
    ["--install-key", "1", "a"]]
KEY_COMMANDS = [["--install-key-check", "/tmp/t", "/tmp/o"], ["--install-key", "/tmp/t", "/tmp/o"],
                ["--install-kbpk", "/tmp/k"], ["--remove-kbpk"]]
BAD_ACQUIRERS = [("0", 500), ("256", 0), ("-1", 0), ("7 ", 500), ("", 500)]


@pytest.mark.parametrize("args,kw,status,out", [
    ([], {}, 1, usage()), ([], {"argv0": "/usr/sbin/orvin-auth"}, 1, usage("/usr/sbin/orvin-auth")),
    # D4: the kernel turns an empty vector into one empty argument; the name is still printed.
    ([], {"no_argv": True}, 1, usage()),
    (["--authenticate"], {}, 0, b"")]  # hidden: it runs though not listed
    + [(args, {}, 1, usage()) for args in UNKNOWN_OR_WRONG_COUNT]
    # An acquirer ID out of range or not a plain number is refused without a word.
    + [(c[:1] + [a] + c[1:], {"uid": uid}, 1, b"")
       for c in KEY_COMMANDS for a, uid in BAD_ACQUIRERS])
def test_command_line_gets_the_banner_and_usage_as_called(term, args, kw, status, out):
    r = term.run(args, **kw)
    assert (r.status, r.stdout, r.stderr) == (status, BANNER + out, b"")


ROOT_ONLY = [[o] for o in ["--init-keys", "--x509-csr", "--x509-generate", "--store-rate-limit",
                            "--update-ksn", "--store-dmesg"]]
ROOT_OR_APP = [
    ["--install-image-check", "/tmp/img"], ["--install-image", "/tmp/img"], ["--mount-msd"],
    ["--umount-msd"], ["--update-os", "/tmp/os"], ["--make-factory"], ["--make-restore"], ["--wipe"],
    ["--install-kbpk-check", "1", "/tmp/k"], ["--install-kbpk", "1", "/tmp/k"], ["--remove-kbpk", "1"],
    ["--update-kbpk-pci-pin", "1", "/tmp/k"], ["--verify-kbpk-pci-pin", "1"],
    ["--install-key-check", "1", "/tmp/t", "/tmp/o"], ["--install-key", "1", "/tmp/t", "/tmp/o"]]
CASES = [(a, 500, False) for a in ROOT_ONLY] + [(a, 1000, False) for a in ROOT_ONLY + ROOT_OR_APP]
CASES += [(a, 0, True) for a in ROOT_ONLY + ROOT_OR_APP] + [(a, 500, True) for a in ROOT_OR_APP]


@pytest.mark.parametrize("args,uid,allowed", CASES, ids=lambda v: str(v))
def test_caller_rules_judge_the_recorded_caller(term, args, uid, allowed):
    # D1: the process runs as root throughout, yet the rule sees who called.
    r = term.run(args, uid=uid)
    if allowed:
        assert r.status != 6 and b"Access denied." not in r.stdout
    else:
        assert (r.status, r.stdout) == (6, BANNER + b"Access denied.\n")


@pytest.mark.parametrize("uid", [0, 1000])
def test_closed_standard_descriptors_are_reopened(term, uid):
    # D4: with 0 to 2 closed, files the program opens must not become its output.
    signed_file(term, "/tmp/app", "acme", uid=uid, gid=uid)
    provision(term, "acme")
    r = term.run(["--install-check", "/tmp/app", "/usr/local/acme/"], close_fds=(0, 1, 2), uid=uid)
    assert r.status == 0 and term.read("/tmp/app") == b"payload\n"


ADDUSER = [b"adduser", b"-D", b"-u500", b"main-user"]


@pytest.mark.parametrize("home,argv", [(None, ADDUSER), ("dir", ADDUSER[:2] + [b"-H"] + ADDUSER[2:]),
                                       ("dangling", ADDUSER[:2] + [b"-H"] + ADDUSER[2:])])
def test_tools_started_by_a_run_see_only_the_fixed_environment(make_term, home, argv):
    # D5 and D1: the start-up check creates the application user; whatever the caller handed
    # over, the tool runs as root with PATH alone and descriptors 0 to 2. Anything at the home
    # path, even a dangling link, keeps adduser from making a home there.
    term = make_term(main_user=False)
    provision(term, "main-user")
    if home == "dir":
        term.mkdir("/home/main-user", 0o755)
    elif home == "dangling":
        term.symlink("/nowhere", "/home/main-user")
    term.run([], uid=1000, keep_fds=(4, 9), env={"PATH": "/tmp", "LD_PRELOAD": "/tmp/x.so"})
    (call,) = term.calls("/bin/adduser")
    assert call.argv == argv
    assert call.env == [b"PATH=/usr/sbin:/usr/bin:/sbin:/bin"]
    assert call.fds == [0, 1, 2]
    assert (call.uid, call.euid, call.gid, call.egid) == (0, 0, 0, 0)
