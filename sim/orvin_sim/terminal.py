"""A fresh simulated payment terminal on a tmpfs, in which the real set-uid program runs."""
import atexit
import errno
import os
import shutil
import signal
import struct
import subprocess
import tempfile
from contextlib import contextmanager
from dataclasses import dataclass

from . import mounts
from .sapi import Sapi
from .trace import HELPER_FAILED, Tracer, TracedRun

TOOLS = ["/bin/adduser", "/usr/bin/passwd", "/bin/deluser", "/sbin/reboot", "/usr/bin/nandwrite",
         "/usr/bin/mtd_debug", "/bin/mount", "/bin/umount", "/sbin/fsck.vfat", "/usr/sbin/nvram",
         "/bin/dmesg"]
PROGRAM = "/usr/sbin/orvin-auth"
LEDS = ["LED1:YELLOW:PIN1", "LED2:YELLOW:PIN2", "LED3:YELLOW:PIN3", "LED4:YELLOW:PIN4",
        "LED5:YELLOW:PIN5", "LED6:YELLOW:PIN6", "LED7:RED", "LED8:GREEN", "LED9:BLUE:BLUETOOTH"]
DEVICES = ["/dev/beeper", "/dev/emvl1_uart", "/dev/fb0", "/dev/input/event0", "/dev/lp0",
           "/dev/mag-swipe", "/dev/power", "/dev/rtc0", "/dev/sapi0", "/dev/secpe", "/dev/ttymxc4",
           "/dev/ttymxc0", "/dev/apple-co-pro", "/dev/mtd4", "/dev/mtd5", "/dev/mtdblock12"]
KERNEL_FILES = ["/sys/kernel/flags/make_restore", "/sys/kernel/flags/make_factory",
                "/sys/kernel/flags/wipe", "/sys/kernel/flags/os_update",
                "/sys/kernel/security/ids/task_init", "/sys/power/state"]
MTD_TABLE = (b'dev:    size   erasesize  name\n'
             b'mtd0: 00100000 00020000 "bootloader"\n'
             b'mtd1: 00020000 00020000 "environment"\n'
             b'mtd2: 00800000 00020000 "kernel"\n'
             b'mtd3: 00040000 00020000 "device-tree"\n'
             b'mtd4: 00800000 00020000 "screens"\n'
             b'mtd5: 04000000 00020000 "os-update"\n'
             b'mtd6: 08000000 00020000 "rootfs"\n'
             b'mtd12: 10000000 00020000 "application"\n')
INITTAB = (b"::sysinit:/etc/init.d/rcS\n"
           b"::respawn:-/bin/sh\n"
           b"::ctrlaltdel:/sbin/reboot\n"
           b"::shutdown:/bin/umount -a -r\n")
SERIAL_CONSOLE = b"::respawn:/sbin/getty -L ttymxc1 115200 vt100\n"
CALLS_LOG = "/var/sim/calls.log"
# A program of another architecture runs under the user-mode emulator, started by a native
# set-user-ID launcher at PROGRAM: the emulator and the program lie here, where the program itself
# never looks.
EMULATED_DIR = "/var/sim/emulated"
# Per architecture: the static emulator, the cross tool chain's directory of the loader and the C
# and C++ runtime, and the multiarch name of the architecture's library directory.
EMULATORS = {"armhf": ("/usr/bin/qemu-arm-static", "/usr/arm-linux-gnueabihf/lib", "arm-linux-gnueabihf")}


@dataclass
class Call:
    """One run of a platform tool, as the stub saw it."""
    tool: bytes
    argv: list
    env: list
    fds: list
    uid: int
    euid: int
    gid: int
    egid: int


@dataclass
class Result:
    status: int
    stdout: bytes
    stderr: bytes
    killed: bool = False  # a tracer killed the run at the system call it was asked to


_library_layers = {}


def _emulated_libraries(arch, sysroot):
    """A directory laid out like /usr/lib of arch, holding its loader and every shared library
    of the cross tool chain and the sysroot: on a tmpfs of this process's own mount namespace,
    made once, gone when the process ends."""
    key = (arch, sysroot)
    if key not in _library_layers:
        _, runtime, triplet = EMULATORS[arch]
        layer = tempfile.mkdtemp(prefix=f"orvin-{arch}-libraries-")
        mounts.mount("tmpfs", layer, "tmpfs", 0, "mode=0755")
        atexit.register(_drop_layer, layer)
        os.mkdir(os.path.join(layer, triplet), 0o755)
        for source in (runtime, os.path.join(sysroot, "usr/lib", triplet)):
            for name in sorted(os.listdir(source)):
                if ".so." in name or name.startswith("ld-linux"):
                    target = name if name.startswith("ld-linux") else os.path.join(triplet, name)
                    shutil.copyfile(os.path.join(source, name), os.path.join(layer, target))
                    os.chmod(os.path.join(layer, target), 0o755)
        _library_layers[key] = layer
    return _library_layers[key]


def _drop_layer(layer):
    try:
        mounts.umount(layer)
        os.rmdir(layer)
    except (OSError, mounts.MountError):
        pass


def _bytes(s):
    return s if isinstance(s, bytes) else str(s).encode()


class Terminal:
    """One terminal, laid out fresh on its own tmpfs. Terminal paths are absolute ("/etc/passwd");
    the helpers resolve them, symbolic links included, inside the terminal and never outside."""

    def __init__(self, build_dir, pki, main_user=True, sapi=False, program=None, emulated=None,
                 sysroot=None):
        """program: the orvin-auth to install (default: the one in build_dir, e.g. a packaged one).
        emulated: the program's architecture when it is not the host's ("armhf"); it then runs
        under the user-mode emulator, its other libraries (OpenSSL) taken from sysroot, a tree of
        unpacked packages of that architecture."""
        self.sapi = None
        self.build_dir = os.path.abspath(build_dir)
        self.pki = pki
        self._sim_dir = os.path.join(self.build_dir, "sim")
        for helper in ("orvin-sim-stub", "orvin-sim-exec", "orvin-sim-trace"):
            if not os.access(os.path.join(self._sim_dir, helper), os.X_OK):
                raise FileNotFoundError(f"{self._sim_dir}/{helper} is missing: build the project "
                                        f"(cmake --build {self.build_dir}) first")
        program = program or os.path.join(self.build_dir, "orvin-auth")
        if not os.path.exists(program):
            raise FileNotFoundError(f"{program} is missing: build the project first")
        if emulated is not None:
            self._check_emulation(emulated, sysroot)
        mounts.enter_private_namespace()
        self._children = []
        self.root = tempfile.mkdtemp(prefix="orvin-terminal-")
        try:
            mounts.mount("tmpfs", self.root, "tmpfs", 0, "mode=0755")
            self._lay_out(main_user)
            if emulated is None:
                self.install_program(program, PROGRAM)
            else:
                self._install_emulated(program, emulated, sysroot)
            if sapi:
                self.start_sapi()
        except BaseException:
            self.close()
            raise

    # ---- construction -------------------------------------------------------------------

    def _lay_out(self, main_user):
        for d, mode in [("/bin", 0o755), ("/sbin", 0o755), ("/usr/bin", 0o755), ("/usr/sbin", 0o755),
                        ("/usr/lib", 0o755), ("/usr/local", 0o755), ("/usr/ssl", 0o755), ("/etc", 0o755),
                        ("/home/orvin", 0o755), ("/tmp", 0o1777), ("/root", 0o700), ("/var/sim", 0o711),
                        ("/var/sim/tools", 0o700), ("/var/sim/nvram", 0o700), ("/var/sim/proc", 0o555),
                        ("/proc", 0o555), ("/dev/input", 0o755)]:
            self.mkdir(d, mode)
        self._bind_host_libraries()
        # Sanitizer runtimes and the program's descriptor handling look at /proc/self.
        mounts.mount("/proc", self.path("/var/sim/proc"), None, mounts.MS_BIND | mounts.MS_REC)
        for entry in ("self", "thread-self", "sys"):
            self.symlink(f"/var/sim/proc/{entry}", f"/proc/{entry}")
        self.write("/dev/null", b"", 0o666)
        mounts.mount("/dev/null", self.path("/dev/null"), None, mounts.MS_BIND)

        mounts.mount("tmpfs", self.path("/usr/local"), "tmpfs", 0, "mode=0755")
        self.mkdir("/usr/local/share/certs", 0o755)
        mounts.mount(None, self.path("/usr/local"), None, mounts.MS_REMOUNT | mounts.MS_RDONLY)

        anchors = self.pki.cert("root") + self.pki.cert("KeySigning")
        self.write("/usr/ssl/cert.pem", anchors)
        self.write("/usr/ssl/OS.4-1-1.FSL.X509.crt", self.pki.cert("OperatingSystem"))
        self.write("/usr/ssl/Orvin-RKI-CA.crt", self.pki.cert("rki"))

        passwd, group = b"root:x:0:0:root:/root:/bin/sh\n", b"root:x:0:\n"
        if main_user:
            passwd += b"main-user:x:500:500::/home/main-user:/bin/sh\n"
            group += b"main-user:x:500:\n"
        self.write("/etc/passwd", passwd)
        self.write("/etc/group", group)
        self.write("/etc/nsswitch.conf", b"passwd: files\ngroup: files\nshadow: files\n")
        self.write("/etc/inittab", INITTAB)
        if os.path.exists("/etc/ld.so.cache"):
            shutil.copyfile("/etc/ld.so.cache", self.path("/etc/ld.so.cache"))

        self.write("/proc/mtd", MTD_TABLE, 0o444)
        self.write("/proc/sapi", b"", 0o666)
        for f in KERNEL_FILES:
            self.write(f, b"")
        for d in DEVICES:
            self.write(d, b"", 0o660)
        for led in LEDS:
            for attr in ("brightness", "delay_on", "delay_off"):
                self.write(f"/sys/class/leds/{led}/{attr}", b"0\n")
        self.write(CALLS_LOG, b"", 0o622)
        stub = os.path.join(self._sim_dir, "orvin-sim-stub")
        for tool in TOOLS:
            self.install_program(stub, tool, 0o755)

    def _bind_host_libraries(self):
        # Dynamically linked programs (sanitizer builds too) need the host's loader and libraries;
        # everything else in the terminal is its own.
        for lib in ("/lib", "/lib64"):
            if os.path.islink(lib):
                self.symlink(os.readlink(lib), lib)
        for lib in ("/usr/lib", "/usr/lib64"):
            if os.path.isdir(lib) and not os.path.islink(lib):
                target = self.path(lib)
                os.makedirs(target, exist_ok=True)
                mounts.mount(lib, target, None, mounts.MS_BIND)
                mounts.mount(None, target, None, mounts.MS_BIND | mounts.MS_REMOUNT | mounts.MS_RDONLY)

    def _check_emulation(self, arch, sysroot):
        if arch not in EMULATORS:
            raise ValueError(f"no emulator for {arch}: one of {', '.join(EMULATORS)}")
        emulator, runtime, triplet = EMULATORS[arch]
        if sysroot is None:
            raise ValueError(f"an {arch} run needs a sysroot (tools/cross-test.sh {arch} makes one)")
        for path in (os.path.join(self._sim_dir, "orvin-sim-qemu"), emulator, runtime,
                     os.path.join(sysroot, "usr/lib", triplet)):
            if not os.path.exists(path):
                raise FileNotFoundError(f"{path} is missing: an {arch} run needs the sim helpers "
                                        f"built, {emulator}, the cross tool chain and a sysroot "
                                        f"(tools/cross-test.sh {arch} makes one)")

    def _install_emulated(self, program, arch, sysroot):
        emulator = EMULATORS[arch][0]
        self.install_program(os.path.join(self._sim_dir, "orvin-sim-qemu"), PROGRAM)
        self.mkdir(EMULATED_DIR, 0o755)
        self.install_program(program, f"{EMULATED_DIR}/orvin-auth", 0o755)
        # Bound rather than copied: every test makes a terminal.
        self.bind(emulator, f"{EMULATED_DIR}/qemu")
        mounts.mount(None, self.path(f"{EMULATED_DIR}/qemu"), None,
                     mounts.MS_BIND | mounts.MS_REMOUNT | mounts.MS_RDONLY)
        # The program's loader and libraries lie where its own architecture keeps them, under
        # /usr/lib: the emulator's library prefix would also redirect the program's own lookups
        # of "/" and "/usr". A layer of overlayfs needs plain files, so they are copied once.
        layer = _emulated_libraries(arch, sysroot)
        mounts.mount("overlay", self.path("/usr/lib"), "overlay", mounts.MS_RDONLY,
                     f"lowerdir={layer}:/usr/lib")

    def install_program(self, host_file, path, mode=0o4755):
        """Copies a host program into the terminal, owned by root (set-uid root by default)."""
        self.write(path, open(host_file, "rb").read(), mode)

    def bind(self, host_file, path):
        """Puts a host file (for example a device simulator's file) at a terminal path."""
        target = self.path(path)
        if not os.path.exists(target):
            self.write(path, b"")
        mounts.mount(host_file, target, None, mounts.MS_BIND)

    def start_sapi(self):
        """Starts the simulated Security API device on "/dev/sapi0" and "/proc/sapi" and returns
        its controller; close() stops it."""
        if self.sapi is None:
            self.sapi = Sapi(self.build_dir)
            self.sapi.bind_into(self)
        return self.sapi

    def close(self):
        for child in self._children:
            if child.poll() is None:
                child.kill()
                child.wait()
        self._children = []
        if self.sapi is not None:
            self.sapi.close()
            self.sapi = None
        if self.root is None:
            return
        try:
            mounts.umount(self.root)
        except mounts.MountError:
            pass
        os.rmdir(self.root)
        self.root = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    # ---- files -----------------------------------------------------------------------------

    def path(self, p, follow=True):
        """Host path of terminal path p, resolving symbolic links as the terminal would (the last
        component too unless follow is false); the result always lies inside the terminal."""
        todo = [c for c in p.split("/") if c not in ("", ".")]
        done = []
        hops = 0
        while todo:
            c = todo.pop(0)
            if c == "..":
                if done:
                    done.pop()
                continue
            host = os.path.join(self.root, *done, c)
            if (todo or follow) and os.path.islink(host):
                hops += 1
                if hops > 40:
                    raise OSError(errno.ELOOP, "too many symbolic links", p)
                target = os.readlink(host)
                if target.startswith("/"):
                    done = []
                todo = [t for t in target.split("/") if t not in ("", ".")] + todo
                continue
            done.append(c)
        return os.path.join(self.root, *done)

    @contextmanager
    def _writable(self, host):
        # The application file system is read-only except while it is changed.
        usr_local = os.path.join(self.root, "usr/local")
        lock = (host == usr_local or host.startswith(usr_local + "/")) and self.usr_local_readonly()
        if lock:
            mounts.mount(None, usr_local, None, mounts.MS_REMOUNT)
        try:
            yield host
        finally:
            if lock:
                mounts.mount(None, usr_local, None, mounts.MS_REMOUNT | mounts.MS_RDONLY)

    def _make_parents(self, p):
        parent = self.path(os.path.dirname(p.rstrip("/")) or "/")
        if not os.path.isdir(parent):
            with self._writable(parent):
                os.makedirs(parent, 0o755)

    def write(self, p, data, mode=0o644, uid=0, gid=0):
        self._make_parents(p)
        with self._writable(self.path(p)) as host:
            fd = os.open(host, os.O_WRONLY | os.O_CREAT | os.O_TRUNC | os.O_NOFOLLOW, 0o600)
            try:
                os.write(fd, _bytes(data))
                os.fchown(fd, uid, gid)
                os.fchmod(fd, mode)
            finally:
                os.close(fd)

    def write_sparse(self, p, size, head=b"", tail=b"", mode=0o644, uid=0, gid=0):
        """Writes a file of size bytes that costs no memory: head, a hole, then tail at its end."""
        self.write(p, head, mode, uid, gid)
        with self._writable(self.path(p)) as host:
            with open(host, "r+b") as f:
                f.truncate(size - len(tail))
                f.seek(size - len(tail))
                f.write(tail)

    def read(self, p):
        with open(self.path(p), "rb") as f:
            return f.read()

    def exists(self, p):
        """Whether an entry is at p (a dangling symbolic link counts)."""
        return os.path.lexists(self.path(p, follow=False))

    def lstat(self, p):
        return os.lstat(self.path(p, follow=False))

    def remove(self, p):
        with self._writable(self.path(p, follow=False)) as host:
            if os.path.isdir(host) and not os.path.islink(host):
                shutil.rmtree(host)
            else:
                os.unlink(host)

    def mkdir(self, p, mode=0o755, uid=0, gid=0):
        self._make_parents(p)
        with self._writable(self.path(p)) as host:
            if not os.path.isdir(host):
                os.mkdir(host)
            os.chown(host, uid, gid)
            os.chmod(host, mode)

    def symlink(self, target, p, uid=0, gid=0):
        self._make_parents(p)
        with self._writable(self.path(p, follow=False)) as host:
            os.symlink(target, host)
            os.lchown(host, uid, gid)

    def chmod(self, p, mode):
        with self._writable(self.path(p)) as host:
            os.chmod(host, mode)

    def chown(self, p, uid, gid):
        with self._writable(self.path(p)) as host:
            os.chown(host, uid, gid)

    # ---- terminal state ----------------------------------------------------------------------

    def usr_local_readonly(self):
        return bool(mounts.is_readonly(os.path.join(self.root, "usr/local")))

    def leave_usr_local_free(self, nbytes):
        """Shrinks the application file system so that only nbytes (whole pages) stay free."""
        usr_local = self.path("/usr/local")
        fs = os.statvfs(usr_local)
        size = (fs.f_blocks - fs.f_bfree) * fs.f_frsize + nbytes
        flags = mounts.MS_REMOUNT | (mounts.MS_RDONLY if self.usr_local_readonly() else 0)
        mounts.mount(None, usr_local, None, flags, f"size={size}")

    def break_remount(self):
        """Makes every remount of /usr/local/ fail (it stops being a mount point), keeping its files."""
        usr_local = self.path("/usr/local")
        saved = tempfile.mkdtemp(dir=self.path("/var/sim"))
        subprocess.run(["cp", "-a", usr_local + "/.", saved], check=True)
        mounts.umount(usr_local)
        for entry in os.listdir(saved):
            os.rename(os.path.join(saved, entry), os.path.join(usr_local, entry))
        os.rmdir(saved)

    def set_serial_console(self, on):
        text = INITTAB + (SERIAL_CONSOLE if on else b"")
        self.write("/etc/inittab", text)

    def install_cert(self, role, name=None):
        path = f"/usr/local/share/certs/{name or role + '.crt'}"
        self.write(path, self.pki.cert(role))
        return path

    def sign(self, p, role, extra=b"", sig_path=None):
        """Writes the detached signature of p's current content, owned like p."""
        st = os.stat(self.path(p))
        sig_path = sig_path or p + ".sig"
        self.write(sig_path, self.pki.sign(self.read(p), role) + extra, 0o644, st.st_uid, st.st_gid)
        return sig_path

    def calls(self, tool=None):
        data = self.read(CALLS_LOG)
        out, pos = [], 0

        def u32():
            nonlocal pos
            (v,) = struct.unpack_from("<I", data, pos)
            pos += 4
            return v

        def string():
            nonlocal pos
            n = u32()
            pos += n
            return data[pos - n:pos]

        while pos < len(data):
            end = pos + 4 + struct.unpack_from("<I", data, pos)[0]
            pos += 4
            path = string()
            argv = [string() for _ in range(u32())]
            env = [string() for _ in range(u32())]
            fds = [u32() for _ in range(u32())]
            out.append(Call(path, argv, env, fds, u32(), u32(), u32(), u32()))
            assert pos == end, "corrupt record in calls.log"
        if tool is not None:
            out = [c for c in out if c.tool == _bytes(tool)]
        return out

    def clear_calls(self):
        self.write(CALLS_LOG, b"", 0o622)

    def tool_fails(self, tool_path, exit=None, signal=None):
        how = f"exit {exit}" if signal is None else f"signal {signal}"
        self.write(f"/var/sim/tools/{os.path.basename(tool_path)}", how.encode() + b"\n", 0o600)

    def tool_ok(self, tool_path):
        path = f"/var/sim/tools/{os.path.basename(tool_path)}"
        if self.exists(path):
            self.remove(path)

    def remove_tool(self, tool_path):
        self.remove(tool_path)

    def nvram_set(self, key, value):
        self.write(f"/var/sim/nvram/{key}", value, 0o600)

    def nvram_get(self, key):
        path = f"/var/sim/nvram/{key}"
        return self.read(path) if self.exists(path) else None

    # ---- running the program -----------------------------------------------------------------

    def popen(self, args, uid=0, gid=None, groups=None, cwd="/", umask=None, rlimits=None,
              close_fds=(), keep_fds=(), env=None, argv0="orvin-auth", no_argv=False, stdin=None,
              program=PROGRAM, output=subprocess.PIPE, errors=None, tracer=None):
        """Starts the program as the given user and returns the subprocess.Popen; stdin is None
        (empty), bytes (at most a pipe's worth), a file object or subprocess.PIPE; output None
        leaves standard output and error to the caller's (an interactive shell), errors (default:
        like output) takes standard error elsewhere; tracer runs it under orvin-sim-trace."""
        gid = uid if gid is None else gid
        cmd = [os.path.join(self._sim_dir, "orvin-sim-exec"), "--root", self.root, "--uid", str(uid),
               "--gid", str(gid), "--groups", ",".join(str(g) for g in groups or ()), "--cwd", cwd,
               "--proc-from", "/var/sim/proc"]
        if umask is not None:
            cmd += ["--umask", f"{umask:o}"]
        for name, (soft, hard) in (rlimits or {}).items():
            cmd += ["--rlimit", f"{name}={'inf' if soft is None else soft}:{'inf' if hard is None else hard}"]
        for fd in close_fds:
            cmd += ["--close", str(fd)]
        for fd in keep_fds:
            cmd += ["--keep-fd", str(fd)]
        if env is None:
            env = {"PATH": "/usr/bin:/bin", "HOME": "/"}
        env = dict(env)
        for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
            if name in os.environ and name not in env:
                env[name] = os.environ[name]
        for k, v in env.items():
            cmd += ["--env", _bytes(k) + b"=" + _bytes(v)]
        if no_argv:
            cmd.append("--no-argv")
        cmd += ["--", program, _bytes(argv0)] + [_bytes(a) for a in args]
        data = stdin if isinstance(stdin, bytes) else None
        if data is not None:
            stdin = subprocess.PIPE
        pass_fds = ()
        if tracer is not None:
            cmd, pass_fds = tracer.command(cmd), tracer.pass_fds
        child = subprocess.Popen(cmd, stdin=subprocess.DEVNULL if stdin is None else stdin,
                                 stdout=output, stderr=output if errors is None else errors,
                                 pass_fds=pass_fds)
        self._children.append(child)
        if data is not None:
            child.stdin.write(data)
            child.stdin.close()
        return child

    def run(self, args, stdin=None, timeout=60, kill_at=None, **kw):
        """Runs the program to its end; stdin is bytes or None. kill_at (see trace.Tracer) cuts
        the run short on entry to that system call, which then never happens; the Result says
        whether it did. Takes popen's other parameters."""
        tracer = None if kill_at is None else self._tracer(kill_at, kill=True)
        try:
            child = self.popen(args, stdin=None if stdin is None else subprocess.PIPE,
                               tracer=tracer, **kw)
            if tracer is not None:
                tracer.started()
            try:
                out, err = child.communicate(stdin, timeout=timeout)
            except subprocess.TimeoutExpired:
                child.send_signal(signal.SIGKILL)
                child.communicate()
                raise
            if child.returncode == 127 and err.startswith(HELPER_FAILED):
                raise RuntimeError(err.decode(errors="replace").strip())
            killed = tracer is not None and tracer.next_line(timeout) == "killed"
        finally:
            if tracer is not None:
                tracer.close()
        return Result(child.returncode, out, err, killed)

    @contextmanager
    def traced(self, args, stop_at, after=False, **kw):
        """Starts the program and holds it on entry to a system call (see trace.Tracer), or with
        after as it returns:
            with term.traced(args, ("openat", "/usr/local/x/*")) as run:
                run.wait_stopped()     # frozen before the call happens
                ...                    # change the world
                result = run.resume()  # or run.kill(), a power loss before the call
        Takes popen's other parameters; stdin is None or a file object."""
        tracer = self._tracer(stop_at, kill=False, after=after)
        try:
            run = TracedRun(lambda out, err: self.popen(args, output=out, errors=err,
                                                        tracer=tracer, **kw), tracer, Result)
        except BaseException:
            tracer.close()
            raise
        try:
            yield run
        finally:
            run.close()

    def _tracer(self, at, kill, after=False):
        return Tracer(os.path.join(self._sim_dir, "orvin-sim-trace"), self.root, at, kill, after)
