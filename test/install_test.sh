#!/usr/bin/env bash
# install_test.sh BUILD SOURCE [CXXFLAGS]: installs BUILD under a new prefix, moves that elsewhere, and builds and runs
# there what a user would: test/consumer with find_package and with pkg-config, examples/embedding, xpacl.
set -euo pipefail
build=$1 source=$2 flags=${3:-}
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# quietly COMMAND...: shows its output only when it fails.
quietly() { "$@" >"$dir/log" 2>&1 || { cat "$dir/log" >&2; echo "FAILED: $*" >&2; exit 1; }; }

# expect TITLE WANTED GOT
expect() {
  [[ $2 == "$3" ]] || { printf '%s\nexpected:\n%s\ngot:\n%s\n' "$1" "$2" "$3" >&2; exit 1; }
}

quietly cmake --install "$build" --prefix "$dir/first"
mv "$dir/first" "$dir/prefix"
prefix=$dir/prefix
wanted='platform: Vlan10
XpAclTcam: 1, table egressV6
sim: permit
agent: 1 list, readable 1'

# The tool finds its libraries beside itself, and everything that belongs to it is there.
version=$(sed -n 's/^project(XpAclTcam VERSION \([0-9.]*\).*/\1/p' "$source/CMakeLists.txt")
expect "xpacl --version" "xpacl $version" "$("$prefix/bin/xpacl" --version)"
for file in share/man/man1/xpacl.1.gz share/man/man1/xpacl-plan.1.gz share/zsh/vendor-completions/_xpacl \
  share/bash-completion/completions/xpacl share/doc/xpacltcam/DEPENDENCIES share/doc/xpacltcam/docs/architecture.md; do
  [[ -s $prefix/$file ]] || { echo "$file is not installed" >&2; exit 1; }
done
[[ -z $(find "$prefix/include" -type f ! -name '*.h') ]] || { echo "more than headers in include" >&2; exit 1; }

# find_package
quietly cmake -S "$source/test/consumer" -B "$dir/consumer" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags"
quietly cmake --build "$dir/consumer"
said=$(for program in platform XpAclTcam sim agent; do "$dir/consumer/with_$program"; done)
expect "programs with find_package" "$wanted" "$said"

# pkg-config, without CMake
export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name xpacltcam.pc)")
said=
for pair in platform:xpaclplatform sim:xpaclsim agent:xpaclagent; do
  read -ra words <<<"$flags $(pkg-config --cflags --libs "${pair#*:}")"
  define=WITH_$(tr '[:lower:]' '[:upper:]' <<<"${pair%:*}")
  quietly "${CXX:-g++}" -std=c++20 "-D$define" "$source/test/consumer/consumer.cpp" -o "$dir/program" "${words[@]}"
  said+=${said:+$'\n'}$(LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH") "$dir/program")
done
expect "programs with pkg-config" "$(grep -v '^XpAclTcam' <<<"$wanted")" "$said"

# An example, copied away from the repository; the main build has made them all
cp -r "$source/examples/embedding" "$dir/embedding"
quietly cmake -S "$dir/embedding" -B "$dir/examples" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags"
quietly cmake --build "$dir/examples" --target minimal_agent
quietly ctest --test-dir "$dir/examples" -R embedding_minimal_agent --no-tests=error --output-on-failure

# Who asks for the simulated chip without libpcap is told; the system's folders are hidden from CMake for that.
said=$(cmake -G Ninja -S "$source/test/consumer" -B "$dir/none" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_MAKE_PROGRAM="$(command -v ninja)" -DCMAKE_CXX_COMPILER="$(command -v "${CXX:-g++}")" \
  -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF -DCMAKE_FIND_USE_SYSTEM_ENVIRONMENT_PATH=OFF 2>&1 || true)
grep -q 'XpAclTcam::sim needs libpcap' <<<"$said" || expect "without libpcap" "XpAclTcam::sim needs libpcap" "$said"
echo "Installed, moved, found by CMake and pkg-config, built, run."
