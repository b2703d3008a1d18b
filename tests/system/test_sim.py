"""Self-tests of the simulated terminal: if these fail, no other system test can be trusted."""
import os
import subprocess

import pytest


def run_tool(term, tool, *args, **kw):
    kw.setdefault("argv0", os.path.basename(tool))
    return term.run(list(args), program=tool, **kw)


def test_stub_records_the_exact_start(term):
    args = [b"", b"two\nlines", b"-x", b""]
    r = run_tool(term, "/usr/bin/passwd", *args, uid=1000, gid=1001, argv0="liar",
                 env={"A": "1", "EMPTY": "", "NL": "x\ny"}, keep_fds=(7,), close_fds=(1,))
    assert r.status == 0
    (call,) = term.calls()
    assert call.tool == b"/usr/bin/passwd"  # the exec'd path, whatever argv[0] says
    assert call.argv == [b"liar"] + args
    assert call.env[:3] == [b"A=1", b"EMPTY=", b"NL=x\ny"]
    assert call.fds == [0, 2, 7]
    assert (call.uid, call.euid, call.gid, call.egid) == (1000, 1000, 1001, 1001)


def test_calls_are_kept_in_order_and_filtered_by_tool(term):
    for tool in ["/sbin/reboot", "/bin/mount", "/sbin/reboot"]:
        run_tool(term, tool)
    assert [c.tool for c in term.calls()] == [b"/sbin/reboot", b"/bin/mount", b"/sbin/reboot"]
    assert len(term.calls("/sbin/reboot")) == 2
    term.clear_calls()
    assert term.calls() == []


@pytest.mark.parametrize("how,status", [({"exit": 3}, 3), ({"exit": 0}, 0), ({"signal": 15}, -15),
                                        ({"signal": 9}, -9)])
def test_tool_failure_modes_still_record(term, how, status):
    term.tool_fails("/usr/bin/nandwrite", **how)
    assert run_tool(term, "/usr/bin/nandwrite", "x").status == status
    assert run_tool(term, "/usr/bin/mtd_debug").status == 0  # other tools unaffected
    term.tool_ok("/usr/bin/nandwrite")
    assert run_tool(term, "/usr/bin/nandwrite").status == 0
    assert len(term.calls("/usr/bin/nandwrite")) == 2


@pytest.mark.parametrize(
    "runs,passwd_tail,homes",
    [
        ([["-D", "-u500", "main-user"]],
         b"main-user:x:500:500:Linux User,,,:/home/main-user:/bin/sh\n", {"main-user": 500}),
        ([["-D", "-H", "bob"]], b"bob:x:1000:1000:Linux User,,,:/home/bob:/bin/sh\n", {}),
        ([["-D", "bob"], ["-D", "eve"]],
         b"bob:x:1000:1000:Linux User,,,:/home/bob:/bin/sh\n"
         b"eve:x:1001:1001:Linux User,,,:/home/eve:/bin/sh\n", {"bob": 1000, "eve": 1001}),
    ],
)
def test_adduser_edits_the_account_files(make_term, runs, passwd_tail, homes):
    term = make_term(main_user=False)
    for args in runs:
        assert run_tool(term, "/bin/adduser", *args).status == 0
    assert term.read("/etc/passwd") == b"root:x:0:0:root:/root:/bin/sh\n" + passwd_tail
    assert term.read("/etc/group").count(b"\n") == 1 + len(runs)
    for name in ["main-user", "bob", "eve"]:
        if name in homes:
            st = term.lstat(f"/home/{name}")
            assert (st.st_uid, st.st_mode & 0o7777) == (homes[name], 0o755)
        else:
            assert not term.exists(f"/home/{name}")


def test_nvram_get_and_set(term):
    term.nvram_set("ProdSignCert", b"first\nsecond")
    assert run_tool(term, "/usr/sbin/nvram", "get", "ProdSignCert").stdout == b"first\nsecond"
    r = run_tool(term, "/usr/sbin/nvram", "get", "Unset")
    assert (r.status, r.stdout) == (0, b"")
    assert run_tool(term, "/usr/sbin/nvram", "set", "TerminalKey=a=b\nc").status == 0
    assert term.nvram_get("TerminalKey") == b"a=b\nc"
    assert term.nvram_get("Unset") is None


def test_dmesg_prints_the_kernel_log(term):
    assert run_tool(term, "/bin/dmesg").stdout.count(b"\n") == 2
    term.write("/var/sim/dmesg", b"line\n")
    assert run_tool(term, "/bin/dmesg").stdout == b"line\n"


def test_starting_state(make_term):
    term = make_term(main_user=False)
    assert term.usr_local_readonly()
    with pytest.raises(OSError):
        open(term.path("/usr/local/share/x"), "wb")
    term.write("/usr/local/share/certs/a.crt", b"a")  # the helper unlocks and locks again
    assert term.usr_local_readonly()
    st = term.lstat("/usr/sbin/orvin-auth")
    assert (st.st_uid, st.st_gid, st.st_mode & 0o7777) == (0, 0, 0o4755)
    assert not term.exists("/home/orvin/.sapi")
    assert b"main-user" not in term.read("/etc/passwd")
    assert b"ttymxc1" not in term.read("/etc/inittab")
    term.set_serial_console(True)
    assert term.read("/etc/inittab").endswith(b"::respawn:/sbin/getty -L ttymxc1 115200 vt100\n")


def test_set_uid_programs_gain_root(term):
    term.install_program(term.path("/usr/bin/passwd"), "/usr/bin/suid-check")
    run_tool(term, "/usr/bin/suid-check", uid=1000, groups=[20, 30])
    (call,) = term.calls()
    assert (call.uid, call.euid, call.gid, call.egid) == (1000, 0, 1000, 1000)


def test_paths_never_leave_the_terminal(term):
    term.symlink("/etc", "/usr/local/main-user")
    term.symlink("../../../../../etc/group", "/tmp/up")
    term.write("/usr/local/main-user/sim-escape-check", b"inside")
    assert term.read("/etc/sim-escape-check") == b"inside"
    assert term.read("/tmp/up") == term.read("/etc/group")
    assert not os.path.exists("/etc/sim-escape-check")


def test_sign_makes_an_openssl_compatible_signature(term, pki, tmp_path):
    term.write("/tmp/app", b"payload\n", uid=1000, gid=1000)
    term.sign("/tmp/app", "acme", extra=b"tail")
    sig = term.read("/tmp/app.sig")
    assert len(sig) == 256 + 4 and sig.endswith(b"tail")
    assert term.lstat("/tmp/app.sig").st_uid == 1000
    (tmp_path / "sig").write_bytes(sig[:256])
    pub = subprocess.run(["openssl", "x509", "-in", pki.cert_path("acme"), "-noout", "-pubkey"],
                         capture_output=True, check=True).stdout
    (tmp_path / "pub").write_bytes(pub)
    subprocess.run(["openssl", "dgst", "-sha256", "-verify", str(tmp_path / "pub"), "-signature",
                    str(tmp_path / "sig"), term.path("/tmp/app")], check=True, capture_output=True)
