#!/usr/bin/env bash
# package_test.sh BUILD SOURCE: makes the Debian package and looks into it. Ends with 77 where there is no dpkg.
set -euo pipefail
build=$1 source=$2
for command in dpkg-deb dpkg-shlibdeps cpack; do
  command -v "$command" >/dev/null || { echo "no $command here"; exit 77; }
done
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

fault() { echo "$1" >&2; exit 1; }

(cd "$build" && cpack -G DEB -B "$dir") >"$dir/log" 2>&1 || { cat "$dir/log" >&2; exit 1; }
package=("$dir"/*.deb)
[[ ${#package[@]} -eq 1 ]] || fault "not one package: ${package[*]}"

# Every file by its name, with numbers of versions and the room's headers folded.
version=$(dpkg-deb -f "${package[0]}" Version)
dpkg-deb -c "${package[0]}" | awk '$1 !~ /^d/ {print $6}' | sed "s/${version//./\\.}/VERSION/" | sort >"$dir/files"
for wanted in ./usr/bin/xpacl ./usr/lib/libXpAclTcam.so.VERSION ./usr/lib/libXpAclPlatform.so.VERSION \
  ./usr/lib/libXpAclTcam.so ./usr/lib/libXpAclSim.a ./usr/lib/libXpAclAgent.a ./usr/lib/libXpAclAgentConfig.a \
  ./usr/lib/libXpAclPacket.a ./usr/lib/cmake/XpAclTcam/XpAclTcamConfig.cmake ./usr/lib/pkgconfig/xpacltcam.pc \
  ./usr/lib/pkgconfig/xpaclplatform.pc ./usr/include/xpacl/XpAclTcam/XpAclTcamTypes.h \
  ./usr/include/xpacl/platform/Vane/Vane.h ./usr/include/xpacl/sim/System.h ./usr/include/xpacl/agent/Agent.h \
  ./usr/include/xpacl/packet/Packet.h ./usr/share/doc/xpacltcam/copyright ./usr/share/doc/xpacltcam/changelog.gz \
  ./usr/share/doc/xpacltcam/DEPENDENCIES ./usr/share/doc/xpacltcam/examples/campus.conf \
  ./usr/share/man/man1/xpacl.1.gz ./usr/share/bash-completion/completions/xpacl \
  ./usr/share/zsh/vendor-completions/_xpacl; do
  # Headers and libraries stand where the build was told that libraries go.
  grep -qxF "$wanted" "$dir/files" || grep -qE "^./usr/lib/[^/]*-linux-gnu${wanted#./usr/lib}$" "$dir/files" ||
    fault "the package lacks $wanted"
done
! grep -vE '^\./usr/(bin|lib|include/xpacl|share)/' "$dir/files" || fault "files outside of /usr"

# Every command has its page, and every library that it depends on is in DEPENDENCIES.
dpkg-deb -x "${package[0]}" "$dir/root"
export PATH=$dir/root/usr/bin:$PATH
[[ $(xpacl --version) == "xpacl $version" ]] || fault "the packed xpacl says $(xpacl --version)"
while read -r command; do
  [[ -s $dir/root/usr/share/man/man1/xpacl-$command.1.gz ]] || fault "no manual page of $command"
done < <(xpacl --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z-]*\) .*/\1/p')
while read -r library; do
  grep -q "^$library " "$source/DEPENDENCIES" || fault "the package needs $library, which DEPENDENCIES does not name"
done < <(dpkg-deb -f "${package[0]}" Depends | tr ',' '\n' | sed 's/^ *//; s/ .*//')
echo "$(basename "${package[0]}"): $(wc -l <"$dir/files") files; needs $(dpkg-deb -f "${package[0]}" Depends)"
