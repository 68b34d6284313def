# Documents of the OpenConfig models: what is read, what is refused, what is written.
xpacl_test(openconfig_read_test configSummary)
xpacl_test(openconfig_document_test configSummary)
xpacl_test(openconfig_convert_test toolCommands)
# The tool is run as people run it.
if(TARGET xpacl)
  xpacl_test(openconfig_tool_test)
  target_compile_definitions(openconfig_tool_test PRIVATE XPACL_TOOL="$<TARGET_FILE:xpacl>")
  add_dependencies(openconfig_tool_test xpacl)
endif()
