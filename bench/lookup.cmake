xpacl_bench(lookup_bench sim)
if(TARGET lookup_bench)
  target_sources(lookup_bench PRIVATE ClassBenchSets.cpp)
endif()

# The search beside a peer's, where that is installed; ./dev bench --peers builds and runs it.
find_path(peerAclHeaders rte_acl.h PATH_SUFFIXES dpdk)
find_path(peerAclConfig rte_config.h PATHS /usr/include/${CMAKE_LIBRARY_ARCHITECTURE}/dpdk PATH_SUFFIXES dpdk)
find_library(peerAclLibrary rte_acl)
find_library(peerEalLibrary rte_eal)
if(TARGET lookup_bench AND peerAclHeaders AND peerAclConfig AND peerAclLibrary AND peerEalLibrary)
  add_executable(acl_peer EXCLUDE_FROM_ALL peers/acl_peer.cpp ClassBenchSets.cpp)
  target_link_libraries(acl_peer PRIVATE sim xpacl_flags ${peerAclLibrary} ${peerEalLibrary})
  target_include_directories(acl_peer PRIVATE ${PROJECT_SOURCE_DIR})
  target_include_directories(acl_peer SYSTEM PRIVATE ${peerAclHeaders} ${peerAclConfig})
  target_compile_definitions(acl_peer PRIVATE XPACL_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  # Its headers expect the least processor that Debian built it for.
  target_compile_options(acl_peer PRIVATE -include rte_config.h -march=corei7)
endif()
