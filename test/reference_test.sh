#!/usr/bin/env bash
# reference_test.sh XPACL SOURCE: docs/commands.md is what the tool says now, manual pages are clean, and the shells
# complete by what the tool has.
set -euo pipefail
xpacl=$1 source=$2
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

# expect TITLE WANTED GOT
expect() {
  [[ $2 == "$3" ]] || { printf '%s\nexpected:\n%s\ngot:\n%s\n' "$1" "$2" "$3" >&2; exit 1; }
}

"$xpacl" reference --format markdown >"$dir/commands.md"
diff -u "$source/docs/commands.md" "$dir/commands.md" ||
  expect "docs/commands.md" "what the tool says: xpacl reference --format markdown > docs/commands.md" "older"

# Every command and every option of its --help is in the reference.
while read -r command; do
  section=$(sed -n "/^## xpacl $command\$/,/^## /p" "$dir/commands.md")
  while read -r option; do
    grep -qF -e "$option" <<<"$section" || expect "the reference of $command" "$option" "$section"
  done < <("$xpacl" "$command" --help | grep -oE '^  (-[a-zA-Z],)?--[a-z-]+' | grep -oE -e '--[a-z-]+')
done < <("$xpacl" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')

"$xpacl" reference --format man --folder "$dir/man1"
expect "pages" "$("$xpacl" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/xpacl-\1.1/p' |
  cat - <(echo xpacl.1) | LC_ALL=C sort)" "$(cd "$dir/man1" && printf '%s\n' ./* | sed 's/^..//' | LC_ALL=C sort)"
if command -v groff >/dev/null; then
  expect "warnings of groff" "" "$(groff -man -Tutf8 -ww -z "$dir"/man1/*.1 2>&1)"
fi

# Completion, as bash would ask for it: complete WORD..., the last one unfinished.
"$xpacl" reference --format bash >"$dir/xpacl.bash"
complete() {
  bash -c 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _xpacl 2>/dev/null; echo "${COMPREPLY[*]}"' \
    "$dir/xpacl.bash" "$@"
}
expect "commands" "plan" "$(complete xpacl pl)"
expect "options" "--from --format" "$(complete xpacl plan --f)"
expect "a choice" "cli classbench" "$(complete xpacl plan --format c)"
expect "a choice by place" "counters" "$(complete xpacl show --tcam ingressV4=9 a.conf c)"
expect "files" "$source/examples/campus.conf" "$(complete xpacl plan "$source/examples/campus.c")"
"$xpacl" reference --format zsh >"$dir/_xpacl"
if command -v zsh >/dev/null; then
  zsh -n "$dir/_xpacl"
fi
status=0
said=$("$xpacl" reference --format man 2>&1) || status=$?
expect "no folder" "2 xpacl: --format man writes several pages: name their folder with --folder" "$status $said"
echo "Commands, pages and completion agree with --help."
