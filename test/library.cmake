# The library's first half, the helper and its books, over an SDK that records.
xpacl_tests(lib_tests
            FILES lib_values lib_platform lib_types lib_init lib_stage lib_program lib_commit lib_counters lib_dump
                  lib_block lib_audit lib_hooks
            SUPPORT RecordingSdk HelperUnderTest
            ROOMS XpAclTcam platform patterns valueLaws)
