# The library's first half, the helper and its books, over an SDK that records.
xpacl_test_support(library_test_support FILES RecordingSdk HelperUnderTest ROOMS XpAclTcam platform patterns)
# g++ 12 warns falsely of overlapping copies when texts are joined (GCC bug 105651).
target_compile_options(library_test_support PUBLIC $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
xpacl_tests(lib_tests
            FILES lib_values lib_platform lib_types lib_init lib_stage lib_program lib_commit lib_counters lib_dump
                  lib_block lib_audit lib_hooks
            ROOMS library_test_support valueLaws)
