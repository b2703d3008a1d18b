"""Screen images and operating-system updates: verified, then flashed from a root-only copy."""
import pytest

from helpers import provision, run_cmd, signed_file

SCREEN = 131072
NAND = "/usr/bin/nandwrite"


@pytest.fixture
def images(term):
    provision(term, "main-user", "prod-sign")
    return term


@pytest.mark.parametrize("uid", [0, 500])
def test_screen_image_is_flashed_from_a_verified_copy(images, uid):
    data = bytes(i % 253 for i in range(SCREEN))
    signed_file(images, "/tmp/screen.img", "main-user", data=data, uid=500, gid=500)
    assert run_cmd(images, ["--install-image-check", "/tmp/screen.img"], uid=uid) == (
        0, b"Image file can be installed.\n")
    assert images.calls(NAND) == []
    assert run_cmd(images, ["--install-image", "/tmp/screen.img"], uid=uid) == (
        0, b"Image file installed.\n")
    (erase,), (write,) = images.calls("/usr/bin/mtd_debug"), images.calls(NAND)
    assert erase.argv == [b"mtd_debug", b"erase", b"/dev/mtd4", b"0", b"0x00800000\n"]
    assert write.argv[:4] == [b"nandwrite", b"--markbad", b"--pad", b"/dev/mtd4"]
    # D6: the tool reads a root-only snapshot, gone once the command ends.
    assert write.argv[4].startswith(b"/tmp/orvin-auth.") and not images.exists(write.argv[4].decode())


@pytest.mark.parametrize("size", [SCREEN - 1, SCREEN + 1])
def test_screen_image_of_another_size_is_refused_after_its_signature(images, size):
    signed_file(images, "/tmp/screen.img", "main-user", data=b"x" * size)
    for option in ["--install-image-check", "--install-image"]:
        assert run_cmd(images, [option, "/tmp/screen.img"]) == (1, b"Invalid image file.\n")
    assert images.calls(NAND) == [] and images.exists("/tmp/screen.img")


def test_os_update_flashes_sets_the_flag_and_restarts(images):
    signed_file(images, "/tmp/os.img", "OperatingSystem", data=b"kernel+rootfs" * 1000)
    assert run_cmd(images, ["--update-os", "/tmp/os.img"], uid=500) == (
        0, b"OS image loaded and update flag set. Rebooting to commit...\n")
    (write,) = images.calls(NAND)
    assert write.argv[3] == b"/dev/mtd5"
    assert images.read("/sys/kernel/flags/os_update") == b"1"
    assert [c.argv for c in images.calls("/sbin/reboot")] == [[b"reboot"]]


@pytest.mark.parametrize("option,signer,fault,out", [
    ("--install-image-check", "main-user", "tampered", b"Signature check failed.\n"),
    ("--install-image", "main-user", "tampered", b"Signature check failed.\n"),
    ("--update-os", "prod-sign", None, b"Invalid signature: prod-sign.\n"),
    ("--update-os", "OperatingSystem", "unsigned", b"Cannot access signature file: /tmp/img.sig\n"
                                                   b"Failed to delete invalid signature: /tmp/img.sig.\n")])
def test_refused_image_is_deleted_only_by_install(images, option, signer, fault, out):
    signed_file(images, "/tmp/img", signer, data=b"x" * SCREEN)
    if fault == "tampered":
        images.write("/tmp/img", b"y" * SCREEN)
    elif fault == "unsigned":
        images.remove("/tmp/img.sig")
    assert run_cmd(images, [option, "/tmp/img"]) == (7, out)
    kept = option.endswith("-check")
    assert images.exists("/tmp/img") == kept and images.exists("/tmp/img.sig") == kept
    assert images.calls(NAND) == [] and images.read("/sys/kernel/flags/os_update") == b""


def test_os_update_without_partition_keeps_image_and_flag(images):
    images.write("/proc/mtd", b'dev:    size   erasesize  name\nmtd4: 00800000 00020000 "screens"\n')
    signed_file(images, "/tmp/os.img", "OperatingSystem")
    assert run_cmd(images, ["--update-os", "/tmp/os.img"]) == (
        9, b"Failed to determine the MTD device.\n")
    assert images.exists("/tmp/os.img") and images.read("/sys/kernel/flags/os_update") == b""
    assert images.calls("/sbin/reboot") == []
