# Exact sets of packets: the diagrams, the lists' side, and the commands that stand on them.
xpacl_test(sets_engine_test randomLists verify)
xpacl_test(sets_lines_test randomLists verify)
xpacl_test(sets_lint_test randomLists verify)
xpacl_test(sets_diff_test randomLists verify)
xpacl_test(sets_verify_test randomLists toolCommands)
xpacl_tool_test(sets_tool_test toolCommands)
