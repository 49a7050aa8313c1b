"""Makes what the virtual machine starts from.

    image.py base UNPACKED FOLDER    from unpacked packages: FOLDER/kernel, FOLDER/packages.cpio
    image.py own AIR GUEST ARCHIVE   from the controllers' program and the folder of the guest's scripts

The archives are of the kind that the kernel unpacks (cpio, "newc").
"""

import fnmatch
import glob
import lzma
import os
import stat
import struct
import subprocess
import sys

PROGRAMS = ("usr/libexec/bluetooth/bluetoothd", "usr/bin/bluetoothctl", "usr/bin/btmon", "usr/bin/btmgmt",
            "usr/bin/dbus-daemon", "usr/bin/dbus-monitor", "usr/bin/dbus-send", "usr/bin/busybox")
LIBRARIES = "usr/lib/x86_64-linux-gnu"
# What GObject's introspection opens by name, and the C library when a thread ends early.
OPENED = ("libglib-2.0.so.0", "libgobject-2.0.so.0", "libgio-2.0.so.0", "libgmodule-2.0.so.0", "libgcc_s.so.1")
LOADER = "ld-linux-x86-64.so.2"
FOLDERS = ("dev", "etc", "proc", "root", "run", "share", "sys", "tmp", "usr/bin", "var/lib/bluetooth", "var/run")
LINKS = {
    "bin": "usr/bin",
    "lib": "usr/lib",
    "lib64": "usr/lib64",
    f"usr/lib64/{LOADER}": f"../lib/x86_64-linux-gnu/{LOADER}",
}
PYTHON_LEFT_OUT = ("__pycache__", "config-*", "pydoc_data", "test")
# The kernel loads them in this order, with those that they need before them.
MODULES = ("virtio_pci", "virtio_rng", "9pnet_virtio", "9p", "af_alg", "algif_hash", "algif_skcipher", "cmac",
           "ecb", "ctr", "ccm", "bluetooth", "hci_vhci", "uhid")
TEXTS = {
    "etc/passwd": "root:x:0:0::/root:/bin/sh\nmessagebus:x:100:100::/:/bin/false\nuser:x:1000:1000::/tmp:/bin/sh\n",
    "etc/group": "root:x:0:\nmessagebus:x:100:\nbluetooth:x:101:\nuser:x:1000:\n",
    "etc/machine-id": "0123456789abcdef0123456789abcdef\n",
}


class Archive:
    def __init__(self, path):
        self.file = open(path, "wb")
        self.names = set()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.write("TRAILER!!!", 0, b"")
        self.file.close()

    def write(self, name, mode, data):
        """One entry, with the folders above it."""
        if name in self.names:
            return
        self.names.add(name)
        if "/" in name:
            self.folder(os.path.dirname(name))
        numbers = (len(self.names), mode, 0, 0, 1, 0, len(data), 0, 0, 0, 0, len(name) + 1, 0)
        header = b"070701" + b"".join(b"%08X" % number for number in numbers) + name.encode() + b"\0"
        for part in (header, data):
            self.file.write(part + bytes(-len(part) % 4))

    def folder(self, name):
        self.write(name, stat.S_IFDIR | 0o755, b"")

    def text(self, name, data, mode=0o644):
        self.write(name, stat.S_IFREG | mode, data)

    def link(self, name, target):
        self.write(name, stat.S_IFLNK | 0o777, target.encode())

    def copy(self, source, name):
        with open(source, "rb") as file:
            self.text(name, file.read(), 0o755 if os.access(source, os.X_OK) else 0o644)


class Packages:
    """The unpacked packages, and what of them goes into the archive."""

    def __init__(self, root, archive):
        self.root = root
        self.archive = archive
        # With its version: python3.11.
        self.python = os.readlink(f"{root}/usr/bin/python3")

    def command(self, *words):
        """A program of the packages, run here with their libraries."""
        libraries = f"{self.root}/{LIBRARIES}"
        return [f"{libraries}/{LOADER}", "--library-path", libraries, *words]

    def add(self, name):
        self.archive.copy(f"{self.root}/{name}", name)

    def add_with_libraries(self, name):
        self.add(name)
        listed = subprocess.run(self.command("--list", f"{self.root}/{name}"), capture_output=True, text=True)
        for line in listed.stdout.splitlines():
            path = line.partition("=> ")[2].partition(" (")[0]
            if path.startswith(self.root):
                self.add(os.path.relpath(path, self.root))

    def add_tree(self, folder, left_out=()):
        for path, folders, files in os.walk(f"{self.root}/{folder}"):
            folders[:] = sorted(name for name in folders if not any(fnmatch.fnmatch(name, it) for it in left_out))
            for file in sorted(files):
                name = os.path.relpath(os.path.join(path, file), self.root)
                if file.endswith(".so"):
                    self.add_with_libraries(name)
                elif os.path.isfile(f"{self.root}/{name}") and not os.path.exists(f"{self.root}/{name}c"):
                    self.add(name)  # of Python's modules only what was compiled

    def add_python(self):
        # Read at each start of the machine, so it is compiled now.
        packages = "usr/lib/python3/dist-packages"
        for folder in (f"usr/lib/{self.python}", packages):
            subprocess.run(self.command(
                f"{self.root}/usr/bin/{self.python}", "-m", "compileall", "-q", "-b", "--invalidation-mode",
                "unchecked-hash", "-x", "/python3[^/]*/test/", "-s", self.root, f"{self.root}/{folder}"),
                env={"PYTHONHOME": f"{self.root}/usr"}, stdout=subprocess.DEVNULL, check=False)
        self.add_with_libraries(f"usr/bin/{self.python}")
        self.archive.link("usr/bin/python3", self.python)
        self.add_tree(f"usr/lib/{self.python}", PYTHON_LEFT_OUT)
        for package in ("dbus", "gi"):
            self.add_tree(f"{packages}/{package}", PYTHON_LEFT_OUT)
        for path in glob.glob(f"{self.root}/{packages}/_dbus*.so"):
            self.add_with_libraries(os.path.relpath(path, self.root))
        self.add_tree(f"{LIBRARIES}/girepository-1.0")

    def add_modules(self, release):
        subprocess.run(self.command("--argv0", "depmod", f"{self.root}/usr/bin/kmod", "-b", self.root, release),
                       stderr=subprocess.DEVNULL, check=True)
        folder = f"{self.root}/lib/modules/{release}"
        needs = {}
        with open(f"{folder}/modules.dep", encoding="ascii") as file:
            for line in file:
                path, _, others = line.partition(":")
                needs[path] = others.split()
        paths = {os.path.basename(path).split(".")[0].replace("-", "_"): path for path in needs}
        order = []

        def add(path):
            if path in order:
                return
            for other in reversed(needs[path]):
                add(other)
            order.append(path)

        for name in MODULES:
            if name in paths:  # others are built into the kernel
                add(paths[name])
        for path in order:
            with open(f"{folder}/{path}", "rb") as file:
                self.archive.text(f"modules/{module_name(path)}", unpacked(file.read()))
        self.archive.text("modules/order", "".join(module_name(path) + "\n" for path in order).encode())


def module_name(path):
    return os.path.basename(path).partition(".")[0] + ".ko"


def unpacked(data):
    if data.startswith(b"\xfd7zXZ"):
        return lzma.LZMADecompressor().decompress(data)
    if data.startswith(b"\x28\xb5\x2f\xfd"):
        return subprocess.run(["zstd", "-dcq"], input=data, stdout=subprocess.PIPE, check=True).stdout
    return data


def unpacked_kernel(image):
    """The kernel out of its own unpacker, which takes seconds on an emulated processor."""
    setup_sectors = image[0x1F1]
    offset, length = struct.unpack_from("<II", image, 0x248)
    start = (setup_sectors + 1) * 512 + offset
    # Its last four bytes are the length of what is packed.
    payload = image[start:start + length - 4]
    kernel = unpacked(payload)
    return image if kernel is payload else kernel


def make_base(root, folder):
    (kernel,) = glob.glob(f"{root}/boot/vmlinuz-*") + glob.glob(f"{root}/usr/lib/modules/*/vmlinuz")
    with open(kernel, "rb") as file, open(f"{folder}/kernel", "wb") as out:
        out.write(unpacked_kernel(file.read()))
    with Archive(f"{folder}/packages.cpio") as archive:
        packages = Packages(root, archive)
        for name in FOLDERS:
            archive.folder(name)
        for name, target in LINKS.items():
            archive.link(name, target)
        for name, text in TEXTS.items():
            archive.text(name, text.encode())
        packages.add(f"{LIBRARIES}/{LOADER}")
        for name in PROGRAMS:
            packages.add_with_libraries(name)
        for name in OPENED:
            packages.add_with_libraries(f"{LIBRARIES}/{name}")
        for name in ("etc/bluetooth", "etc/dbus-1/system.d", "usr/share/dbus-1"):
            # Nothing but the test bed starts the service.
            packages.add_tree(name, ("services", "system-services"))
        packages.add_python()
        (release,) = os.listdir(f"{root}/usr/lib/modules")
        packages.add_modules(release)


def make_own(air, guest, path):
    with Archive(path) as archive:
        archive.copy(air, "testbed/air")
        for name in sorted(os.listdir(guest)):
            if os.path.isfile(f"{guest}/{name}"):
                archive.copy(f"{guest}/{name}", f"testbed/{name}")
        archive.link("init", "testbed/init")


if __name__ == "__main__":
    {"base": make_base, "own": make_own}[sys.argv[1]](*sys.argv[2:])
