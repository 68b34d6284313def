# The library's second half, the ACL-id state machines, over an SDK that records.
add_library(machines_test_support STATIC RecordingIfSdk.cpp MachinesUnderTest.cpp)
target_link_libraries(machines_test_support PUBLIC XpAclTcam platform patterns PRIVATE xpacl_flags)
target_include_directories(machines_test_support PUBLIC ${PROJECT_SOURCE_DIR})

foreach(area values status port_acl route_acl egress pairs dump chip system chain)
  xpacl_test(sm_${area}_test machines_test_support)
endforeach()
