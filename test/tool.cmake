# The tool is run as people run it: exit status, standard output, standard error.
xpacl_tool_test(tool_test)
xpacl_tool_test(tool_show_test)
