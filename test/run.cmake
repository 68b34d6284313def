# Scenarios, and captures that enter at several ports.
if(TARGET xpacl)
  foreach(area run run_refuse run_merge)
    xpacl_test(${area}_test packet)
    target_compile_definitions(${area}_test PRIVATE XPACL_TOOL="$<TARGET_FILE:xpacl>")
    add_dependencies(${area}_test xpacl)
  endforeach()
endif()
