# Sourced by ./dev, inside the environment: a folder that runs on any Linux of this architecture, and the proof of it.
#
#   make_bundle BUILD X265 FOLDER     the command line, the benchmarks and the GPU tests with all they need
#   check_bundle FOLDER               runs them in an empty root that has nothing but a Vulkan driver

bundle_programs=(panoveer panoveer-bench PanoveerGPUParityTests PlatformGPUTests VRMetalProjectionRendererTests)

libraries_of() { # FILE…: all libraries that the loader would map, the loader itself included
    ldd "$@" 2>/dev/null | awk '$2 == "=>" && $3 ~ /^\// { print $3 } $1 ~ /^\// && NF == 2 { print $1 }' | sort -u
}

make_bundle() {
    local build=$1 x265=$2 folder=$3 name
    rm -rf "$folder"
    mkdir -p "$folder"/{bin,lib,libexec,share/panoveer}
    for name in "${bundle_programs[@]}"; do
        strip -o "$folder/libexec/$name" "$build/bin/$name"
        cp "$build/bin/bundle-launcher" "$folder/bin/$name"
    done
    local opened=() # at run time
    [ ! -f "$x265" ] || opened=("$x265")
    { libraries_of "$folder"/libexec/* "${opened[@]}"; printf '%s\n' "${opened[@]}"; } | grep . | sort -u |
        xargs cp -L -t "$folder/lib"
    cp -R "$checkout/Sources/Panoveer/Resources" "$folder/share/panoveer/Resources"
    cp "$checkout/LICENSE" "$checkout/README.md" "$folder/"
}

check_bundle() (
    local folder=$1 root driver=/usr/lib/$(uname -m)-linux-gnu/libvulkan_lvp.so
    root=$(mktemp -d)
    trap 'umount "$root/proc" "$root/dev" 2>/dev/null; rm -rf "$root"' EXIT
    mkdir -p "$root"/{proc,dev,tmp,usr/share/vulkan/icd.d,"${driver%/*}"}
    cp -R "$folder" "$root/panoveer"
    # A driver as a distribution installs it: in its own place, with its own libraries.
    cp -L "$driver" $(libraries_of "$driver") "$root/${driver%/*}/"
    cp /usr/share/vulkan/icd.d/lvp_icd.json "$root/usr/share/vulkan/icd.d/"
    mount -t proc proc "$root/proc"
    mount -t tmpfs tmpfs "$root/dev"
    mknod -m 666 "$root/dev/null" c 1 3
    in_root() { env -i PANOVEER_GPU="${gpu:-}" "$(command -v chroot)" "$root" "$@"; }
    in_root /panoveer/bin/panoveer doctor
    in_root /panoveer/bin/panoveer sample -o /tmp/sample
    in_root /panoveer/bin/panoveer-bench picture --shrink 8 --engine cpu
    gpu=software
    # The validation layer belongs to developers.
    in_root /panoveer/bin/PlatformGPUTests --gtest_brief=1 --gtest_filter=-*Validation*
    in_root /panoveer/bin/PanoveerGPUParityTests --gtest_brief=1 --gtest_filter='*Equirectangular*'
    echo "The bundle $folder runs where nothing else is installed."
)
