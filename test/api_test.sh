#!/usr/bin/env bash
# api_test.sh SOURCE: makes the reference of the libraries, without warnings that count, and looks for what has to be
# in it. Ends with 77 where there is no doxygen.
set -euo pipefail
cd "$1"
command -v doxygen >/dev/null || { echo "no doxygen here"; exit 77; }
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

{
  cat Doxyfile
  echo "OUTPUT_DIRECTORY = $dir"
  echo "WARN_LOGFILE = $dir/warnings.txt"
} | doxygen - >"$dir/log" 2>&1 || { cat "$dir/log" >&2; exit 1; }
packaging/doxygen_check.py "$dir/warnings.txt"

# page CLASS TEXT: the page of a class says so.
page() {
  local file
  file=$dir/html/class$(sed "s/_/__/g; s/::/_1_1/g" <<<"$1").html
  [[ $(sed 's/<[^>]*>//g; s/&#160;/ /g' "$file") == *"$2"* ]] || { echo "the page of $1 lacks: $2" >&2; exit 1; }
}
# A comment of a class, one behind a declaration, and members that only macros declare.
page XpXdk::xpIaclMgr "Manager of the five ACL TCAM tables"
page agent::Agent "null for others"
page XpAcl::BlockedIntfColl "Writes a member; tells the watchers when that changes it"
page XpAcl::XpAclPlexAggregatorHelper "Set by the owner before hwInit"

# What is not documented is found.
cp -r platform packaging docs Doxyfile "$dir/"
sed -i 's|^// Manager of the five ACL TCAM tables.*||' "$dir/platform/XpXdk/Managers.h"
cd "$dir"
sed -i "s|^INPUT  *=.*|INPUT = platform|; s|^WARN_LOGFILE.*|WARN_LOGFILE = less.txt|; s|^OUTPUT_DIR.*|OUTPUT_DIRECTORY = less|" Doxyfile
doxygen Doxyfile >/dev/null 2>&1
found=$(packaging/doxygen_check.py less.txt --strict || true)
grep -q 'xpIaclMgr is not documented' <<<"$found" || { echo "a missing comment was not found: $found" >&2; exit 1; }
echo "$(find html -name 'class*.html' ! -name '*-members.html' | wc -l) classes documented"
