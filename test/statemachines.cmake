# The library's second half, the ACL-id state machines, over an SDK that records.
xpacl_tests(sm_tests
            FILES sm_values sm_status sm_port_acl sm_route_acl sm_egress sm_pairs sm_dump sm_chip sm_system sm_chain
            SUPPORT RecordingIfSdk MachinesUnderTest
            ROOMS XpAclTcam platform patterns)
