# What people install, and what they read in it.
if(XPACL_SANITIZE)
  # Programs that load a library with sanitizers need them too.
  set(xpacl_install_flags "-fsanitize=address,undefined")
endif()
add_test(NAME install
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/install_test.sh ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}
                 ${xpacl_install_flags})
if(NOT XPACL_SANITIZE)
  # Nobody packs sanitizers.
  add_test(NAME package
           COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/package_test.sh ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
  set_tests_properties(package PROPERTIES SKIP_RETURN_CODE 77)
endif()
add_test(NAME dependencies COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/dependencies_test.sh)
add_test(NAME reference
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/reference_test.sh $<TARGET_FILE:xpacl> ${PROJECT_SOURCE_DIR})

# What the documents show is what the commands say.
find_package(Python3 COMPONENTS Interpreter)
if(Python3_FOUND)
  add_test(NAME docs
           COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/docs_test.py $<TARGET_FILE:xpacl>
                   ${PROJECT_SOURCE_DIR})
endif()

if(NOT XPACL_SANITIZE)
  # It reads sources, which are the same for every build.
  add_test(NAME api_reference COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/api_test.sh ${PROJECT_SOURCE_DIR})
  set_tests_properties(api_reference PROPERTIES SKIP_RETURN_CODE 77)
endif()
