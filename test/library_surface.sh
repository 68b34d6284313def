#!/usr/bin/env bash
# library_surface.sh LIBRARY PLATFORM: the library can be loaded into any agent.
# - It needs the platform library and the C/C++ runtime, and the platform library the runtime alone.
# - It asks its loader for nothing of the simulation, the reference agent or the tool.
# - It exports its own classes and nothing else.
set -euo pipefail
library=$1
platform=$2
runtime='libstdc\+\+\.so\.6|libgcc_s\.so\.1|libm\.so\.6|libc\.so\.6|ld-linux[-a-z0-9]*\.so\.[0-9]'
faults=0

fault() {
  echo "$1" >&2
  faults=$((faults + 1))
}

soname() { readelf -d "$1" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p'; }
needed() { readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; }

for name in $(needed "$library" | grep -vxE "$runtime" || true); do
  [[ $name == "$(soname "$platform")" ]] || fault "$(basename "$library") needs $name"
done
for name in $(needed "$platform" | grep -vxE "$runtime" || true); do
  fault "$(basename "$platform") needs $name"
done

# Names of our rooms as they stand in mangled symbols: a length before each part of the name.
others='3sim|6packet|5agent|6verify|4tool'
while read -r symbol; do
  fault "$(basename "$library") asks its loader for $(c++filt "$symbol")"
done < <(nm -D --undefined-only "$library" | awk '{print $2}' | grep -E "^_Z[A-Z]*($others)" || true)

# _ZN5XpAcl... and _ZNK5XpAcl... are members, _ZTVN5XpAcl... and the like tables of classes, _ZTh... thunks
# of virtual functions, _ZGV... guards of statics, _ZZ... statics of functions.
surface='^_Z(T[VTISC]|GV|GR|Z)*(T[hv]n?[0-9_n]*)?N?[KVRO]*5XpAcl'
own=0
while read -r symbol; do
  if [[ $symbol =~ $surface ]]; then
    own=$((own + 1))
  else
    fault "$(basename "$library") exports $(c++filt "$symbol")"
  fi
done < <(nm -D --defined-only "$library" | awk '{print $3}')
[[ $own -gt 0 ]] || fault "$(basename "$library") exports nothing of XpAcl"

[[ $faults -eq 0 ]] && echo "$(basename "$library"): $own symbols of XpAcl exported, nothing foreign needed or exported"
