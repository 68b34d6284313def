# What an agent with its own SDK needs: the two libraries, their headers and a CMake package
# (find_package(XpAclTcam), target XpAclTcam::XpAclTcam).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(xpacl_headers ${CMAKE_INSTALL_INCLUDEDIR}/xpacl)
set(xpacl_package ${CMAKE_INSTALL_LIBDIR}/cmake/XpAclTcam)

# The library finds the platform library beside itself, wherever both are put.
set_target_properties(XpAclTcam PROPERTIES INSTALL_RPATH "$ORIGIN")

install(TARGETS XpAclTcam platform EXPORT XpAclTcamTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY XpAclTcam platform DESTINATION ${xpacl_headers} FILES_MATCHING PATTERN "*.h")
install(EXPORT XpAclTcamTargets NAMESPACE XpAclTcam:: FILE XpAclTcamTargets.cmake DESTINATION ${xpacl_package})

file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/XpAclTcamConfig.cmake
     CONTENT "include(\"\${CMAKE_CURRENT_LIST_DIR}/XpAclTcamTargets.cmake\")\n" @ONLY)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/XpAclTcamConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/XpAclTcamConfig.cmake ${PROJECT_BINARY_DIR}/XpAclTcamConfigVersion.cmake
        DESTINATION ${xpacl_package})
