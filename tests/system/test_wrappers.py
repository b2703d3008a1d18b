"""Platform tools run with exact argument vectors, fixed environment and honest results.

The wrappers are driven by a test-only probe program installed set-uid beside the real one, so
their vectors can be checked before every command that uses them exists.
"""
import pytest

PATH_ENV = [b"PATH=/usr/sbin:/usr/bin:/sbin:/bin"]


@pytest.fixture
def probe(term):
    term.install_probe()
    return term


def run_probe(term, *args, **kw):
    return term.run(list(args), program="/usr/sbin/orvin-wrapper-probe", **kw)


def vectors(term, tool=None):
    return [c.argv for c in term.calls(tool)]


@pytest.mark.parametrize("user,home,vector", [
    ("bob", None, [b"adduser", b"-D", b"bob"]),
    ("bob", "dir", [b"adduser", b"-D", b"-H", b"bob"]),
    ("main-user", None, [b"adduser", b"-D", b"-u500", b"main-user"]),
    *[("main-user", h, [b"adduser", b"-D", b"-H", b"-u500", b"main-user"])
      for h in ["dir", "file", "dangling"]],
])
def test_adduser_vector_follows_home_and_name(probe, user, home, vector):
    path = f"/home/{user}"
    if home == "dir":
        probe.mkdir(path, 0o755)
    elif home == "file":
        probe.write(path, b"")
    elif home == "dangling":
        probe.symlink("/nowhere", path)
    r = run_probe(probe, "adduser", user)
    assert r.stdout == b"result=0\n"
    assert vectors(probe) == [vector]


@pytest.mark.parametrize(
    "args,tool,vector",
    [
        (["passwd", "-d", "main-user"], "/usr/bin/passwd", [b"passwd", b"-d", b"main-user"]),
        (["reboot"], "/sbin/reboot", [b"reboot"]),
        (["mount", "vfat", "loop", "/home/fat32/vfat.img", "/mnt/vfat"], "/bin/mount",
         [b"mount", b"-t", b"vfat", b"-o", b"loop", b"/home/fat32/vfat.img", b"/mnt/vfat"]),
        (["umount", "/mnt/vfat", "-d"], "/bin/umount", [b"umount", b"/mnt/vfat", b"-d"]),
        (["fsck", "/home/fat32/vfat.img", "-n"], "/sbin/fsck.vfat",
         [b"fsck.vfat", b"-n", b"/home/fat32/vfat.img"]),
        (["fsck", "/home/fat32/vfat.img"], "/sbin/fsck.vfat", [b"fsck.vfat", b"/home/fat32/vfat.img"]),
        (["nvram-set", "TerminalKey", "a b\nc"], "/usr/sbin/nvram",
         [b"nvram", b"set", b"TerminalKey=a b\nc"]),
        (["nvram-set", "K", ""], "/usr/sbin/nvram", [b"nvram", b"set", b"K="]),
        (["nvram-commit"], "/usr/sbin/nvram", [b"nvram", b"commit"]),
    ],
)
def test_tool_vectors_are_exact(probe, args, tool, vector):
    r = run_probe(probe, *args)
    assert r.stdout.endswith(b"result=0\n")
    assert [(c.tool, c.argv) for c in probe.calls()] == [(tool.encode(), vector)]


@pytest.mark.parametrize("how", [{"exit": 1}, {"exit": 9}, {"signal": 9}, {"signal": 15}, "missing"])
def test_failing_tool_gives_9(probe, how):
    if how == "missing":
        probe.remove_tool("/usr/sbin/nvram")
    else:
        probe.tool_fails("/usr/sbin/nvram", **how)
    r = run_probe(probe, "nvram-commit")
    assert r.stdout == b"result=9\n"


def test_reboot_result_is_not_judged(probe):
    probe.tool_fails("/sbin/reboot", exit=1)
    assert run_probe(probe, "reboot").stdout == b"result=0\n"


def test_children_get_only_the_fixed_environment_and_standard_descriptors(probe):
    # D5: whatever the caller passes, a tool sees PATH alone and descriptors 0 to 2.
    run_probe(probe, "nvram-commit", uid=1000, keep_fds=(5, 7),
              env={"PATH": "/tmp", "LD_PRELOAD": "/tmp/evil.so", "IFS": "x"})
    (call,) = probe.calls()
    assert call.env == PATH_ENV
    assert call.fds == [0, 1, 2]
    assert (call.uid, call.euid, call.gid, call.egid) == (0, 0, 0, 0)


@pytest.mark.parametrize("value,out", [(b"abcd\nsecond\n", b"line=abcd\n"), (None, b"line=(none)\n")])
def test_nvram_get_returns_the_first_line(probe, value, out):
    if value is not None:
        probe.nvram_set("ProdSignCert", value)
    assert run_probe(probe, "nvram-get", "ProdSignCert").stdout == out + b"result=0\n"
    assert vectors(probe) == [[b"nvram", b"get", b"ProdSignCert"]]


def test_output_printed_before_a_tool_comes_first(probe):
    probe.write("/var/sim/dmesg", b"log\n")
    r = run_probe(probe, "run", "/bin/dmesg", "dmesg", "", "a b", "0x1\nX")
    assert r.stdout == b"before-log\nresult=0\n"
    assert vectors(probe) == [[b"dmesg", b"", b"a b", b"0x1\nX"]]


@pytest.mark.parametrize("erase_fails", [False, True])
def test_nandwrite_erases_then_writes_with_partition_length(probe, erase_fails):
    if erase_fails:  # D9: nothing is written after a failed erase
        probe.tool_fails("/usr/bin/mtd_debug", exit=1)
    r = run_probe(probe, "nandwrite", "screens", "/tmp/img")
    assert r.stdout == (b"result=9\n" if erase_fails else b"result=0\n")
    assert vectors(probe) == [
        [b"mtd_debug", b"erase", b"/dev/mtd4", b"0", b"0x00800000\n"],
        [b"nandwrite", b"--markbad", b"--pad", b"/dev/mtd4", b"/tmp/img"],
    ][:1 if erase_fails else 2]


NOT_FOUND = b"Failed to determine the MTD device.\ndevice=\nresult=9\n"


@pytest.mark.parametrize("table,out", [
    (b'dev:    size   erasesize  name\nmtd4: 00800000 00020000 "screens"\n', b"device=/dev/mtd4\nresult=0\n"),
    (b'mtd1: 00100000 00020000 "old-screens"\nmtd4: 00800000 00020000 "screens"\n',
     b"device=/dev/mtd1\nresult=0\n"),
    (b'screens without colon\nmtd12: 00800000 00020000 "screens"\n', b"device=/dev/mtd12\nresult=0\n"),
    (b'mtd123: 00800000 00020000 "screens"\nmtd4: 00800000 00020000 "screens"\n', NOT_FOUND),
    (b'mtd4: 00800000 00020000 "other"\n', NOT_FOUND),
])
def test_mtd_lookup(probe, table, out):
    probe.write("/proc/mtd", table)
    assert run_probe(probe, "get-mtd", "screens").stdout == out


def test_missing_mtd_table(probe):
    probe.remove("/proc/mtd")
    r = run_probe(probe, "nandwrite", "screens", "/tmp/img")
    assert r.stdout == b"Failed to open the MTD table.\nresult=9\n"
    assert probe.calls() == []


def test_led_permissions_cover_three_files(probe):
    led = "/sys/class/leds/LED7:RED"
    assert run_probe(probe, "led", led).stdout == b"result=0\n"
    for name in ["brightness", "delay_on", "delay_off"]:
        st = probe.lstat(f"{led}/{name}")
        assert (st.st_uid, st.st_gid, st.st_mode & 0o777) == (0, 500, 0o660)


def test_led_permissions_stop_at_first_failure(probe):
    led = "/sys/class/leds/LED8:GREEN"
    probe.remove(f"{led}/brightness")
    before = probe.lstat(f"{led}/delay_on")
    r = run_probe(probe, "led", led)
    assert r.stdout == f"Failed change ownership on {led}/brightness.\nresult=9\n".encode()
    after = probe.lstat(f"{led}/delay_on")
    assert (after.st_gid, after.st_mode) == (before.st_gid, before.st_mode)
