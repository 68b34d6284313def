# The sanitizers have nothing to say about headers.
if(XPACL_SANITIZE)
  return()
endif()

# Every header must compile alone, and twice in one file: one source file a header is made here and
# compiled with the same warnings as the rooms. Part of the default build, so a header that leans on
# what its users happen to include before it breaks the build. Standard headers are precompiled, so those
# that a header names are left to include_names_test.
set(headers_alone_sources)
foreach(room platform XpAclTcam sim packet agent verify tool)
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/${room}/*.h)
  foreach(header ${headers})
    string(REGEX REPLACE "^platform/" "" include ${header})
    string(REGEX REPLACE "\\.h$" ".cpp" source ${header})
    set(source ${CMAKE_CURRENT_BINARY_DIR}/headers_alone/${source})
    file(CONFIGURE OUTPUT ${source} CONTENT "#include \"${include}\"\n#include \"${include}\"\n")
    list(APPEND headers_alone_sources ${source})
  endforeach()
endforeach()
add_library(headers_alone OBJECT ${headers_alone_sources})
target_link_libraries(headers_alone PRIVATE XpAclTcam sim packet agent verify xpacl_flags)
# They hold no code worth optimising.
target_compile_options(headers_alone PRIVATE -O0)
xpacl_precompile(headers_alone standard.h)
