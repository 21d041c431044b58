"""Makes the systems that the tests boot.

The small one is Debian's kernel with an initial file system of busybox, the drivers that the tests
need, the programs under test and the tools that they are compared with. The full one is a minimal
Debian with systemd on a disk, and our packages. Both serve a shell on their second serial port.
"""
import fcntl
import pathlib
import re
import shutil
import subprocess

MODULES = ["ipmi_si", "ipmi_devintf", "ahci", "sd_mod", "sg", "megaraid_sas", "virtio_pci",
           "virtio_scsi", "scsi_debug", "e1000", "e1000e", "nvme", "raid1"]
TOOLS = ["lspci", "dmidecode", "lsblk", "ip", "mdadm", "setpci", "nvme"]
DATA = ["/usr/share/misc/pci.ids"]
INIT = """#!/bin/busybox sh
/bin/busybox --install -s /bin
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
mount -t tmpfs run /run
mkdir -p /dev/pts /tmp /var/log
ln -sf /run /var/run
hostname guest
ip link set lo up
for module in @MODULES@; do
    case " $(cat /proc/cmdline) " in *" without=$module "*) continue ;; esac
    modprobe $module $(sed -n "s/.*\\<$module=\\([^ ]*\\).*/\\1/p" /proc/cmdline | tr , ' ')
done
for link in /sys/class/net/e*; do ip link set "${link##*/}" up; done
exec sh /bin/serve-shell
"""
# Gives a SCSI host that stands nowhere, as those of scsi_debug do, a PCI function to stand behind: the
# kernel's own directories, with one of ours in between.
BEHIND_PCI = """#!/bin/sh
host=host$1 function=/run/adapter/pci0000:00/$2
mkdir -p $function/$host /run/adapter/scsi_host /run/adapter/scsi_device
echo 0x010700 >$function/class
for id in vendor device subsystem_vendor subsystem_device; do echo 0x1af4 >$function/$id; done
mount --bind "$(readlink -f /sys/class/scsi_host/$host/device)" $function/$host
for class in scsi_host scsi_device; do cp -a /sys/class/$class/. /run/adapter/$class; done
ln -sfn $function/$host/scsi_host/$host /run/adapter/scsi_host/$host
cd /run/adapter/scsi_device
for name in $1:*; do ln -sfn $function/$host/target${name%:*}/$name/scsi_device/$name $name; done
for class in scsi_host scsi_device; do mount --bind /run/adapter/$class /sys/class/$class; done
"""
# Keeps when the kernel has told of a device.
NOTE_DEVICE = """#!/bin/sh
read seconds idle </proc/uptime
echo $seconds $ACTION $DEVPATH >>/run/devices
"""
# The kernel knows the slot of a card, but not its rack.
LOCALCLI = """#!/bin/sh
[ "$1 $2" = "hardware pci" ] || exec /usr/bin/localcli "$@"
/usr/bin/localcli "$@" | sed 's/Slot Description: [0-9]*$/Slot Description: r001i01s01/'
"""
SHELL = """#!/bin/sh
# Runs one command a line: answers with its status, the length of its output, and its output.
stty -F /dev/ttyS1 raw -echo
exec </dev/ttyS1 >/dev/ttyS1 2>/dev/null
printf '\\nREADY\\n'
while IFS= read -r line; do
    sh -c "$line" >/run/answer 2>&1 </dev/null
    printf '%d %d\\n' $? "$(stat -c %s /run/answer)"
    cat /run/answer
done
"""
SHELL_UNIT = """[Unit]
Description=Shell of the tests
After=basic.target
[Service]
ExecStart=/usr/local/sbin/serve-shell
[Install]
WantedBy=multi-user.target
"""
# The host's own record of when it booted and when it was told to go down.
SUMMARY = """#!/bin/sh
echo "$(date -u +%Y-%m-%dT%H:%M:%SZ) bootstop: $*" >>/var/log/vmksummary.log
sync
"""
SUMMARY_UNIT = """[Unit]
Description=Summary log of the host
Before=tavd.service
[Service]
Type=oneshot
RemainAfterExit=yes
ExecStart=/usr/local/sbin/summarize Host has booted
ExecStop=/usr/local/sbin/summarize Host is rebooting
[Install]
WantedBy=multi-user.target
"""
FULL_PACKAGES = ["systemd-sysv", "linux-image-amd64", "kmod", "udev", "iproute2", "pciutils",
                 "dmidecode", "libjsoncpp25", "dbus"]
FULL_SIZE = "2G"


def output(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, stdout=subprocess.PIPE,
                          text=True, **options).stdout


def fetch_kernel(cache):
    """Unpacks Debian's present kernel below `cache` and returns its version. Machines that are made
    side by side take turns: the first one fetches it for all."""
    package = re.search(r"Depends: (linux-image-\S+)",
                        output("apt-cache", "depends", "linux-image-amd64")).group(1)
    folder = cache / package
    cache.mkdir(parents=True, exist_ok=True)
    with open(cache / "lock", "wb") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not folder.exists():
            unpack_package(package, cache / "download", folder)
    version = next((folder / "lib/modules").iterdir()).name
    return folder, version


def unpack_package(package, scratch, folder):
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir(parents=True)
    subprocess.run(["apt-get", "download", "-qq", package], cwd=scratch, check=True,
                   stderr=subprocess.DEVNULL)
    subprocess.run(["dpkg-deb", "-x", next(scratch.glob("*.deb")), scratch / "root"], check=True)
    (scratch / "root").rename(folder)
    shutil.rmtree(scratch)


def write_program(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(0o755)


def copy_with_libraries(program, root):
    target = root / "usr/bin" / pathlib.Path(program).name
    target.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(program, target)
    linked = subprocess.run(["ldd", program], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                            text=True, check=False).stdout
    for library in re.findall(r"(/\S+) \(0x", linked):
        place = root / library.lstrip("/")
        if library.startswith(str(ROOT)):  # found beside the program by its run path
            place = root / "usr/lib/x86_64-linux-gnu" / pathlib.Path(library).name
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(library, place)
    # As a package has them: a small machine's memory holds its file system too.
    subprocess.run(["strip", "--strip-debug", "-p", *root.glob("usr/lib/*/libtav.so*"), target],
                   check=True)


def copy_modules(kernel, version, root):
    source = kernel / "lib/modules" / version
    subprocess.run(["depmod", "-b", kernel, version], check=True)
    needed = set()
    for module in MODULES:
        listed = output("modprobe", "-d", kernel, "-S", version, "--show-depends", module)
        needed |= set(re.findall(r"^insmod (\S+)", listed, re.MULTILINE))
    for path in needed:
        relative = pathlib.Path(path).relative_to(kernel)
        (root / relative).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, root / relative)
    for index in source.glob("modules.*"):
        if index.name in ("modules.order", "modules.builtin", "modules.builtin.modinfo"):
            shutil.copy(index, root / "lib/modules" / version)
    subprocess.run(["depmod", "-b", root, version], check=True)


ROOT = pathlib.Path(__file__).resolve().parents[2]


def make_small(build, cache, folder, further=()):
    """Returns the paths of kernel and initial file system, with `further` programs in it."""
    kernel, version = fetch_kernel(cache)
    root = folder / "root"
    for name in ("bin", "proc", "sys", "dev", "run", "tmp", "etc", "var/log"):
        (root / name).mkdir(parents=True)
    shutil.copy("/bin/busybox", root / "bin/busybox")
    copy_modules(kernel, version, root)
    programs = [build / "service/tavd", build / "tools/tavctl", *(build / "sim/hostcmds/bin").iterdir(),
                *further]
    for program in programs + [shutil.which(tool) for tool in TOOLS]:
        copy_with_libraries(program, root)
    for path in DATA:
        (root / path.lstrip("/")).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(path, root / path.lstrip("/"))
    (root / "usr/bin/awk").symlink_to("/bin/busybox")
    write_program(root / "init", INIT.replace("@MODULES@", " ".join(MODULES)))
    write_program(root / "bin/serve-shell", SHELL)
    write_program(root / "bin/behind-pci", BEHIND_PCI)
    write_program(root / "bin/note-device", NOTE_DEVICE)
    write_program(root / "usr/sbin/localcli", LOCALCLI)
    initramfs = folder / "initramfs"
    listing = output("find", ".", cwd=root)
    with open(initramfs, "wb") as image:
        packed = subprocess.Popen(["cpio", "--quiet", "-o", "-H", "newc"], cwd=root,
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        squeezed = subprocess.Popen(["gzip", "-1"], stdin=packed.stdout, stdout=image)
        packed.stdin.write(listing.encode())
        packed.stdin.close()
        if squeezed.wait() or packed.wait():
            raise RuntimeError("the initial file system cannot be packed")
    return kernel / "boot" / f"vmlinuz-{version}", initramfs


def add_unit(root, name, text):
    (root / "etc/systemd/system" / name).write_text(text)
    wanted = root / "etc/systemd/system/multi-user.target.wants"
    wanted.mkdir(parents=True, exist_ok=True)
    (wanted / name).symlink_to(f"/etc/systemd/system/{name}")


def make_full(packages, cache, folder):
    """The paths of kernel, initial file system and disk of a Debian with these packages."""
    base = cache / "debian.tar"
    if not base.exists():
        fresh = cache / "debian.new.tar"  # its ending says what is made
        cache.mkdir(parents=True, exist_ok=True)
        subprocess.run(["mmdebstrap", "--quiet", "--variant=minbase",
                        "--include=" + ",".join(FULL_PACKAGES), "bookworm", fresh],
                       check=True)
        fresh.rename(base)
    root = folder / "debian"
    root.mkdir()
    subprocess.run(["tar", "-xf", base, "-C", root], check=True)
    write_program(root / "usr/local/sbin/serve-shell", SHELL)
    add_unit(root, "serve-shell.service", SHELL_UNIT)
    write_program(root / "usr/local/sbin/summarize", SUMMARY)
    add_unit(root, "summary-log.service", SUMMARY_UNIT)
    (root / "etc/hostname").write_text("guest\n")
    (root / "etc/modules-load.d/ipmi.conf").write_text("ipmi_si\nipmi_devintf\nsg\n")
    (root / "root/packages").mkdir()
    for package in packages:
        shutil.copy(package, root / "root/packages")
    kernel = next((root / "boot").glob("vmlinuz-*"))
    initramfs = next((root / "boot").glob("initrd.img-*"))
    disk = folder / "disk"
    subprocess.run(["mkfs.ext4", "-q", "-d", root, disk, FULL_SIZE], check=True)
    for boot in (kernel, initramfs):
        shutil.copy(boot, folder)
    shutil.rmtree(root)
    return folder / kernel.name, folder / initramfs.name, disk
