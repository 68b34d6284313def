#!/usr/bin/env bash
# DEPENDENCIES names what ./dev installs, what CMake looks for and what the sources include, and nothing else.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
faults=0
fault() {
  echo "$1" >&2
  faults=$((faults + 1))
}
fields() { grep -v '^#' DEPENDENCIES | grep -v '^$' | sed 's/  \+/\t/g' | cut -f "$1"; }

while IFS=$'\t' read -r name version licence use sources what rest; do
  [[ -n $what && -z $rest ]] || fault "DEPENDENCIES: $name has not six fields"
  [[ $version =~ ^[0-9][0-9.]*$ ]] || fault "DEPENDENCIES: $name: what version is '$version'?"
  [[ $use =~ ^(run|build|test|dev|doc)$ ]] || fault "DEPENDENCIES: $name: what use is '$use'?"
  [[ -n $licence && -n $sources ]] || fault "DEPENDENCIES: $name: a field is empty"
done < <(grep -v '^#' DEPENDENCIES | grep -v '^$' | sed 's/  \+/\t/g')
[[ -z $(fields 1 | sort | uniq -d) ]] || fault "DEPENDENCIES names twice: $(fields 1 | sort | uniq -d)"

# ./dev installs everything but what only runs, which comes with what is built.
named=$(mktemp)
trap 'rm -f "$named"' EXIT
awk '/^[a-z]*Packages=\(/ {on = 1} on || sub(/^ *need /, "") {print} /\)/ {on = 0}' dev | sed 's/^[a-z]*Packages=//; s/"[^"]*"//g; s/[()]/ /g' |
  tr -s ' ' '\n' | grep . | sort -u >"$named"
while read -r name; do
  fields 1 | grep -qxF "$name" || fault "./dev installs $name, which DEPENDENCIES does not name"
done <"$named"
while IFS=$'\t' read -r name use; do
  [[ $use == run ]] || grep -qxF "$name" "$named" ||
    fault "DEPENDENCIES: ./dev does not install $name"
done < <(paste <(fields 1) <(fields 4))

# Folders of headers that are neither ours nor the system's.
while read -r folder; do
  fields 5 | grep -qxF "$folder" || fault "the sources include <$folder/...>, which DEPENDENCIES does not know"
done < <(grep -rhoE '^#include <[A-Za-z0-9_]+/' platform XpAclTcam sim packet agent verify tool test bench fuzz |
  sed 's/.*<//; s/\/$//' | sort -u | grep -vxE 'sys|arpa|Vane')
while read -r folder; do
  grep -rqE "^#include <${folder}[/.]" platform XpAclTcam sim packet agent verify tool test bench fuzz ||
    fault "DEPENDENCIES: no source includes <$folder/...>"
done < <(fields 5 | grep -vxF -e -)

# What CMake looks for, by the package that has it.
while read -r package; do
  case $package in
  GTest) name=libgtest-dev ;;
  Python3) name=python3 ;;
  benchmark) name=libbenchmark-dev ;;
  XpAclTcam) continue ;;
  *) name=$package ;;
  esac
  fields 1 | grep -qxF "$name" || fault "CMake looks for $package, which DEPENDENCIES does not name"
done < <(grep -rhoE 'find_package\([A-Za-z0-9]+' CMakeLists.txt cmake/*.cmake ./*/CMakeLists.txt test/*.cmake |
  sed 's/.*(//' | sort -u)
[[ $faults -eq 0 ]] && echo "$(fields 1 | wc -l) dependencies, all of them named where they are used."
