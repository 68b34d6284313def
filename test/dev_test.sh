#!/usr/bin/env bash
# Drives ./dev with stand-ins for the package manager, cmake and ctest, and compares what it says and calls.
# The bodies of stand-ins are expanded when they run, hence the single quotes.
# shellcheck disable=SC2016
set -euo pipefail
root=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
mkdir bin cmake platform XpAclTcam sim packet agent verify tool test fuzz bench examples
cp "$root/dev" dev
export PATH="$dir/bin:$PATH" CALLS="$dir/calls"

# fake NAME BODY: a stand-in that notes its call and then does what BODY says.
fake() {
  printf '#!/bin/bash\necho "%s $*" >>"$CALLS"\n%s\n' "$1" "$2" >"bin/$1"
  chmod +x "bin/$1"
}

# expect TITLE WANTED GOT
expect() {
  [[ $2 == "$3" ]] || {
    printf '%s\nexpected:\n%s\ngot:\n%s\n' "$1" "$2" "$3" >&2
    exit 1
  }
}

# dev ARG...: runs it and leaves what it said in said, its status in status, the noted calls in calls.
dev() {
  : >"$CALLS"
  status=0
  said=$(./dev "$@" 2>&1) || status=$?
  calls=$(grep -v '^dpkg-query' "$CALLS" || true)
}

# dpkg-query answers from a file of installed packages.
fake dpkg-query 'grep -qx "${!#}" installed || exit 1; echo -n "install ok installed"'
fake cmake ''
fake apt-get ''
fake sudo '"$@"'
fake id 'echo 1000'
fake clang-format ''
fake ctest 'cat ctestSays; exit "$(cat ctestStatus)"'
printf '%s\n' g++ binutils cmake ninja-build ccache libgtest-dev libbenchmark-dev libcli11-dev \
  nlohmann-json3-dev libpcap-dev nettle-dev python3 clang-format mold pkg-config dpkg-dev jq doxygen \
  chromium-headless-shell >installed

# All is there: nothing is installed, the summary counts the tests and the format check.
echo '100% tests passed, 0 tests failed out of 7' >ctestSays
echo 0 >ctestStatus
touch sim/a.cpp
dev test
expect "test passes" "Building (release)
Testing (release)
Checking the format
8 passed, 0 failed" "$said"
expect "status of passing tests" 0 "$status"
calledForTests=$calls

# What only makes more tests possible may be missing.
grep -v doxygen installed >fewer
mv installed all
mv fewer installed
fake apt-get 'exit 100'
dev test
expect "a package cannot be had" "Installing doxygen
FAILED (status 100): sudo apt-get update; the whole output is in build/log/apt-update.txt
FAILED (status 100): sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends doxygen; the whole output is in build/log/apt-install.txt
Going on without doxygen; the tests that need it are skipped
Building (release)
Testing (release)
Checking the format
8 passed, 0 failed" "$said"
expect "status without a package" 0 "$status"
mv all installed
fake apt-get ''
calls=$calledForTests

expect "calls of passing tests" "cmake --preset release
cmake --build --preset release
ctest --preset release
clang-format --dry-run -Werror sim/a.cpp" "$calls"

# Two packages are missing and this is not root.
grep -vxE 'ccache|libpcap-dev' installed >less && mv less installed
dev bench
expect "calls of an installation" "id -u
sudo apt-get update
apt-get update
sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends ccache libpcap-dev
apt-get install -y --no-install-recommends ccache libpcap-dev" "$(head -n 5 <<<"$calls")"
expect "first line of an installation" "Installing ccache libpcap-dev" "$(head -n 1 <<<"$said")"
printf '%s\n' ccache libpcap-dev >>installed

# Failing tests: their output is shown, skipped ones are counted apart, the status says no.
printf '%s\n' ' 3/9 Test #3: a ...***Skipped 0.1 sec' '78% tests passed, 2 tests failed out of 9' >ctestSays
echo 8 >ctestStatus
dev asan
expect "summary of failing tests" "6 passed, 2 failed, 1 skipped" "$(tail -n 1 <<<"$said")"
expect "status of failing tests" 1 "$status"
grep -q '78% tests passed' <<<"$said" || expect "output of failing tests" shown "$said"

# A test run that says nothing is a failure, not a success with no tests.
: >ctestSays
dev asan
expect "summary of a broken test run" "0 passed, 1 failed" "$(tail -n 1 <<<"$said")"
expect "status of a broken test run" 1 "$status"

# A badly formatted file fails the whole.
echo '100% tests passed, 0 tests failed out of 7' >ctestSays
echo 0 >ctestStatus
fake clang-format 'echo "sim/a.cpp: not formatted"; exit 1'
dev test
expect "summary of a bad format" "7 passed, 1 failed" "$(tail -n 1 <<<"$said")"
expect "status of a bad format" 1 "$status"
grep -q 'sim/a.cpp: not formatted' <<<"$said" || expect "output of a bad format" shown "$said"

# A build that fails ends it: no tests run.
fake cmake 'case $1 in --build) echo "a.cpp:1: broken"; exit 1 ;; esac'
dev test
expect "status of a broken build" 1 "$status"
expect "calls of a broken build" "cmake --preset release
cmake --build --preset release" "$calls"
grep -q 'a.cpp:1: broken' <<<"$said" || expect "output of a broken build" shown "$said"

# The package that was made is named; documentation that fails says why.
fake cmake ''
fake cpack 'mkdir -p build/package && touch build/package/xpacltcam_1_amd64.deb'
dev package
expect "package" "Building (release)
build/package/xpacltcam_1_amd64.deb: install it with apt install ./build/package/xpacltcam_1_amd64.deb" "$said"
expect "calls of package" "cmake --preset release
cmake --build --preset release
cpack --config build/release/CPackConfig.cmake -G DEB -B build/package" "$calls"
fake doxygen 'echo "a.h:1: not documented"; exit 1'
dev docs
expect "status of wrong documentation" 1 "$status"
grep -q 'a.h:1: not documented' <<<"$said" || expect "output of wrong documentation" shown "$said"

dev nonsense
expect "status of an unknown command" 2 "$status"
dev help
expect "status of help" 0 "$status"
echo "./dev installs, builds, counts and fails as it should."
