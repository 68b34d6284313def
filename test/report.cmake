# Reports, as data and as a page in a real browser. Without a browser the page's own cases say that they are skipped.
xpacl_tool_test(report_test)
xpacl_tool_test(report_page_test)
if(TARGET report_page_test)
  target_sources(report_page_test PRIVATE BrowserUnderTest.cpp)
  target_compile_definitions(report_page_test PRIVATE XPACL_ARTEFACTS="${CMAKE_BINARY_DIR}/artefacts")
endif()
