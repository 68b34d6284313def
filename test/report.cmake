# The page of a report in a real browser; without one its cases say that they are skipped.
xpacl_tool_tests(report_page_test FILES report_page ROOMS)
if(TARGET report_page_test)
  target_sources(report_page_test PRIVATE BrowserUnderTest.cpp)
  xpacl_at_once(report_page_test 6)
  target_compile_definitions(report_page_test PRIVATE XPACL_ARTEFACTS="${CMAKE_BINARY_DIR}/artefacts")
endif()
