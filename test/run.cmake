# Scenarios, and captures that enter at several ports.
foreach(area run run_refuse run_merge)
  xpacl_tool_test(${area}_test packet)
endforeach()
