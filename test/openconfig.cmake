# Documents of the OpenConfig models: what is read, what is refused, what is written.
xpacl_test(openconfig_read_test configSummary)
xpacl_test(openconfig_document_test configSummary)
xpacl_test(openconfig_convert_test toolCommands)
# The tool is run as people run it.
xpacl_tool_test(openconfig_tool_test)
