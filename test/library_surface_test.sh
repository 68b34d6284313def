#!/usr/bin/env bash
# Shows that library_surface.sh refuses: small libraries, each wrong in one way.
set -euo pipefail
check=$(realpath "$(dirname "${BASH_SOURCE[0]}")/library_surface.sh")
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
cd "$dir"
compiler=${1:-g++}

# make NAME TEXT [FLAG...]: a shared library of that C++ text.
make() {
  local name=$1
  echo "$2" >"$name.cpp"
  shift 2
  "$compiler" -shared -fPIC -o "lib$name.so" -Wl,-soname,"lib$name.so" "$name.cpp" "$@"
}

# expect TEXT LIBRARY PLATFORM: what the check says of them.
expect() {
  local said
  said=$("$check" "lib$2.so" "lib$3.so" 2>&1) && said+=" (accepted)" || said+=" (refused)"
  [[ $said == "$1" ]] || {
    printf 'expected: %s\n     got: %s\n' "$1" "$said" >&2
    exit 1
  }
}

link=("-Wl,--no-as-needed" "-L." "-Wl,-rpath,.")
make platform 'namespace Vane { int count() { return 1; } }'
make other 'namespace other { int count() { return 1; } }'
make leaning 'namespace Vane { int count() { return 1; } }' "${link[@]}" -lother
make good 'namespace XpAcl { int rows() { return 1; } }' "${link[@]}" -lplatform
make foreign 'namespace XpAcl { int rows() { return 1; } }' "${link[@]}" -lplatform -lother
make loud 'namespace XpAcl { int rows() { return 1; } } namespace detail { int helper() { return 1; } } int bare() { return 1; }' \
  "${link[@]}" -lplatform
make asking 'namespace sim { int chip(); } namespace XpAcl { int rows() { return sim::chip(); } }' "${link[@]}" -lplatform
make empty 'namespace { int unused = 1; }' -w

expect 'libgood.so: 1 symbols of XpAcl exported, nothing foreign needed or exported (accepted)' good platform
expect 'libforeign.so needs libother.so (refused)' foreign platform
make onLeaning 'namespace XpAcl { int rows() { return 1; } }' "${link[@]}" -lleaning -Wl,-rpath-link,.
expect 'libleaning.so needs libother.so (refused)' onLeaning leaning
expect 'libloud.so exports bare()
libloud.so exports detail::helper() (refused)' loud platform
expect 'libasking.so asks its loader for sim::chip() (refused)' asking platform
expect 'libempty.so exports nothing of XpAcl (refused)' empty platform
echo "The check accepts a clean library and refuses five wrong ones."
