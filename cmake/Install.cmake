# What is installed: the libraries with their headers (CMake package XpAclTcam, pkg-config files), the tool with
# manual pages and completion, and the documents. cmake/Package.cmake makes a Debian package of the same.
include(CMakePackageConfigHelpers)

set(xpacl_headers ${CMAKE_INSTALL_INCLUDEDIR}/xpacl)
set(xpacl_package ${CMAKE_INSTALL_LIBDIR}/cmake/XpAclTcam)
set(xpacl_docs ${CMAKE_INSTALL_DATAROOTDIR}/doc/xpacltcam)

# Below 1.0 each minor version may change the libraries' interfaces, hence its place in their names.
set_target_properties(XpAclTcam platform PROPERTIES
                      VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
# The library finds the platform library beside itself, and the tool finds both, wherever they are put.
set_target_properties(XpAclTcam PROPERTIES INSTALL_RPATH "$ORIGIN")
file(RELATIVE_PATH xpacl_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(xpacl PROPERTIES INSTALL_RPATH "$ORIGIN/${xpacl_bin_to_lib}")

# The static libraries stand among those of everybody else and need names of their own.
foreach(room sim packet agent agentConfig)
  string(SUBSTRING ${room} 0 1 initial)
  string(SUBSTRING ${room} 1 -1 rest)
  string(TOUPPER ${initial} initial)
  set_target_properties(${room} PROPERTIES OUTPUT_NAME XpAcl${initial}${rest})
endforeach()

install(TARGETS XpAclTcam platform sim packet agent agentConfig EXPORT XpAclTcamTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS xpacl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY XpAclTcam platform sim packet agent DESTINATION ${xpacl_headers} FILES_MATCHING PATTERN "*.h")

# --- CMake package and pkg-config -------------------------------------------------------------------------------

install(EXPORT XpAclTcamTargets NAMESPACE XpAclTcam:: FILE XpAclTcamTargets.cmake DESTINATION ${xpacl_package})
configure_package_config_file(cmake/XpAclTcamConfig.cmake.in ${PROJECT_BINARY_DIR}/XpAclTcamConfig.cmake
                              INSTALL_DESTINATION ${xpacl_package}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/XpAclTcamConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/XpAclTcamConfig.cmake ${PROJECT_BINARY_DIR}/XpAclTcamConfigVersion.cmake
        DESTINATION ${xpacl_package})

# The files name their prefix relative to where they stand, so that an installation can be moved.
file(RELATIVE_PATH xpacl_pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" xpacl_pc_to_prefix ${xpacl_pc_to_prefix})
foreach(file xpaclplatform xpacltcam xpaclsim xpaclagent)
  configure_file(packaging/${file}.pc.in ${PROJECT_BINARY_DIR}/${file}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${file}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()

# --- Manual pages, completion, documents ------------------------------------------------------------------------

# All of them are what the tool itself says.
set(xpacl_reference ${PROJECT_BINARY_DIR}/reference)
add_custom_command(
  OUTPUT ${xpacl_reference}/stamp
  COMMAND ${CMAKE_COMMAND} -E rm -rf ${xpacl_reference}
  COMMAND xpacl reference --format man --folder ${xpacl_reference}/man1
  COMMAND ${CMAKE_COMMAND} -E make_directory ${xpacl_reference}/bash ${xpacl_reference}/zsh
  COMMAND xpacl reference --format bash > ${xpacl_reference}/bash/xpacl
  COMMAND xpacl reference --format zsh > ${xpacl_reference}/zsh/_xpacl
  COMMAND sh -c "gzip -9n ${xpacl_reference}/man1/*"
  COMMAND ${CMAKE_COMMAND} -E touch ${xpacl_reference}/stamp
  DEPENDS xpacl
  COMMENT "Asking xpacl for its manual pages and completion"
  VERBATIM)
add_custom_target(reference ALL DEPENDS ${xpacl_reference}/stamp)

install(DIRECTORY ${xpacl_reference}/man1 DESTINATION ${CMAKE_INSTALL_MANDIR})
install(FILES ${xpacl_reference}/bash/xpacl DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(FILES ${xpacl_reference}/zsh/_xpacl DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
install(FILES README.md DEPENDENCIES packaging/copyright DESTINATION ${xpacl_docs})
install(DIRECTORY docs/ DESTINATION ${xpacl_docs}/docs FILES_MATCHING PATTERN "*.md" PATTERN "*.json")
install(DIRECTORY examples DESTINATION ${xpacl_docs} PATTERN "__pycache__" EXCLUDE)

set(xpacl_changelog ${PROJECT_BINARY_DIR}/changelog.gz)
add_custom_command(OUTPUT ${xpacl_changelog}
                   COMMAND gzip -9nc ${PROJECT_SOURCE_DIR}/packaging/changelog > ${xpacl_changelog}
                   DEPENDS packaging/changelog
                   VERBATIM)
add_custom_target(changelog ALL DEPENDS ${xpacl_changelog})
install(FILES ${xpacl_changelog} DESTINATION ${xpacl_docs})
