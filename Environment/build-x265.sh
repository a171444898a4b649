#!/usr/bin/env bash
# Builds x265 with multiview and alpha, which the distribution's build leaves out, from the
# distribution's own source package, patched so that it takes ten bits for two views as well: an
# 8-bit shared library with the 10-bit one linked into it.
# It gets a file name and soname of its own and binds its symbols within itself, so that it and the
# libx265 that libavcodec uses cannot shadow each other. It is opened at run time and never linked.
#   build-x265.sh FOLDER      leaves FOLDER/libpanoveer-x265.so
set -euo pipefail
destination=$1
library=$destination/libpanoveer-x265.so
recipe=$(realpath "${BASH_SOURCE[0]}")
patch=$(dirname "$recipe")/x265-ten-bit-views.patch
stamp=$(cat "$recipe" "$patch" | sha256sum | cut -d' ' -f1)
[ ! -s "$library" ] || [ "$(cat "$library.stamp" 2>/dev/null)" != "$stamp" ] || exit 0
mkdir -p "$destination"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

. /etc/os-release
case "$ID" in
    ubuntu) source_line="deb-src http://archive.ubuntu.com/ubuntu $VERSION_CODENAME universe" ;;
    *) source_line="deb-src ${PANOVEER_MIRROR:-http://deb.debian.org/debian} $VERSION_CODENAME main" ;;
esac
echo "$source_line" > sources.list
mkdir -p lists/partial
apt_options=(-o "Dir::Etc::sourcelist=$work/sources.list" -o Dir::Etc::sourceparts=- -o "Dir::State::lists=$work/lists" -o APT::Sandbox::User=root)
apt-get "${apt_options[@]}" update >&2
apt-get "${apt_options[@]}" source --tar-only x265 >&2
mkdir source
tar -xf x265_*.orig.tar.* -C source --strip-components=1
patch -d source -p1 < "$patch" >&2

common=(-G Ninja -DCMAKE_BUILD_TYPE=Release -DENABLE_CLI=OFF -DENABLE_MULTIVIEW=ON -DENABLE_ALPHA=ON
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON -DCMAKE_POLICY_VERSION_MINIMUM=3.5)
cmake -S source/source -B ten "${common[@]}" -DHIGH_BIT_DEPTH=ON -DEXPORT_C_API=OFF -DENABLE_SHARED=OFF >&2
cmake --build ten >&2
mkdir eight
cp ten/libx265.a eight/libx265_main10.a
cmake -S source/source -B eight "${common[@]}" -DENABLE_SHARED=ON -DLINKED_10BIT=ON \
    -DEXTRA_LIB=x265_main10.a "-DEXTRA_LINK_FLAGS=-L. -Wl,-Bsymbolic -Wl,-soname,libpanoveer-x265.so" >&2
cmake --build eight >&2
cp -L eight/libx265.so "$library.new"
mv "$library.new" "$library"
echo "$stamp" > "$library.stamp"
