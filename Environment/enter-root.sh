#!/usr/bin/env bash
# Binds folders of the host into a root at their own paths and runs a command there.
# Runs in a mount namespace of its own, so that the mounts vanish with it.
#   enter-root.sh ROOT FOLDER… -- COMMAND…
set -euo pipefail
root=$1
shift
while [ "$1" != -- ]; do
    folder=$(readlink -f "$1")
    shift
    # The cache holds the root itself: below a folder that is already bound nothing is bound again.
    if [ -e "$folder" ] && ! mountpoint -q "$root$folder" && ! [ "$folder" -ef "$root$folder" ]; then
        mkdir -p "$root$folder"
        mount --rbind "$folder" "$root$folder"
    fi
done
shift
working_directory=$PWD
exec chroot "$root" /bin/bash -c 'cd "$0" 2>/dev/null || cd /; exec "$@"' "$working_directory" "$@"
