# A Debian package of what cmake/Install.cmake installs: `cpack -G DEB` in the build folder, or ./dev package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME xpacltcam)
set(CPACK_PACKAGE_CONTACT "XpAclTcam maintainers <maintainers@users.noreply.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "ACL TCAM driver for switch chips of the XP family")
set(CPACK_PACKAGE_DESCRIPTION
"Compiles access lists (IPv4, IPv6, MAC) into the ACL TCAMs of switch chips and
replaces them without a moment in which a packet meets half a policy.
.
The package has the driver library with its headers, a simulated chip, a
reference agent, and xpacl, which plans, replays captures, explains verdicts
and proves changes.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The package's own libraries, which dpkg-shlibdeps cannot find among the installed ones.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/XpAclTcam)
# For those who compile with it.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "g++, cmake, pkg-config, libpcap-dev, bash-completion")
# The loader's cache is renewed by a trigger, and packages of programs that use the libraries depend on this
# very version.
configure_file(packaging/triggers ${PROJECT_BINARY_DIR}/debian/triggers COPYONLY)
configure_file(packaging/shlibs.in ${PROJECT_BINARY_DIR}/debian/shlibs @ONLY)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/triggers ${PROJECT_BINARY_DIR}/debian/shlibs)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
include(CPack)
