"""The machine's own system: the distribution's kernel and the packages that ours depend on,
in a disk image. Made once, and anew when its recipe has changed."""

import hashlib
import os
import re
import shutil
import subprocess
from pathlib import Path

HERE = Path(__file__).resolve().parent
SUITE = "bookworm"
IMAGE_SIZE = "3G"  # sparse: what is used of it is 1 GB

MODULES = """\
virtio_pci
virtio_blk
ext4
"""

# The sensor's adapter has to get bus 1, and the machine's own adapter none.
MODPROBE = """\
blacklist i2c_piix4
options vivid n_devs=1 node_types=0x1 num_inputs=1 input_types=3 ccs_cap_mode=4
"""

# A source slow enough for an emulated processor: 720p at the least frames a second there are.
SLOW_CAMERA = """\
#!/bin/sh
index=$(v4l2-ctl -d "$1" --list-dv-timings | awk '
    /Index:/ { i = $2 }
    /Active width: 1280$/ { wide = i }
    /Active height: 720$/ { high = i }
    /\\(24.00 frames per second\\)/ && wide == i && high == i { print i; exit }')
v4l2-ctl -d "$1" --set-dv-bt-timings "index=$index"
"""
CAMERA_RULE = 'SUBSYSTEM=="video4linux", ACTION=="add", RUN+="/bin/sh /usr/local/sbin/slow-camera $devnode"\n'

# What the run brings along lies in an archive on the second disk.
SERVICE = """\
[Unit]
Description=What steers the machine from outside
After=systemd-modules-load.service systemd-udevd.service

[Service]
ExecStartPre=/bin/sh -c 'mkdir -p /opt/machine && tar -C /opt/machine -xf /dev/vdb'
ExecStart=/usr/bin/python3 /opt/machine/agent.py
Restart=on-failure

[Install]
WantedBy=multi-user.target
"""

FILES = {
    "etc/fstab": "/dev/vda / ext4 defaults 0 1\n",
    "etc/hostname": "instrument\n",
    "etc/modprobe.d/machine.conf": MODPROBE,
    "etc/modules-load.d/machine.conf": "orla_sensor\nvivid\nuinput\nevdev\ni2c_dev\n",
    "etc/systemd/system/machine.service": SERVICE,
    "etc/udev/rules.d/10-machine.rules": CAMERA_RULE,
    "usr/local/sbin/slow-camera": SLOW_CAMERA,
    # So that the power's cut leaves what was said until then.
    "etc/systemd/journald.conf.d/machine.conf": "[Journal]\nStorage=persistent\nSyncIntervalSec=5s\n",
}

# In the root, with the kernel's own build files; what only this needs goes again.
BUILD_MODULE = r"""
kernel=$(ls /lib/modules)
make -C /lib/modules/$kernel/build M=/usr/src/orla-sensor modules
install -D -m 644 -t /lib/modules/$kernel/extra /usr/src/orla-sensor/orla_sensor.ko
depmod $kernel
systemctl enable machine.service
systemctl mask apt-daily.timer apt-daily-upgrade.timer dpkg-db-backup.timer fstrim.timer \
    e2scrub_all.timer e2scrub_reap.service
rm -rf /usr/src /usr/lib/gcc
"""


def dependencies(packages):
    """The names that Debian packages depend on, without those packages themselves; of
    alternatives the first."""
    names = set()
    own = set()
    for package in packages:
        field = lambda name: subprocess.run(
            ["dpkg-deb", "-f", str(package), name], check=True, capture_output=True, text=True
        ).stdout.strip()
        own.add(field("Package"))
        for item in field("Depends").split(","):
            names.add(re.split(r"[ |(:]", item.strip())[0])
    return sorted(names - own - {""})


def listed_packages():
    lines = (HERE / "packages.txt").read_text(encoding="utf-8").splitlines()
    return [line for line in lines if line and not line.startswith("#")]


def recipe(names):
    """What the image depends on, as a short text for its folder's name."""
    digest = hashlib.sha256()
    for part in [SUITE, IMAGE_SIZE, MODULES, BUILD_MODULE, *names]:
        digest.update(part.encode() + b"\0")
    for name, text in sorted(FILES.items()):
        digest.update(f"{name}\0{text}\0".encode())
    for source in sorted((HERE / "sensor").iterdir()):
        digest.update(source.read_bytes())
    return digest.hexdigest()[:12]


class RootNeeded(Exception):
    """Only root can make the machine's system, and there is no way to be root."""


def as_root():
    """What a command begins with so that root runs it."""
    if os.geteuid() == 0:
        return []
    if not shutil.which("sudo"):
        raise RootNeeded("the machine's system can only be made by root, and there is no sudo")
    if subprocess.run(["sudo", "-n", "true"], stderr=subprocess.DEVNULL).returncode:
        raise RootNeeded("the machine's system can only be made by root, and sudo was refused")
    return ["sudo", "-n"]


def make(cache, packages, sources, log):
    """The folder with "root.img", "vmlinuz" and "initrd.img"; made if it is not there. packages:
    our own, whose dependencies are installed. sources: an apt list to take the distribution
    from, or None for the system's own. RootNeeded, or RuntimeError if it cannot be made."""
    names = sorted(set(listed_packages() + dependencies(packages)))
    folder = cache / recipe(names)
    if (folder / "root.img").exists():
        return folder
    become_root = as_root()
    folder.mkdir(parents=True, exist_ok=True)
    files = folder / "files"
    for name, text in FILES.items():
        (files / name).parent.mkdir(parents=True, exist_ok=True)
        (files / name).write_text(text, encoding="utf-8")
    shutil.copytree(HERE / "sensor", files / "usr/src/orla-sensor", dirs_exist_ok=True)
    archives = cache / "archives"
    archives.mkdir(exist_ok=True)
    image = folder / "root.img.new"
    image.unlink(missing_ok=True)
    command = [
        *become_root,
        "mmdebstrap",
        "--mode=root",
        "--variant=minbase",
        "--format=null",
        '--aptopt=APT::Install-Recommends "false"',
        "--dpkgopt=path-exclude=/usr/share/locale/*",
        "--dpkgopt=path-exclude=/usr/share/man/*",
        "--dpkgopt=path-exclude=/usr/share/doc/*",
        "--dpkgopt=path-include=/usr/share/doc/orla-verifier*",
        # What was fetched once is not fetched again for the next image.
        "--skip=download/empty",
        "--skip=essential/unlink",
        '--setup-hook=mkdir -p "$1"/var/cache/apt/archives',
        f"--setup-hook=sync-in {archives} /var/cache/apt/archives/",
        "--essential-hook=mkdir -p \"$1\"/etc/initramfs-tools/conf.d",
        "--essential-hook=echo MODULES=list >\"$1\"/etc/initramfs-tools/conf.d/machine",
        f"--essential-hook=printf '{MODULES}' >\"$1\"/etc/initramfs-tools/modules".replace("\n", "\\n"),
        f"--include={','.join(names)}",
        f"--customize-hook=sync-out /var/cache/apt/archives {archives}",
        "--customize-hook=rm -f \"$1\"/var/cache/apt/archives/*.deb",
        f"--customize-hook=sync-in {files} /",
        f"--customize-hook=chroot \"$1\" sh -ec '{BUILD_MODULE}'",
        # Names that hold for every kernel.
        "--customize-hook=cp \"$1\"/boot/vmlinuz-* \"$1\"/vmlinuz.out && cp \"$1\"/boot/initrd.img-* \"$1\"/initrd.out",
        f"--customize-hook=copy-out /vmlinuz.out /initrd.out {folder}",
        f"--customize-hook=chmod a+r {folder}/vmlinuz.out {folder}/initrd.out",
        "--customize-hook=rm \"$1\"/vmlinuz.out \"$1\"/initrd.out",
        # Nothing of the host's goes into the image.
        "--customize-hook=unshare --mount sh -ec 'for place in proc sys dev/pts dev/shm dev; do"
        " umount -lq \"$0\"/$place || true; done;"
        f" mke2fs -q -t ext4 -L instrument -d \"$0\" {image} {IMAGE_SIZE}' \"$1\"",
        SUITE,
        "-",
    ]
    if sources:
        command.append(str(Path(sources).resolve()))
    with open(log, "ab") as output:
        result = subprocess.run(
            command, stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
            env=dict(os.environ, LC_ALL="C.UTF-8", PATH=f"{os.environ['PATH']}:/usr/sbin:/sbin"),
        )
    if result.returncode or not image.exists():
        raise RuntimeError(f"the machine's system could not be made; the whole output is in {log}")
    (folder / "vmlinuz.out").rename(folder / "vmlinuz")
    (folder / "initrd.out").rename(folder / "initrd.img")
    image.rename(folder / "root.img")
    return folder


def copy_sparse(source, target):
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", str(source), str(target)], check=True)
