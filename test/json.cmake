# What commands print for machines, and the live view's picture.
xpacl_tool_test(json_test)
xpacl_tool_test(top_test)
if(TARGET json_test)
  target_sources(json_test PRIVATE JsonSchema.cpp)
endif()
