# Checks of the project as a whole: directions between the rooms, and what the library links and exports.
xpacl_tests(include_tests FILES include_rules include_names ROOMS patterns)

if(NOT XPACL_SANITIZE)
  # Sanitizer runtimes add libraries and symbols of their own.
  add_test(NAME library_surface
           COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/library_surface.sh
                   $<TARGET_FILE:XpAclTcam> $<TARGET_FILE:platform>)
  add_test(NAME library_surface_refuses
           COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/library_surface_test.sh)
endif()

add_test(NAME dev_commands COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/dev_test.sh)
