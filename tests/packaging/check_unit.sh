#!/bin/sh
# Holds the unit against what it has to be: check_unit.sh UNIT SCRATCH_DIR
# Status 77: the service manager's tools are missing here.
set -u
unit=$1
scratch=$2
wrong=0

complain() { echo "$*" >&2; wrong=1; }
command -v systemd-analyze >/dev/null || { echo "skipped: systemd-analyze is not installed"; exit 77; }

# The programs that it names need not be installed here, under whatever prefix, nor the man page.
rm -rf "$scratch"
mkdir -p "$scratch"
sed -e 's,^\(Exec[A-Za-z]*=-*\)/[^ ]*,\1/bin/true,' -e '/^Documentation=/d' "$unit" \
    >"$scratch/orla-verifier.service"
said=$(systemd-analyze verify "$scratch/orla-verifier.service" 2>&1) || complain "the unit is not accepted"
[ -z "$said" ] || complain "$said"
systemd-analyze security --no-pager --offline=yes --threshold=60 "$unit" >"$scratch/security" ||
    complain "$(tail -n 1 "$scratch/security")"

for line in 'StartLimitBurst=[1-9]' 'StartLimitIntervalSec=[1-9]' 'StandardInput=tty' 'TTYPath=/dev/tty[1-9]' \
    'TTYReset=yes' 'ExecStopPost=-/usr/bin/chvt [1-9]' 'ExecStopPost=-/bin/sh .*/consoleblank .*/dev/tty0' \
    'RuntimeDirectory=orla-verifier' 'RuntimeDirectoryMode=0700' \
    'Environment=XDG_RUNTIME_DIR=%t/orla-verifier'; do
    grep -Eq "^$line" "$unit" || complain "the unit lacks $line"
done
# Any of these hides the USB disk's mount from the rest of the board, or devices from the program.
if grep -En '^(Private(Mounts|Tmp|Devices|Network|Users)|Protect[A-Za-z]+|ProcSubset|ReadOnlyPaths|ReadWritePaths|InaccessiblePaths|TemporaryFileSystem|Bind(ReadOnly)?Paths|Root[A-Za-z]+|MountFlags|DynamicUser|DeviceAllow|DevicePolicy)=' "$unit"; then
    complain "the unit gets a mount namespace of its own, or loses devices"
fi
exit "$wrong"
