"""Expected texts shared by the system tests."""

BANNER = b"\nOrvin Authentication and Installation Tool.\n"

_VISIBLE = [
    ("--install-cert-check", "<certificate file>"),
    ("--install-cert", "<certificate file>"),
    ("--install-image-check", "<image file>"),
    ("--install-image", "<image file>"),
    ("--install-check", "<signed file> <installed filename>"),
    ("--install", "<signed file> <installed filename>"),
    ("--remove", "<cert/signed file>"),
    ("--rename", "<cert/signed file> <new filename>"),
    ("--update-os", "<operating system image file>"),
    ("--make-factory", ""),
    ("--make-restore", ""),
    ("--wipe", ""),
    ("--install-kbpk-check", "<acquirer ID> <kbpk file>"),
    ("--install-kbpk", "<acquirer ID> <kbpk file>"),
    ("--remove-kbpk", "<acquirer ID>"),
    ("--update-kbpk-pci-pin", "<acquirer ID> <kbpk file>"),
    ("--verify-kbpk-pci-pin", "<acquirer ID>"),
    ("--install-key-check", "<acq ID> <tr31 file> <opk file>"),
    ("--install-key", "<acq ID> <tr31 file> <opk file>"),
]


def usage(name="orvin-auth"):
    text = f"\nUsage: {name} <option> <parameters>\nWhere:\n    <option>                 <parameters>\n"
    text += "".join(f"    {opt:<21}    {params}\n" for opt, params in _VISIBLE)
    return text.encode()


def signed_file(term, path, role, data=b"payload\n", mode=0o644, uid=0, gid=0, extra=b""):
    """Writes a file and its detached signature by role."""
    term.write(path, data, mode=mode, uid=uid, gid=gid)
    term.sign(path, role, extra=extra)
    return path
