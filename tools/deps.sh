#!/usr/bin/env bash
# Installs the Debian packages the build, the simulated terminal and the tests need, when missing.
set -euo pipefail
packages=(g++ make cmake pkg-config libssl-dev openssl libgtest-dev python3 python3-pytest
          gcc libfuse3-dev fuse3 util-linux
          gnutls-bin python3-cryptography                       # interoperability tests
          clang libclang-rt-14-dev clang-tidy mandoc man-db      # second compiler, fuzzing, checks
          debhelper dpkg-dev fakeroot lintian file              # the Debian package
          g++-arm-linux-gnueabihf qemu-user-static)             # the armhf cross build
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
    echo "Installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq "${missing[@]}" >/dev/null
fi
