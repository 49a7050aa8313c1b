"""Makes what the virtual machine starts from.

    image.py base UNPACKED FOLDER    from unpacked packages: FOLDER/kernel, FOLDER/packages.cpio
    image.py own AIR GUEST ARCHIVE   from the controllers' program and the folder of the guest's scripts

The archives are of the kind that the kernel unpacks (cpio, "newc").
"""

import glob
import lzma
import os
import stat
import struct
import subprocess
import sys

PROGRAMS = ("usr/libexec/bluetooth/bluetoothd", "usr/bin/bluetoothctl", "usr/bin/btmon", "usr/bin/btmgmt",
            "usr/bin/dbus-daemon", "usr/bin/dbus-monitor", "usr/bin/dbus-send", "usr/bin/python3.11", "bin/busybox")
# For programs that are brought along.
LIBRARIES = ("libstdc++.so.6", "libgcc_s.so.1", "libm.so.6", "libsystemd.so.0")
TYPELIBS = ("GLib-2.0", "GObject-2.0", "Gio-2.0", "GModule-2.0")
FOLDERS = ("bin", "dev", "etc", "proc", "root", "run", "share", "sys", "tmp", "var/lib/bluetooth", "var/run")
PYTHON_LEFT_OUT = ("test", "idlelib", "lib2to3", "tkinter", "turtledemo", "ensurepip", "distutils", "pydoc_data",
                   "unittest", "sqlite3", "xmlrpc", "wsgiref", "multiprocessing", "asyncio", "email", "html",
                   "config-3.11-x86_64-linux-gnu", "__pycache__")
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
        self.loader = f"{root}/lib64/ld-linux-x86-64.so.2"
        self.library_path = ":".join(f"{root}/{folder}" for folder in (
            "lib/x86_64-linux-gnu", "usr/lib/x86_64-linux-gnu", "lib/x86_64-linux-gnu/systemd"))

    def command(self, *words):
        """A program of the packages, run here with their libraries."""
        return [self.loader, "--library-path", self.library_path, *words]

    def add(self, name):
        self.archive.copy(f"{self.root}/{name}", name)

    def add_with_libraries(self, name):
        self.add(name)
        listed = subprocess.run(self.command("--list", f"{self.root}/{name}"), capture_output=True, text=True)
        for line in listed.stdout.splitlines():
            path = line.partition("=> ")[2].partition(" (")[0]
            if path.startswith(self.root):
                self.archive.copy(path, f"lib/x86_64-linux-gnu/{os.path.basename(path)}")

    def add_library(self, name):
        for path in glob.glob(f"{self.root}/**/x86_64-linux-gnu/{name}", recursive=True):
            self.add_with_libraries(os.path.relpath(path, self.root))

    def add_tree(self, folder, left_out=()):
        for path, folders, files in os.walk(f"{self.root}/{folder}"):
            folders[:] = sorted(set(folders) - set(left_out))
            for file in sorted(files):
                name = os.path.relpath(os.path.join(path, file), self.root)
                if file.endswith(".so"):
                    self.add_with_libraries(name)
                elif os.path.isfile(f"{self.root}/{name}") and not os.path.exists(f"{self.root}/{name}c"):
                    self.add(name)  # of Python's modules only what was compiled

    def add_python(self):
        # Read at each start of the machine, so it is compiled now.
        for folder in ("python3.11", "python3/dist-packages"):
            subprocess.run(self.command(
                f"{self.root}/usr/bin/python3.11", "-m", "compileall", "-q", "-b", "--invalidation-mode",
                "unchecked-hash", "-x", "/(test|lib2to3|distutils)/", "-s", self.root, f"{self.root}/usr/lib/{folder}"),
                env={"PYTHONHOME": f"{self.root}/usr"}, stdout=subprocess.DEVNULL, check=False)
        self.add_tree("usr/lib/python3.11", PYTHON_LEFT_OUT)
        for package in ("dbus", "gi"):
            self.add_tree(f"usr/lib/python3/dist-packages/{package}", PYTHON_LEFT_OUT)
        for path in glob.glob(f"{self.root}/usr/lib/python3/dist-packages/_dbus*.so"):
            self.add_with_libraries(os.path.relpath(path, self.root))
        for name in TYPELIBS:
            self.add(f"usr/lib/x86_64-linux-gnu/girepository-1.0/{name}.typelib")
        # GObject's introspection opens these by name.
        for library in ("libglib-2.0.so.0", "libgobject-2.0.so.0", "libgio-2.0.so.0", "libgmodule-2.0.so.0"):
            self.add_library(library)
        self.archive.link("usr/bin/python3", "python3.11")

    def add_modules(self, release):
        subprocess.run(self.command("--argv0", "depmod", f"{self.root}/bin/kmod", "-b", self.root, release),
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
            with (lzma.open if path.endswith(".xz") else open)(f"{folder}/{path}", "rb") as file:
                self.archive.text(f"modules/{module_name(path)}", file.read())
        self.archive.text("modules/order", "".join(module_name(path) + "\n" for path in order).encode())


def module_name(path):
    return os.path.basename(path).removesuffix(".xz")


def unpacked_kernel(image):
    """The kernel out of its own unpacker, which takes seconds on an emulated processor."""
    setup_sectors = image[0x1F1]
    offset, length = struct.unpack_from("<II", image, 0x248)
    start = (setup_sectors + 1) * 512 + offset
    payload = image[start:start + length]
    if payload.startswith(b"\xfd7zXZ"):
        return lzma.LZMADecompressor().decompress(payload)
    try:
        # Its last four bytes are the length of what is packed.
        return subprocess.run(["zstd", "-dcq"], input=payload[:-4], capture_output=True, check=True).stdout
    except (OSError, subprocess.CalledProcessError):
        return image


def make_base(root, folder):
    (kernel,) = glob.glob(f"{root}/boot/vmlinuz-*")
    with open(kernel, "rb") as file, open(f"{folder}/kernel", "wb") as out:
        out.write(unpacked_kernel(file.read()))
    with Archive(f"{folder}/packages.cpio") as archive:
        packages = Packages(root, archive)
        for name in FOLDERS:
            archive.folder(name)
        for name, text in TEXTS.items():
            archive.text(name, text.encode())
        archive.link("lib64/ld-linux-x86-64.so.2", "/lib/x86_64-linux-gnu/ld-linux-x86-64.so.2")
        archive.copy(packages.loader, "lib/x86_64-linux-gnu/ld-linux-x86-64.so.2")
        archive.link("bin/sh", "busybox")
        for name in PROGRAMS:
            packages.add_with_libraries(name)
        for name in LIBRARIES:
            packages.add_library(name)
        for name in ("etc/bluetooth", "etc/dbus-1/system.d", "usr/share/dbus-1"):
            # Nothing but the test bed starts the service.
            packages.add_tree(name, ("services", "system-services"))
        packages.add_python()
        packages.add_modules(os.path.basename(kernel).removeprefix("vmlinuz-"))


def make_own(air, guest, path):
    with Archive(path) as archive:
        archive.copy(air, "testbed/air")
        for name in sorted(os.listdir(guest)):
            if os.path.isfile(f"{guest}/{name}"):
                archive.copy(f"{guest}/{name}", f"testbed/{name}")
        archive.link("init", "testbed/init")


if __name__ == "__main__":
    {"base": make_base, "own": make_own}[sys.argv[1]](*sys.argv[2:])
