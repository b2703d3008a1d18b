"""What a hostile caller can do to a run from outside it: signals, limits, pipes, inputs that are not
files, a second run at once and a swapped image (D3, D4, D16, D17, D22)."""
import fcntl
import os
import resource
import signal
import stat
import time
from contextlib import contextmanager

import pytest

from conftest import EMULATED, not_emulated
from helpers import (BANNER, KBPK_VALUE, SAPI, provision, signed_file, startup_output, traced,
                     tr31)

RUN_IGNORED = [signal.SIGPIPE, signal.SIGINT, signal.SIGQUIT, signal.SIGHUP, signal.SIGTSTP,
               signal.SIGTTIN, signal.SIGTTOU, signal.SIGXFSZ, signal.SIGXCPU]
RUN_LIMITS = {"Max cpu time": "unlimited", "Max file size": "unlimited", "Max open files": "4096",
              "Max data size": "unlimited", "Max address space": "unlimited",
              "Max stack size": str(8 << 20), "Max core file size": "0"}
SCREEN = 131072
ASAN = "ASAN_OPTIONS" in os.environ
# The sanitizer runtime, and the emulator of an emulated run, reserve address space before the
# program's first instruction, so a caller's address-space limits stop them and not the program.
MEMORY_LIMITS = not ASAN and not EMULATED


def can_raise_hard_limits():
    # Without CAP_SYS_RESOURCE in the bounding set (some containers) not even a set-user-ID root
    # program may raise a hard limit.
    with open("/proc/self/status") as f:
        caps = next(int(line.split()[1], 16) for line in f if line.startswith("CapBnd:"))
    return bool(caps & (1 << 24))


def caller_limits(hard=False, **soft):
    """Limits as `ulimit` sets them (soft and hard) or, with hard false, soft ones under our own
    hard limits, as `ulimit -S` does."""
    def own(name):
        value = resource.getrlimit(getattr(resource, "RLIMIT_" + name))[1]
        return None if value == resource.RLIM_INFINITY else value
    return {name: (value, value if hard else own(name)) for name, value in soft.items()}


def wait_for(predicate, seconds=20):
    end = time.monotonic() + seconds
    while not predicate():
        assert time.monotonic() < end, "timed out"
        time.sleep(0.02)


def no_temporaries(term, directory):
    host = term.path(directory)
    return [n for _, _, names in os.walk(host) for n in names if n.startswith(".")]


@pytest.fixture
def acme(term):
    provision(term, "acme", "main-user", "prod-sign")
    return term


@not_emulated("the limits that /proc shows are the emulator's: it keeps the program's address-space, "
              "data and stack limits to itself, so the caller's stack limit stays on the process")
def test_paused_run_keeps_its_own_limits_and_signals_and_holds_the_next(acme):
    # D4: whatever the caller left (low limits, ignored and blocked signals) the run has the
    # program's own; its tool starts with default dispositions. D22: a second run waits.
    acme.write("/var/sim/tools/dmesg", b"sleep 2\n", 0o600)
    limits = caller_limits(can_raise_hard_limits(), CPU=1, FSIZE=1000, NOFILE=8, STACK=65536,
                           **({"AS": 1 << 30, "DATA": 1 << 30} if MEMORY_LIMITS else {}))
    old_mask = signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGUSR1, signal.SIGTERM})
    old_alrm = signal.signal(signal.SIGALRM, signal.SIG_IGN)
    try:
        first = acme.popen(["--store-dmesg"], rlimits=limits)
    finally:
        signal.signal(signal.SIGALRM, old_alrm)
        signal.pthread_sigmask(signal.SIG_SETMASK, old_mask)
    log = "/var/sim/signals.log"
    wait_for(lambda: acme.exists(log) and b"dmesg" in acme.read(log))
    with open(f"/proc/{first.pid}/status") as f:
        status = dict(line.split(":\t", 1) for line in f)
    with open(f"/proc/{first.pid}/limits") as f:
        shown = {line[:26].strip(): line[26:].split()[:2] for line in f}
    second = acme.popen([], uid=1000)
    time.sleep(0.5)
    assert second.poll() is None
    assert first.wait(30) == 0 and second.wait(30) == 1

    assert int(status["SigIgn"], 16) == sum(1 << (int(s) - 1) for s in RUN_IGNORED)
    assert int(status["SigBlk"], 16) == 0
    tools = acme.read(log).splitlines()
    assert tools and all(t.endswith(b" ign=%016x blk=%016x" % (0, 0)) for t in tools), tools
    assert {name: shown[name] for name in RUN_LIMITS} == {n: [v, v] for n, v in RUN_LIMITS.items()}
    st = acme.lstat("/home/orvin/.run-lock")
    assert stat.S_ISREG(st.st_mode) and (st.st_uid, stat.S_IMODE(st.st_mode)) == (0, 0o600)


def test_link_at_the_lock_name_is_not_followed(acme):
    # D22: the lock file is opened, and made, without following a link; one left at its name
    # would otherwise have root create a file wherever it leads (/etc/nologin ends every login).
    acme.symlink("/etc/nologin", "/home/orvin/.run-lock")
    r = acme.run(["--remove", "/usr/local/none"], uid=500)
    assert r.status == 1 and not acme.exists("/etc/nologin")
    assert os.readlink(acme.path("/home/orvin/.run-lock", follow=False)) == "/etc/nologin"


def waits_for_lock(pid):
    with open("/proc/locks") as f:
        return any(line.split()[1] == "->" and line.split()[5] == str(pid) for line in f)


@traced
@pytest.mark.parametrize("hard", [False, True])
def test_installs_at_once_under_the_callers_limits_both_complete(acme, hard):
    # D4: limits are lifted and the umask set before anything else, so the caller cannot kill an
    # install midway or shape what it makes; hard limits that cannot be raised again stop the run
    # before it starts, never half way. D22: the second run waits, so neither finds /usr/local/
    # locked under it or its file swept. The first is held inside its writable window, as it
    # makes its directory, until the second waits for it (or has ended without waiting).
    data = os.urandom(2 << 20)
    signed_file(acme, "/tmp/big", "acme", data=data, uid=1000, gid=1000)
    limits = caller_limits(hard, CPU=1, FSIZE=1000, NOFILE=5, STACK=65536,
                           **({"AS": 96 << 20, "DATA": 32 << 20} if MEMORY_LIMITS else {}))
    kw = {"uid": 1000, "rlimits": limits, "umask": 0o077}
    args = [["--install", "/tmp/big", f"/usr/local/acme/{n}/"] for n in "ab"]
    if hard and not can_raise_hard_limits():
        outcomes = [acme.run(a, **kw) for a in args]
        assert [(r.status, r.stdout) for r in outcomes] == [
            (9, b"FATAL: Failed to set resource limits.\n")] * 2
        assert not acme.exists("/usr/local/acme") and acme.usr_local_readonly()
        return
    with acme.traced(args[0], ("mkdir", "/usr/local/acme/a"), **kw) as first:
        first.wait_stopped()
        second = acme.popen(args[1], **kw)
        wait_for(lambda: second.poll() is not None or waits_for_lock(second.pid))
        a = first.resume()
    outcomes = [(a.status, a.stdout), (second.wait(120), second.stdout.read())]
    assert [(st, o[-23:]) for st, o in outcomes] == [(0, b"Signed file installed.\n")] * 2
    assert all(acme.read(f"/usr/local/acme/{n}/big") == data for n in "ab")
    assert stat.S_IMODE(acme.lstat("/usr/local/acme").st_mode) == 0o555  # not the caller's umask
    assert acme.usr_local_readonly() and no_temporaries(acme, "/usr/local") == []


LONG_DEST = "/usr/local/acme/" + "/".join(["d" * 200] * 16) + "/"


@pytest.mark.parametrize("reader", ["gone", "stalled"])
def test_output_reader_that_goes_or_stalls_neither_ends_nor_holds_an_install(acme, reader):
    # D4: the reader goes before the long lines are written (SIGPIPE must not end the run), or
    # reads none of more output than the pipe has room for: the install still ends its writable
    # window, and (D22) the next run does not wait for this one's reader.
    signed_file(acme, "/tmp/app", "acme", uid=1000, gid=1000)
    child = acme.popen(["--install", "/tmp/app", LONG_DEST], uid=1000)
    if reader == "gone":
        child.stdout.close()
    else:
        fcntl.fcntl(child.stdout.fileno(), fcntl.F_SETPIPE_SZ, 4096)
        filler = os.open(f"/proc/{child.pid}/fd/1", os.O_WRONLY)
        os.write(filler, b"\0")
        os.close(filler)
        wait_for(lambda: acme.exists(LONG_DEST + "app") and acme.usr_local_readonly())
        assert acme.run([], uid=1000, timeout=20).status == 1
        assert child.stdout.read().endswith(
            b"Data file installed: " + LONG_DEST.encode() + b"app\nSigned file installed.\n")
    assert child.wait(30) == 0
    assert acme.read(LONG_DEST + "app") == b"payload\n" and acme.exists(LONG_DEST + "app.sig")
    assert acme.usr_local_readonly() and no_temporaries(acme, "/usr/local") == []


OPEN_DATA = (9, b"FATAL: Failed to open the file to verify.\n")
OPEN_SIG = (9, b"Failed to open the signature file: /tmp/x.sig\n")
# (arguments, the name that is not a regular file, what a file that cannot be opened there gives).
# An install runs its check first, so its row covers the check command too.
INPUTS = [
    (["--install-cert", "/tmp/x"], "/tmp/x", (2, b"FATAL: Failed to open certificate file.\n")),
    (["--install", "/tmp/x", "/usr/local/acme/"], "/tmp/x", OPEN_DATA),
    (["--install", "/tmp/x", "/usr/local/acme/"], "/tmp/x.sig", OPEN_SIG),
    (["--install-image-check", "/tmp/x"], "/tmp/x", OPEN_DATA),
    (["--install-image", "/tmp/x"], "/tmp/x.sig", OPEN_SIG),
    (["--update-os", "/tmp/x"], "/tmp/x", OPEN_DATA),
    (["--install-kbpk-check", "1", "/tmp/x"], "/tmp/x", OPEN_DATA),
    (["--install-key-check", "5", "/tmp/k", "/home/main-user/k.opk"], "/tmp/k", OPEN_DATA),
]


@traced
@pytest.mark.parametrize("kind", [stat.S_IFIFO, stat.S_IFSOCK, stat.S_IFDIR],
                         ids=["fifo", "socket", "dir"])
@pytest.mark.parametrize("args,special,expected", INPUTS, ids=lambda v: str(v))
def test_input_swapped_for_what_is_not_a_regular_file_is_refused_at_once(acme, args, special,
                                                                          expected, kind):
    # D3: nothing the caller names can hold the process in open or read. The swap comes after
    # the program has judged the name and before it opens it, and no writer ever opens the FIFO.
    acme.write("/tmp/x", b"x" * SCREEN, 0o644, 500, 500)
    acme.write("/tmp/x.sig", b"\1" * 256, 0o644, 500, 500)
    acme.write("/tmp/k", tr31(), 0o644, 500, 500)
    acme.write("/home/orvin/.sapi/.KBPK0005", b"k" * 64, 0o600)
    with acme.traced(args, ("openat", special), uid=500) as run:
        run.wait_stopped()
        host = acme.path(special)
        os.unlink(host)
        if kind == stat.S_IFDIR:
            os.mkdir(host, 0o777)
        else:
            os.mknod(host, kind | 0o666)
        r = run.resume(timeout=10)
    assert r.stdout.startswith(BANNER) and (r.status, r.stdout[-len(expected[1]):]) == expected
    assert acme.calls("/usr/bin/nandwrite") == [] and acme.usr_local_readonly()


@traced
def test_image_swapped_for_another_size_after_its_checks_is_never_flashed(acme):
    # D17: the size and the signature are judged on the copy that is flashed. The caller swaps
    # in an image of the same signer but of another size once the offered one has passed every
    # check, as the program makes its private directory for the copy. The offered signature file
    # is read for its first 256 bytes only, however large it is.
    right, wrong = os.urandom(SCREEN), os.urandom(2 * SCREEN)
    signed_file(acme, "/tmp/img", "main-user", data=right, uid=500, gid=500)
    signed_file(acme, "/tmp/two", "main-user", data=wrong, uid=500, gid=500, extra=bytes(8 << 20))
    with acme.traced(["--install-image", "/tmp/img"], ("mkdir", "/tmp/orvin-auth.*"),
                     uid=500) as run:
        run.wait_stopped()
        for ext in ("", ".sig"):
            os.rename(acme.path("/tmp/two" + ext), acme.path("/tmp/img" + ext))
        r = run.resume()
    assert (r.status, r.stdout[-20:]) == (1, b"Invalid image file.\n")
    assert acme.calls("/usr/bin/nandwrite") == [] and not acme.exists("/var/sim/nand/mtd4")


# ---- D22: nothing the caller controls keeps the run lock held --------------------------------

EXABYTES = 1 << 62
ROOTS_TURN = 15  # seconds a start-up run may take while a caller's run is stuck
PAGE = 4096


def open_fd(pid, host_path):
    """The descriptor number by which process pid holds host_path, or None."""
    try:
        fds = os.listdir(f"/proc/{pid}/fd")
    except FileNotFoundError:
        return None
    for fd in fds:
        try:
            if os.readlink(f"/proc/{pid}/fd/{fd}") == host_path:
                return fd
        except FileNotFoundError:
            pass
    return None


def read_to(pid, fd, size):
    """Whether pid has read size bytes through fd, or is done with it."""
    try:
        with open(f"/proc/{pid}/fdinfo/{fd}") as f:
            return next(int(line.split()[1]) for line in f if line.startswith("pos:")) == size
    except FileNotFoundError:
        return True


def writing_blocked(pid):
    """Whether pid, or a tool it started, waits to write into a full pipe."""
    try:
        with open(f"/proc/{pid}/wchan") as f:
            if "pipe_write" in f.read():
                return True
        with open(f"/proc/{pid}/task/{pid}/children") as f:
            return any(writing_blocked(int(c)) for c in f.read().split())
    except FileNotFoundError:
        return False


def roots_startup_run_finishes(term):
    r = term.run(["--authenticate"], timeout=ROOTS_TURN)
    assert r.status == 0, r.stdout


class TooLate(Exception):
    """The caller's run was past its reading before the test could act."""


@contextmanager
def lock_taken_while_reading(term, child, path, size):
    """Takes the run lock at a moment the caller's run is reading path (and so holds no lock),
    and gives it back once the run has read size bytes of it: what the body does happens after
    the run opened the file and before its next step under the lock."""
    host = term.path(path)
    end = time.monotonic() + 30
    while (fd := open_fd(child.pid, host)) is None:
        if child.poll() is not None:
            raise TooLate
        assert time.monotonic() < end, "timed out"
    with open(term.path("/home/orvin/.run-lock"), "rb") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise TooLate from None
        yield
        wait_for(lambda: read_to(child.pid, fd, size))
        fcntl.flock(lock, fcntl.LOCK_UN)


def caught_reading(attempt):
    """Runs attempt(round) until it catches the run reading: a busy machine may let a run through
    its reading unseen, a run that holds the lock while it reads is never caught."""
    for round_ in range(3):
        try:
            return attempt(round_)
        except TooLate:
            pass
    pytest.fail("the run held the lock whenever it read the caller's file")


@pytest.fixture
def stuck(acme):
    """Starts a caller's run that does not end by itself; it is killed when the test is over."""
    runs = []

    def start(args, uid, **kw):
        runs.append(acme.popen(args, uid=uid, **kw))
        return runs[-1]
    yield start
    for child in runs:
        child.kill()
        child.wait()


@pytest.mark.parametrize("args,uid", [
    (["--install-check", "/tmp/huge", "/usr/local/acme/"], 1000),
    (["--install", "/tmp/huge", "/usr/local/acme/"], 1000),
    (["--install-cert-check", "/tmp/huge"], 1000),
    (["--install-cert", "/tmp/huge"], 1000),
    (["--install-image-check", "/tmp/huge"], 500),
    (["--install-image", "/tmp/huge"], 500),
    (["--update-os", "/tmp/huge"], 500),
    (["--install-kbpk-check", "1", "/tmp/huge"], 500),
    (["--install-kbpk", "1", "/tmp/huge"], 500),
    (["--update-kbpk-pci-pin", "5", "/tmp/huge"], 500),
], ids=lambda v: v[0] if isinstance(v, list) else None)
def test_file_of_exabytes_being_read_never_keeps_a_startup_run_waiting(acme, stuck, args, uid):
    # D22: a sparse file of 2^62 bytes takes a digest or a PEM scan centuries; the caller's run
    # reads it without the lock, and root's start-up run goes ahead meanwhile.
    acme.write("/home/orvin/.sapi/.KBPK0005", b"k" * 32)
    acme.write("/tmp/huge", b"", 0o644, uid, uid)
    os.truncate(acme.path("/tmp/huge"), EXABYTES)
    acme.write("/tmp/huge.sig", os.urandom(256), 0o644, uid, uid)
    child = stuck(args, uid)
    wait_for(lambda: open_fd(child.pid, acme.path("/tmp/huge")) is not None)
    roots_startup_run_finishes(acme)
    assert child.poll() is None  # still reading, as it may


def test_callers_scheduling_does_not_stretch_the_run(acme, stuck):
    # D22: the lowest priority, the idle class and a single CPU, all inherited through exec, would
    # slow every step of a run that holds the lock; the run takes the ordinary share.
    acme.write("/tmp/huge", b"", 0o644, 1000, 1000)
    os.truncate(acme.path("/tmp/huge"), EXABYTES)
    acme.write("/tmp/huge.sig", os.urandom(256), 0o644, 1000, 1000)
    cpus = os.sched_getaffinity(0)
    try:
        os.sched_setaffinity(0, {min(cpus)})
        os.sched_setscheduler(0, os.SCHED_IDLE, os.sched_param(0))
        os.setpriority(os.PRIO_PROCESS, 0, 19)
        child = stuck(["--install-check", "/tmp/huge", "/usr/local/acme/"], 1000)
    finally:
        os.setpriority(os.PRIO_PROCESS, 0, 0)
        os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))
        os.sched_setaffinity(0, cpus)
    wait_for(lambda: open_fd(child.pid, acme.path("/tmp/huge")) is not None)
    with open(f"/proc/{child.pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    nice, policy = int(fields[16]), int(fields[38])
    assert (nice, policy, os.sched_getaffinity(child.pid)) == (0, os.SCHED_OTHER, cpus)


def unread_pipe(full):
    """An output pipe of one page that nobody reads: full already, or with room for our lines."""
    r, w = os.pipe()
    fcntl.fcntl(w, fcntl.F_SETPIPE_SZ, PAGE)
    if full:
        os.write(w, b"\0" * PAGE)
    return os.fdopen(r, "rb"), os.fdopen(w, "wb")


@pytest.mark.parametrize("args,full,chatty", [
    (["--umount-msd"], True, None),  # the held output itself
    (["--mount-msd"], True, None),
    (["--wipe"], True, None),  # the reboot comes last, after the output
    (["--mount-msd"], False, "fsck.vfat"),  # room for our lines, not for the tool's
    (["--umount-msd"], False, "umount"),
], ids=["umount-full", "mount-full", "wipe-full", "mount-chatty-fsck", "umount-chatty-umount"])
def test_output_pipe_nobody_reads_never_keeps_a_startup_run_waiting(acme, stuck, args, full,
                                                                     chatty):
    # D22: nothing reaches the caller's descriptors while the lock is held, and a tool writes
    # into a pipe of the program's, read while the tool runs.
    said = b"".join(b"fsck.vfat: cluster %08d lost\n" % n for n in range(40000))
    if chatty:
        acme.write(f"/var/sim/tools/{chatty}.stdout", said, 0o600)
    prefix = startup_output(acme, uid=500)
    reader, writer = unread_pipe(full)
    with reader, writer:
        child = stuck(args, 500, output=writer)
        writer.close()
        wait_for(lambda: writing_blocked(child.pid))
        roots_startup_run_finishes(acme)
        out = reader.read()
    # Once read, the caller gets everything, in order.
    expected = prefix + (said if chatty else b"")
    if args == ["--wipe"]:
        expected += b"Wipe flag set. Rebooting to commit...\n"
    assert child.wait(30) == 0 and out == (b"\0" * PAGE if full else b"") + expected


def test_name_swapped_after_verification_is_not_what_an_install_copies(acme):
    # D6, D22: the install copies from the descriptor it verified, no further than the size it
    # verified, though the name leads to a sparse file of exabytes before the run holds the lock
    # again.
    data = os.urandom(32 << 20)
    acme.leave_usr_local_free(48 << 20)

    def attempt(round_):
        signed_file(acme, "/tmp/app", "acme", data=data, uid=1000, gid=1000)
        child = acme.popen(["--install", "/tmp/app", f"/usr/local/acme/{round_}/"], uid=1000)
        try:
            with lock_taken_while_reading(acme, child, "/tmp/app", len(data)):
                host = acme.path("/tmp/app")
                with open(host + ".new", "wb") as f:
                    f.truncate(EXABYTES)
                os.rename(host + ".new", host)
        finally:
            status = child.wait(ROOTS_TURN)
            installed = acme.read(f"/usr/local/acme/{round_}/app") if status == 0 else None
            if acme.exists(f"/usr/local/acme/{round_}"):
                acme.remove(f"/usr/local/acme/{round_}")
        return status, child.stdout.read(), installed

    status, out, installed = caught_reading(attempt)
    assert status == 0 and installed == data, out
    assert acme.usr_local_readonly()


def test_kbpk_installed_by_another_run_meanwhile_is_not_installed_over(make_term):
    # D22: the KBPK presence is judged before the file is verified, without the lock; another
    # run that installs the acquirer's KBPK meanwhile makes this one end as if it had waited for
    # it. A large signed file keeps the verification long enough to act meanwhile; the KBPK file
    # proper takes its name before the file's size is judged.
    kt = make_term(sapi=True)
    provision(kt, "acme")
    large = os.urandom(64 << 20)

    def attempt(_):
        signed_file(kt, "/tmp/k", "acme", data=large, uid=500, gid=500)
        signed_file(kt, "/tmp/next", "acme", data=KBPK_VALUE, uid=500, gid=500)
        child = kt.popen(["--install-kbpk", "5", "/tmp/k"], uid=500)
        with lock_taken_while_reading(kt, child, "/tmp/k", len(large)):
            kt.write(SAPI + ".KBPK0005", b"k" * 32)
            for name in ("", ".sig"):
                os.rename(kt.path("/tmp/next" + name), kt.path("/tmp/k" + name))
        return child.wait(ROOTS_TURN), child.stdout.read()

    status, out = caught_reading(attempt)
    assert status == 10, out
    assert kt.read(SAPI + ".KBPK0005") == b"k" * 32 and not kt.exists(SAPI + ".FLAG0005")


@pytest.mark.parametrize("args,fsck,said,status,out,err", [
    (["--wipe"], "ok", {"reboot": (b"going down\n", b"reboot: no init\n")}, 0,
     b"Wipe flag set. Rebooting to commit...\ngoing down\n", b"reboot: no init\n"),
    (["--mount-msd"], "exit 1", {"fsck.vfat": (b"dirty\n", b"fsck: 1 error\n"),
                                 "mount": (b"mounted\n", b"")}, 99,
     b"dirty\ndirty\nmounted\n", b"fsck: 1 error\nfsck: 1 error\n"),
], ids=["wipe", "mount-msd"])
def test_tools_read_nothing_of_the_caller_and_speak_after_the_program(acme, args, fsck, said,
                                                                       status, out, err):
    # D22: a tool's input is /dev/null, and what it prints comes through the program's pipes,
    # after the program's own lines and in the order the tools ran, standard error to the
    # caller's standard error.
    if fsck != "ok":
        acme.tool_fails("/sbin/fsck.vfat", exit=1)
    for tool, (stdout, stderr) in said.items():
        acme.write(f"/var/sim/tools/{tool}.stdout", stdout, 0o600)
        acme.write(f"/var/sim/tools/{tool}.stderr", stderr, 0o600)
        acme.write(f"/var/sim/tools/{tool}.stdin", b"", 0o600)
    prefix = startup_output(acme, uid=500)
    r = acme.run(args, uid=500, stdin=b"y\n" * 1000)
    assert (r.status, r.stdout, r.stderr) == (status, prefix + out, err)
    assert all(acme.read(f"/var/sim/tools/{tool}.stdin") == b"" for tool in said)


def sanitized(term):
    with open(os.path.join(term.build_dir, "CMakeCache.txt")) as f:
        return "ORVIN_SANITIZE:BOOL=ON" in f.read()


@not_emulated("the address space is the emulator's: it reserves the program's before the program "
              "starts, so a limit just above its own need stops the emulator, not the program")
def test_address_space_just_above_what_the_loader_needs_never_aborts_the_program(acme):
    # D4: the limits are lifted before anything of the program or its libraries is initialised,
    # so with any address-space limit the loader gets past, the program prints and ends as it
    # chooses; it never aborts ("terminate called", 134).
    if sanitized(acme):
        pytest.skip("AddressSanitizer reserves far more address space than any such limit")

    def run(limit, hard):
        try:
            return acme.run([], uid=1000, rlimits={"AS": (limit, limit if hard else None)})
        except RuntimeError:  # the kernel could not even start it
            return None

    def loaded(limit):
        r = run(limit, True)
        return r is not None and r.status != 127
    low, high = 1 << 20, 256 << 20
    assert loaded(high)
    while high - low > PAGE:
        mid = (low + high) // 2 // PAGE * PAGE
        low, high = (low, mid) if loaded(mid) else (mid, high)
    for limit in range(high - 8 * PAGE, high + 96 * PAGE, 2 * PAGE):
        for hard in (True, False):
            r = run(limit, hard)
            if r is not None:
                assert r.status in (1, 9, 127) and b"terminate called" not in r.stderr, (limit, r)


def lock_is_held(term):
    with open(term.path("/home/orvin/.run-lock"), "rb") as lock:
        try:
            fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            return True
        fcntl.flock(lock, fcntl.LOCK_UN)
        return False


@traced
@pytest.mark.parametrize("args,uid,at", [
    (["--authenticate"], 0, ("openat", "/usr/local/app/x.sig")),           # a walk of /usr/local
    (["--make-factory"], 500, ("openat", "/sys/kernel/flags/make_factory")),
    (["--umount-msd"], 500, ("fork",)),                                    # a platform tool
    (["--x509-csr"], 0, ("openat", "/proc/sapi")),
    (["--remove-kbpk", "5"], 500, ("openat", "/dev/sapi0")),
    (["--verify-kbpk-pci-pin", "5"], 500, ("openat", "/home/orvin/.sapi/.*")),
], ids=lambda v: v[0] if isinstance(v, list) else None)
def test_first_step_on_what_runs_share_is_taken_under_the_lock(term, args, uid, at):
    # D22: the lock is given back after the start-up check; each mechanism that works on what
    # runs share takes it again itself. Each row's command meets a different one first.
    term.write("/usr/local/app/x", b"x")
    term.write("/usr/local/app/x.sig", b"s" * 256)
    term.mkdir("/home/orvin/.sapi", 0o700)
    term.write("/home/orvin/.sapi/.KBPK0005", bytes(32), 0o600)
    term.write("/home/orvin/.sapi/.FLAG0005", b"8000", 0o600)
    with term.traced(args, at, uid=uid) as run:
        run.wait_stopped()
        held = lock_is_held(term)
        run.resume()
    assert held, "the run works on shared state without the lock"
