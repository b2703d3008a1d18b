#!/usr/bin/env bash
# Builds orvin-auth and runs every test: unit and system tests with the production build and under
# AddressSanitizer and UBSan, the unit tests of g++ and clang Release builds, the manual page, a
# reproducibility check, the Debian package, the workstation terminal, the armhf cross build with
# its unit tests and the whole system test suite run against it under qemu, clang-tidy and a quick
# run of the benchmark.
# Every build treats warnings as errors. Run as root.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/deps.sh

jobs=$(nproc)
# Nothing in the binaries carries a date; should a tool want one, it takes the commit's.
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct 2>/dev/null || echo 0)
export SOURCE_DATE_EPOCH
step() { echo; echo "== $*"; }

# build <dir> <build type> [cmake options...]: configures with warnings as errors and builds.
build() {
    local dir=$1 type=$2
    shift 2
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE="$type" -DORVIN_WERROR=ON -DORVIN_TESTS=ON "$@" \
        >/dev/null
    cmake --build "$dir" -j"$jobs"
}

unit_tests() {
    step "unit tests ($1)"
    "$1/orvin-unit-tests" --gtest_brief=1
}

system_tests() {
    step "system tests ($1)"
    ORVIN_BUILD_DIR="$PWD/$1" /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/system
}

# The terminal's own architecture: the simulated terminal runs the armhf program (set-user-ID root,
# under qemu-arm-static); its helpers stay the native ones of build/. Skips name their reasons.
armhf_system_tests() {
    step "system tests (build-armhf under qemu-arm-static)"
    ORVIN_BUILD_DIR="$PWD/build" ORVIN_PROGRAM="$PWD/build-armhf/orvin-auth" ORVIN_EMULATED=armhf \
        /usr/bin/python3 -m pytest -q -p no:cacheprovider -rs tests/system
}

# The extra build type and compiler: the program and the unit tests only.
release_builds() {
    step "g++ Release build"
    cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DORVIN_WERROR=ON >/dev/null
    cmake --build build-release -j"$jobs" --target orvin-auth orvin-unit-tests
    unit_tests build-release
    step "clang Release build"
    CC=clang CXX=clang++ cmake -S . -B build-clang -DCMAKE_BUILD_TYPE=Release -DORVIN_WERROR=ON \
        >/dev/null
    cmake --build build-clang -j"$jobs" --target orvin-auth orvin-unit-tests
    unit_tests build-clang
}

manual_page() {
    step "manual page"
    mandoc -T lint doc/orvin-auth.8
    man -l doc/orvin-auth.8 >/dev/null
}

# A second Release build from a copy of the tree in another directory must give the same bytes.
reproducible() {
    step "reproducible build"
    local copy
    copy=$(mktemp -d /tmp/orvin-repro.XXXXXX)
    git ls-files -z --cached --others --exclude-standard | tar --null -T - -cf - | tar -C "$copy" -xf -
    cmake -S "$copy" -B "$copy/out" -DCMAKE_BUILD_TYPE=Release -DORVIN_WERROR=ON >/dev/null
    cmake --build "$copy/out" -j"$jobs" --target orvin-auth >/dev/null
    cmp build-release/orvin-auth "$copy/out/orvin-auth"
    rm -rf "$copy"
    echo "build-release/orvin-auth is reproduced byte for byte"
}

# The README's recipe on a host with only a C++ compiler, CMake and libssl-dev: with the C
# compiler, the simulator's packages and GoogleTest hidden, the program alone is built, and
# installed set-user-ID root with its manual page.
program_only_build() {
    step "program-only build"
    local copy built installed
    copy=$(mktemp -d /tmp/orvin-program-only.XXXXXX)
    git ls-files -z --cached --others --exclude-standard |
        tar --null -T - -cf - | tar -C "$copy" -xf -
    PKG_CONFIG_LIBDIR= PKG_CONFIG_PATH= CC=/nonexistent/cc cmake -S "$copy" -B "$copy/build" \
        -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DORVIN_WERROR=ON >/dev/null
    cmake --build "$copy/build" -j"$jobs" >/dev/null
    DESTDIR="$copy/root" cmake --install "$copy/build" >/dev/null
    built=$(cd "$copy/build" && find . -name CMakeFiles -prune -o -type f -perm -u+x -print)
    installed=$(cd "$copy/root" && find . -type f -printf '%m %u %p\n' | sort)
    rm -rf "$copy"
    [[ $built == ./orvin-auth ]] || { echo "program-only build made: $built" >&2; return 1; }
    local expected=$'4755 root ./usr/sbin/orvin-auth\n644 root ./usr/share/man/man8/orvin-auth.8'
    [[ $installed == "$expected" ]] || { echo "program-only install made: $installed" >&2; return 1; }
    echo "only orvin-auth was built; installed set-user-ID root with orvin-auth(8)"
}

debian_package() {
    step "Debian package"
    ORVIN_TEST_PACKAGE=1 ORVIN_BUILD_DIR="$PWD/build" /usr/bin/python3 -m pytest -q \
        -p no:cacheprovider tests/system/test_package.py
}

# The terminal's package, cross-built from the sysroot that tools/cross-test.sh armhf made.
armhf_package() {
    step "Debian package (armhf)"
    ORVIN_TEST_PACKAGE=armhf ORVIN_BUILD_DIR="$PWD/build" /usr/bin/python3 -m pytest -q \
        -p no:cacheprovider tests/system/test_package.py
}

sim_shell() {
    step "tools/sim-shell"
    tools/sim-shell --build build -c 'printf "hello\n" > hello && sign-file main-user hello &&
        orvin-auth --install hello /usr/local/main-user/ && test -x /usr/local/main-user/hello'
}

# Keeps the benchmark working; it reports times and never fails on one.
benchmark() {
    step "benchmark (--quick)"
    /usr/bin/python3 bench/bench.py --quick --build build
}

static_analysis() {
    step "clang-tidy"
    tools/tidy.sh
}

step "RelWithDebInfo build"
build build RelWithDebInfo
unit_tests build
system_tests build

static_analysis
release_builds
reproducible
program_only_build
manual_page
sim_shell
debian_package
step "armhf cross build"
tools/cross-test.sh armhf
armhf_package
armhf_system_tests
benchmark

step "AddressSanitizer and UBSan build"
build build-asan Debug -DORVIN_SANITIZE=ON
export ASAN_OPTIONS=abort_on_error=0:detect_leaks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
unit_tests build-asan
system_tests build-asan

step "fuzz corpora replayed under AddressSanitizer and UBSan"
tools/fuzz-replay.sh
