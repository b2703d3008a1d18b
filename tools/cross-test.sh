#!/usr/bin/env bash
# Builds orvin-auth and the unit tests for the terminal's architecture and runs the unit tests
# under qemu. Run as root: tools/cross-test.sh armhf
# The armhf OpenSSL and GoogleTest packages are downloaded once and unpacked into a private
# sysroot in the build directory; none of the host's packages change, and the host's list of
# foreign architectures is left as it was found.
# The program and the sysroot are also what the system tests run under qemu (tools/test.sh,
# sim/README.md).
set -euo pipefail
cd "$(dirname "$0")/.."
arch=${1:-}
if [[ $arch != armhf ]]; then
    echo "usage: $0 armhf" >&2
    exit 2
fi
tools/deps.sh

build=build-$arch
sysroot=$PWD/$build/sysroot
triplet=arm-linux-gnueabihf
packages=(libssl-dev:armhf libssl3:armhf libgtest-dev:armhf)
apt_opts=(-qq -o DPkg::Lock::Timeout=600)

restore_architectures() {
    if [[ -n ${added_arch:-} ]]; then
        dpkg --remove-architecture "$arch"
        apt-get "${apt_opts[@]}" update || true
        added_arch=
    fi
}

fetch_sysroot() {
    [[ -e $sysroot/.complete ]] && return
    local download
    download=$(mktemp -d)
    chmod 755 "$download"   # apt fetches as its own user
    if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
        added_arch=1
        trap restore_architectures EXIT
        dpkg --add-architecture "$arch"
    fi
    # The armhf security index may fail to download; the packages themselves still come.
    apt-get "${apt_opts[@]}" update || true
    (cd "$download" && apt-get "${apt_opts[@]}" download "${packages[@]}")
    restore_architectures
    rm -rf "$sysroot"
    mkdir -p "$sysroot"
    for deb in "$download"/*.deb; do
        dpkg -x "$deb" "$sysroot"
    done
    rm -rf "$download"
    touch "$sysroot/.complete"
}

fetch_sysroot
cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE=cmake/armhf.cmake -DORVIN_ARMHF_SYSROOT="$sysroot" \
      -DCMAKE_BUILD_TYPE=Release -DORVIN_WERROR=ON >/dev/null
cmake --build "$build" -j"$(nproc)" --target orvin-auth orvin-unit-tests
file "$build/orvin-auth" | grep -q 'ARM, EABI5' || { echo "$build/orvin-auth is not an armhf binary" >&2; exit 1; }
echo "== unit tests ($build, qemu-arm-static)"
QEMU_LD_PREFIX=/usr/$triplet LD_LIBRARY_PATH=$sysroot/usr/lib/$triplet \
    qemu-arm-static "$build/orvin-unit-tests" --gtest_brief=1
