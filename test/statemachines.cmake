# The library's second half, the ACL-id state machines, over an SDK that records.
xpacl_test_support(machines_test_support FILES RecordingIfSdk MachinesUnderTest
                   ROOMS XpAclTcam platform patterns)
xpacl_tests(sm_tests
            FILES sm_values sm_status sm_port_acl sm_route_acl sm_egress sm_pairs sm_dump sm_chip sm_system sm_chain
            ROOMS machines_test_support)
