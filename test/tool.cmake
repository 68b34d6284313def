# The tool is run as people run it: exit status, standard output, standard error; what it prints for machines,
# the live view's picture, reports, scenarios. Its parts from within, and certificates of changes that were proven
# write by write. The page of a report in a real browser; without one its cases say that they are skipped.
if(TARGET xpacl)
  xpacl_tests(tool_tests
              FILES tool tool_show json report report_page run run_merge openconfig_tool openconfig_convert
                    certificate sets_tool sets_verify chip_audit top run_refuse
              SUPPORT ToolUnderTest BrowserUnderTest JsonSchema
              ROOMS listsAndChips patterns toolCommands)
  target_compile_definitions(tool_tests PRIVATE XPACL_TOOL="$<TARGET_FILE:xpacl>"
                                                XPACL_ARTEFACTS="${CMAKE_BINARY_DIR}/artefacts")
  add_dependencies(tool_tests xpacl)
endif()
