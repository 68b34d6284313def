# Documents of the OpenConfig models: what is read, what is refused, what is written.
xpacl_test(openconfig_read_test configSummary)
xpacl_test(openconfig_document_test configSummary)
xpacl_test(openconfig_convert_test toolCommands)
