"""Runs of the program held or killed at an exact system call (orvin-sim-trace): a race the test
wins every time, and a power loss at the worst moment."""
import os
import select
import signal
import subprocess
import tempfile
import time

SYSCALLS = ("openat", "rename", "mkdir", "unlinkat", "fork")
HELPER_FAILED = (b"orvin-sim-exec:", b"orvin-sim-trace:")


class Tracer:
    """The tracer's part of one run. at is (syscall,), (syscall, glob) or (syscall, glob, nth):
    the nth call (default the first) whose path (for rename the new one) matches the glob as a
    terminal path; "fork" takes no glob. after acts when the call returns instead of on entry."""

    def __init__(self, tool, root, at, kill, after=False):
        syscall, pattern, nth = tuple(at) + (None, 1)[len(at) - 1:]
        if syscall not in SYSCALLS:
            raise ValueError(f"the tracer knows {', '.join(SYSCALLS)}, not {syscall}")
        self.at = at
        self._report_r, self._report_w = os.pipe()
        self._resume_r, self._resume_w = (None, None) if kill else os.pipe()
        self._argv = [tool, "--root", root, "--report", str(self._report_w), "--at", syscall,
                      "--nth", str(nth)]
        if pattern is not None:
            self._argv += ["--path", pattern]
        self._argv += ["--kill"] if kill else ["--resume", str(self._resume_r)]
        self._argv += ["--exit"] if after else []
        self._lines = b""

    @property
    def pass_fds(self):
        return tuple(fd for fd in (self._report_w, self._resume_r) if fd is not None)

    def command(self, cmd):
        return self._argv + ["--"] + cmd

    def started(self):
        """The tracer has its own copies now; keep only our ends."""
        for fd in self.pass_fds:
            os.close(fd)
        self._report_w = self._resume_r = None

    def next_line(self, timeout):
        """The tracer's next report ("stopped", "killed", "unmatched"), or "" at its end."""
        deadline = time.monotonic() + timeout
        while b"\n" not in self._lines:
            left = deadline - time.monotonic()
            if left <= 0 or not select.select([self._report_r], [], [], left)[0]:
                raise TimeoutError(f"the program did not reach {self.at} in {timeout} s")
            chunk = os.read(self._report_r, 64)
            if not chunk:
                return ""
            self._lines += chunk
        line, self._lines = self._lines.split(b"\n", 1)
        return line.decode()

    def answer(self, byte):
        os.write(self._resume_w, byte)

    def close(self):
        for fd in (self._report_r, self._report_w, self._resume_r, self._resume_w):
            if fd is not None:
                os.close(fd)
        self._report_r = self._report_w = self._resume_r = self._resume_w = None


class TracedRun:
    """One run of the program that the tracer holds at a system call (Terminal.traced)."""

    def __init__(self, popen, tracer, result_type):
        self._tracer = tracer
        self._result_type = result_type
        self._out = tempfile.TemporaryFile()
        self._err = tempfile.TemporaryFile()
        # Output goes to files: a program held with a full pipe would never reach its call.
        self._child = popen(self._out, self._err)
        tracer.started()
        self.stopped = False

    def wait_stopped(self, timeout=10):
        """Waits until the program is frozen at the call; fails if it ended first."""
        line = self._tracer.next_line(timeout)
        if line != "stopped":
            result = self._finish(timeout)
            raise AssertionError(f"the program ended without reaching {self._tracer.at}: {result}")
        self.stopped = True

    def resume(self, timeout=60):
        """Lets the held program go on and gives its Result."""
        self._tracer.answer(b"c")
        return self._finish(timeout)

    def kill(self, timeout=60):
        """Kills the held program before its call happens and gives its Result (killed set)."""
        self._tracer.answer(b"k")
        result = self._finish(timeout)
        result.killed = True
        return result

    def running(self):
        return self._child.poll() is None

    def program_pid(self):
        """The process ID of the traced program (the tracer's only child)."""
        with open(f"/proc/{self._child.pid}/task/{self._child.pid}/children") as f:
            (pid,) = f.read().split()
        return int(pid)

    def _finish(self, timeout):
        try:
            self._child.wait(timeout)
        except subprocess.TimeoutExpired:
            self.close()
            raise
        self._out.seek(0)
        self._err.seek(0)
        result = self._result_type(self._child.returncode, self._out.read(), self._err.read())
        if result.status == 127 and result.stderr.startswith(HELPER_FAILED):
            raise RuntimeError(result.stderr.decode(errors="replace").strip())
        return result

    def close(self):
        """Ends the run if it is still going (the tracer's exit kills the program with it)."""
        if self._child.poll() is None:
            self._child.send_signal(signal.SIGKILL)
            self._child.wait()
        self._tracer.close()
        self._out.close()
        self._err.close()
