# Brings up the environment that ./dev works in, and enters it.
#
# A host that is new enough (Debian 13, Ubuntu 25.04) is used as it is: missing packages are
# installed with apt. Any other Debian or Ubuntu gets a contained Debian 13 root below
# $PANOVEER_ENV, entered with private mounts, so that the host is not changed. Compiler cache,
# x265 and the build trees live outside that root and survive it.
#
# Expects: checkout, the absolute path of the repository.

panoveer_cache=${PANOVEER_CACHE:-${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/panoveer}
environment_directory=${PANOVEER_ENV:-$panoveer_cache/env}
environment_root=$environment_directory/root
package_list=$checkout/Environment/packages.txt
suite=trixie
mirror=${PANOVEER_MIRROR:-http://deb.debian.org/debian}
required_megabytes=6000
os_release=${PANOVEER_OS_RELEASE:-/etc/os-release} # another one for the launcher's own tests

say() { printf 'dev: %s\n' "$*" >&2; }

fail() { # WHAT IS WRONG, WHAT TO DO
    printf 'dev: %s\n     %s\n' "$1" "$2" >&2
    exit 1
}

packages() { grep -v '^#' "$package_list" | grep . | tr '\n' ' '; }

# The stamp covers everything that decides what the environment holds.
environment_stamp() { cat "$package_list" "$checkout"/Environment/*x265* | sha256sum | cut -d' ' -f1; }

host_is_new_enough() {
    local id version
    id=$(. "$os_release" 2>/dev/null && echo "${ID:-}")
    version=$(. "$os_release" 2>/dev/null && echo "${VERSION_ID:-0}")
    case "$id" in
        debian) [ "${version%%.*}" -ge 13 ] ;;
        ubuntu) [ "$(printf '%s\n' 25.04 "$version" | sort -V | head -n 1)" = 25.04 ] ;;
        *) return 1 ;;
    esac
}

require_disk_space() {
    local directory=$1 free
    mkdir -p "$directory" || fail "Cannot create $directory." "Set PANOVEER_CACHE to a folder that you may write to."
    free=$(df -Pm "$directory" | awk 'NR == 2 {print $4}')
    [ "$free" -ge "$required_megabytes" ] ||
        fail "Only $free MB are free in $directory; the environment needs $required_megabytes MB." \
            "Free some space, or set PANOVEER_CACHE to a folder on a larger disk."
}

require_root() { # WHAT NEEDS IT
    [ "$(id -u)" -eq 0 ] ||
        fail "$1 needs root." "Run 'sudo ./dev $command', or use a container: podman build -f Containerfile ."
}

require_network() {
    local host=${mirror#*://}
    host=${host%%/*}
    getent hosts "${host%%:*}" > /dev/null 2>&1 || [ -n "${http_proxy:-}${HTTP_PROXY:-}" ] || grep -qrs '^ *Acquire::http' /etc/apt/apt.conf.d ||
        fail "The package mirror $host cannot be reached: no network." \
            "Connect once so that the environment can be installed, or set PANOVEER_MIRROR to a mirror you can reach."
}

logged() { # LOG WHAT COMMAND…
    local log=$1 what=$2
    shift 2
    "$@" > "$log" 2>&1 || {
        tail -n 15 "$log" >&2
        fail "$what failed." "The whole log is $log. With no network, connect and run the same command again: it goes on where it stopped."
    }
}

prepare_native() {
    local missing
    missing=$(for package in $(packages); do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed || echo "$package"
    done)
    [ -n "$missing" ] || return 0
    require_root "Installing the packages $(echo $missing)"
    require_disk_space "$environment_directory"
    require_network
    say "installing packages: $(echo $missing)"
    logged "$environment_directory/apt.log" "apt-get update" apt-get update
    logged "$environment_directory/apt.log" "apt-get install" \
        env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $missing
}

prepare_contained() {
    local id
    id=$(. "$os_release" 2>/dev/null && echo "${ID:-} ${ID_LIKE:-}")
    case "$id" in
        *debian* | *ubuntu*) ;;
        *) fail "This distribution (${id% }) is not known to ./dev." "Use a container: podman build -f Containerfile ." ;;
    esac
    require_root "Setting up the contained root"
    if ! unshare --mount true 2>/dev/null; then
        fail "This machine does not allow private mounts (unshare)." "Use a container: podman build -f Containerfile ."
    fi
    mkdir -p "$environment_directory"
    if [ ! -e "$environment_root/.complete" ]; then
        require_disk_space "$environment_directory"
        require_network
        if ! command -v debootstrap > /dev/null; then
            fetch_debootstrap
        fi
        say "making a Debian $suite root in $environment_root"
        rm -rf "$environment_root"
        logged "$environment_directory/debootstrap.log" "debootstrap" \
            "${debootstrap[@]}" --variant=minbase "$suite" "$environment_root" "$mirror"
        touch "$environment_root/.complete"
    fi
    cp -L /etc/resolv.conf "$environment_root/etc/resolv.conf" 2>/dev/null || true
    for configuration in /etc/apt/apt.conf.d/*proxy*; do
        [ ! -f "$configuration" ] || cp "$configuration" "$environment_root/etc/apt/apt.conf.d/"
    done
    require_network
    say "installing the packages of Environment/packages.txt"
    logged "$environment_directory/apt.log" "apt-get update" chroot "$environment_root" apt-get update
    logged "$environment_directory/apt.log" "apt-get install" \
        chroot "$environment_root" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends $(packages)
    chroot "$environment_root" apt-get clean
}

# debootstrap is a shell script: it is unpacked beside the root, so that the host stays as it is.
debootstrap=(debootstrap)
fetch_debootstrap() {
    local folder=$environment_directory/debootstrap
    if [ ! -x "$folder/usr/sbin/debootstrap" ]; then
        mkdir -p "$folder"
        say "fetching debootstrap"
        logged "$environment_directory/apt.log" "apt-get update" apt-get update
        (cd "$folder" && logged "$environment_directory/apt.log" "fetching debootstrap" apt-get download debootstrap)
        dpkg-deb -x "$folder"/debootstrap_*.deb "$folder"
    fi
    debootstrap=(env "DEBOOTSTRAP_DIR=$folder/usr/share/debootstrap" "$folder/usr/sbin/debootstrap")
    if [ ! -e /usr/share/keyrings/debian-archive-keyring.gpg ]; then
        fail "The Debian archive keys are not on this machine." "Install them once: apt-get install debian-archive-keyring."
    fi
}

prepare_environment() {
    local stamp
    stamp=$(environment_stamp)
    [ "$(cat "$environment_directory/stamp" 2>/dev/null)" != "$stamp" ] || return 0
    mkdir -p "$environment_directory" 2>/dev/null ||
        fail "Cannot create $environment_directory." "Set PANOVEER_CACHE to a folder that you may write to."
    { exec 9> "$environment_directory/lock"; } 2>/dev/null ||
        fail "Cannot write to $environment_directory." "Set PANOVEER_CACHE to a folder that you may write to."
    flock 9
    if [ "$(cat "$environment_directory/stamp" 2>/dev/null)" != "$stamp" ]; then
        if host_is_new_enough; then prepare_native; else prepare_contained; fi
        # Multiview encoding is an extra: without it everything else works, and `panoveer doctor` says so.
        enter_environment "$checkout/Environment/build-x265.sh" "$panoveer_cache/x265" 2> "$environment_directory/x265.log" ||
            say "the multiview x265 could not be built ($environment_directory/x265.log); multiview export will be unavailable."
        echo "$stamp" > "$environment_directory/stamp"
    fi
    exec 9>&-
}

# Runs a command inside, in a child process: natively, or in the root with the host's devices, home,
# temporary folder and checkout at their own paths.
enter_environment() {
    local corpus
    corpus=$(cd "$checkout/../shared/media" 2>/dev/null && pwd -P || true)
    local settings=(
        "PANOVEER_CORPUS=${PANOVEER_CORPUS:-$corpus}"
        "PANOVEER_INSIDE=1" "PANOVEER_CALLER_DIRECTORY=$PWD" "PANOVEER_CACHE=$panoveer_cache"
        "CCACHE_DIR=${CCACHE_DIR:-$panoveer_cache/ccache}" "CCACHE_BASEDIR=$checkout" "CCACHE_NOHASHDIR=1"
        "CCACHE_SLOPPINESS=pch_defines,time_macros"
        "PANOVEER_X265_LIBRARY=${PANOVEER_X265_LIBRARY:-$panoveer_cache/x265/libpanoveer-x265.so}"
    )
    if host_is_new_enough; then
        env "${settings[@]}" "$@"
        return
    fi
    require_root "Entering the contained root"
    local mounts=(/proc /sys /dev /tmp "${HOME:-/root}" "$checkout" "$panoveer_cache" "$PWD")
    [ ! -d "$checkout/../shared" ] || mounts+=("$(cd "$checkout/../shared" && pwd -P)")
    env "${settings[@]}" "PATH=/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin" LANG=C.UTF-8 \
        unshare --mount --propagation private \
        bash "$checkout/Environment/enter-root.sh" "$environment_root" "${mounts[@]}" -- "$@"
}
