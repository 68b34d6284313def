# The tool is run as people run it: exit status, standard output, standard error; what it prints for machines,
# the live view's picture, reports, scenarios.
xpacl_tool_tests(tool_tests
                 FILES tool tool_show top json report run run_refuse run_merge openconfig_tool
                 ROOMS packet)
if(TARGET tool_tests)
  target_sources(tool_tests PRIVATE JsonSchema.cpp)
endif()

# Its parts from within, and certificates of changes that were proven write by write.
xpacl_tool_tests(commands_tests
                 FILES sets_verify sets_tool certificate chip_audit openconfig_convert
                 ROOMS randomLists patterns toolCommands)
