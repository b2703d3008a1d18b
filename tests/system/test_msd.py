"""The mass-storage image: checked, repaired when damaged, mounted and unmounted by the platform's
tools, for root and the application user only."""
import pytest

from helpers import run_cmd

IMAGE, MOUNT_POINT = b"/home/fat32/vfat.img", b"/mnt/vfat"
FSCK, MOUNT, UMOUNT = "/sbin/fsck.vfat", "/bin/mount", "/bin/umount"
CHECK = [b"fsck.vfat", b"-n", IMAGE]
REPAIR = [b"fsck.vfat", b"-a", IMAGE]
MOUNT_ARGV = [b"mount", b"-t", b"vfat", b"-o", b"loop,noexec,fmask=0111,dmask=0000", IMAGE,
              MOUNT_POINT]


def tool_runs(term):
    """The argument vectors of the image's tools, in the order they ran."""
    return [c.argv for c in term.calls() if c.tool.decode() in (FSCK, MOUNT, UMOUNT)]


def behave(term, tool, how):
    """The tool succeeds ("ok"), exits with a code ("exit N") or dies by a signal ("signal N")."""
    if how != "ok":
        kind, number = how.split()
        term.tool_fails(tool, **{kind: int(number)})


@pytest.mark.parametrize("fsck,mount,status,runs", [
    # A clean image is mounted and the mount's result is the answer.
    ("ok", "ok", 0, [CHECK, MOUNT_ARGV]),
    ("ok", "exit 1", 9, [CHECK, MOUNT_ARGV]),
    # Damage found: repair and mount whatever they do, and answer 99 (the stub fails both fscks).
    ("exit 1", "ok", 99, [CHECK, REPAIR, MOUNT_ARGV]),
    ("exit 4", "exit 32", 99, [CHECK, REPAIR, MOUNT_ARGV]),
    ("signal 11", "ok", 99, [CHECK, REPAIR, MOUNT_ARGV]),
])
def test_mount_checks_repairs_and_mounts(term, fsck, mount, status, runs):
    behave(term, FSCK, fsck)
    behave(term, MOUNT, mount)
    assert run_cmd(term, ["--mount-msd"], uid=500) == (status, b"")
    assert tool_runs(term) == runs


@pytest.mark.parametrize("how,status", [("ok", 0), ("exit 1", 9), ("signal 15", 9)])
def test_umount_frees_the_loop_device_and_answers_with_its_result(term, how, status):
    behave(term, UMOUNT, how)
    assert run_cmd(term, ["--umount-msd"], uid=500) == (status, b"")
    assert tool_runs(term) == [[b"umount", MOUNT_POINT, b"-d"]]


@pytest.mark.parametrize("option", ["--mount-msd", "--umount-msd"])
@pytest.mark.parametrize("uid", [501, 1000])
def test_other_callers_are_refused_before_any_tool_runs(term, option, uid):
    assert run_cmd(term, [option], uid=uid) == (6, b"Access denied.\n")
    assert tool_runs(term) == []

