"""The few mount system calls the simulator needs, straight through libc."""
import ctypes
import os

MS_RDONLY = 0x1
MS_REMOUNT = 0x20
MS_BIND = 0x1000
MS_REC = 0x4000
MS_PRIVATE = 0x40000
MNT_DETACH = 0x2
CLONE_NEWNS = 0x20000

_libc = ctypes.CDLL(None, use_errno=True)
_libc.mount.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_ulong, ctypes.c_char_p]
_libc.umount2.argtypes = [ctypes.c_char_p, ctypes.c_int]
_libc.unshare.argtypes = [ctypes.c_int]
_private = False


class MountError(RuntimeError):
    pass


def _b(s):
    return None if s is None else os.fsencode(s)


def _check(result, what):
    if result != 0:
        err = ctypes.get_errno()
        raise MountError(f"{what}: {os.strerror(err)} (the simulated terminal needs root and mount rights)")


def mount(source, target, fstype, flags=0, data=None):
    _check(_libc.mount(_b(source), _b(target), _b(fstype), flags, _b(data)),
           f"mount {source or fstype} on {target}")


def umount(target, flags=MNT_DETACH):
    _check(_libc.umount2(_b(target), flags), f"umount {target}")


def enter_private_namespace():
    """Moves this whole process into its own mount namespace, once; nothing mounted later is
    seen by the rest of the machine."""
    global _private
    if _private:
        return
    _check(_libc.unshare(CLONE_NEWNS), "unshare(CLONE_NEWNS)")
    mount(None, "/", None, MS_REC | MS_PRIVATE)
    _private = True


def is_readonly(mount_point):
    """Whether the mount at mount_point (the topmost one) is read-only; None when it is not a
    mount point. Both the mount's own flags and its file system's flags count."""
    state = None
    with open("/proc/self/mountinfo") as f:
        for line in f:
            fields = line.split()
            point = fields[4].encode().decode("unicode_escape")
            if point == mount_point:
                super_opts = fields[fields.index("-") + 3]
                state = "ro" in fields[5].split(",") or "ro" in super_opts.split(",")
    return state
