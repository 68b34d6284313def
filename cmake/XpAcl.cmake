include(GNUInstallDirs)

# One interface target carries the warnings and sanitizers that every room is built with.
add_library(xpacl_flags INTERFACE)
target_compile_options(xpacl_flags INTERFACE -Wall -Wextra -Werror
  # g++ 12 warns falsely of overlapping copies where texts are joined (GCC bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # It looks for memory that it no longer needs only beyond so many KiB, which no file here takes: a tenth to a
  # fifth of the time for a seventh more memory.
  $<$<CXX_COMPILER_ID:GNU>:--param=ggc-min-heapsize=1000000>)
if(XPACL_SANITIZE)
  target_compile_options(xpacl_flags INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
    # The checks that g++ adds confuse its own warnings of uninitialised values; the plain builds keep them.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized -Wno-error>)
  target_link_options(xpacl_flags INTERFACE -fsanitize=address,undefined)
endif()
if(XPACL_FUZZ)
  target_compile_options(xpacl_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()

# For what is compiled more often than it runs: reading, deciding what to do, printing. The library, the simulated
# chip and the packet sets, which all of it calls, are optimised as the build says. docs/performance.md has what
# this costs.
if(XPACL_SANITIZE)
  # The checks make twice the code.
  set(xpacl_quick -O0)
else()
  set(xpacl_quick $<$<CONFIG:Release>:-Og>)
endif()

# xpacl_precompile(TARGET HEADER): compiles cmake/precompiled/HEADER once for all files of the target.
function(xpacl_precompile target header)
  target_precompile_headers(${target} PRIVATE ${PROJECT_SOURCE_DIR}/cmake/precompiled/${header})
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    # Lets ccache see through the precompiled header.
    target_compile_options(${target} PRIVATE -fpch-preprocess)
  endif()
endfunction()

# xpacl_standard_precompiled(TARGET): the standard headers, precompiled once for all rooms that ask for them, which
# must be compiled alike. Nobody replaces single functions of these rooms, so their own calls need not go through the
# loader.
function(xpacl_standard_precompiled target)
  target_compile_options(${target} PRIVATE -fno-semantic-interposition)
  target_precompile_headers(${target} REUSE_FROM standard_precompiled)
endfunction()
add_library(standard_precompiled OBJECT ${PROJECT_SOURCE_DIR}/cmake/precompiled/empty.cpp)
target_link_libraries(standard_precompiled PRIVATE xpacl_flags)
target_compile_options(standard_precompiled PRIVATE -fno-semantic-interposition)
xpacl_precompile(standard_precompiled standard.h)

# xpacl_compile_as_room(PROGRAM): compiles a program as the rooms, which are libraries, to share a precompiled header.
function(xpacl_compile_as_room program)
  set_target_properties(${program} PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(${program} PRIVATE -fPIC)
endfunction()

# xpacl_at_once(TARGET [COUNT]): compiles so many of its sources at once. What templates cost, those of the standard
# library and of the large header-only ones, is paid once for all of them, which makes a clean build several times as
# fast; what it costs is that names without linkage must differ between sources.
function(xpacl_at_once target)
  if(XPACL_UNITY)
    set(count 24)
    if(ARGC GREATER 1)
      set(count ${ARGV1})
    endif()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${count})
  endif()
endfunction()

# xpacl_room(NAME [DEPENDS room...] [EXCLUDE folder...]): a static library of all .cpp files of the
# current folder and the folders below it, without the excluded ones (rooms of their own). A room without sources becomes a header-only (interface) target.
# The include root is the repository root, except for platform/, which is its own include root.
function(xpacl_room name)
  cmake_parse_arguments(ROOM "" "" "DEPENDS;EXCLUDE" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  foreach(folder ${ROOM_EXCLUDE})
    list(FILTER sources EXCLUDE REGEX "^${CMAKE_CURRENT_SOURCE_DIR}/${folder}/")
  endforeach()
  if(sources)
    add_library(${name} STATIC ${sources})
    target_link_libraries(${name} PUBLIC ${ROOM_DEPENDS} PRIVATE $<BUILD_INTERFACE:xpacl_flags>)
    target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
                                              $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/xpacl>)
  else()
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${ROOM_DEPENDS})
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR})
  endif()
endfunction()
