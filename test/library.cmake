# The library's first half, the helper and its books, over an SDK that records.
add_library(library_test_support STATIC RecordingSdk.cpp HelperUnderTest.cpp)
target_link_libraries(library_test_support PUBLIC XpAclTcam platform patterns PRIVATE xpacl_flags)
# g++ 12 warns falsely of overlapping copies when texts are joined (GCC bug 105651).
target_compile_options(library_test_support PUBLIC $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
target_include_directories(library_test_support PUBLIC ${PROJECT_SOURCE_DIR})

foreach(area values platform types init stage program commit counters dump block audit hooks)
  xpacl_test(lib_${area}_test library_test_support)
endforeach()
