#!/bin/sh
# Runs a program on a private instrument: private_instrument.sh ROOT PRELOAD PROGRAM [ARGUMENT...]
#
# To be started in a mount namespace of its own (unshare --mount): lays the tree under ROOT
# over the paths that the program uses. What else is in /etc and /dev stays to be seen there.
# $FIRST_PRELOAD, if there is one, is a second library beside PRELOAD, loaded before it.
set -eu
root=$1
preload=$2
program=$3
shift 3

# One link to each entry of the machine's folder that the instrument has none of its own of, by
# one command: hundreds of them would take longer than all the rest.
link_entries() {
    folder=$1
    shift
    for entry in "$root/$folder.real"/*; do
        [ -e "$root/$folder/${entry##*/}" ] || [ -L "$root/$folder/${entry##*/}" ] ||
            set -- "$@" "$entry"
    done
    [ $# -eq 0 ] || ln -s "$@" "$root/$folder/"
}

mkdir -p "$root/etc.real" "$root/dev.real"
mount --rbind /etc "$root/etc.real"
mount --rbind /dev "$root/dev.real"
link_entries etc
link_entries dev
mount --bind "$root/opt" /opt
mount --bind "$root/root" /root
mount --bind "$root/mnt" /mnt
mount --bind "$root/sys/module" /sys/module
mount --bind "$root/lock" "$(readlink -f /var/lock)"
mount --rbind "$root/dev" /dev
mount --rbind "$root/etc" /etc

# mount and umount from here on are the stand-ins. A preloaded name ends at a blank, but the
# folder in which it is looked up does not.
export PATH="$root/bin:$PATH" HOME="$root/home"
export LD_LIBRARY_PATH="$(dirname "$preload")"
export LD_PRELOAD="${FIRST_PRELOAD:+$FIRST_PRELOAD:}$(basename "$preload")"
exec "$program" "$@"
