# The tool is run as people run it: exit status, standard output, standard error.
if(TARGET xpacl)
  foreach(area tool tool_show)
    xpacl_test(${area}_test)
    target_compile_definitions(${area}_test PRIVATE XPACL_TOOL="$<TARGET_FILE:xpacl>")
    add_dependencies(${area}_test xpacl)
  endforeach()
endif()
