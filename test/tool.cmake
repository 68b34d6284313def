# The tool is run as people run it: exit status, standard output, standard error.
if(TARGET xpacl)
  xpacl_test(tool_test)
  target_compile_definitions(tool_test PRIVATE XPACL_TOOL="$<TARGET_FILE:xpacl>")
  add_dependencies(tool_test xpacl)
endif()
